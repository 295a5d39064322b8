// Remote hosts at scale: N hosts behind 64 VTEPs through VxlanMacAddrSm, the
// platform's host writer and a chip that answers at once, on the wall clock.
// The L2Rib has learned the hosts in one burst when the clock starts; the
// writer writes them into the host table in slices of its own quantum, and
// the run ends when every host has its status row and stands in the
// forwarding database. Reported: hosts per second, heap bytes per host
// (everything but the simulated chip's table), the longest run of the
// machine's quantum, and the longest loop turn with the host rows that the
// writer wrote, the machine resolved and the forwarding database learned in
// it.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>

#include "sim/SimPlatform.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kVteps = 64;
Wire::IntfId const kVti("Vxlan1");

Sim::PlatformConfig wallClockPlatform(std::size_t hosts) {
  Sim::PlatformConfig config;
  config.realTime = true;
  config.vniSynchronous = true;
  config.macTableSize = hosts + kVteps;
  config.tunnelLayer.tunnels = 2 * kVteps;
  config.tunnelLayer.nextHops = 4 * kVteps;
  config.maxRemoteVteps = 2 * kVteps;
  return config;
}

Wire::IpAddr vtepAddress(std::size_t i) {
  return Wire::IpAddr(0x0a010000U + static_cast<std::uint32_t>(i % kVteps) + 1);
}

Bridging::MacVlanPair hostKey(std::size_t i, int vlan) {
  std::array<std::uint8_t, 6> bytes{2,
                                    0,
                                    static_cast<std::uint8_t>(i >> 24),
                                    static_cast<std::uint8_t>(i >> 16),
                                    static_cast<std::uint8_t>(i >> 8),
                                    static_cast<std::uint8_t>(i)};
  return Bridging::MacVlanPair(Wire::EthAddr(bytes), Bridging::VlanId(vlan));
}

// The heap's bytes, and the large tables' blocks that are mapped beside it.
std::size_t heapInUse() {
  struct mallinfo2 const info = ::mallinfo2();
  return info.uordblks + info.hblkhd + Rxn::largeBlockBytesInUse();
}

// The host rows, status rows and forwarding database entries that stand.
struct Rows {
  std::size_t hosts = 0;
  std::size_t resolved = 0;
  std::size_t learned = 0;
};

Rows rowsOf(Sim::Platform& platform) {
  return Rows{platform.rmacInfoDir()->hostTable()->entrys(), platform.rmacInfoDir()->hostStatusTable()->statusEntrys(),
              platform.vxlanHwStatusDir()->fdbStatus()->learnedHosts()};
}

// The longest turn, and what it did: rows written, resolved and learned.
struct Run {
  double longestTurn = 0.0;
  Rows longestTurnDid;
};

void turn(Sim::Platform& platform, Run& run) {
  Rows const before = rowsOf(platform);
  Clock::time_point const began = Clock::now();
  platform.activity().runTurn();
  double const took = std::chrono::duration<double>(Clock::now() - began).count();
  if (took > run.longestTurn) {
    Rows const after = rowsOf(platform);
    run.longestTurn = took;
    run.longestTurnDid =
        Rows{after.hosts - before.hosts, after.resolved - before.resolved, after.learned - before.learned};
  }
}

bool allLearned(Sim::Platform& platform, std::size_t hosts) {
  return platform.rmacInfoDir()->hostStatusTable()->statusEntrys() >= hosts &&
         platform.vxlanHwStatusDir()->fdbStatus()->learnedHosts() >= hosts;
}

void remoteMacs(benchmark::State& state, bool vtepsResolvedFirst) {
  std::size_t const count = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Sim::Platform platform(wallClockPlatform(count));
    for (int vlan : {10, 11}) {
      platform.bridgingConfig()->vlanConfigIs(Bridging::VlanId(vlan));
      platform.vlanVniIs(kVti, Bridging::VlanId(vlan), Vxlan::VniExtOrNone(10000 + vlan));
    }
    platform.vti(kVti)->operStatusIs(Interface::IntfOperStatus::intfOperUp);
    platform.runUntilIdle();
    L2Rib::HostOutput& l2Rib = *platform.hostSources().l2RibHosts;
    std::size_t extra = 0;
    if (vtepsResolvedFirst) {
      // One host per VTEP in another VLAN resolves the VTEPs before the clock.
      for (std::size_t i = 0; i < kVteps; ++i) {
        l2Rib.hostIs(L2Rib::HostAndSource(hostKey(i, 11), L2Rib::vxlanDest(vtepAddress(i)), 0));
      }
      platform.runUntilIdle();
      extra = kVteps;
    }
    std::size_t const heapBefore = heapInUse();
    for (std::size_t i = 0; i < count; ++i) {
      l2Rib.hostIs(L2Rib::HostAndSource(hostKey(i, 10), L2Rib::vxlanDest(vtepAddress(i)), 0));
    }
    Run run;
    state.ResumeTiming();
    Clock::time_point const start = Clock::now();
    while (!allLearned(platform, count + extra)) {
      turn(platform, run);
    }
    double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
    state.PauseTiming();
    // The simulated chip's table is the platform's, not the library's.
    // A record and, at the load of a grown index, two slots per row.
    std::size_t const chipBytes =
        platform.macTable().rows.size() *
        (sizeof(std::pair<Bridging::MacVlanPair const, Sim::MacTable::Row>) + 2 * sizeof(Rxn::detail::IndexSlot));
    std::size_t const heapAfter = heapInUse();
    state.counters["macs_per_second"] = static_cast<double>(count) / seconds;
    state.counters["bytes_per_mac"] =
        static_cast<double>(heapAfter - heapBefore - std::min(chipBytes, heapAfter - heapBefore)) /
        static_cast<double>(count);
    state.counters["longest_turn_ms"] = run.longestTurn * 1e3;
    state.counters["longest_turn_written"] = static_cast<double>(run.longestTurnDid.hosts);
    state.counters["longest_turn_resolved"] = static_cast<double>(run.longestTurnDid.resolved);
    state.counters["longest_turn_learned"] = static_cast<double>(run.longestTurnDid.learned);
    state.counters["longest_quantum_ms"] = platform.vxlanMacAddrSm()->longestQuantumRun() * 1e3;
    state.counters["quantum_ms"] = platform.vxlanMacAddrSm()->remoteHostProcessingQuanta() * 1e3;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}

void BM_RemoteMacResolve(benchmark::State& state) {
  remoteMacs(state, true);
}
void BM_RemoteMacResolvePending(benchmark::State& state) {
  remoteMacs(state, false);
}
BENCHMARK(BM_RemoteMacResolve)->Arg(65536)->Arg(1048576)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoteMacResolvePending)->Arg(65536)->Arg(1048576)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

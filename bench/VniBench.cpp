// The VLAN to VNI map switched on whole: 4094 mappings through VniSm into a
// simulated chip that answers within each request, on the wall clock. The
// drain must serve them in slices: the longest single turn of the loop is
// reported beside the rate, and must stay within one quantum plus one VLAN.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "sim/SimPlatform.h"

namespace {

Sim::PlatformConfig wallClockPlatform() {
  Sim::PlatformConfig config;
  config.realTime = true;
  config.vniSynchronous = true;
  return config;
}

void mapAll(Sim::Platform& platform, int count, bool mapped) {
  Rxn::Ptr<Vxlan::VtiStatus> const vti = platform.vti(Wire::IntfId("Vxlan1"));
  for (int vlan = 1; vlan <= count; ++vlan) {
    Vxlan::VniExtOrNone const vni = mapped ? Vxlan::VniExtOrNone(10000 + vlan) : Vxlan::VniExtOrNone();
    platform.vlanVniIs(Wire::IntfId("Vxlan1"), Bridging::VlanId(vlan), vni);
  }
}

double threadSeconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

struct Turns {
  double longestWall = 0.0;
  double longestCpu = 0.0;  // without the time the machine gave other work
  int count = 0;
};

// Runs turns until the map is drained, timing each.
void drain(Sim::Platform& platform, Turns& turns) {
  using Clock = std::chrono::steady_clock;
  for (;;) {
    Clock::time_point const began = Clock::now();
    double const cpu = threadSeconds();
    std::size_t const delivered = platform.activity().runTurn();
    turns.longestCpu = std::max(turns.longestCpu, threadSeconds() - cpu);
    turns.longestWall = std::max(turns.longestWall, std::chrono::duration<double>(Clock::now() - began).count());
    if (delivered == 0) {
      return;
    }
    ++turns.count;
  }
}

void BM_VlanVniMapDrain(benchmark::State& state) {
  int const count = static_cast<int>(state.range(0));
  Sim::Platform platform(wallClockPlatform());
  for (int vlan = 1; vlan <= count; ++vlan) {
    platform.bridgingConfig()->vlanConfigIs(Bridging::VlanId(vlan));
  }
  platform.vti(Wire::IntfId("Vxlan1"))->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  platform.runUntilIdle();
  Fab::VXLAN::VniSm const& sm = *platform.vniSm();
  Turns turns;
  for (auto _ : state) {
    mapAll(platform, count, true);
    drain(platform, turns);
    state.PauseTiming();
    if (sm.config()->configEntrys() != static_cast<std::size_t>(count) || sm.updateLists() != 0) {
      state.SkipWithError("the map did not drain");
      break;
    }
    mapAll(platform, count, false);
    Turns removal;
    drain(platform, removal);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
  state.counters["mappings_per_second"] =
      benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["longest_turn_ms"] = turns.longestWall * 1e3;
  state.counters["longest_turn_cpu_ms"] = turns.longestCpu * 1e3;
  state.counters["turns_per_drain"] = static_cast<double>(turns.count) / static_cast<double>(state.iterations());
  state.counters["quantum_ms"] = sm.vniModifyBacklogQuantum() * 1e3;
}
BENCHMARK(BM_VlanVniMapDrain)->Arg(4094)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

// The cost of a remote VTEP's whole road through VtepSm: the tunnel request
// with its generation, the tunnel layer's answer published in VtepStatus,
// and the removal, on the simulated platform answering at the next turn.

#include <benchmark/benchmark.h>

#include <vector>

#include "sim/SimPlatform.h"

namespace {

Sim::PlatformConfig platformFor(std::uint32_t tunnels) {
  Sim::PlatformConfig config;
  config.tunnelLayer.tunnels = tunnels;
  config.tunnelLayer.nextHops = tunnels;
  config.maxRemoteVteps = tunnels;
  return config;
}

std::vector<Wire::IpAddr> remoteVteps(std::uint32_t count) {
  std::vector<Wire::IpAddr> vteps;
  for (std::uint32_t i = 0; i < count; ++i) {
    vteps.emplace_back((10U << 24) | ((1U << 16) + i));
  }
  return vteps;
}

// N remote VTEPs listed, their tunnels set up and published, then all
// removed and taken down; the time is reported per tunnel.
void BM_TunnelSetupTeardown(benchmark::State& state) {
  auto const count = static_cast<std::uint32_t>(state.range(0));
  Sim::Platform platform(platformFor(count));
  Wire::IntfId const vti("Vxlan1");
  platform.vti(vti)->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  platform.settle();
  std::vector<Wire::IpAddr> const vteps = remoteVteps(count);
  Fab::VXLAN::VtepStatus const& status = *platform.vtepStatusDir()->vtepStatus(vti);
  for (auto _ : state) {
    for (Wire::IpAddr const& vtep : vteps) {
      platform.remoteVtepIs(vti, vtep, true);
    }
    platform.runUntilIdle();
    if (status.hwVtepInfos() != count) {
      state.SkipWithError("not every tunnel was published");
      break;
    }
    for (Wire::IpAddr const& vtep : vteps) {
      platform.remoteVtepIs(vti, vtep, false);
    }
    platform.runUntilIdle();
  }
  state.counters["per_tunnel"] = benchmark::Counter(
      static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
}
BENCHMARK(BM_TunnelSetupTeardown)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

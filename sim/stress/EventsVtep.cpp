// Events of the VTEP subsystem, as the tunnel layer and the data path make
// them: switchovers and learn frames. The remote VTEPs and next hops in use
// follow from the hosts (EventsMac.cpp).

#include "sim/stress/Driver.h"

namespace Stress {

namespace {

using Steps = std::vector<std::string>;
using Fab::VXLAN::FabVxlanState;

Steps switchover(Maker& maker) {
  std::vector<std::string> reachable;
  for (std::string const& vtep : maker.universe().vteps) {
    if (maker.platform().tunnelLayer().reachable(Wire::IpAddr::fromString(vtep))) {
      reachable.push_back(vtep);
    }
  }
  if (reachable.empty()) return {};
  return {"{\"switchover\": " + quoted(maker.pick(reachable)) + "}"};
}

Steps learn(Maker& maker) {
  static std::vector<std::string> const macs = {"0000.1111.2222", "0000.1111.3333"};
  return {"{\"learn\": {\"vtep\": " + quoted(maker.pick(maker.universe().vteps)) +
          ", \"vni\": " + std::to_string(maker.vni()) + ", \"mac\": " + quoted(maker.pick(macs)) + "}}"};
}

}  // namespace

bool Maker::featureUp() const {
  return platform_.agentRunning() && platform_.vxlanInfo()->state() == FabVxlanState::initialized_;
}

std::vector<EventKind> vtepEvents() {
  return {{"switchover", 2, switchover}, {"learn", 1, learn}};
}

}  // namespace Stress

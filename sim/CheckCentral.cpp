// The whole-stack checks of the feature's state and of the VTIs.

#include "sim/StackCheck.h"

namespace Sim {

namespace {

using Fab::VXLAN::FabVxlanState;

bool operUp(Vxlan::VtiStatus const& vti) {
  return vti.operStatus() == Interface::IntfOperStatus::intfOperUp;
}

std::string stateText(Fab::VXLAN::FabVxlanInfo const& info) {
  return "state " + Rxn::valueToString(info.state()) + ", vtep " + Rxn::valueToString(info.vtepSmState()) + ", vni " +
         Rxn::valueToString(info.vniSmState()) + ", mac " + Rxn::valueToString(info.vxlanMacSmState());
}

bool allAt(Platform const& platform, FabVxlanState state) {
  Fab::VXLAN::FabVxlanInfo const& info = *platform.vxlanInfo();
  return info.state() == state && info.vtepSmState() == state && info.vniSmState() == state &&
         info.vxlanMacSmState() == state && (!platform.config().vtepGroupSupported || info.vtepGroupSmState() == state);
}

}  // namespace

bool remoteMacsAtRest(Platform const& platform) {
  return platform.vtepConfigDir()->vtepConfigs() == 0 && platform.vtepConfigDir()->activeNextHopIdLists() == 0 &&
         platform.vniInfo()->activeVxlanVlans() == 0;
}

void checkCentralAfterStep(Checks& checks) {
  Platform& platform = checks.platform();
  if (!platform.agentRunning() || !platform.central()->initialized()) {
    return;
  }
  Vxlan::VtiStatusDir const& dir = *platform.vtiStatusDir();
  Fab::VXLAN::FabVxlanInfo const& info = *platform.vxlanInfo();
  for (auto const& [intf, vti] : dir.vtiStatus()) {
    checks.expect("central-activated-follows-oper-status", info.activatedVti(intf) == operUp(*vti),
                  [&] { return intf.stringValue(); });
    checks.expect("central-hw-status-of-activated-vti",
                  !info.activatedVti(intf) || !!platform.vxlanHwStatusDir()->vxlanHwStatus(intf),
                  [&] { return intf.stringValue(); });
    auto const chip = platform.vtiHardware().vti.find(intf);
    checks.expect("vti-chip-follows-oper-status",
                  chip != platform.vtiHardware().vti.end() && chip->second.operStatus == vti->operStatus(),
                  [&] { return intf.stringValue(); });
  }
  for (auto const& [intf, activated] : info.activatedVti()) {
    checks.expect("central-activated-vti-exists", !!dir.vtiStatus(intf), [&] { return intf.stringValue(); });
  }
  checks.expect("vti-chip-holds-only-vtis", platform.vtiHardware().vti.size() == dir.vtiStatuss());
}

void checkCentralWhenQuiet(Checks& checks) {
  Platform& platform = checks.platform();
  if (!platform.agentRunning() || checks.owesAny()) {
    return;
  }
  Fab::VXLAN::FabVxlanInfo const& info = *platform.vxlanInfo();
  // A stop waits for the remote MAC machine to let go, and a start waits for
  // the stop.
  bool const stopWaits = info.state() == FabVxlanState::cleaning_ && !remoteMacsAtRest(platform);
  if (info.activatedVtis() != 0 && !stopWaits) {
    checks.expect("central-initialized-with-a-vti-up", allAt(platform, FabVxlanState::initialized_),
                  [&] { return stateText(info); });
    return;
  }
  checks.expect(
      "central-not-up-without-a-vti",
      info.activatedVtis() != 0 || info.state() == FabVxlanState::cleaning_ || info.state() == FabVxlanState::clean_,
      [&] { return stateText(info); });
  if (info.activatedVtis() == 0 && remoteMacsAtRest(platform)) {
    checks.expect("central-clean-with-every-vti-down", allAt(platform, FabVxlanState::clean_),
                  [&] { return stateText(info); });
  }
}

}  // namespace Sim

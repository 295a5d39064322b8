// Events of the VTEP subsystem, as the remote MAC machine, the reader of
// VtepStatus, the tunnel layer and the data path make them: remote VTEPs
// needed and released, next hops used and given up, switchovers, learn
// frames.
//
// The remote MAC machine works only while the feature is up: it makes a
// VTI's request list when the VTI is up, lists the VTEPs its hosts resolve
// to, drops single VTEPs whose tunnels it asked for, and withdraws the whole
// list when the VTI goes down.

#include "sim/stress/Driver.h"

namespace Stress {

namespace {

using Steps = std::vector<std::string>;
using Fab::VXLAN::FabVxlanState;

// A VTI for which VtepSm takes requests now.
std::vector<std::string> readyVtis(Maker& maker) {
  if (!maker.featureUp()) return {};
  Sim::Platform& platform = maker.platform();
  return maker.vtisWhere([&platform](auto const& vti) {
    return vti && platform.vxlanInfo()->activatedVti(vti->intfId()) &&
           !!platform.vtepStatusDir()->vtepStatus(vti->intfId());
  });
}

std::string vtepStep(std::string const& vti, char const* change, std::string const& vtep) {
  return "{\"vtep\": {\"vti\": " + quoted(vti) + ", " + quoted(change) + ": [" + quoted(vtep) + "]}}";
}

// A remote VTEP is reached through one VTI at a time, listed or draining: all
// tunnels share one VRF.
bool heldElsewhere(Sim::Platform const& platform, std::string const& vti, std::string const& vtep) {
  Fab::SwTunnelGroupId const id = platform.vtepId(Wire::IpAddr::fromString(vtep));
  for (auto const& [other, config] : platform.vtepConfigDir()->vtepConfig()) {
    if (other.stringValue() != vti && config->remoteVtepList(id)) {
      return true;
    }
  }
  for (auto const& [other, dir] : platform.vtepSm()->vtepInfoDir()) {
    if (other.stringValue() != vti && dir->vtepInfo(id)) {
      return true;
    }
  }
  return false;
}

Steps vtepAdd(Maker& maker) {
  std::vector<std::string> const vtis = readyVtis(maker);
  if (vtis.empty()) return {};
  std::string const vti = maker.pick(vtis);
  std::string const vtep = maker.pick(maker.universe().vteps);
  if (heldElsewhere(maker.platform(), vti, vtep)) return {};
  return {vtepStep(vti, "add", vtep)};
}

// A listed VTEP whose tunnel VtepSm set up: the remote MAC machine asked for
// it while the VTI was ready.
Steps vtepRemove(Maker& maker) {
  std::vector<std::string> const vtis = readyVtis(maker);
  if (vtis.empty()) return {};
  std::string const vti = maker.pick(vtis);
  Sim::Platform& platform = maker.platform();
  Rxn::Ptr<Fab::VXLAN::VtepConfig> const config = platform.vtepConfigDir()->vtepConfig(Wire::IntfId(vti));
  Rxn::Ptr<Fab::VXLAN::VtepInfoDir> const dir = platform.vtepSm()->vtepInfoDir(Wire::IntfId(vti));
  if (!config || !dir) return {};
  std::vector<std::string> removable;
  for (auto const& [id, listed] : config->remoteVtepList()) {
    if (dir->vtepInfo(id)) {
      removable.push_back(platform.swTunnelGroupIdManager()->getTunnelIpFromSwTunnelGroupId(id).stringValue());
    }
  }
  if (removable.empty()) return {};
  return {vtepStep(vti, "remove", maker.pick(removable))};
}

// The request list of a VTI that is down goes at once; now and then the
// machine flushes a VTI that is up, too.
Steps vtepWithdraw(Maker& maker) {
  Sim::Platform& platform = maker.platform();
  if (!platform.agentRunning()) return {};
  std::vector<std::string> const ready = readyVtis(maker);
  std::vector<std::string> candidates;
  for (auto const& [vti, config] : platform.vtepConfigDir()->vtepConfig()) {
    bool const isReady = std::find(ready.begin(), ready.end(), vti.stringValue()) != ready.end();
    if (!isReady || maker.chance(0.2)) {
      candidates.push_back(vti.stringValue());
    }
  }
  if (candidates.empty()) return {};
  return {"{\"vtep\": {\"vti\": " + quoted(maker.pick(candidates)) + ", \"withdraw\": true}}"};
}

// The next hops that VtepStatus publishes in this life of the agent: the
// reader lists only what it read since VtepSm learned it.
std::vector<std::uint32_t> publishedNextHops(Sim::Platform const& platform) {
  std::vector<std::uint32_t> ids;
  for (auto const& [vti, status] : platform.vtepStatusDir()->vtepStatus()) {
    for (auto const& [id, info] : status->hwVtepInfo()) {
      if (info.nextHopId().valid() && !!platform.vtepSm()->nextHopInfo(info.nextHopId())) {
        ids.push_back(info.nextHopId().value());
      }
    }
  }
  return ids;
}

Steps nextHopUse(Maker& maker) {
  if (!maker.featureUp()) return {};
  std::vector<std::uint32_t> const ids = publishedNextHops(maker.platform());
  if (ids.empty()) return {};
  return {"{\"activeNextHop\": {\"add\": [" + std::to_string(maker.pick(ids)) + "]}}"};
}

Steps nextHopRelease(Maker& maker) {
  Sim::Platform& platform = maker.platform();
  if (!platform.agentRunning()) return {};
  std::vector<std::uint32_t> ids;
  for (auto const& [id, active] : platform.vtepConfigDir()->activeNextHopIdList()) {
    ids.push_back(id.value());
  }
  if (ids.empty()) return {};
  return {"{\"activeNextHop\": {\"remove\": [" + std::to_string(maker.pick(ids)) + "]}}"};
}

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
  return {{"vtep-add", 6, vtepAdd},
          {"vtep-remove", 3, vtepRemove},
          {"vtep-withdraw", 2, vtepWithdraw},
          {"next-hop-use", 4, nextHopUse},
          {"next-hop-release", 3, nextHopRelease},
          {"switchover", 2, switchover},
          {"learn", 1, learn}};
}

}  // namespace Stress

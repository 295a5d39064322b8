// The whole-stack checks of the VTEP subsystem: the VTEP hook, the tunnel
// layer and what VtepStatus publishes.

#include "sim/StackCheck.h"

namespace Sim {

namespace {

std::string counters(std::uint32_t config, std::uint32_t status) {
  return "config " + std::to_string(config) + ", status " + std::to_string(status);
}

// The hook's handshakes: every request raised has its answer.
void checkHookAnswered(Checks& checks, FabHelper::FabHelperVtep const& hook) {
  checks.expect("vtep-hook-init-answered", hook.hwInitConfig() == hook.hwInitStatus(),
                [&] { return counters(hook.hwInitConfig(), hook.hwInitStatus()); });
  checks.expect("vtep-hook-cleanup-answered", hook.hwCleanupConfig() == hook.hwCleanupStatus(),
                [&] { return counters(hook.hwCleanupConfig(), hook.hwCleanupStatus()); });
  checks.expect("vtep-hook-learning-answered",
                hook.dataPathLearningDisableConfig() == hook.dataPathLearningDisableStatus() &&
                    hook.dataPathLearningEnableConfig() == hook.dataPathLearningEnableStatus());
  checks.expect("vtep-hook-udp-port-answered", hook.udpPortConfig() == hook.udpPortStatus());
}

// Every tunnel asked for stands, with its answer, and no other does.
void checkTunnelsAnswered(Checks& checks) {
  Platform& platform = checks.platform();
  Fab::FabTunnelConfig const& config = *platform.tunnelConfig();
  Fab::FabTunnelStatus const& status = *platform.tunnelStatus();
  checks.expect("tunnel-layer-init-answered", config.init() == status.init(),
                [&] { return counters(config.init(), status.init()); });
  checks.expect("tunnel-layer-cleanup-answered", config.cleanup() == status.cleanup(),
                [&] { return counters(config.cleanup(), status.cleanup()); });
  std::set<Fab::TunnelKey> const standing = platform.tunnelLayer().tunnelKeys();
  for (auto const& [key, entry] : config.tunnelConfigEntry()) {
    checks.expect("tunnel-answered", standing.count(key) != 0 && !!status.tunnelStatusEntry(key),
                  [&] { return key.stringValue(); });
  }
  checks.expect(
      "tunnel-not-leaked",
      standing.size() == config.tunnelConfigEntrys() && status.tunnelStatusEntrys() == config.tunnelConfigEntrys(),
      [&] {
        return std::to_string(standing.size()) + " standing, " + std::to_string(status.tunnelStatusEntrys()) +
               " answered, " + std::to_string(config.tunnelConfigEntrys()) + " asked for";
      });
  for (std::uint32_t const nhId : platform.tunnelLayer().retiredNextHopIds()) {
    checks.expect("next-hop-not-leaked", platform.tunnelLayer().nextHopHeld(nhId),
                  [&] { return std::to_string(nhId); });
  }
}

// What VtepStatus publishes for the VTIs that VtepSm serves is allocated in
// the tunnel layer. (What an earlier life published stands until the new one
// serves the VTI.)
void checkPublishedAllocated(Checks& checks) {
  Platform& platform = checks.platform();
  SimTunnelLayer const& layer = platform.tunnelLayer();
  for (auto const& [vti, status] : platform.vtepStatusDir()->vtepStatus()) {
    if (!platform.agentRunning() || !platform.vtepSm()->tunnelReady(vti)) {
      continue;
    }
    Rxn::Ptr<Fab::VXLAN::VtepInfoDir> const dir = platform.vtepSm()->vtepInfoDir(vti);
    for (auto const& [id, info] : status->hwVtepInfo()) {
      // Until a hitless recovery ends, what the earlier life published for a
      // VTEP that did not come back stands, as readers still forward by it.
      bool const held = dir && !!dir->vtepInfo(id);
      if (!held) {
        checks.expect("published-vtep-held-after-recovery", platform.vtepSm()->inHitlessRecovery(),
                      [&] { return vti.stringValue() + " " + info.stringValue(); });
        continue;
      }
      checks.expect("published-next-hop-allocated",
                    !info.nextHopId().valid() || !layer.nextHopIdFree(info.nextHopId().value()),
                    [&] { return vti.stringValue() + " " + info.stringValue(); });
      checks.expect("published-tunnel-allocated",
                    !info.tunnelId().valid() || !layer.tunnelIdFree(info.tunnelId().value()),
                    [&] { return vti.stringValue() + " " + info.stringValue(); });
    }
  }
}

// Every VTEP that a VTI VtepSm serves lists, and whose tunnel it set up, is
// published: with a next hop, or as unreachable.
void checkListedVtepsPublished(Checks& checks) {
  Platform& platform = checks.platform();
  for (auto const& [vti, config] : platform.vtepConfigDir()->vtepConfig()) {
    Rxn::Ptr<Fab::VXLAN::VtepStatus> const status = platform.vtepStatusDir()->vtepStatus(vti);
    Rxn::Ptr<Fab::VXLAN::VtepInfoDir> const dir = platform.vtepSm()->vtepInfoDir(vti);
    if (!status || !dir || !platform.vtepSm()->tunnelReady(vti)) {
      continue;
    }
    for (auto const& [id, listed] : config->remoteVtepList()) {
      checks.expect("listed-vtep-published", !dir->vtepInfo(id) || !!status->hwVtepInfo(id),
                    [&] { return vti.stringValue() + " " + id.stringValue(); });
    }
  }
}

}  // namespace

// What the reader uses is allocated; so is what VtepStatus publishes, where
// generation ids tell a tunnel's lives apart. Without them a tunnel asked for
// again while its removal is on its way takes the old answer at once, and a
// draining VTEP's record keeps the ids of the life before.
void checkVtepAfterStep(Checks& checks) {
  Platform& platform = checks.platform();
  for (auto const& [nhId, active] : platform.vtepConfigDir()->activeNextHopIdList()) {
    checks.expect("active-next-hop-allocated", !platform.tunnelLayer().nextHopIdFree(nhId.value()),
                  [&] { return nhId.stringValue(); });
  }
  if (platform.config().useUniqGenId) {
    checkPublishedAllocated(checks);
  }
}

void checkVtepWhenQuiet(Checks& checks) {
  Platform& platform = checks.platform();
  if (!platform.agentRunning() || checks.owes(Platform::Answerer::vtepHook) ||
      checks.owes(Platform::Answerer::tunnelLayer)) {
    return;
  }
  checkHookAnswered(checks, *platform.fabHelperVtep());
  checkTunnelsAnswered(checks);
  if (platform.config().useUniqGenId) {
    checkPublishedAllocated(checks);
  }
  // The learning the feature publishes is the chip's, once no request is out.
  Fab::VXLAN::FabVxlanInfo const& info = *platform.vxlanInfo();
  if (info.vtepSmState() == Fab::VXLAN::FabVxlanState::initialized_ && !platform.vtepSm()->vccModeUpdatePending()) {
    checks.expect("vtep-learning-published-as-in-chip",
                  info.datapathLearning() == platform.vtepHardware().dataPathLearning, [&] {
                    return std::string("published ") + (info.datapathLearning() ? "on" : "off") + ", the chip " +
                           (platform.vtepHardware().dataPathLearning ? "on" : "off");
                  });
  }
  checkListedVtepsPublished(checks);
  // A machine that stopped in this life left the tunnel layer down.
  if (platform.vxlanInfo()->vtepSmState() == Fab::VXLAN::FabVxlanState::clean_ &&
      platform.fabHelperVtep()->hwCleanupConfig() != 0) {
    checks.expect("tunnel-layer-down-when-clean", platform.tunnelConfig()->init() == platform.tunnelConfig()->cleanup(),
                  [&] {
                    return "init " + std::to_string(platform.tunnelConfig()->init()) + ", cleanup " +
                           std::to_string(platform.tunnelConfig()->cleanup());
                  });
  }
  if (platform.vxlanInfo()->activatedVtis() == 0 && remoteMacsAtRest(platform)) {
    SimTunnelLayer const& layer = platform.tunnelLayer();
    checks.expect("tunnel-layer-empty-at-rest", layer.tunnelsInUse() == 0 && layer.nextHopsInUse() == 0, [&] {
      return std::to_string(layer.tunnelsInUse()) + " tunnels, " + std::to_string(layer.nextHopsInUse()) +
             " next hops in use";
    });
    // What an earlier life left stays until this one starts and stops.
    if (platform.fabHelperVtep()->hwCleanupConfig() != 0) {
      checks.expect("vtep-handles-gone-at-rest", platform.vtepHardware().vtepHandles.empty());
    }
  }
}

}  // namespace Sim

// The whole-stack checks of the VLAN to VNI map: the shadow, the handshake
// with the VNI hook, the chip's table, and that no VTI's wish is lost.

#include "sim/StackCheck.h"

namespace Sim {

namespace {

using Fab::VXLAN::FabVxlanState;
using FabHelper::FabHelperVniConfigEntry;

std::string mappingText(Bridging::VlanId const& vlan, Vxlan::VniExtOrNone const& vni, Wire::IntfId const& vti) {
  return "VLAN " + vlan.stringValue() + " VNI " + vni.stringValue() + " on " + vti.stringValue();
}

std::string chipText(VniTable const& chip, Bridging::VlanId const& vlan) {
  auto const found = chip.mappings.find(vlan);
  return found == chip.mappings.end() ? "nothing" : mappingText(vlan, found->second.vni, found->second.vti);
}

bool vlanActive(Platform const& platform, Bridging::VlanId const& vlan) {
  Rxn::Ptr<Bridging::VlanConfig> const config = platform.bridgingConfig()->vlanConfig(vlan);
  return config && config->adminState() == Bridging::VlanAdminState::active;
}

// The VNI that an activated VTI asks for on an active VLAN, or none.
Vxlan::VniExtOrNone wanted(Platform const& platform, Wire::IntfId const& vti, Bridging::VlanId const& vlan) {
  Rxn::Ptr<Vxlan::VtiStatus> const status = platform.vtiStatusDir()->vtiStatus(vti);
  if (!status || !platform.vxlanInfo()->activatedVti(vti) || !vlanActive(platform, vlan)) {
    return Vxlan::VniExtOrNone();
  }
  return status->vlanToVniMap(vlan).vni();
}

// A row of config that the configuration asks for, or that waits for its
// remote MACs to be flushed.
void checkRowWanted(Checks& checks, FabHelperVniConfigEntry const& row) {
  Platform& platform = checks.platform();
  Fab::VXLAN::VniSm& vniSm = *platform.vniSm();
  bool const inForce = platform.vxlanInfo()->state() == FabVxlanState::initialized_ &&
                       wanted(platform, row.vtiIntfId(), row.vlanId()) == row.vni();
  checks.expect("vni-row-wanted", inForce || !!vniSm.pendingRemoveList(row.vlanId()),
                [&] { return mappingText(row.vlanId(), row.vni(), row.vtiIntfId()); });
}

// Every mapping that an activated VTI asks for is in force: in the shadow,
// or visibly unprogrammed for want of room, or held on its VLAN by another
// VTI that asks for it too, or waiting for the flush of the one before.
void checkWishesInForce(Checks& checks) {
  Platform& platform = checks.platform();
  Fab::VXLAN::VniSm& vniSm = *platform.vniSm();
  FabHelper::FabHelperVniConfig const& config = *vniSm.config();
  for (auto const& [vti, status] : platform.vtiStatusDir()->vtiStatus()) {
    for (auto const& [vlan, pair] : status->vlanToVniMap()) {
      Vxlan::VniExtOrNone const vni = wanted(platform, vti, vlan);
      if (!vni.valid() || !!vniSm.pendingRemoveList(vlan)) {
        continue;
      }
      FabHelperVniConfigEntry const row = config.configEntry(vlan);
      bool const heldByAnother = !!row && row.vtiIntfId() != vti && wanted(platform, row.vtiIntfId(), vlan).valid();
      Rxn::Ptr<Fab::VXLAN::VlanVniMapShadow> const shadow = platform.vniInfo()->vlanVniMapShadow(vti);
      bool const inShadow = shadow && shadow->vlanVniMap(vlan).vni() == vni;
      Rxn::Ptr<Vxlan::VxlanHwStatus> const hw = platform.vxlanHwStatusDir()->vxlanHwStatus(vti);
      bool const unprogrammed = hw && hw->pendingVlanToVniMap(vlan) == vni;
      checks.expect("vni-wish-in-force", inShadow || unprogrammed || heldByAnother, [&] {
        return mappingText(vlan, vni, vti) + " asked for; config has " +
               (!!row ? mappingText(vlan, row.vni(), row.vtiIntfId()) : std::string("nothing"));
      });
    }
  }
}

// With every VTI down and the remote MACs flushed, nothing is left.
void checkAtRest(Checks& checks) {
  Platform& platform = checks.platform();
  Fab::VXLAN::VniSm& vniSm = *platform.vniSm();
  checks.expect("vni-empty-at-rest",
                vniSm.config()->configEntrys() == 0 && vniSm.status()->statusEntrys() == 0 &&
                    platform.vniInfo()->vlanVniMapShadows() == 0 && platform.vniTable().mappings.empty(),
                [&] {
                  return std::to_string(vniSm.config()->configEntrys()) + " config rows, " +
                         std::to_string(platform.vniTable().mappings.size()) + " in the chip";
                });
}

}  // namespace

// What the shadow publishes is in the chip.
void checkVniAfterStep(Checks& checks) {
  Platform& platform = checks.platform();
  VniTable const& chip = platform.vniTable();
  for (auto const& [vti, shadow] : platform.vniInfo()->vlanVniMapShadow()) {
    for (auto const& [vlan, entry] : shadow->vlanVniMap()) {
      auto const found = chip.mappings.find(vlan);
      bool const held = found != chip.mappings.end() && found->second.vni == entry.vni() && found->second.vti == vti &&
                        chip.flushing.count(vlan) == 0;
      checks.expect("vni-shadow-in-chip", held, [&] {
        return mappingText(vlan, entry.vni(), vti) + " in the shadow, the chip has " + chipText(chip, vlan);
      });
    }
  }
}

void checkVniWhenQuiet(Checks& checks) {
  Platform& platform = checks.platform();
  if (!platform.agentRunning() || checks.owes(Platform::Answerer::vniHook)) {
    return;
  }
  Fab::VXLAN::VniSm& vniSm = *platform.vniSm();
  FabHelper::FabHelperVniConfig const& config = *vniSm.config();
  FabHelper::FabHelperVniStatus const& status = *vniSm.status();
  checks.expect("vni-hook-init-answered", config.hwInit() == status.hwInit());
  checks.expect("vni-hook-cleanup-answered", config.hwCleanup() == status.hwCleanup());
  checks.expect("vni-update-list-drained", vniSm.updateLists() == 0,
                [&] { return std::to_string(vniSm.updateLists()) + " wishes queued"; });
  for (auto const& [vlan, row] : config.configEntry()) {
    checks.expect("vni-row-answered", status.statusEntry(vlan).vni() == row.vni(),
                  [&] { return mappingText(vlan, row.vni(), row.vtiIntfId()); });
    checkRowWanted(checks, row);
    bool const full = status.statusEntry(vlan).tableAddStatus() == FabTypes::full_;
    checks.expect("vni-full-retried-when-room",
                  !full || platform.vniTable().mappings.size() >= platform.vniTable().capacity,
                  [&] { return mappingText(vlan, row.vni(), row.vtiIntfId()); });
  }
  checks.expect("vni-status-has-config", status.statusEntrys() == config.configEntrys());
  Rxn::Ptr<Fab::VXLAN::VxlanBootStatus> const boot = platform.vxlanBootStatus();
  if (boot->stageVlanVniMappingReady()) {
    for (auto const& [vlan, mapping] : platform.vniTable().mappings) {
      FabHelperVniConfigEntry const row = config.configEntry(vlan);
      checks.expect("vni-chip-holds-only-config", row.vni() == mapping.vni && row.vtiIntfId() == mapping.vti,
                    [&] { return mappingText(vlan, mapping.vni, mapping.vti) + " in the chip"; });
    }
  }
  if (platform.vxlanInfo()->state() == FabVxlanState::initialized_) {
    checkWishesInForce(checks);
  }
  if (platform.vxlanInfo()->activatedVtis() == 0 && remoteMacsAtRest(platform)) {
    checkAtRest(checks);
  }
}

}  // namespace Sim

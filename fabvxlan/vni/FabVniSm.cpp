#include "fabvxlan/vni/FabVniSm.h"

#include <cassert>
#include <set>

#include "fabvxlan/runtime/Log.h"
#include "fabvxlan/runtime/RingLog.h"
#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanVniSm");

namespace Fab::VXLAN {

namespace {

using FabHelper::FabHelperVniConfigEntry;
using FabHelper::FabHelperVniStatusEntry;
using Vni = Vxlan::VniExtOrNone;

Vni const kNoVni;

Rxn::LogHandle const ETH_VNIVLANMAPFULL(
    "ETH_VNIVLANMAPFULL", 4, "Unable to program VLAN %d to VNI %d mapping due to hardware resource exhaustion.",
    "The specified mapping could not be programmed into the switching ASIC. Remote VXLAN packets destined for the "
    "specified VNI from the specified VLAN will not be forwarded.",
    "Reduce the number of such mappings that need to be programmed into the switching ASIC. Please contact your "
    "technical support representative if you need additional assistance.",
    60.0, 1.0, 0);

}  // namespace

// --- Construction --------------------------------------------------------------------

VniSm::VniSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
             Rxn::Ptr<FabVniInfo> const& vniInfo, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
             Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
             Rxn::Ptr<Bridging::Config const> const& bridgingConfig,
             Rxn::Ptr<FabHelper::FabHelperVni> const& fabVniHelper, Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus)
    : FabBaseSm(acsd),
      verifyData_(reactors(), new RxnVerifyData(acsd->verifyData(), this)),
      vxlanInfo_(reactors(), new RxnVxlanInfo(vxlanInfo, this)),
      vniInfo_(reactors(), new RxnVniInfo(vniInfo, this)),
      vtiStatusDir_(reactors(), new RxnVtiStatusDir(vtiStatusDir, this)),
      vxlanHwStatusDir_(vxlanHwStatusDir),
      bridgingConfig_(reactors(), new RxnBridgingConfig(bridgingConfig, this)),
      fabVniHelper_(fabVniHelper),
      vxlanBootStatus_(vxlanBootStatus),
      config_(fabVniHelper->config()),
      helperVniStatus_(reactors(), new RxnHelperVniStatus(fabVniHelper->status(), this)),
      updateClock_(reactors(), new RxnUpdateClock(Rxn::ActivityFacility::clock(), this)),
      vlanConfig_(reactors(), "Fab::VXLAN::VniSm", "vlanConfig"),
      vtiStatus_(reactors(), "Fab::VXLAN::VniSm", "vtiStatus") {
  vlanConfig_.reconcile(this, bridgingConfig->vlanConfig());
  vtiStatus_.reconcile(this, vtiStatusDir->vtiStatus());
}

Rxn::Ptr<VniSm> vniSmFactory(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                             Rxn::Ptr<FabVniInfo> const& vniInfo,
                             Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                             Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                             Rxn::Ptr<Bridging::Config const> const& bridgingConfig,
                             Rxn::Ptr<FabHelper::FabHelperVni> const& fabVniHelper,
                             Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus) {
  return Fab::smFactory<VniSm>(acsd, vxlanInfo, vniInfo, vtiStatusDir, vxlanHwStatusDir, bridgingConfig, fabVniHelper,
                               vxlanBootStatus);
}

// --- The lifecycle ---------------------------------------------------------------------

void VniSm::handleInitialized() {
  RXN_TRACE(8, " Init? " << initialized());
  // What a previous life had left pending is void.
  for (auto const& [vti, hw] : vxlanHwStatusDir_->vxlanHwStatus()) {
    hw->pendingVlanToVniMapDelAll();
  }
  // Before initializedIs: the machine acts first on the next change of state.
  handleVxlanStateUpdate();
  initializedIs(true);
  resumeKeptState();
}

// An agent that kept the feature's state across a restart finds this
// machine's state where the earlier life left it, with a new hook and an
// empty map: the machine takes up its part at once, asking the new hook
// again for an init that was under way.
void VniSm::resumeKeptState() {
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  if (info->vniSmState() == FabVxlanState::clean_) {
    return;
  }
  RXN_TRACE(7, " resuming kept state " << info->state() << " vni state " << info->vniSmState());
  RXN_RING(7, " resuming kept state %s vni state %s", Rxn::valueToString(info->state()),
           Rxn::valueToString(info->vniSmState()));
  if (info->vniSmState() == FabVxlanState::initializing_) {
    config_->hwInitInc(1);
    return;
  }
  handleVxlanStateUpdate();
}

void VniSm::handleVxlanStateUpdate() {
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  RXN_TRACE(8,
            " init? " << initialized() << " new vxlan state " << info->state() << " vni state " << info->vniSmState());
  if (!initialized()) {
    return;
  }
  switch (info->state()) {
    case FabVxlanState::initializing_:
      if (info->vniSmState() != FabVxlanState::clean_) {
        RXN_TRACE(7, "vxlanInfo::vniSmState is not yet clean");
        RXN_RING(7, "vxlanInfo::vniSmState is not yet clean");
        return;
      }
      info->vniSmStateIs(FabVxlanState::initializing_);
      config_->hwInitInc(1);
      RXN_RING(7, " vniSmState initializing_, hwInit %u requested", config_->hwInit());
      return;
    case FabVxlanState::initialized_:
      if (info->vniSmState() != FabVxlanState::initialized_) {
        RXN_TRACE(7, "vxlanInfo::vniSmState is not yet initialized");
        return;
      }
      vlanConfig_.forEach([](RxnVlanConfig* reactor) { reactor->handleInitialized(); });
      maybePublishVlanVniMappingReadyStage();
      return;
    case FabVxlanState::cleaning_:
      info->vniSmStateIs(FabVxlanState::cleaning_);
      flushRemainingRows();
      maybePublishVlanVniMappingReadyStage();
      if (readyForCleanup()) {
        RXN_TRACE(7, "Triggering hardware cleanup");
        RXN_RING(7, "Triggering hardware cleanup");
        config_->hwCleanupInc(1);
      } else {
        // The lists still drain.
        RXN_TRACE(7, " waiting for mappings to be deleted ");
        RXN_RING(7, " waiting for mappings to be deleted ");
      }
      return;
    case FabVxlanState::clean_:
      assert(vxlanInfo()->vniSmState() == FabVxlanState::clean_);
      return;
  }
}

bool VniSm::shadowEmpty() const {
  return vniInfo()->vlanVniMapShadows() == 0;
}

bool VniSm::holdsUnqueuedRows() const {
  if (!shadowEmpty()) {
    return true;
  }
  for (auto const& [vlanId, row] : config()->configEntry()) {
    if (!updateList(vlanId) && !pendingRemoveList(vlanId)) {
      return true;
    }
  }
  return false;
}

std::set<Wire::IntfId> VniSm::vtisHoldingRows() const {
  std::set<Wire::IntfId> vtis;
  for (auto const& [vti, shadow] : vniInfo()->vlanVniMapShadow()) {
    vtis.insert(vti);
  }
  for (auto const& [vlanId, row] : config()->configEntry()) {
    vtis.insert(row.vtiIntfId());
  }
  return vtis;
}

bool VniSm::readyForCleanup() const {
  bool const ready = shadowEmpty() && updateLists() == 0 && pendingRemoveLists() == 0;
  RXN_TRACE(8, " Ready ? " << ready << " vniInfo::vniMaps > 0 " << !shadowEmpty() << " statusEntrys "
                           << status()->statusEntrys() << " configEntrys " << config()->configEntrys()
                           << " updateLists " << updateLists() << " pendingRemoveLists " << pendingRemoveLists());
  // clang-format off
  assert(!ready || ( ( config()->configEntrys() == 0 ) && ( status()->statusEntrys() == 0 ) ));
  // clang-format on
  return ready;
}

// Each request raises the counter; the platform's answer catches up with the
// last one, so a request repeated before the answer costs nothing.
void VniSm::maybeDoHwCleanup() {
  if (vxlanInfo()->state() != FabVxlanState::cleaning_) {
    RXN_TRACE(8, " Not triggering cleanup since vxlanInfo::state is not cleaning");
    return;
  }
  // A machine whose cleanup was answered asks for none more: wishes of a
  // VTI that came back meanwhile drain away without touching the hardware,
  // and a late answer would meet the next start.
  if (vxlanInfo()->vniSmState() != FabVxlanState::cleaning_) {
    RXN_TRACE(8, " Not triggering cleanup since vniSmState is " << vxlanInfo()->vniSmState());
    return;
  }
  flushRemainingRows();
  if (!readyForCleanup()) {
    return;
  }
  RXN_TRACE(7, " Triggering hardware cleanup");
  RXN_RING(7, " Triggering hardware cleanup");
  config_->hwCleanupInc(1);
}

// Every row goes before the cleanup: those in force, and those that the
// platform could not program, which no list holds (a refusal answered while
// cleaning for a VTI that came back meanwhile leaves one).
void VniSm::flushRemainingRows() {
  if (!holdsUnqueuedRows()) {
    return;
  }
  RXN_TRACE(7, "Flushing any remaining VLAN-VNI Mappings from hardware");
  RXN_RING(7, "Flushing any remaining VLAN-VNI Mappings from hardware");
  for (Wire::IntfId const& vti : vtisHoldingRows()) {
    handleVtiDown(vti);
  }
}

void VniSm::RxnHelperVniStatus::handleHwInit() {
  VniSm* const sm = owner();
  if (!sm->initialized()) {
    return;
  }
  FabVxlanState const vxlanInfoState = sm->vxlanInfo()->state();
  // The counters are independent requests: the platform may answer a
  // cleanup before the init that it overtook, which then comes at rest.
  if (vxlanInfoState == FabVxlanState::clean_) {
    RXN_TRACE(7, " hwInit answered after the cleanup that overtook it, ignored");
    RXN_RING(7, " hwInit answered after the cleanup that overtook it, ignored");
    return;
  }
  // clang-format off
  assert(( vxlanInfoState == FabVxlanState::initializing_ ) || ( vxlanInfoState == FabVxlanState::cleaning_ ));
  // clang-format on
  // An answer overtaken by a cleanup changes nothing; the counters agree for
  // the next start.
  if (vxlanInfoState == FabVxlanState::initializing_ && sm->config()->hwInit() == notifier()->hwInit()) {
    RXN_RING(7, " hwInit %u answered, vniSmState initialized_", notifier()->hwInit());
    sm->vxlanInfo()->vniSmStateIs(FabVxlanState::initialized_);
  }
}

void VniSm::RxnHelperVniStatus::handleHwCleanup() {
  VniSm* const sm = owner();
  if (!sm->initialized()) {
    return;
  }
  FabVxlanState const vxlanInfoState = sm->vxlanInfo()->state();
  assert(vxlanInfoState == FabVxlanState::cleaning_);
  Rxn::Ptr<FabHelper::FabHelperVniConfig> const config = sm->config();
  Rxn::Ptr<FabHelper::FabHelperVniStatus const> const status = notifier();
  if (config->hwCleanup() == status->hwCleanup()) {
    assert(config->configEntrys() == 0);
    assert(status->statusEntrys() == 0);
    RXN_RING(7, " hwCleanup %u answered, vniSmState clean_", status->hwCleanup());
    sm->vxlanInfo()->vniSmStateIs(FabVxlanState::clean_);
  }
}

// --- Triggers --------------------------------------------------------------------------------

bool VniSm::isVlanActive(Bridging::VlanId const& vlanId) const {
  Rxn::Ptr<Bridging::VlanConfig const> const vlan = bridgingConfig()->vlanConfig(vlanId);
  if (!vlan) {
    RXN_TRACE(8, "vlan " << vlanId << " does not exist ");
    return false;
  }
  if (vlan->adminState() != Bridging::VlanAdminState::active) {
    RXN_TRACE(8, "vlan " << vlanId << " is not active ");
    return false;
  }
  return true;
}

void VniSm::RxnVtiStatus::handleVlanVniMap(Bridging::VlanId const& vlanId) {
  VniSm* const sm = owner();
  Wire::IntfId const vti = fwkKey();
  if (!sm->initialized() || !sm->vxlanInfo()->activatedVti(vti)) {
    return;
  }
  // A VLAN is mapped on one VTI at a time; the configuration refuses a
  // second, and the wish of another VTI waits until the VLAN is free.
  if (Wire::IntfId const holder = sm->holderOf(vlanId); !!holder && holder != vti) {
    RXN_TRACE(7, "vlan " << vlanId << " is held by " << holder << ", ignoring the wish of " << vti);
    return;
  }
  Vni const vni = notifier()->vlanToVniMap(vlanId).vni();
  if (vni.valid() && sm->isVlanActive(vlanId)) {
    if (sm->vxlanInfo()->state() == FabVxlanState::initialized_) {
      RXN_TRACE(7, "vlan " << vlanId << " vni " << vni << " active ");
      validPairIs(vlanId, vni);
    }
  } else {
    RXN_TRACE(7, "vlan " << vlanId << " not active ");
    validPairIs(vlanId, kNoVni);
  }
  sm->updateVlanVniMap(vti, vlanId, vni);
}

// The pairs of FabVniInfo are one to one: an old pair of this VLAN, and an
// old pair of this VNI, go before the new pair is written.
void VniSm::RxnVtiStatus::validPairIs(Bridging::VlanId const& vlanId, Vni const& vni) {
  FabVniInfo& info = *owner()->vniInfo();
  if (VniEntry const old = info.validVlanVniMap(vlanId); !!old) {
    info.validVniVlanMapDel(old.vni());
    info.validVlanVniMapDel(vlanId);
  }
  if (!vni.valid()) {
    return;
  }
  if (VniEntry const old = info.validVniVlanMap(vni); !!old) {
    info.validVlanVniMapDel(old.vlanId());
    info.validVniVlanMapDel(vni);
  }
  VniEntry const entry(vlanId, vni, fwkKey());
  info.validVlanVniMapIs(vlanId, entry);
  info.validVniVlanMapIs(vni, entry);
}

void VniSm::RxnVtiStatus::handleVlanVniMap() {
  Rxn::Ptr<Vxlan::VtiStatus const> const vti = notifier();
  for (auto it = vti->vlanToVniMap().begin(); it != vti->vlanToVniMap().end(); ++it) {
    handleVlanVniMap(Bridging::VlanId(it.key()));
  }
}

void VniSm::RxnVlanConfig::handleInitialized() {
  if (!owner()->initialized()) {
    return;
  }
  initialized_ = true;
  handleVlanUpdate();
}

void VniSm::RxnVlanConfig::handleVlanUpdate() {
  if (!initialized_) {
    return;
  }
  VniSm* const sm = owner();
  Bridging::VlanId const vlanId = fwkKey();
  if (sm->isVlanActive(vlanId)) {
    RXN_TRACE(7, "vlan " << vlanId << " active ");
    sm->vtiStatus_.forEach([&vlanId](RxnVtiStatus* vti) { vti->handleVlanVniMap(vlanId); });
    return;
  }
  // Remove the mapping of every VTI where the shadow or the queue shows one,
  // or a row stands that the platform could not program.
  sm->vtiStatus_.forEach([sm, &vlanId](RxnVtiStatus* reactor) {
    Wire::IntfId const vti = reactor->fwkKey();
    Rxn::Ptr<VlanVniMapShadow> const shadow = sm->vniInfo()->vlanVniMapShadow(vti);
    bool const inShadow = shadow && !!shadow->vlanVniMap(vlanId);
    if (inShadow || sm->holderOf(vlanId) == vti) {
      sm->updateVlanVniMap(vti, vlanId, kNoVni);
    }
  });
  if (VniEntry const old = sm->vniInfo()->validVlanVniMap(vlanId); !!old) {
    sm->vniInfo()->validVniVlanMapDel(old.vni());
    sm->vniInfo()->validVlanVniMapDel(vlanId);
  }
}

// The VLAN left the bridging configuration, or the machine goes away.
void VniSm::RxnVlanConfig::cleanup() {
  if (!owner()->initialized()) {
    return;
  }
  handleVlanUpdate();
}

// Every mapping the VTI holds goes: in force, queued, or a row that the
// platform could not program. Other VTIs may take the VLANs up afterwards.
void VniSm::handleVtiDown(Wire::IntfId const& vti) {
  Rxn::Ptr<FabVniInfo> const info = vniInfo();
  for (auto it = info->validVlanVniMap().begin(); it != info->validVlanVniMap().end(); ++it) {
    VniEntry const entry = it.value();
    if (entry.vtiIntfId() == vti) {
      info->validVniVlanMapDel(entry.vni());
      info->validVlanVniMapDel(entry.vlanId());
    }
  }
  for (Bridging::VlanId const& vlanId : vlansHeldBy(vti)) {
    updateVlanVniMap(vti, vlanId, kNoVni);
  }
}

std::set<Bridging::VlanId> VniSm::vlansHeldBy(Wire::IntfId const& vti) const {
  std::set<Bridging::VlanId> vlans;
  if (Rxn::Ptr<VlanVniMapShadow> const shadow = vniInfo()->vlanVniMapShadow(vti)) {
    for (auto const& [vlanId, entry] : shadow->vlanVniMap()) {
      vlans.insert(vlanId);
    }
  }
  for (auto const& [vlanId, row] : config()->configEntry()) {
    if (row.vtiIntfId() == vti) vlans.insert(vlanId);
  }
  for (auto const& [vlanId, entry] : updateList()) {
    if (entry.vtiIntfId() == vti) vlans.insert(vlanId);
  }
  for (auto const& [vlanId, entry] : pendingRemoveList()) {
    if (entry.vtiIntfId() == vti) vlans.insert(vlanId);
  }
  return vlans;
}

Wire::IntfId VniSm::holderOf(Bridging::VlanId const& vlanId) const {
  if (ModifyVlanVniMapEntry const entry = pendingRemoveList(vlanId); !!entry) {
    return entry.vtiIntfId();
  }
  if (ModifyVlanVniMapEntry const entry = updateList(vlanId); !!entry) {
    return entry.vtiIntfId();
  }
  return config()->configEntry(vlanId).vtiIntfId();
}

// A VLAN that no VTI holds any more goes to the first activated VTI that
// wants it.
void VniSm::reclaimVlan(Bridging::VlanId const& vlanId) {
  if (vxlanInfo()->state() != FabVxlanState::initialized_ || !isVlanActive(vlanId)) {
    return;
  }
  vtiStatus_.forEach([this, &vlanId](RxnVtiStatus* reactor) {
    Wire::IntfId const vti = reactor->fwkKey();
    if (!holderOf(vlanId) && vxlanInfo()->activatedVti(vti) &&
        reactor->notifier()->vlanToVniMap(vlanId).vni().valid()) {
      RXN_TRACE(7, "vlan " << vlanId << " is free, taking up the wish of " << vti);
      reactor->handleVlanVniMap(vlanId);
    }
  });
}

void VniSm::handleActivatedVti(Wire::IntfId const& vti) {
  if (!initialized()) {
    return;
  }
  if (vxlanInfo()->activatedVti(vti)) {
    RXN_TRACE(7, "vti " << vti << " activated ");
    RXN_RING(7, "vti %s activated ", vti.stringValue());
    markUnprogrammedRows(vti);
    if (RxnVtiStatus* const reactor = vtiStatus_(vti)) {
      reactor->handleVlanVniMap();
    }
  } else {
    RXN_TRACE(7, "vti " << vti << " deactivated ");
    RXN_RING(7, "vti %s deactivated ", vti.stringValue());
    handleVtiDown(vti);
  }
}

// The VTI's hardware status is made anew each time the VTI comes up. A VTI
// that went down and came back before the drain removed its refused rows
// finds them still standing, refused, in the chip: they show so again.
void VniSm::markUnprogrammedRows(Wire::IntfId const& vti) {
  Rxn::Ptr<Vxlan::VxlanHwStatus> const hw = vxlanHwStatusDir_->vxlanHwStatus(vti);
  if (!hw) {
    return;
  }
  for (auto const& [vlanId, row] : config()->configEntry()) {
    FabHelperVniStatusEntry const answer = status()->statusEntry(vlanId);
    if (row.vtiIntfId() == vti && answer.vni() == row.vni() && answer.tableAddStatus() == FabTypes::full_) {
      RXN_TRACE(7, "vlan " << vlanId << " <-> " << row.vni() << " of " << vti << " is still refused by the H/W");
      hw->pendingVlanToVniMapIs(vlanId, row.vni());
    }
  }
}

// Remote MACs are gone from the VLAN: a removal that waited for them goes on.
void VniSm::handleActiveVxlanVlanUpdate(Bridging::VlanId const& vlanId) {
  if (!initialized()) {
    return;
  }
  if (vniInfo()->activeVxlanVlan(vlanId)) {
    RXN_TRACE(8, " vlanId added to activeVxlanVlan, ignoring " << vlanId);
    return;
  }
  ModifyVlanVniMapEntry const entry = pendingRemoveList(vlanId);
  if (!entry) {
    return;
  }
  RXN_TRACE(7, " Moving entry with vlan " << vlanId << " from pending remove list to update list ");
  updateListEntryIs(entry);
  pendingRemoveListDel(vlanId);
}

// --- The queue ---------------------------------------------------------------------------------

void VniSm::updateVlanVniMap(Wire::IntfId const& vti, Bridging::VlanId const& vlanId, Vni const& newVni) {
  Vni oldVni;
  if (Rxn::Ptr<VlanVniMapShadow> const shadow = vniInfo()->vlanVniMapShadow(vti)) {
    oldVni = shadow->vlanVniMap(vlanId).vni();
  }
  RXN_TRACE(8, " Old mapping - " << vlanId << " <-> " << oldVni << " New mapping - " << vlanId << " <-> " << newVni
                                 << " config entry " << config()->configEntry(vlanId) << " status entry "
                                 << status()->statusEntry(vlanId));
  ModifyVlanVniMapEntry const entry(vlanId, newVni, vti);
  if (!!pendingRemoveList(vlanId)) {
    doUpdateVlanVniMapInPendingList(entry);
    return;
  }
  if (!!updateList(vlanId)) {
    doUpdateVlanVniMapInUpdateList(entry);
    return;
  }
  if (newVni == oldVni && newVni.valid()) {
    RXN_TRACE(8, " Nothing to do since old vni " << oldVni << " is same as new vni " << newVni);
    return;
  }
  if (!oldVni.valid()) {
    // A VLAN that nothing holds has nothing to remove.
    if (!newVni.valid() && !holderOf(vlanId)) {
      RXN_TRACE(8, " Nothing to remove for " << entry);
      return;
    }
    RXN_TRACE(8, " Add or delete mapping directly to updateList " << entry);
    updateListEntryIs(entry);
    return;
  }
  // A mapping replaced or deleted leaves the shadow at once; remote MACs on
  // it are flushed before the row goes.
  updateShadow(oldVni, vlanId, vti, false);
  if (vniInfo()->activeVxlanVlan(vlanId)) {
    RXN_TRACE(7, " Add mapping to pendingRemoveList " << entry);
    pendingRemoveListIs(entry);
  } else {
    RXN_TRACE(7, " Add mapping directly to updateList for removal" << entry);
    updateListEntryIs(entry);
  }
}

void VniSm::doUpdateVlanVniMapInPendingList(ModifyVlanVniMapEntry const& entry) {
  Bridging::VlanId const vlanId = entry.vlanId();
  Vni const configVni = config()->configEntry(vlanId).vni();
  Vni const statusVni = status()->statusEntry(vlanId).vni();
  // clang-format off
  assert(!!pendingRemoveList( vlanId ));
  // clang-format on
  assert(!!configVni && configVni == statusVni);
  // clang-format off
  assert(!updateList( vlanId ));
  // clang-format on
  RXN_TRACE(7, " found in pendingRemoveList. newVni " << entry.newVni());
  pendingRemoveListIs(entry);
}

void VniSm::doUpdateVlanVniMapInUpdateList(ModifyVlanVniMapEntry const& entry) {
  Bridging::VlanId const vlanId = entry.vlanId();
  // clang-format off
  assert(!!updateList( vlanId ));
  assert(!pendingRemoveList( vlanId ));
  // clang-format on
  Vni const configVni = config()->configEntry(vlanId).vni();
  Vni const statusVni = status()->statusEntry(vlanId).vni();
  RXN_TRACE(7, " found in updateList. newVni " << entry.newVni());
  // Nothing was sent for a wish that returned to none.
  if (!entry.newVni().valid() && !configVni.valid() && !statusVni.valid()) {
    RXN_TRACE(7, " Cleaning up entry in updateList " << entry);
    doRemoveUpdateListEntry(vlanId);
    return;
  }
  RXN_TRACE(7, " Updating new vni value from " << updateList(vlanId).newVni() << " to " << entry.newVni()
                                               << " of entry in updateList ");
  updateListEntryIs(entry);
}

void VniSm::updateListEntryIs(ModifyVlanVniMapEntry const& entry) {
  Bridging::VlanId const vlanId = entry.vlanId();
  RXN_TRACE(8, " Adding " << entry << " to updateList");
  updateListIs(entry);
  // A VLAN has one operation in flight at most: the answer picks the wish up.
  if (config()->configEntry(vlanId).vni() != status()->statusEntry(vlanId).vni()) {
    RXN_TRACE(8, " waiting for pending HW operation for " << vlanId);
    return;
  }
  dirtyVlanIs(vlanId, true);
  updateClock_->timeMinIs(0);
}

void VniSm::doRemoveUpdateListEntry(Bridging::VlanId const& vlanId) {
  RXN_TRACE(8, " Deleting " << vlanId << " from updateList");
  updateListDel(vlanId);
  dirtyVlanDel(vlanId);
  maybePublishVlanVniMappingReadyStage();
  if (!holderOf(vlanId)) {
    reclaimVlan(vlanId);
  }
}

// --- The drain -------------------------------------------------------------------------------

void VniSm::updateQueuedVlanVniMap() {
  if (!initialized()) {
    return;
  }
  drainDirtyVlans(Rxn::System::currentTime() + vniModifyBacklogQuantum());
  maybeDoHwCleanup();
}

// Resumes at the bookmark, so that a long backlog is served fairly across
// turns; the time is checked after the work, so a turn always sends one VLAN.
void VniSm::drainDirtyVlans(double deadline) {
  auto it = dirtyVlan().lowerBound(updateBookmark());
  for (;;) {
    if (it == dirtyVlan().end()) {
      it = dirtyVlan().begin();
      if (it == dirtyVlan().end()) {
        RXN_TRACE(8, " No more VLANs to process in dirtyVlan list");
        return;
      }
    }
    Bridging::VlanId const vlanId = it.key();
    updateBookmarkIs(vlanId);
    ++it;
    dirtyVlanDel(vlanId);
    drainOne(vlanId);
    requestVerify();
    if (Rxn::System::currentTime() >= deadline) {
      RXN_TRACE(7, "Exceeded time quantum. Rescheduling for another time");
      updateClock_->timeMinIs(0);
      return;
    }
  }
}

void VniSm::drainOne(Bridging::VlanId const& key) {
  ModifyVlanVniMapEntry const entry = updateList(key);
  // clang-format off
  assert(config()->configEntry( key ).vni() == status()->statusEntry( key ).vni());
  // clang-format on
  assert(!!entry);
  // An old mapping always goes first; its answer queues the new one again.
  if (FabHelperVniConfigEntry const old = config()->configEntry(key); !!old) {
    RXN_TRACE(7, "Removing Mapping from H/W  " << key << " <-> " << old.vni());
    RXN_RING(7, "Removing Mapping from H/W  %u <-> %u", key.value(), old.vni().value());
    delPlatformConfig(key);
    return;
  }
  RXN_TRACE(7, "Adding Mapping to H/W " << key << " <-> " << entry.newVni());
  RXN_RING(7, "Adding Mapping to H/W %u <-> %u", key.value(), entry.newVni().value());
  maybeAddToHelperVlanVniMapConfig(entry);
}

void VniSm::maybeAddToHelperVlanVniMapConfig(ModifyVlanVniMapEntry const& entry) {
  Bridging::VlanId const vlanId = entry.vlanId();
  Vni const newVni = entry.newVni();
  Wire::IntfId const vti = entry.vtiIntfId();
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  bool const active = isVlanActive(vlanId);
  RXN_TRACE(8, " Updating vlan<->vni mapping - "
                   << " vlan : " << vlanId << ", new vni : " << newVni << ", and VTI : " << vti << " vxlanInfo::state "
                   << info->state() << " vlanInfo::activatedVti " << info->activatedVti(vti) << " is vlan active ? "
                   << active);
  Rxn::Ptr<Vxlan::VtiStatus const> const vtiStatus = vtiStatusDir()->vtiStatus(vti);
  if (newVni.valid() && info->state() == FabVxlanState::initialized_ && info->activatedVti(vti) && active &&
      vtiStatus && !!vtiStatus->vlanToVniMap(vlanId)) {
    RXN_TRACE(7, " Adding vlan<->vni mapping - " << entry << " to helper config"
                                                 << " existing entry " << config()->configEntry(vlanId));
    // clang-format off
    assert(vtiStatus->vlanToVniMap( vlanId ).vni() == newVni);
    assert(!config()->configEntry( vlanId ));
    // clang-format on
    addPlatformConfig(FabHelperVniConfigEntry(vlanId, newVni, vti, FabHelper::vlanVniMapAdded_));
    return;
  }
  // The wish is dead.
  if (!config()->configEntry(vlanId)) {
    doRemoveUpdateListEntry(vlanId);
  } else {
    delPlatformConfig(vlanId);
  }
}

void VniSm::addPlatformConfig(FabHelperVniConfigEntry const& entry) {
  RXN_TRACE(8, " addPlatformConfig " << entry);
  config_->configEntryIs(entry);
  maybeDeleteRecoveredEntry(ModifyVlanVniMapEntry(entry.vlanId(), entry.vni(), entry.vtiIntfId()));
}

void VniSm::delPlatformConfig(Bridging::VlanId const& vlanId) {
  RXN_TRACE(8, " delPlatformConfig " << vlanId);
  if (!config_->configEntry(vlanId)) {
    return;
  }
  FabHelperVniConfigEntry const old = config_->configEntryDel(vlanId);
  maybeDeleteRecoveredEntry(ModifyVlanVniMapEntry(old.vlanId(), old.vni(), old.vtiIntfId()));
}

// --- The answer ---------------------------------------------------------------------------------

void VniSm::doHandleHelperVlanVniMapStatus(Bridging::VlanId const& vlanId) {
  if (!initialized()) {
    return;
  }
  ModifyVlanVniMapEntry const entry = updateList(vlanId);
  FabHelperVniStatusEntry const statusRow = status()->statusEntry(vlanId);
  RXN_TRACE(8, " Latest vlan<->vni mapping - " << entry << "Processing helper status update for " << vlanId << " "
                                               << updateLists() << " VLANs remain in updateList"
                                               << "Status Entry Exists ? " << !!statusRow << "Config Entry Exists ? "
                                               << !!config()->configEntry(vlanId));
  bool reprogram = !statusRow;
  bool keep = false;
  if (!!statusRow) {
    takeProgrammedAnswer(vlanId, entry, reprogram, keep);
  } else {
    // A delete finished. A row that was programmed left room in the chip.
    bool freedRoom = true;
    if (Rxn::Ptr<Vxlan::VxlanHwStatus> const hw = vxlanHwStatusDir_->vxlanHwStatus(entry.vtiIntfId())) {
      freedRoom = !hw->pendingVlanToVniMap(vlanId).valid();
      hw->pendingVlanToVniMapDel(vlanId);
    }
    if (freedRoom) {
      retryUnprogrammedMappings();
    }
    if (!entry.newVni().valid()) {
      reprogram = false;
    } else {
      RXN_TRACE(7, "Adding  " << vlanId << " <-> " << entry.newVni() << " to be reprogrammed");
    }
  }
  requestVerify();
  Wire::IntfId const vtiIntfId = entry.vtiIntfId();
  if (!reprogram) {
    if (!keep) {
      doRemoveUpdateListEntry(vlanId);
    }
  } else {
    // clang-format off
    assert(Wire::VxlanTunnelIntfId::isVxlanTunnelIntfId( vtiIntfId ));
    // clang-format on
    RXN_TRACE(7, "Reprogramming the mapping " << vlanId << " <-> " << entry.newVni());
    updateListEntryIs(ModifyVlanVniMapEntry(vlanId, entry.newVni(), vtiIntfId));
  }
  RXN_TRACE(8, " Finished processing: VniMaps " << vniInfo()->vlanVniMapShadows() << " updateList " << updateLists()
                                                << " pendingRemove " << pendingRemoveLists() << " vxlanInfo::state "
                                                << vxlanInfo()->state());
  maybeDoHwCleanup();
}

// The rows that the platform refused for want of room are sent again: the
// row goes, and the answer to its removal adds it anew.
void VniSm::retryUnprogrammedMappings() {
  if (vxlanInfo()->state() != FabVxlanState::initialized_) {
    return;
  }
  for (auto const& [vti, hw] : vxlanHwStatusDir_->vxlanHwStatus()) {
    for (auto const& [vlanId, vni] : hw->pendingVlanToVniMap()) {
      bool const settled = !updateList(vlanId) && !pendingRemoveList(vlanId);
      if (settled && config()->configEntry(vlanId).vni() == vni &&
          status()->statusEntry(vlanId).tableAddStatus() == FabTypes::full_) {
        RXN_TRACE(7, "Retrying vlan " << vlanId << " <-> " << vni << " now that the table has room");
        updateListEntryIs(ModifyVlanVniMapEntry(vlanId, vni, vti));
      }
    }
  }
}

void VniSm::takeProgrammedAnswer(Bridging::VlanId const& vlanId, ModifyVlanVniMapEntry const& entry, bool& reprogram,
                                 bool& keep) {
  FabHelperVniStatusEntry const statusRow = status()->statusEntry(vlanId);
  Vni const hwProgrammedVni = statusRow.vni();
  Wire::IntfId const vti = statusRow.vtiIntfId();
  Vni const newVni = entry.newVni();
  Rxn::Ptr<Vxlan::VxlanHwStatus> const hw = vxlanHwStatusDir_->vxlanHwStatus(vti);
  FabTypes::TableAddStatus const ret = statusRow.tableAddStatus();
  if (ret == FabTypes::full_) {
    // The row stays, visibly unprogrammed, with the VNI that did not fit; it
    // is tried again when room frees up.
    RXN_TRACE(1, " VniExt-Vlan table full, logging a message " << vlanId << " " << hwProgrammedVni);
    RXN_RING(1, " VniExt-Vlan table full, logging a message %u %u", vlanId.value(), hwProgrammedVni.value());
    Rxn::log(ETH_VNIVLANMAPFULL, vlanId.value(), hwProgrammedVni.value());
    if (hw) {
      hw->pendingVlanToVniMapIs(vlanId, hwProgrammedVni);
    }
    // A wish that moved on while the platform worked is not lost: the row
    // goes, and the answer to its removal queues the wish.
    if (!!entry && newVni != hwProgrammedVni) {
      RXN_TRACE(7, "Adding newVni " << newVni << " to be processed since VNI refused by H/W is different "
                                    << hwProgrammedVni);
      reprogram = true;
    }
    return;
  }
  assert(ret == FabTypes::success_);
  if (hw) {
    hw->pendingVlanToVniMapDel(vlanId);
  }
  keep = !updateList(vlanId);
  if (keep) {
    assert(newVni == hwProgrammedVni);
  }
  // The wish moved on while the platform worked.
  if (!keep && newVni != hwProgrammedVni) {
    RXN_TRACE(7, "Adding newVni " << newVni << " to be processed since VNI programmed in H/W is different "
                                  << hwProgrammedVni);
    reprogram = true;
    return;
  }
  if (!updateShadow(hwProgrammedVni, vlanId, vti, true)) {
    RXN_TRACE(7, "Mapping not valid. Scheduling a delete for vlanId " << vlanId);
    updateListEntryIs(ModifyVlanVniMapEntry(vlanId, kNoVni, vti));
    reprogram = false;
    keep = true;
  }
}

// --- The shadow ----------------------------------------------------------------------------------

bool VniSm::updateShadow(Vni const& vni, Bridging::VlanId const& vlanId, Wire::IntfId const& vtiIntfId, bool add) {
  // clang-format off
  assert(!!config()->configEntry( vlanId ) && !!status()->statusEntry( vlanId ) && ( config()->configEntry( vlanId ).vni() == status()->statusEntry( vlanId ).vni() ) && config()->configEntry( vlanId ).vni() == vni);
  // clang-format on
  Rxn::Ptr<FabVniInfo> const info = vniInfo();
  VniEntry const mapping(vlanId, vni, vtiIntfId);
  if (add) {
    bool const inForce = vxlanInfo()->state() == FabVxlanState::initialized_ && vxlanInfo()->activatedVti(vtiIntfId) &&
                         isVlanActive(vlanId);
    if (!inForce) {
      RXN_TRACE(7, " NOT adding mapping to shadow copy " << mapping);
      return false;
    }
    // clang-format off
    assert(vtiStatusDir()->vtiStatus( vtiIntfId ) && !!vtiStatusDir()->vtiStatus( vtiIntfId )->vlanToVniMap( vlanId ));
    // clang-format on
    RXN_TRACE(7, " adding mapping to shadow copy " << mapping);
    Rxn::Ptr<VlanVniMapShadow> const shadow = info->vlanVniMapShadowIs(vtiIntfId);
    shadow->vniVlanMapIs(mapping);
    shadow->vlanVniMapIs(mapping);
    FabHelperVniConfigEntry entry = config()->configEntry(vlanId);
    if (entry.vlanVniMapConfigAction() != FabHelper::vlanVniMapAdded_) {
      entry.vlanVniMapConfigActionIs(FabHelper::vlanVniMapAdded_);
      addPlatformConfig(entry);
    }
    return true;
  }
  RXN_TRACE(7, " removing mapping from shadow copy " << mapping);
  if (Rxn::Ptr<VlanVniMapShadow> const shadow = info->vlanVniMapShadow(vtiIntfId)) {
    if (shadow->vniVlanMap(vni).vlanId() == vlanId) {
      shadow->vniVlanMapDel(vni);
    }
    shadow->vlanVniMapDel(vlanId);
    if (shadow->vlanVniMaps() == 0) {
      info->vlanVniMapShadowDel(vtiIntfId);
    }
  }
  // The platform stops learning on the mapping, and the row stays, until the
  // remote MACs on it are flushed.
  FabHelperVniConfigEntry entry = config()->configEntry(vlanId);
  assert(entry.vlanVniMapConfigAction() == FabHelper::vlanVniMapAdded_);
  entry.vlanVniMapConfigActionIs(FabHelper::vlanVniMapDeletedMacFlushPending_);
  addPlatformConfig(entry);
  return true;
}

// --- Recovery after a hitless restart ----------------------------------------------------------------

void VniSm::maybeDeleteRecoveredEntry(ModifyVlanVniMapEntry const& entry) {
  assert(initialized());
  if (!vxlanBootStatus_ || vxlanBootStatus_->stageVlanVniMappingReady()) {
    return;
  }
  VniEntry const recovered = vxlanBootStatus_->recoveredVlanToVniMap(entry.vlanId());
  if (!recovered) {
    return;
  }
  // A matching entry stays: it keeps vouching for the hardware.
  if (recovered == VniEntry(entry.vlanId(), entry.newVni(), entry.vtiIntfId())) {
    return;
  }
  RXN_TRACE(7, " Hw recovered vni entry: " << recovered.vni() << " vlan: " << recovered.vlanId()
                                           << " intf: " << recovered.vtiIntfId()
                                           << " does not match configured vni entry: " << entry.newVni());
  RXN_RING(7, " Hw recovered vni entry: %u vlan: %u intf: %s does not match configured vni entry: %u",
           recovered.vni().value(), recovered.vlanId().value(), recovered.vtiIntfId().stringValue(),
           entry.newVni().value());
  vxlanBootStatus_->recoveredVlanToVniMapDel(entry.vlanId());
  maybePublishVlanVniMappingReadyStage();
}

void VniSm::maybePublishVlanVniMappingReadyStage() {
  assert(initialized());
  if (!vxlanBootStatus_ || vxlanBootStatus_->stageVlanVniMappingReady()) {
    return;
  }
  VxlanBootStatus& boot = *vxlanBootStatus_;
  FabVxlanState const state = vxlanInfo()->state();
  RXN_TRACE(8, " updateLists: " << updateLists() << " recoveredVlanToVniMaps: " << boot.recoveredVlanToVniMaps()
                                << " vxlan state: " << state);
  // A stop during the recovery ends it too, once the lists are drained: what
  // the earlier life left in the chip then goes with the rest.
  bool const settled = state == FabVxlanState::initialized_ || state == FabVxlanState::cleaning_;
  bool const ready = !boot.vxlanHitlessRestartSupported() || vtiStatusDir()->vtiStatuss() == 0 ||
                     boot.recoveredVlanToVniMaps() == 0 || (updateLists() == 0 && settled);
  if (!ready) {
    return;
  }
  RXN_TRACE(7, " Entering vlan vni mapping ready stage ");
  RXN_RING(7, " Entering vlan vni mapping ready stage ");
  // Only what the new life confirmed in hardware stays recovered.
  for (auto it = boot.recoveredVlanToVniMap().begin(); it != boot.recoveredVlanToVniMap().end(); ++it) {
    Bridging::VlanId const vlanId = it.key();
    if (it.value().vni() != status()->statusEntry(vlanId).vni()) {
      boot.recoveredVlanToVniMapDel(vlanId);
    }
  }
  boot.stageVlanVniMappingReadyIs(true);
  // The platform now removes what the earlier life left and this one did not
  // ask for again: rows refused for want of room may fit.
  retryUnprogrammedMappings();
}

// --- Verification ----------------------------------------------------------------------------------------

void VniSm::handleVerify() {
  if (!initialized()) {
    return;
  }
  for (auto const& [vlanId, row] : config()->configEntry()) {
    verifyVlan(vlanId, row);
  }
  fabVniHelper_->verifyHwVni();
}

// A VLAN of config is settled in the shadow, or out of it and queued on
// exactly one list; one with a full answer shows as pending; one in flight
// is queued, not marked for resending, and out of the shadow.
void VniSm::verifyVlan(Bridging::VlanId const& vlanId, FabHelperVniConfigEntry const& row) const {
  Vni const configVni = row.vni();
  Rxn::Ptr<VlanVniMapShadow> const vlanVniMapShadow = vniInfo()->vlanVniMapShadow(row.vtiIntfId());
  Rxn::Ptr<Vxlan::VxlanHwStatus> const vxlanHwStatus = vxlanHwStatusDir_->vxlanHwStatus(row.vtiIntfId());
  FabHelperVniStatusEntry const statusRow = status()->statusEntry(vlanId);
  if (!statusRow || statusRow.vni() != configVni) {
    // clang-format off
    assert(!!updateList( vlanId ) && !dirtyVlan( vlanId ));
    assert(!vlanVniMapShadow || !vlanVniMapShadow->vlanVniMap( vlanId ));
    assert(!pendingRemoveList( vlanId ));
    // clang-format on
    return;
  }
  if (statusRow.tableAddStatus() == FabTypes::full_) {
    // clang-format off
    assert(!vxlanHwStatus || vxlanHwStatus->pendingVlanToVniMap( vlanId ) == configVni);
    // clang-format on
    return;
  }
  // clang-format off
  assert(( vlanVniMapShadow && !!vlanVniMapShadow->vlanVniMap( vlanId ) && vlanVniMapShadow->vlanVniMap( vlanId ).vni() == configVni && !pendingRemoveList( vlanId ) && !updateList( vlanId ) ) || ( ( !vlanVniMapShadow || !vlanVniMapShadow->vlanVniMap( vlanId ) ) && !!pendingRemoveList( vlanId ) && !updateList( vlanId ) ) || ( ( !vlanVniMapShadow || !vlanVniMapShadow->vlanVniMap( vlanId ) ) && !pendingRemoveList( vlanId ) && !!updateList( vlanId ) ));
  // clang-format on
}

// --- Reactors -----------------------------------------------------------------------------------------------

void VniSm::RxnVerifyData::onVerify() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVerify();
}

void VniSm::RxnVxlanInfo::onState() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVxlanStateUpdate();
}

void VniSm::RxnVxlanInfo::onActivatedVti(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActivatedVti(vti);
}

void VniSm::RxnVniInfo::onActiveVxlanVlan(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActiveVxlanVlanUpdate(vlanId);
}

void VniSm::RxnVtiStatusDir::onVtiStatus(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtiStatus_.follow(owner(), notifier()->vtiStatus(), vti);
}

void VniSm::RxnVtiStatusDir::onVtiStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VniSm::RxnVtiStatusDir::rxnReplay() {
  owner()->vtiStatus_.reconcile(owner(), notifier()->vtiStatus());
}

void VniSm::RxnVtiStatus::onVlanToVniMap(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  handleVlanVniMap(vlanId);
}

void VniSm::RxnVtiStatus::onVlanToVniMaprxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleVlanVniMap();
}

void VniSm::RxnBridgingConfig::onVlanConfig(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vlanConfig_.follow(owner(), notifier()->vlanConfig(), vlanId);
}

void VniSm::RxnBridgingConfig::onVlanConfigrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VniSm::RxnBridgingConfig::rxnReplay() {
  owner()->vlanConfig_.reconcile(owner(), notifier()->vlanConfig());
}

VniSm::RxnVlanConfig::RxnVlanConfig(Rxn::Ptr<Bridging::VlanConfig const> const& vlanConfig, VniSm* owner)
    : Reactor(vlanConfig, owner) {
  handleInitialized();
}

void VniSm::RxnVlanConfig::onAdminState() {
  if (rxnMarkedForDeletion()) return;
  handleVlanUpdate();
}

void VniSm::RxnHelperVniStatus::onHwInit() {
  if (rxnMarkedForDeletion()) return;
  handleHwInit();
}

void VniSm::RxnHelperVniStatus::onHwCleanup() {
  if (rxnMarkedForDeletion()) return;
  handleHwCleanup();
}

void VniSm::RxnHelperVniStatus::onStatusEntry(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  owner()->doHandleHelperVlanVniMapStatus(vlanId);
}

void VniSm::RxnUpdateClock::onTime() {
  if (rxnMarkedForDeletion()) return;
  owner()->updateQueuedVlanVniMap();
}

}  // namespace Fab::VXLAN

#include "fabvxlan/central/FabVxlanCentralSm.h"

#include <cassert>
#include <ios>

#include "fabvxlan/runtime/RingLog.h"
#include "fabvxlan/runtime/Toggle.h"
#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/imported/L2RibDest.h"

RXN_TRACE_MODULE("FabVxlanCentralSm");

namespace Fab::VXLAN {

namespace {

using Mode = Vxlan::BumReplicationMode;

// L2Rib source bits: flood sets from a controller, and the configured flood lists.
constexpr std::uint32_t kControllerSource = 3;
constexpr std::uint32_t kConfiguredFloodLists = 4;

}  // namespace

// --- The machine --------------------------------------------------------------

VxlanCentralSm::VxlanCentralSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                               Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                               Rxn::Ptr<L2Rib::FloodSetOutput const> const& l2RibFloodSet,
                               Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                               Rxn::Ptr<Vxlan::BumStatus> const& bumStatus,
                               Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus)
    : FabBaseSm(acsd),
      vxlanInfo_(reactors(), new RxnVxlanInfo(vxlanInfo, this)),
      vtiStatusDir_(reactors(), new RxnVtiStatusDir(vtiStatusDir, this)),
      l2RibFloodSet_(reactors(), new RxnL2RibFloodSet(l2RibFloodSet, this)),
      vxlanHwStatusDir_(reactors(), new RxnVxlanHwStatusDir(vxlanHwStatusDir, this)),
      bumStatus_(bumStatus),
      vxlanBootStatus_(vxlanBootStatus),
      vtiStatus_(reactors(), "Fab::VXLAN::VxlanCentralSm", "vtiStatus"),
      vlanFloodSet_(reactors(), "Fab::VXLAN::VxlanCentralSm", "vlanFloodSet") {
  if (vtiStatusDir) {
    vtiStatus_.reconcile(this, vtiStatusDir->vtiStatus());
  }
  if (l2RibFloodSet) {
    vlanFloodSet_.reconcile(this, l2RibFloodSet->vlanFloodSet());
  }
}

Rxn::Ptr<VxlanCentralSm> vxlanCentralSmFactory(Rxn::Ptr<Fab::FabCommonSmData> const& acsd,
                                               Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                                               Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                                               Rxn::Ptr<L2Rib::FloodSetOutput const> const& l2RibFloodSet,
                                               Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                                               Rxn::Ptr<Vxlan::BumStatus> const& bumStatus,
                                               Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus) {
  return Fab::smFactory<VxlanCentralSm>(acsd, vxlanInfo, vtiStatusDir, l2RibFloodSet, vxlanHwStatusDir, bumStatus,
                                        vxlanBootStatus);
}

void VxlanCentralSm::handleInitialized() {
  initializedIs(true);
  forgetVanishedVtis();
  if (vxlanBootStatus_ && vxlanBootStatus_->vxlanHitlessRestartSupported() &&
      !vxlanBootStatus_->stageBumVtepListReady()) {
    RXN_TRACE(7, " hitless restart mode");
    RXN_RING(7, " hitless restart mode");
    inHitlessRestartIs(true);
    recordRestartEntries();
  }
  vtiStatus_.forEach([](RxnVtiStatus* reactor) { reactor->handleInitialized(); });
  // A kept feature state whose VTIs all vanished while the agent was away
  // has no VTI reactor to roll it up.
  updateVxlanState();
  // The flood-set reactor's decision on attach, held back until now.
  handleBumReplicationMode();
  if (inHitlessRestart()) {
    removeStaleRestartEntries();
    inHitlessRestartIs(false);
  }
  if (vxlanBootStatus_) {
    vxlanBootStatus_->stageBumVtepListReadyIs(true);
    if (vxlanInfo()->activatedVti().empty()) {
      // With no VTI up there is nothing to recover, and the VNI and MAC
      // machines would wait for these stages forever.
      RXN_TRACE(7, " No VTIs up, ready all stages");
      RXN_RING(7, " No VTIs up, ready all stages");
      vxlanBootStatus_->stageVlanVniMappingReadyIs(true);
      vxlanBootStatus_->stageRemoteMacsReadyIs(true);
    }
  }
}

// A VTI deleted while the agent was away has no reactor to withdraw it.
void VxlanCentralSm::forgetVanishedVtis() {
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  Rxn::Ptr<Vxlan::VtiStatusDir const> const dir = vtiStatusDir();
  for (auto it = info->activatedVti().begin(); it != info->activatedVti().end(); ++it) {
    Wire::IntfId const intf = it.key();
    if (!dir || !dir->vtiStatus(intf)) {
      RXN_TRACE(7, "intf " << intf << " is gone, no longer activated");
      RXN_RING(7, "intf %s is gone, no longer activated", intf.stringValue());
      info->activatedVtiDel(intf);
    }
  }
}

void VxlanCentralSm::hitlessRestartEntriesIs(Vxlan::MacVlanVtep const& entry, bool present) {
  if (present) {
    hitlessRestartEntries_.insertOrAssign(entry, true);
  } else {
    hitlessRestartEntries_.erase(entry);
  }
}

VxlanCentralSm::RxnVtiStatus* VxlanCentralSm::vtiStatusIs(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus) {
  return vtiStatus_.is(this, vtiStatus);
}

Rxn::Ptr<Vxlan::VtiStatus const> VxlanCentralSm::vtiStatusDel(Wire::IntfId const& intfId) {
  return vtiStatus_.del(intfId);
}

VxlanCentralSm::RxnVlanFloodSet* VxlanCentralSm::vlanFloodSetIs(
    Rxn::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSet) {
  return vlanFloodSet_.is(this, vlanFloodSet);
}

Rxn::Ptr<L2Rib::VlanFloodSet const> VxlanCentralSm::vlanFloodSetDel(Bridging::VlanId const& vlanId) {
  return vlanFloodSet_.del(vlanId);
}

// --- The roll-up ----------------------------------------------------------------

bool VxlanCentralSm::allAt(FabVxlanState state) const {
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  return info->vtepSmState() == state && (!vtepGroupSupported() || info->vtepGroupSmState() == state) &&
         info->vniSmState() == state && info->vxlanMacSmState() == state;
}

std::vector<VxlanCentralSm::Awaited> VxlanCentralSm::subMachinesNotAt(FabVxlanState state) const {
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  std::vector<Awaited> behind;
  auto const noteIfBehind = [&](char const* machine, FabVxlanState at) {
    if (at != state) {
      behind.push_back({machine, at});
    }
  };
  noteIfBehind("VtepSm", info->vtepSmState());
  if (vtepGroupSupported()) {
    noteIfBehind("VtepGroupSm", info->vtepGroupSmState());
  }
  noteIfBehind("VniSm", info->vniSmState());
  noteIfBehind("VxlanMacAddrSm", info->vxlanMacSmState());
  return behind;
}

std::vector<VxlanCentralSm::Awaited> VxlanCentralSm::awaitedSubMachines() const {
  switch (vxlanInfo()->state()) {
    case FabVxlanState::initializing_:
      return subMachinesNotAt(FabVxlanState::initialized_);
    case FabVxlanState::cleaning_:
      return subMachinesNotAt(FabVxlanState::clean_);
    case FabVxlanState::initialized_:
    case FabVxlanState::clean_:
      break;
  }
  return {};
}

namespace {

// "VniSm initializing_, VxlanMacAddrSm initializing_".
std::ostream& operator<<(std::ostream& out, std::vector<VxlanCentralSm::Awaited> const& awaited) {
  char const* separator = "";
  for (VxlanCentralSm::Awaited const& machine : awaited) {
    out << separator << machine.machine << " " << machine.state;
    separator = ", ";
  }
  return out;
}

}  // namespace

void VxlanCentralSm::updateVxlanState() {
  if (!initialized()) {
    return;
  }
  FabVxlanState const current = vxlanInfo()->state();
  std::size_t const vtis = vxlanInfo()->activatedVtis();
  FabVxlanState next = current;
  switch (current) {
    case FabVxlanState::initializing_:
      if (vtis != 0) {
        next = allAt(FabVxlanState::initialized_) ? FabVxlanState::initialized_ : current;
      } else {
        next = allAt(FabVxlanState::clean_) ? FabVxlanState::clean_ : FabVxlanState::cleaning_;
      }
      break;
    case FabVxlanState::initialized_:
      // Sub-machines leave initialized_ only after the feature has left it.
      // clang-format off
      assert( ( ( vxlanInfo()->vtepSmState() == FabVxlanState::initialized_ ) && ( vtepGroupSupported() ? vxlanInfo()->vtepGroupSmState() == FabVxlanState::initialized_ : true ) && ( vxlanInfo()->vniSmState() == FabVxlanState::initialized_ ) && ( vxlanInfo()->vxlanMacSmState() == FabVxlanState::initialized_ ) ) );
      // clang-format on
      if (vtis == 0) {
        next = FabVxlanState::cleaning_;
      }
      break;
    case FabVxlanState::cleaning_:
      // Hardware is clean before it is initialised again.
      if (allAt(FabVxlanState::clean_)) {
        next = vtis == 0 ? FabVxlanState::clean_ : FabVxlanState::initializing_;
      }
      break;
    case FabVxlanState::clean_:
      if (vtis != 0) {
        next = allAt(FabVxlanState::initialized_) ? FabVxlanState::initialized_ : FabVxlanState::initializing_;
      }
      break;
  }
  RXN_TRACE(8, " curr state : " << current << ", new state : " << next);
  if (next == current) {
    // A feature that stays initializing_ or cleaning_ waits for answers: a
    // platform that never gives one shows here which.
    if (current == FabVxlanState::initializing_ || current == FabVxlanState::cleaning_) {
      RXN_TRACE(7, " state " << current << " waits on " << awaitedSubMachines());
    }
    return;
  }
  RXN_RING(7, " curr state : %s, new state : %s", Rxn::valueToString(current), Rxn::valueToString(next));
  vxlanInfo()->stateIs(next);
  handleBumReplicationMode();
}

template <class Predicate>
bool VxlanCentralSm::anyVti(Predicate&& predicate) const {
  Rxn::Ptr<Vxlan::VtiStatusDir const> const dir = vtiStatusDir();
  if (!dir) {
    return false;
  }
  for (auto const& [intfId, vti] : dir->vtiStatus()) {
    if (predicate(*vti)) {
      return true;
    }
  }
  return false;
}

bool VxlanCentralSm::isVtiOperStatusUp() const {
  return anyVti([](Vxlan::VtiStatus const& vti) { return vti.operStatus() == Interface::IntfOperStatus::intfOperUp; });
}

bool VxlanCentralSm::isControllerClientMode() const {
  return anyVti([](Vxlan::VtiStatus const& vti) { return vti.controllerClientMode(); });
}

// --- BUM replication ------------------------------------------------------------

std::uint32_t VxlanCentralSm::l2RibSource() const {
  Rxn::Ptr<L2Rib::FloodSetOutput const> const floodSets = l2RibFloodSet();
  return floodSets ? floodSets->source() : 0;
}

bool VxlanCentralSm::isBumRepMulticast() const {
  return anyVti([](Vxlan::VtiStatus const& vti) { return !vti.vlanToGroup().empty() || !!vti.floodMcastGrp(); });
}

bool VxlanCentralSm::ignoreCliFloodLists() const {
  static bool const perVniControlPlane = getToggleState("PerVniControlPlane", true);
  if (perVniControlPlane) {
    return false;
  }
  return bumStatus_->bumReplicationMode() == Mode::bumRepController && isControllerClientMode() &&
         (l2RibSource() & kConfiguredFloodLists) == 0;
}

void VxlanCentralSm::handleBumReplicationMode() {
  RXN_TRACE(8, " Current vxlanState: " << vxlanInfo()->state() << " Current bumRepMode: "
                                       << bumStatus_->bumReplicationMode() << " Current L2Rib source: " << std::hex
                                       << l2RibSource() << std::dec << " VtiOperStatus: " << isVtiOperStatusUp());
  // Until then the published mode and lists are those of the previous life.
  if (!initialized()) {
    return;
  }
  // A restart keeps the mode until it is proven wrong.
  Mode mode = inHitlessRestart() ? bumStatus_->bumReplicationMode() : Mode::bumRepNone;
  FabVxlanState const state = vxlanInfo()->state();
  if (isVtiOperStatusUp() && (state == FabVxlanState::initializing_ || state == FabVxlanState::initialized_)) {
    std::uint32_t const source = l2RibSource();
    if ((source & kControllerSource) != 0) {
      mode = Mode::bumRepController;
    } else if ((source & kConfiguredFloodLists) == 0) {
      if (isBumRepMulticast()) {
        mode = Mode::bumRepMulticast;
      }
    } else {
      mode = !isBumRepMulticast() || vlanFloodSet_.size() > 0 ? Mode::bumRepHeadEnd : Mode::bumRepMulticast;
    }
  }
  if (mode == bumStatus_->bumReplicationMode()) {
    // This is how a restart confirms the flood lists of its previous life.
    if (inHitlessRestart() && mode == Mode::bumRepHeadEnd) {
      replayFloodSets();
    }
    return;
  }
  bumStatus_->bumMcastGrpDelAll();
  bumStatus_->bumVtepListDelAll();
  bumStatus_->bumReplicationModeIs(mode);
  switch (mode) {
    case Mode::bumRepController:
      if (!ignoreCliFloodLists()) {
        replayFloodSets();
      }
      break;
    case Mode::bumRepHeadEnd:
      replayFloodSets();
      break;
    case Mode::bumRepMulticast:
      vtiStatus_.forEach([](RxnVtiStatus* reactor) { reactor->handleVlanToGroup(); });
      break;
    case Mode::bumRepNone:
      break;
  }
  RXN_TRACE(7, "BUM replication mode is " << mode);
  RXN_RING(7, "BUM replication mode is %s", Rxn::valueToString(mode));
}

void VxlanCentralSm::reviewBumRepMode() {
  if (bumStatus_->bumReplicationMode() == Mode::bumRepHeadEnd && vlanFloodSet_.empty()) {
    handleBumReplicationMode();
  }
}

void VxlanCentralSm::replayFloodSets() {
  vlanFloodSet_.forEach([](RxnVlanFloodSet* vlan) {
    vlan->forEachFloodSet([](RxnVlanFloodSet::RxnFloodSet* floodSet) { floodSet->handleDestSet(); });
  });
}

void VxlanCentralSm::recordRestartEntries() {
  for (auto const& [key, list] : bumStatus_->bumVtepList()) {
    for (auto const& [vtep, member] : list->remoteVtepAddr()) {
      hitlessRestartEntriesIs(Vxlan::MacVlanVtep(key.mac(), key.vlanId(), vtep), true);
    }
  }
}

void VxlanCentralSm::removeStaleRestartEntries() {
  for (auto it = hitlessRestartEntries_.begin(); it != hitlessRestartEntries_.end(); ++it) {
    // A copy: deleting the VTEP runs handlers that may erase the entry.
    Vxlan::MacVlanVtep const entry = it.key();
    Vxlan::MacVlanPair const key(entry.mac(), entry.vlanId());
    if (Rxn::Ptr<Vxlan::BumVtepList> const list = bumStatus_->bumVtepList(key)) {
      RXN_TRACE(7, " removing stale restart entry " << entry);
      RXN_RING(7, " removing stale restart entry %s", Rxn::valueToString(entry));
      list->remoteVtepAddrDel(entry.vtep());
      if (list->remoteVtepAddrs() == 0) {
        bumStatus_->bumVtepListDel(key);
      }
    }
  }
  hitlessRestartEntriesDelAll();
}

// --- RxnVxlanInfo ---------------------------------------------------------------

void VxlanCentralSm::RxnVxlanInfo::onVtepSmState() {
  if (rxnMarkedForDeletion()) return;
  owner()->updateVxlanState();
}

void VxlanCentralSm::RxnVxlanInfo::onVtepGroupSmState() {
  if (rxnMarkedForDeletion()) return;
  owner()->updateVxlanState();
}

void VxlanCentralSm::RxnVxlanInfo::onVxlanMacSmState() {
  if (rxnMarkedForDeletion()) return;
  owner()->updateVxlanState();
}

void VxlanCentralSm::RxnVxlanInfo::onVniSmState() {
  if (rxnMarkedForDeletion()) return;
  owner()->updateVxlanState();
}

void VxlanCentralSm::RxnVxlanInfo::rxnReplay() {
  owner()->updateVxlanState();
}

// --- RxnVtiStatusDir --------------------------------------------------------------

void VxlanCentralSm::RxnVtiStatusDir::onVtiStatus(Wire::IntfId const& intfId) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtiStatus_.follow(owner(), notifier()->vtiStatus(), intfId);
}

void VxlanCentralSm::RxnVtiStatusDir::onVtiStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanCentralSm::RxnVtiStatusDir::rxnReplay() {
  owner()->vtiStatus_.reconcile(owner(), notifier()->vtiStatus());
}

// --- RxnVtiStatus -----------------------------------------------------------------

VxlanCentralSm::RxnVtiStatus::RxnVtiStatus(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus, VxlanCentralSm* owner)
    : Reactor(vtiStatus, owner) {
  handleInitialized();
}

void VxlanCentralSm::RxnVtiStatus::onOperStatus() {
  if (rxnMarkedForDeletion()) return;
  handleOperStatus();
}

void VxlanCentralSm::RxnVtiStatus::onFloodMcastGrp() {
  if (rxnMarkedForDeletion()) return;
  handleFloodGrp();
}

void VxlanCentralSm::RxnVtiStatus::onVlanToGroup(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  handleVlanToGroup(vlanId);
}

void VxlanCentralSm::RxnVtiStatus::onVlanToGrouprxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleVlanToGroup();
}

void VxlanCentralSm::RxnVtiStatus::rxnReplay() {
  replay(this, &RxnVtiStatus::handleOperStatus, &RxnVtiStatus::handleFloodGrp);
}

void VxlanCentralSm::RxnVtiStatus::handleInitialized() {
  if (!owner()->initialized()) {
    return;
  }
  initialized_ = true;
  handleOperStatus();
  // The multicast fill walks only the reactors already in place, and this
  // one may not be among them yet.
  if (owner()->bumStatus()->bumReplicationMode() == Mode::bumRepMulticast) {
    handleVlanToGroup();
  }
}

void VxlanCentralSm::RxnVtiStatus::handleOperStatus() {
  if (!initialized_) {
    return;
  }
  VxlanCentralSm* const sm = owner();
  Wire::IntfId const intf = fwkKey();
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> const hwStatusDir = sm->vxlanHwStatusDir();
  if (notifier()->operStatus() == Interface::IntfOperStatus::intfOperUp) {
    RXN_TRACE(7, "intf " << intf << " oper status is up ");
    RXN_RING(7, "intf %s oper status is up ", intf.stringValue());
    // Machines that see the activation act on the VTI's hardware status at
    // once: it must stand first.
    if (hwStatusDir) {
      hwStatusDir->vxlanHwStatusIs(intf);
    }
    sm->vxlanInfo()->activatedVtiIs(intf, true);
  } else {
    RXN_TRACE(7, "intf " << intf << " oper status is down ");
    RXN_RING(7, "intf %s oper status is down ", intf.stringValue());
    sm->vxlanInfo()->activatedVtiDel(intf);
    if (hwStatusDir) {
      hwStatusDir->vxlanHwStatusDel(intf);
    }
  }
  sm->updateVxlanState();
}

void VxlanCentralSm::RxnVtiStatus::handleFloodGrp() {
  if (!initialized_) {
    return;
  }
  owner()->handleBumReplicationMode();
}

void VxlanCentralSm::RxnVtiStatus::handleVlanToGroup(Bridging::VlanId const& vlanId) {
  if (!initialized_) {
    return;
  }
  VxlanCentralSm* const sm = owner();
  // A group may have just turned the mode to multicast.
  if (sm->bumStatus()->bumReplicationMode() != Mode::bumRepMulticast) {
    sm->handleBumReplicationMode();
    return;
  }
  Wire::IntfId const intf = fwkKey();
  Wire::IpAddr const group = notifier()->vlanToGroup(vlanId);
  if (!!group) {
    RXN_TRACE(7, "intf " << intf << " add vlan " << vlanId << " group " << group);
    sm->bumStatus()->bumMcastGrpIs(vlanId, group);
  } else {
    RXN_TRACE(7, "intf " << intf << " del vlan " << vlanId);
    sm->bumStatus()->bumMcastGrpDel(vlanId);
  }
  if (notifier()->vlanToGroup().empty()) {
    sm->handleBumReplicationMode();
  }
}

void VxlanCentralSm::RxnVtiStatus::handleVlanToGroup() {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<Vxlan::VtiStatus const> const vti = notifier();
  for (auto it = vti->vlanToGroup().begin(); it != vti->vlanToGroup().end(); ++it) {
    handleVlanToGroup(Bridging::VlanId(it.key()));
  }
}

void VxlanCentralSm::RxnVtiStatus::cleanup() {
  VxlanCentralSm* const sm = owner();
  // A hitless restart must not look like the deletion of every VTI.
  if (sm->disableCleanupOnRestart()) {
    return;
  }
  sm->vxlanInfo()->activatedVtiDel(fwkKey());
  sm->updateVxlanState();
}

// --- RxnL2RibFloodSet -------------------------------------------------------------

void VxlanCentralSm::RxnL2RibFloodSet::onSource() {
  if (rxnMarkedForDeletion()) return;
  handleSource();
}

void VxlanCentralSm::RxnL2RibFloodSet::onVlanFloodSet(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vlanFloodSet_.follow(owner(), notifier()->vlanFloodSet(), vlanId);
}

void VxlanCentralSm::RxnL2RibFloodSet::onVlanFloodSetrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  reconcileVlanFloodSets();
}

void VxlanCentralSm::RxnL2RibFloodSet::rxnReplay() {
  replay(this, &RxnL2RibFloodSet::handleSource);
  reconcileVlanFloodSets();
}

void VxlanCentralSm::RxnL2RibFloodSet::handleSource() {
  owner()->handleBumReplicationMode();
}

void VxlanCentralSm::RxnL2RibFloodSet::reconcileVlanFloodSets() {
  owner()->vlanFloodSet_.reconcile(owner(), notifier()->vlanFloodSet());
}

// --- RxnVlanFloodSet ----------------------------------------------------------------

VxlanCentralSm::RxnVlanFloodSet::RxnVlanFloodSet(Rxn::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSet,
                                                 VxlanCentralSm* owner)
    : Reactor(vlanFloodSet, owner), floodSet_(nested_, "Fab::VXLAN::VxlanCentralSm::RxnVlanFloodSet", "floodSet") {
  floodSet_.reconcile(this, vlanFloodSet->floodSet());
}

void VxlanCentralSm::RxnVlanFloodSet::onFloodSet(Wire::EthAddr const& mac) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  floodSet_.follow(this, notifier()->floodSet(), mac);
}

void VxlanCentralSm::RxnVlanFloodSet::onFloodSetrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanCentralSm::RxnVlanFloodSet::rxnReplay() {
  floodSet_.reconcile(this, notifier()->floodSet());
}

void VxlanCentralSm::RxnVlanFloodSet::handleDel() {
  // The machine going away for a hitless restart keeps the published lists.
  if (owner()->disableCleanupOnRestart()) {
    return;
  }
  owner()->reviewBumRepMode();
}

// --- RxnFloodSet --------------------------------------------------------------------

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::onFloodSetType() {
  if (rxnMarkedForDeletion()) return;
  handleFloodSetType();
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::onDestSet(L2Rib::Dest const& dest) {
  if (rxnMarkedForDeletion()) return;
  handleDestSet(dest);
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::onDestSetrxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleDestSet();
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::rxnReplay() {
  replay(this, &RxnFloodSet::handleFloodSetType);
}

Vxlan::MacVlanPair VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::bumKey() const {
  return Vxlan::MacVlanPair(fwkKey(), owner()->fwkKey());
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::handleFloodSetType() {
  if (!sm()->initialized()) {
    return;
  }
  Rxn::Ptr<Vxlan::BumVtepList> const list = sm()->bumStatus()->bumVtepList(bumKey());
  if (!list) {
    RXN_TRACE(8, "No remote VTEPs, ignoring");
    return;
  }
  switch (notifier()->floodSetType()) {
    case L2Rib::FloodSetType::floodSetTypeAll:
      list->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::bumVtepIpSendToAll);
      break;
    case L2Rib::FloodSetType::floodSetTypeAny:
      list->bumVtepIpListTypeIs(Vxlan::BumVtepIpListType::bumVtepIpSendToAny);
      break;
    default:
      RXN_TRACE(7, "Unknown or invalid flood set type");
  }
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::handleDestSet(L2Rib::Dest const& dest) {
  VxlanCentralSm* const sm = this->sm();
  RxnVlanFloodSet* const parent = owner();
  if (!sm->initialized()) {
    return;
  }
  // A new flood destination may end multicast mode.
  if (sm->bumStatus()->bumReplicationMode() == Mode::bumRepMulticast) {
    sm->handleBumReplicationMode();
    return;
  }
  if (sm->ignoreCliFloodLists()) {
    return;
  }
  assert(dest.destType() == L2Rib::destTypeVxlan());
  Wire::IpAddr const vtep = dest.vxlan().v4Addr();
  Vxlan::MacVlanPair const key = bumKey();
  Rxn::Ptr<Vxlan::BumStatus> const bumStatus = sm->bumStatus();
  if (!notifier()->destSet(dest)) {
    Rxn::Ptr<Vxlan::BumVtepList> const list = bumStatus->bumVtepList(key);
    if (!list) {
      return;
    }
    list->remoteVtepAddrDel(vtep);
    if (list->remoteVtepAddrs() == 0) {
      bumStatus->bumVtepListDel(key);
    }
    return;
  }
  Rxn::Ptr<Vxlan::BumVtepList> const list = bumStatus->bumVtepListIs(key);
  // A fresh list gets its type.
  if (RxnFloodSet* const floodSet = parent->floodSet(key.mac())) {
    floodSet->handleFloodSetType();
  }
  list->remoteVtepAddrIs(vtep, true);
  if (sm->inHitlessRestart()) {
    sm->hitlessRestartEntriesDel(Vxlan::MacVlanVtep(key.mac(), key.vlanId(), vtep));
  }
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::handleDestSet() {
  Rxn::Ptr<L2Rib::FloodSet const> const floodSet = notifier();
  for (auto it = floodSet->destSet().begin(); it != floodSet->destSet().end(); ++it) {
    handleDestSet(L2Rib::Dest(it.key()));
  }
}

void VxlanCentralSm::RxnVlanFloodSet::RxnFloodSet::handleDel() {
  VxlanCentralSm* const sm = this->sm();
  // The machine going away for a hitless restart keeps the published lists,
  // and one not yet initialized has not taken them over.
  if (!sm->initialized() || sm->disableCleanupOnRestart() || sm->ignoreCliFloodLists()) {
    return;
  }
  Vxlan::MacVlanPair const key = bumKey();
  Rxn::Ptr<Vxlan::BumVtepList> const list = sm->bumStatus()->bumVtepList(key);
  if (!list) {
    RXN_TRACE(8, "Mac Vlan pair " << key << " not present in Vtep List");
    return;
  }
  list->remoteVtepAddrDelAll();
  sm->bumStatus()->bumVtepListDel(key);
}

}  // namespace Fab::VXLAN

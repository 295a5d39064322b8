#include "fabvxlan/mac/FabVxlanMacAddrSm.h"

#include <algorithm>
#include <cassert>
#include <unordered_map>

#include "fabvxlan/runtime/Log.h"
#include "fabvxlan/runtime/RingLog.h"
#include "fabvxlan/runtime/Toggle.h"
#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanMacAddrSm");

namespace Fab::VXLAN {

namespace {

Fab::FabNextHopId const unprogrammedNextHopId(0xFFFFFFFE);

Rxn::LogHandle const VXLAN_L2_ECMP_NOTSUPPORTED(
    "VXLAN_L2_ECMP_NOTSUPPORTED", 4,
    "Cannot program MAC address %s in VLAN %d for a VTEP group because VXLAN L2 ECMP is not supported on this "
    "platform.",
    "VXLAN L2 ECMP is required to program EVPN VXLAN multihoming MAC addresses.",
    "Please remove EVPN VXLAN multihoming configuration.", 60.0, 1.0, 0);

Vxlan::MacVlanPair fdbKey(Bridging::MacVlanPair const& key) {
  return Vxlan::MacVlanPair(key.mac(), key.vlanId());
}

// The forwarding database's kind of a remote entry.
Vxlan::EntryType fdbEntryType(Bridging::EntryType entryType) {
  switch (entryType) {
    case Bridging::EntryType::vxlanDynamicMac:
    case Bridging::EntryType::evpnDynamicMac:
      return Vxlan::EntryType::vxlanDynamic;
    case Bridging::EntryType::vxlanStaticMac:
    case Bridging::EntryType::evpnStaticMac:
      return Vxlan::EntryType::vxlanStatic;
    case Bridging::EntryType::vxlanConfiguredMac:
    case Bridging::EntryType::evpnConfiguredMac:
      return Vxlan::EntryType::vxlanConfigured;
    case Bridging::EntryType::controllerDynamicMac:
    case Bridging::EntryType::controllerStaticMac:
    case Bridging::EntryType::controllerConfiguredMac:
      return Vxlan::EntryType::vxlanReceived;
    default:
      assert(!"entry type of a remote host");
      return Vxlan::EntryType::vxlanDynamic;
  }
}

// Keeps the longest wall time that the scope it stands in took.
class LongestRun {
 public:
  explicit LongestRun(double& longest) : longest_(longest), began_(Rxn::System::wallClockTime()) {}
  ~LongestRun() { longest_ = std::max(longest_, Rxn::System::wallClockTime() - began_); }
  LongestRun(LongestRun const&) = delete;
  LongestRun& operator=(LongestRun const&) = delete;

 private:
  double& longest_;
  double const began_;
};

}  // namespace

// --- Construction --------------------------------------------------------------------

VxlanMacAddrSm::VxlanMacAddrSm(
    Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
    Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepConfigDir> const& vtepConfigDir,
    Rxn::Ptr<VtepStatusDir const> const& vtepStatusDir, Rxn::Ptr<Vxlan::VxlanConfigDir const> const& vxlanConfigDir,
    Rxn::Ptr<Vxlan::VxlanStatusDir const> const& vxlanStatusDir,
    Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir, Rxn::Ptr<RemoteMacInfoDir> const& rmacInfoDir,
    Rxn::Ptr<Mlag::HostTable const> const& mlagHostTable, Rxn::Ptr<Mlag::Status const> const& mlagStatus,
    Rxn::Ptr<VtepGroupConfigDir> const& vtepGroupConfigDir,
    Rxn::Ptr<VtepGroupStatusDir const> const& vtepGroupStatusDir, Rxn::Ptr<Slab::HostOutputReader> const& l2RibOutput,
    Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager)
    : FabBaseSm(acsd),
      verifyData_(reactors(), new RxnVerifyData(acsd->verifyData(), this)),
      vxlanInfo_(reactors(), new RxnVxlanInfo(vxlanInfo, this)),
      vtiStatusDir_(vtiStatusDir),
      vtepConfigDir_(vtepConfigDir),
      vtepStatusDir_(reactors(), new RxnVtepStatusDir(vtepStatusDir, this)),
      vxlanConfigDir_(vxlanConfigDir),
      vxlanStatusDir_(reactors(), new RxnVxlanStatusDir(vxlanStatusDir, this)),
      vxlanHwStatusDir_(reactors(), new RxnVxlanHwStatusDir(vxlanHwStatusDir, this)),
      bumStatus_(reactors(), new RxnBumStatus(vxlanHwStatusDir->bumStatus(), this)),
      rmacInfoDir_(reactors(), new RxnRemoteMacInfoDir(rmacInfoDir, this)),
      hostTable_(reactors(), new RxnHostTable(rmacInfoDir->hostTable(), this)),
      nextHopIdRefcountTable_(reactors(), new RxnNextHopIdRefcountTable(rmacInfoDir->nextHopIdRefcountTable(), this)),
      vlanRefcountTable_(reactors(), new RxnVlanRefcountTable(rmacInfoDir->vlanRefcountTable(), this)),
      vniInfo_(reactors(), new RxnVniInfo(rmacInfoDir->vniInfo(), this)),
      vxlanBootStatus_(reactors(), new RxnVxlanBootStatus(rmacInfoDir->vxlanBootStatus(), this)),
      mlagHostTable_(mlagHostTable),
      mlagStatus_(mlagStatus),
      vtepGroupConfigDir_(vtepGroupConfigDir),
      vtepGroupStatusDir_(reactors(), new RxnVtepGroupStatusDir(vtepGroupStatusDir, this)),
      l2RibOutput_(l2RibOutput),
      swTunnelIdManager_(swTunnelIdManager),
      processRemoteHostTimer_(reactors(), new RxnProcessRemoteHostTimer(Rxn::ActivityFacility::clock(), this)),
      stageRemoteMacsReadyTimer_(reactors(), new RxnStageRemoteMacsReadyTimer(Rxn::ActivityFacility::clock(), this)),
      vtepStatus_(reactors(), "Fab::VXLAN::VxlanMacAddrSm", "vtepStatus"),
      vtepGroupStatus_(reactors(), "Fab::VXLAN::VxlanMacAddrSm", "vtepGroupStatus"),
      vlanVniMapShadow_(reactors(), "Fab::VXLAN::VxlanMacAddrSm", "vlanVniMapShadow"),
      bumVtepList_(reactors(), "Fab::VXLAN::VxlanMacAddrSm", "bumVtepList"),
      vxlanStatus_(reactors(), "Fab::VXLAN::VxlanMacAddrSm", "vxlanStatus") {
  vtepStatus_.reconcile(this, vtepStatusDir->vtepStatus());
  vtepGroupStatus_.reconcile(this, vtepGroupStatusDir->vtepGroupStatus());
  vxlanStatus_.reconcile(this, vxlanStatusDir->vxlanStatus());
  if (Rxn::Ptr<Vxlan::BumStatus> const bumStatus = vxlanHwStatusDir->bumStatus()) {
    bumVtepList_.reconcile(this, bumStatus->bumVtepList());
  }
  if (Rxn::Ptr<FabVniInfo> const vniInfo = rmacInfoDir->vniInfo()) {
    vlanVniMapShadow_.reconcile(this, vniInfo->vlanVniMapShadow());
  }
}

Rxn::Ptr<VxlanMacAddrSm> vxlanMacAddrSmFactory(
    Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
    Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepConfigDir> const& vtepConfigDir,
    Rxn::Ptr<VtepStatusDir const> const& vtepStatusDir, Rxn::Ptr<Vxlan::VxlanConfigDir const> const& vxlanConfigDir,
    Rxn::Ptr<Vxlan::VxlanStatusDir const> const& vxlanStatusDir,
    Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir, Rxn::Ptr<RemoteMacInfoDir> const& rmacInfoDir,
    Rxn::Ptr<Mlag::HostTable const> const& mlagHostTable, Rxn::Ptr<Mlag::Status const> const& mlagStatus,
    Rxn::Ptr<VtepGroupConfigDir> const& vtepGroupConfigDir,
    Rxn::Ptr<VtepGroupStatusDir const> const& vtepGroupStatusDir, Rxn::Ptr<Slab::HostOutputReader> const& l2RibOutput,
    Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager) {
  return Fab::smFactory<VxlanMacAddrSm>(acsd, vxlanInfo, vtiStatusDir, vtepConfigDir, vtepStatusDir, vxlanConfigDir,
                                        vxlanStatusDir, vxlanHwStatusDir, rmacInfoDir, mlagHostTable, mlagStatus,
                                        vtepGroupConfigDir, vtepGroupStatusDir, l2RibOutput, swTunnelIdManager);
}

// --- The host road ---------------------------------------------------------------------

void VxlanMacAddrSm::handleRemoteHost(Bridging::MacVlanPair const& key) {
  if (!initialized()) {
    return;
  }
  HostEntry const entry = hostTable()->entry(key);
  if (!entry) {
    RXN_TRACE(8, " Remote entry deleted in hw " << key);
    removeRemoteMacFromFdbStatus(fdbKey(key));
    removeRemoteHostStatus(key);
    if (hostTable()->entrys() == 0 && vxlanInfo()->state() == FabVxlanState::cleaning_) {
      vxlanInfo()->vxlanMacSmStateIs(FabVxlanState::clean_);
    }
    return;
  }
  switch (entry.hwOperation()) {
    case HostHwOperation::hwOpResolve_:
      RXN_TRACE(8, " Remote mac " << key << " has to be resolved");
      updateListIs(key, true);
      processRemoteHostTimer_->timeMinIs(Rxn::System::currentTime());
      return;
    case HostHwOperation::hwOpDelete_:
      RXN_TRACE(8, " Remote mac to be deleted in hw " << key);
      removeRemoteHostStatus(key);
      return;
    case HostHwOperation::hwOpProgrammed_:
      break;
    default:
      assert(!"hwOperation of a host entry");
      return;
  }
  if (entry.hwState().nextHopId() == unprogrammedNextHopId) {
    RXN_TRACE(8, " Remote mac deleted in hw " << key << " (unprogrammed next hop id)");
    assert(!!unprogrammedRemoteMacList(key));
    removeRemoteMacFromFdbStatus(fdbKey(key));
    return;
  }
  RXN_TRACE(8, " Remote mac programmed in hw, update fdb " << key);
  assert(entry.hwState().inHw());
  publishLearnedHost(key, entry);
}

// The group that the hardware holds decides the address, not the one asked for.
void VxlanMacAddrSm::publishLearnedHost(Bridging::MacVlanPair const& key, HostEntry const& entry) {
  Vxlan::EntryType const entryType = fdbEntryType(entry.entryType());
  Fab::SwTunnelGroupId const inHw = entry.hwState().swTunnelGroupId();
  Fab::TunnelIpAddrList const ipList = swTunnelIdManager()->getTunnelIpListFromSwTunnelGroupId(inHw);
  Wire::IpAddr firstIp;
  if (auto it = ipList.tunnelIpAddr().begin(); it != ipList.tunnelIpAddr().end()) {
    firstIp = it.key();
  }
  Rxn::Ptr<Vxlan::FdbStatus> const fdbStatus = vxlanHwStatusDir()->fdbStatus();
  Vxlan::MacVlanPair const fdb = fdbKey(key);
  fdbStatus->learnedHostIs(Vxlan::LearnedHost(fdb, firstIp, entryType, entry.learnTime()));
  // Delete, then create: a shrunken group leaves no stale member.
  fdbStatus->multiVtepLearnedHostDel(fdb);
  if (!inHw.isSingleMemberGroup()) {
    Rxn::Ptr<Vxlan::MultiVtepLearnedHost> const multi = fdbStatus->multiVtepLearnedHostIs(fdb);
    multi->entryTypeIs(entryType);
    for (auto const& [ip, member] : ipList.tunnelIpAddr()) {
      multi->remoteVtepListIs(ip, true);
    }
  }
}

void VxlanMacAddrSm::handleRemoteHost() {
  if (!initialized() || !hostTable()) {
    return;
  }
  for (auto const& [key, entry] : hostTable()->entry()) {
    handleRemoteHost(key);
  }
}

// Work per run is bounded by wall time, not by keys: the rest of the list
// waits for the next turn of the loop.
void VxlanMacAddrSm::processRemoteHost() {
  if (!initialized()) {
    return;
  }
  LongestRun const run(longestQuantumRun_);
  double const deadline = Rxn::System::currentTime() + remoteHostProcessingQuanta();
  for (auto it = updateList().begin(); it != updateList().end();) {
    if (Rxn::System::currentTime() > deadline) {
      RXN_TRACE(7, " Exceeded time quantum, rescheduling");
      processRemoteHostTimer_->timeMinIs(0.0);
      return;
    }
    Bridging::MacVlanPair const key = it.key();
    ++it;
    updateListDel(key);
    HostEntry const entry = hostTable()->entry(key);
    assert(!!entry);
    processRemoteHost(key, entry.vtiIntfId(), entry.swTunnelGroupId(), entry.entryType());
  }
}

void VxlanMacAddrSm::processRemoteHost(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                                       Fab::SwTunnelGroupId const& swTunnelGroupId, Bridging::EntryType entryType) {
  if (!initialized()) {
    return;
  }
  // 1. The VTI and its mapping of the VLAN.
  Rxn::Ptr<VlanVniMapShadow> const shadow =
      rmacInfoDir()->vniInfo() ? rmacInfoDir()->vniInfo()->vlanVniMapShadow(vtiIntfId) : nullptr;
  bool const canGoOn = rmacInfoDir()->validTunnelIntf(vtiIntfId) && shadow && !!shadow->vlanVniMap(key.vlanId());
  if (!canGoOn) {
    RXN_TRACE(7, " No VTI or mapping for " << key << " on " << vtiIntfId);
    triggerReevaluation(key.mac(), key.vlanId().value(), RemoteMacEvent::Oper::operReevaluate_);
    releaseRequestedVtep(key, vtiIntfId, swTunnelGroupId);
    return;
  }
  // 2. The learn restriction, for a single VTEP. It comes before an older
  //    request is freed: a refused host keeps what it holds until the writer
  //    withdraws its row.
  if (swTunnelGroupId.isSingleMemberGroup()) {
    Wire::IpAddr const vtep = swTunnelIdManager()->getTunnelIpFromSwTunnelGroupId(swTunnelGroupId);
    if (!checkLearnFromVtep(key.vlanId().value(), Wire::IpGenAddr(vtep), true)) {
      RXN_TRACE(7, "Deleting entry vlanId " << key.vlanId() << " " << key.mac() << " VTEP " << vtep);
      releaseRequestedVtep(key, vtiIntfId, swTunnelGroupId);
      triggerReevaluation(key.mac(), key.vlanId().value(), RemoteMacEvent::Oper::operDelete_);
      return;
    }
  }
  // 3. An older request for a VTEP is freed; the pending row is replaced below.
  if (PendingRemoteMacEntry const pending = pendingResolveRemoteMacList(key); !!pending) {
    removeRemoteMacVtepMap(key, vtiIntfId, pending.swTunnelGroupId());
  }
  // 4. The VTEP's hardware.
  Fab::FabNextHopId nextHopId;
  Fab::FabTunnelId tunnelId;
  readVtepHardware(swTunnelGroupId, vtiIntfId, nextHopId, tunnelId);
  // 5. Resolved: the host's status row. Otherwise it waits for its VTEP.
  if (nextHopId != Fab::FabNextHopId()) {
    updateRemoteMacVtepMap(key, vtiIntfId, swTunnelGroupId, tunnelId, entryType);
    updateRemoteHostStatus(key, vtiIntfId, swTunnelGroupId, entryType, nextHopId, tunnelId);
    return;
  }
  pendingResolveRemoteMacListIs(PendingRemoteMacEntry(key, swTunnelGroupId, vtiIntfId));
  updateRemoteMacVtepMap(key, vtiIntfId, swTunnelGroupId, Fab::FabTunnelId(), entryType);
}

// A host that cannot go on gives up the VTEP its row asks for, but not one
// that its status row or its pending row stands on: a host with a row stands
// among the hosts of the row's VTEP, and leaves them when the writer
// withdraws the host.
void VxlanMacAddrSm::releaseRequestedVtep(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                                          Fab::SwTunnelGroupId const& swTunnelGroupId) {
  StatusEntry const status = statusTable()->statusEntry(key);
  PendingRemoteMacEntry const pending = pendingResolveRemoteMacList(key);
  if ((!!status && status.swTunnelGroupId() == swTunnelGroupId) ||
      (!!pending && pending.swTunnelGroupId() == swTunnelGroupId)) {
    RXN_TRACE(7, " " << key << " keeps " << swTunnelGroupId << " until its row is withdrawn");
    return;
  }
  removeRemoteMacVtepMap(key, vtiIntfId, swTunnelGroupId);
}

// Leaves the next hop invalid while the VTEP has no hardware; a tunnel that
// another host already entered has its TunnelInfo row.
void VxlanMacAddrSm::readVtepHardware(Fab::SwTunnelGroupId const& swTunnelGroupId, Wire::IntfId const& vtiIntfId,
                                      Fab::FabNextHopId& nextHopId, Fab::FabTunnelId& tunnelId) {
  Rxn::Ptr<VtepStatus> const vtepStatus = vtepStatusDir()->vtepStatus(vtiIntfId);
  Rxn::Ptr<VtepGroupStatus> const vtepGroupStatus = vtepGroupStatusDir()->vtepGroupStatus(vtiIntfId);
  Rxn::Ptr<TunnelInfoDir> const tunnelInfoDir = rmacInfoDir()->tunnelInfoDir();
  if (swTunnelGroupId.isSingleMemberGroup()) {
    // clang-format off
    assert(!vtepGroupStatus || !vtepGroupStatus->hwVtepGroupInfo( swTunnelGroupId ));
    // clang-format on
    HwVtepInfo const info = vtepStatus ? vtepStatus->hwVtepInfo(swTunnelGroupId) : HwVtepInfo();
    if (!info) {
      RXN_TRACE(7,
                " Next hop information not available for VTEP " << swTunnelGroupId << ",wait for VTEP to be resolved ");
      return;
    }
    nextHopId = info.nextHopId();
    tunnelId = info.tunnelId();
  } else {
    // clang-format off
    assert(!vtepStatus || !vtepStatus->hwVtepInfo( swTunnelGroupId ));
    // clang-format on
    HwVtepGroupInfo const info =
        vtepGroupStatus ? vtepGroupStatus->hwVtepGroupInfo(swTunnelGroupId) : HwVtepGroupInfo();
    if (!info) {
      RXN_TRACE(7, " Next hop information not available for VTEP Group " << swTunnelGroupId << ",wait for VTEP Group "
                                                                         << "to be resolved ");
      return;
    }
    nextHopId = info.nextHopId();
    tunnelId = info.tunnelId();
  }
  if (!tunnelId.valid()) {
    return;
  }
  // A tunnel that another host entered has its row. One whose request an
  // earlier life of the agent left standing, or whose VTEP came back while
  // its VTI was not a tunnel interface, has none yet.
  TunnelInfo const row = tunnelInfoDir->tunnelInfo(tunnelId);
  if (!row) {
    tunnelInfoDir->tunnelInfoIs(TunnelInfo(tunnelId, swTunnelGroupId, vtiIntfId));
    return;
  }
  // Without generation ids a VTEP's standing answer may name a tunnel that
  // the tunnel layer has since taken down and given to another VTEP (the
  // VTEP's removal and its new request crossed): the row stays with the VTEP
  // whose answer came last, and this VTEP's next answer replaces its own.
  if (row.swTunnelGroupId() != swTunnelGroupId) {
    RXN_TRACE(7, " tunnel " << tunnelId << " of " << swTunnelGroupId << " was given to " << row.swTunnelGroupId());
  }
}

void VxlanMacAddrSm::updateRemoteMacVtepMap(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                                            Fab::SwTunnelGroupId const& swTunnelGroupId,
                                            Fab::FabTunnelId const& tunnelId, Bridging::EntryType) {
  // The move of a host from one VTEP to another.
  if (StatusEntry const old = statusTable()->statusEntry(key); !!old && old.swTunnelGroupId() != swTunnelGroupId) {
    removeRemoteMacVtepMap(key, vtiIntfId, old.swTunnelGroupId());
  }
  Rxn::Ptr<VtepMacAddrList> const list = vtepMacAddrListIs(swTunnelGroupId);
  list->tunnelIdIs(tunnelId);
  list->macAddrListIs(key, true);
  // clang-format off
  assert(vtepConfigDir()->vtepConfig( vtiIntfId ));
  assert(swTunnelIdManager()->isSwTunnelGroupIdValid( swTunnelGroupId ));
  // clang-format on
  if (swTunnelGroupId.isSingleMemberGroup()) {
    // clang-format off
    assert(!vtepGroupConfigDir()->vtepGroupConfig( vtiIntfId )->vtepGroupList( swTunnelGroupId ));
    // clang-format on
    vtepConfigDir()->vtepConfig(vtiIntfId)->remoteVtepListIs(swTunnelGroupId, true);
    return;
  }
  // clang-format off
  assert(swTunnelGroupId.isMultiMemberGroup());
  assert(!vtepConfigDir()->vtepConfig( vtiIntfId )->remoteVtepList( swTunnelGroupId ));
  // clang-format on
  if (vtepGroupSupported()) {
    vtepGroupConfigDir()->vtepGroupConfig(vtiIntfId)->vtepGroupListIs(swTunnelGroupId, true);
    return;
  }
  // The group is never requested: its hosts stay pending.
  Rxn::log(VXLAN_L2_ECMP_NOTSUPPORTED, key.mac().stringValue().c_str(), static_cast<int>(key.vlanId().value()));
}

void VxlanMacAddrSm::removeRemoteMacVtepMap(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                                            Fab::SwTunnelGroupId const& swTunnelGroupId) {
  Rxn::Ptr<VtepMacAddrList> const list = vtepMacAddrList(swTunnelGroupId);
  if (!list) {
    return;
  }
  list->macAddrListDel(key);
  if (list->macAddrLists() != 0) {
    return;
  }
  dropTunnelInfo(list);
  vtepMacAddrListDel(swTunnelGroupId);
  // A VTI going down deletes its request lists first: their absence is no fault.
  if (swTunnelGroupId.isMultiMemberGroup()) {
    if (Rxn::Ptr<VtepGroupConfig> const groupConfig = vtepGroupConfigDir()->vtepGroupConfig(vtiIntfId)) {
      // clang-format off
      assert(!vtepConfigDir()->vtepConfig( vtiIntfId )->remoteVtepList( swTunnelGroupId ));
      // clang-format on
      groupConfig->vtepGroupListDel(swTunnelGroupId);
    }
    return;
  }
  if (Rxn::Ptr<VtepConfig> const config = vtepConfigDir()->vtepConfig(vtiIntfId)) {
    // clang-format off
    assert(!vtepGroupConfigDir()->vtepGroupConfig( vtiIntfId )->vtepGroupList( swTunnelGroupId ));
    // clang-format on
    config->remoteVtepListDel(swTunnelGroupId);
  }
}

// The row of the list's tunnel, unless the tunnel id went to another VTEP
// since: the list keeps the id its VTEP last had.
void VxlanMacAddrSm::dropTunnelInfo(Rxn::Ptr<VtepMacAddrList> const& list) {
  Rxn::Ptr<TunnelInfoDir> const tunnelInfoDir = rmacInfoDir()->tunnelInfoDir();
  if (tunnelInfoDir->tunnelInfo(list->tunnelId()).swTunnelGroupId() == list->swTunnelGroupId()) {
    tunnelInfoDir->tunnelInfoDel(list->tunnelId());
  }
}

void VxlanMacAddrSm::removeRemoteMacFromFdbStatus(Vxlan::MacVlanPair const& key) {
  Rxn::Ptr<Vxlan::FdbStatus> const fdbStatus = vxlanHwStatusDir()->fdbStatus();
  if (!fdbStatus) {
    return;
  }
  fdbStatus->learnedHostDel(key);
  fdbStatus->multiVtepLearnedHostDel(key);
}

// --- Status rows and their references ---------------------------------------------------

// The row is written last, once every reference it holds is counted.
void VxlanMacAddrSm::updateRemoteHostStatus(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                                            Fab::SwTunnelGroupId const& swTunnelGroupId, Bridging::EntryType entryType,
                                            Fab::FabNextHopId const& nextHopId, Fab::FabTunnelId const& tunnelId) {
  Rxn::Ptr<RemoteMacInfoDir> const dir = rmacInfoDir();
  StatusEntry const old = statusTable()->statusEntry(key);
  bool const sameNextHop = !!old && old.nextHopId() == nextHopId;
  // 1. The next hop reference moves.
  if (!!old && !sameNextHop && old.nextHopId().valid()) {
    dir->nextHopIdRefcountTable()->decRefcount(old.nextHopId().value());
  }
  if (!sameNextHop && nextHopId.valid()) {
    dir->nextHopIdRefcountTable()->incRefcount(nextHopId.value());
    // clang-format off
    assert(swTunnelIdManager()->isSwTunnelGroupIdValid( swTunnelGroupId ));
    // clang-format on
    if (swTunnelGroupId.isSingleMemberGroup()) {
      assert(vtepConfigDir());
      vtepConfigDir()->activeNextHopIdListIs(nextHopId, true);
    } else {
      assert(vtepGroupConfigDir());
      assert(swTunnelGroupId.isMultiMemberGroup());
      vtepGroupConfigDir()->activeNextHopIdListIs(nextHopId, true);
    }
  }
  // 2. A host's first row takes a VLAN reference.
  if (!old) {
    dir->vlanRefcountTable()->incRefcount(key.vlanId().value());
    dir->vniInfo()->activeVxlanVlanIs(key.vlanId(), true);
  }
  // 3. The lists of hosts that wait.
  pendingResolveRemoteMacListDel(key);
  if (nextHopId == unprogrammedNextHopId) {
    unprogrammedRemoteMacListIs(PendingRemoteMacEntry(key, swTunnelGroupId, vtiIntfId));
  } else {
    unprogrammedRemoteMacListDel(key);
  }
  // 4. The tunnel group reference moves; then the row.
  swTunnelIdManager()->updateSwTunnelGroupIdRefcount(swTunnelGroupId, old.swTunnelGroupId());
  statusTable()->statusEntryIs(StatusEntry(key, vtiIntfId, swTunnelGroupId, entryType, nextHopId, tunnelId));
  requestVerify();
}

// A moved host may have both a status row and a pending row: both VTEPs go.
void VxlanMacAddrSm::removeRemoteHostStatus(Bridging::MacVlanPair const& key) {
  Rxn::Ptr<RemoteMacInfoDir> const dir = rmacInfoDir();
  updateListDel(key);
  if (StatusEntry const status = statusTable()->statusEntry(key); !!status) {
    statusTable()->statusEntryDel(key);
    swTunnelIdManager()->decSwTunnelGroupIdRefcount(status.swTunnelGroupId());
    if (status.nextHopId().valid()) {
      dir->nextHopIdRefcountTable()->decRefcount(status.nextHopId().value());
    }
    // clang-format off
    assert(!!rmacInfoDir()->vlanRefcountTable()->refcount( key.vlanId() ));
    // clang-format on
    dir->vlanRefcountTable()->decRefcount(key.vlanId().value());
    removeRemoteMacVtepMap(key, status.vtiIntfId(), status.swTunnelGroupId());
  }
  if (PendingRemoteMacEntry const pending = pendingResolveRemoteMacList(key); !!pending) {
    removeRemoteMacVtepMap(key, pending.vtiIntfId(), pending.swTunnelGroupId());
    pendingResolveRemoteMacListDel(key);
  }
  unprogrammedRemoteMacListDel(key);
  requestVerify();
}

void VxlanMacAddrSm::RxnVtepStatus::handleNextHopIdUpdate(Fab::SwTunnelGroupId const& swTunnelGroupId) {
  assert(swTunnelGroupId.isSingleMemberGroup());
  HwVtepInfo const info = notifier()->hwVtepInfo(swTunnelGroupId);
  owner()->vtepHardwareChanged(fwkKey(), swTunnelGroupId, info.nextHopId(), info.tunnelId(), !!info);
}

void VxlanMacAddrSm::RxnVtepGroupStatus::handleNextHopIdUpdate(Fab::SwTunnelGroupId const& swTunnelGroupId) {
  assert(swTunnelGroupId.isMultiMemberGroup());
  HwVtepGroupInfo const info = notifier()->hwVtepGroupInfo(swTunnelGroupId);
  owner()->vtepHardwareChanged(fwkKey(), swTunnelGroupId, info.nextHopId(), info.tunnelId(), !!info);
}

// The old tunnel's row goes first, whatever comes next; a withdrawn VTEP
// (no hardware) changes no host here.
void VxlanMacAddrSm::vtepHardwareChanged(Wire::IntfId const& vtiIntfId, Fab::SwTunnelGroupId const& swTunnelGroupId,
                                         Fab::FabNextHopId const& nextHopId, Fab::FabTunnelId const& tunnelId,
                                         bool present) {
  if (Rxn::Ptr<VtepMacAddrList> const list = vtepMacAddrList(swTunnelGroupId)) {
    dropTunnelInfo(list);
  }
  if (present) {
    handleNextHopIdUpdate(vtiIntfId, swTunnelGroupId, nextHopId, tunnelId);
  }
}

// Not under the quantum: one VTEP event moves all its hosts at once, the
// pending ones included.
void VxlanMacAddrSm::handleNextHopIdUpdate(Wire::IntfId const& vtiIntfId, Fab::SwTunnelGroupId const& swTunnelGroupId,
                                           Fab::FabNextHopId const& nextHopId, Fab::FabTunnelId const& tunnelId) {
  if (!initialized() || !rmacInfoDir()->validTunnelIntf(vtiIntfId)) {
    return;
  }
  // A request that an earlier life of the agent left standing changes
  // before any host of this life is behind it: no host to move.
  if (!vtepMacAddrList(swTunnelGroupId)) {
    RXN_TRACE(7, " No host behind " << swTunnelGroupId << " yet");
    return;
  }
  assert(!!nextHopId);
  if (tunnelId.valid()) {
    assert(!!tunnelId);
    rmacInfoDir()->tunnelInfoDir()->tunnelInfoIs(TunnelInfo(tunnelId, swTunnelGroupId, vtiIntfId));
  }
  Rxn::Ptr<VtepMacAddrList> const list = vtepMacAddrList(swTunnelGroupId);
  list->tunnelIdIs(tunnelId);
  for (auto it = list->macAddrList().begin(); it != list->macAddrList().end();) {
    Bridging::MacVlanPair const key = it.key();
    ++it;
    HostEntry const entry = hostTable()->entry(key);
    assert(!!entry);
    // On its way to another VTEP: the quantum moves it.
    if (updateList(key) && entry.swTunnelGroupId() != swTunnelGroupId) {
      continue;
    }
    updateRemoteHostStatus(key, vtiIntfId, swTunnelGroupId, entry.entryType(), nextHopId, tunnelId);
    if (!vtepMacAddrList(swTunnelGroupId)) {
      RXN_TRACE(7, " " << swTunnelGroupId << "is removed from vtepMacAddrList");
      return;
    }
  }
}

// Released by the table's notification once the last reference went.
void VxlanMacAddrSm::handleUnusedNextHopId(Fab::FabNextHopId const& nextHopId) {
  assert(nextHopId.valid());
  if (!!rmacInfoDir()->nextHopIdRefcountTable()->refcount(nextHopId.value())) {
    return;
  }
  RXN_TRACE(8, " Removing nextHopId : " << nextHopId);
  if (vtepConfigDir()->activeNextHopIdList(nextHopId)) {
    // clang-format off
    assert(!vtepGroupConfigDir()->activeNextHopIdList( nextHopId ));
    // clang-format on
    vtepConfigDir()->activeNextHopIdListDel(nextHopId);
    return;
  }
  // clang-format off
  assert(!!vtepGroupConfigDir()->activeNextHopIdList( nextHopId ));
  // clang-format on
  vtepGroupConfigDir()->activeNextHopIdListDel(nextHopId);
}

void VxlanMacAddrSm::handleUnusedVlan(Bridging::VlanId const& vlanId) {
  if (!!rmacInfoDir()->vlanRefcountTable()->refcount(vlanId.value())) {
    return;
  }
  RXN_TRACE(8, " Removing vlanId : " << vlanId);
  rmacInfoDir()->vniInfo()->activeVxlanVlanDel(vlanId);
}

// --- Asking the writer to reconsider hosts ------------------------------------------------

// Every event is a new value, also for the same MAC.
void VxlanMacAddrSm::triggerReevaluation(Wire::EthAddr const& macAddr, std::uint32_t vlanId,
                                         RemoteMacEvent::Oper oper) {
  Rxn::Ptr<RemoteMacInfoDir> const dir = rmacInfoDir();
  dir->remoteMacEventIs(
      RemoteMacEvent(macAddr, vlanId, dir->remoteMacEvent().seqNo() + 1, oper, Wire::IntfId(), Fab::SwTunnelGroupId()));
}

void VxlanMacAddrSm::enqueueRemoteMacFlushReq(std::uint32_t vlanId, Wire::IntfId const& vtiIntfId) {
  if (Rxn::Ptr<RemoteMacFlushReqTable> const table = rmacInfoDir()->remoteMacFlushReqTable()) {
    table->flushReqIs(FlushReqKey(vtiIntfId, vlanId), true);
  }
}

bool VxlanMacAddrSm::hitlessRestartInProgress() const {
  Rxn::Ptr<VxlanBootStatus> const boot = rmacInfoDir()->vxlanBootStatus();
  return boot && boot->vxlanHitlessRestartSupported() && !boot->stageRemoteMacsReady();
}

void VxlanMacAddrSm::reevaluateConfiguredRemoteMacs(std::uint32_t vlanId, Wire::IntfId const& vti, bool force) {
  if (hitlessRestartInProgress() && !force) {
    RXN_TRACE(7,
              " skip reevaluation of configured remote MACs since "
              "hitless restart is in progress");
    return;
  }
  reevaluateConfiguredHosts(vlanId, vti);
  reevaluateL2RibHosts(vlanId);
  reevaluateMlagHosts(vlanId, vti);
}

void VxlanMacAddrSm::reevaluateConfiguredHosts(std::uint32_t vlanId, Wire::IntfId const& vti) {
  Rxn::Ptr<Vxlan::FdbConfig> const fdbConfig = vxlanConfigDir() ? vxlanConfigDir()->fdbConfig() : nullptr;
  if (!fdbConfig) {
    return;
  }
  for (auto const& [key, host] : fdbConfig->configuredHost()) {
    if ((vlanId == 0 || key.vlanId().value() == vlanId) && host.intf() == vti) {
      triggerReevaluation(key.mac(), key.vlanId().value(), RemoteMacEvent::Oper::operReevaluate_);
    }
  }
}

// Any VTI: an L2Rib host of the VLAN is evaluated whichever VTI it would use.
void VxlanMacAddrSm::reevaluateL2RibHosts(std::uint32_t vlanId) {
  if (!l2RibOutput() || !l2RibOutput()->table()) {
    return;
  }
  if (vlanId == 0) {
    for (auto const& [key, host] : l2RibOutput()->table()->host()) {
      reevaluateL2RibHost(key);
    }
    return;
  }
  Rxn::Ptr<VlanBasedHostTableIndex> const index = rmacInfoDir()->vlanBasedHostTableIndex(vlanId);
  if (!index) {
    RXN_TRACE(8, "No L2Rib macs present for the vlan " << vlanId);
    return;
  }
  Bridging::VlanId const vlan(static_cast<std::uint16_t>(vlanId));
  for (auto const& [mac, member] : index->macAddrList()) {
    reevaluateL2RibHost(Bridging::MacVlanPair(mac, vlan));
  }
}

// A corrupted row is reported to the table and skipped.
void VxlanMacAddrSm::reevaluateL2RibHost(Bridging::MacVlanPair const& key) {
  L2Rib::HostAndSource host;
  try {
    host = l2RibOutput()->host(key);
  } catch (Slab::CorruptionException const& e) {
    l2RibOutput()->corruptionIs(e.what());
  }
  if (!host) {
    return;
  }
  RXN_TRACE(8, "Trigger reevaluation of L2Rib Host " << key);
  triggerReevaluation(key.mac(), key.vlanId().value(), RemoteMacEvent::Oper::operReevaluate_);
}

// Only while the peers are in MLAG operation (states 3 and 4).
void VxlanMacAddrSm::reevaluateMlagHosts(std::uint32_t vlanId, Wire::IntfId const& vti) {
  if (!mlagStatus() || !mlagHostTable() || (mlagStatus()->mlagState() != 3 && mlagStatus()->mlagState() != 4)) {
    return;
  }
  if (vlanId == 0) {
    for (auto const& [key, mhost] : mlagHostTable()->hostEntry()) {
      reevaluateMlagHost(mhost, vti);
    }
    return;
  }
  Rxn::Ptr<MlagHostTableIndex> const index = rmacInfoDir()->mlagHostTableIndex(vlanId);
  if (!index) {
    return;
  }
  Bridging::VlanId const vlan(static_cast<std::uint16_t>(vlanId));
  for (auto const& [mac, member] : index->macAddrList()) {
    Mlag::HostEntry const mhost = mlagHostTable()->hostEntry(Mlag::HostEntryKey(mac, vlan));
    assert(!!mhost);
    reevaluateMlagHost(mhost, vti);
  }
}

// A name that gives no VXLAN interface is skipped.
void VxlanMacAddrSm::reevaluateMlagHost(Mlag::HostEntry const& mhost, Wire::IntfId const& vti) {
  try {
    if (Mlag::getVxlanIntf(mhost.intfName()) == vti) {
      triggerReevaluation(mhost.key().mac(), mhost.key().vlanId().value(), RemoteMacEvent::Oper::operReevaluate_);
    }
  } catch (Rxn::RangeException const&) {
    RXN_TRACE(8, " No VXLAN interface for MLAG host " << mhost.key().mac() << " on " << mhost.intfName());
  }
}

// Drops what is under way for a VLAN (0: all) of a VTI.
void VxlanMacAddrSm::cleanupPendingLists(std::uint32_t vlanId, Wire::IntfId const& vtiIntfId) {
  auto ofVlan = [vlanId](Bridging::MacVlanPair const& key) { return vlanId == 0 || key.vlanId().value() == vlanId; };
  // 1. Keys waiting for the quantum.
  for (auto it = updateList().begin(); it != updateList().end();) {
    Bridging::MacVlanPair const key = it.key();
    ++it;
    if (ofVlan(key) && hostTable()->entry(key).vtiIntfId() == vtiIntfId) {
      triggerReevaluation(key.mac(), key.vlanId().value(), RemoteMacEvent::Oper::operReevaluate_);
      updateListDel(key);
    }
  }
  // 2. Keys waiting for their VTEP: the entry stays until the row changes.
  for (auto const& [key, pending] : pendingResolveRemoteMacList()) {
    if (!ofVlan(key)) {
      continue;
    }
    HostEntry const entry = hostTable()->entry(key);
    if (entry.vtiIntfId() == vtiIntfId) {
      assert(!!entry);
      triggerReevaluation(key.mac(), key.vlanId().value(), RemoteMacEvent::Oper::operReevaluate_);
    }
  }
  // 3. Keys without a real next hop go at once.
  for (auto unprogIter = unprogrammedRemoteMacList().begin(); unprogIter != unprogrammedRemoteMacList().end();) {
    Bridging::MacVlanPair const key = unprogIter.key();
    HostEntry const entry = hostTable()->entry(key);
    assert(!!entry);
    if (ofVlan(key) && entry.vtiIntfId() == vtiIntfId) {
      // clang-format off
      assert(!!hostTable()->entry( unprogIter.key() ));
      assert(!!statusTable()->statusEntry( unprogIter.key() ));
      // clang-format on
      ++unprogIter;
      removeRemoteHostStatus(key);
      continue;
    }
    ++unprogIter;
  }
}

// --- The lifecycle ---------------------------------------------------------------------

void VxlanMacAddrSm::handleInitialized() {
  initializedIs(true);
  Rxn::Ptr<Vxlan::FdbStatus> const fdbStatus = vxlanHwStatusDir()->fdbStatus();
  if (hitlessRestartInProgress()) {
    RXN_TRACE(7,
              " skip deleting remote MACs from vxlanFdbStatus "
              "during hitless restart");
  } else if (fdbStatus) {
    fdbStatus->learnedHostDelAll();
    fdbStatus->multiVtepLearnedHostDelAll();
  }
  for (auto const& [vti, activated] : vxlanInfo()->activatedVti()) {
    handleVtiUp(vti);
  }
  handleVxlanStateUpdate();
}

void VxlanMacAddrSm::handleVxlanStateUpdate() {
  if (!initialized()) {
    return;
  }
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  RXN_TRACE(8, " new vxlan state " << info->state() << " mac state " << info->vxlanMacSmState());
  switch (info->state()) {
    case FabVxlanState::initializing_:
      // An earlier life of the agent, whose state was kept, already answered.
      if (info->vxlanMacSmState() == FabVxlanState::initialized_) {
        return;
      }
      assert(vxlanInfo()->vxlanMacSmState() == FabVxlanState::clean_);
      info->vxlanMacSmStateIs(FabVxlanState::initialized_);
      return;
    case FabVxlanState::initialized_:
      assert(vxlanInfo()->vxlanMacSmState() == FabVxlanState::initialized_);
      for (auto const& [vti, activated] : info->activatedVti()) {
        handleVtiUp(vti);
      }
      vxlanStatus_.forEach([](RxnVxlanStatus* reactor) { reactor->handleInitialized(); });
      // The flood lists that stood before the machine started follow from now.
      bumVtepList_.forEach([](RxnBumVtepList* reactor) { reactor->handleInitialized(); });
      return;
    case FabVxlanState::cleaning_:
      info->vxlanMacSmStateIs(FabVxlanState::cleaning_);
      for (auto const& [vti, activated] : info->activatedVti()) {
        handleVtiDown(vti);
      }
      // Otherwise the deletion of the last row finishes the cleanup.
      if (!hostTable() || hostTable()->entrys() == 0) {
        info->vxlanMacSmStateIs(FabVxlanState::clean_);
      }
      return;
    case FabVxlanState::clean_:
      assert(vxlanInfo()->vxlanMacSmState() == FabVxlanState::clean_);
      return;
  }
}

void VxlanMacAddrSm::handleActivatedVti(Wire::IntfId const& vti) {
  if (!initialized()) {
    return;
  }
  if (vtiActivated(vti)) {
    RXN_TRACE(7, " vti " << vti << " activated ");
    handleVtiUp(vti);
    return;
  }
  RXN_TRACE(7, " vti " << vti << " deactivated ");
  handleVtiDown(vti);
}

void VxlanMacAddrSm::handleActivatedVti() {
  for (auto const& [vti, activated] : vxlanInfo()->activatedVti()) {
    handleActivatedVti(vti);
  }
}

void VxlanMacAddrSm::handleVtiUp(Wire::IntfId const& vti) {
  if (vxlanInfo()->state() != FabVxlanState::initialized_ || !vtiActivated(vti)) {
    return;
  }
  // 1. The VTI's request lists, and the VTI as a tunnel interface.
  vtepConfigDir()->vtepConfigIs(vti);
  vtepGroupConfigDir()->vtepGroupConfigIs(vti);
  rmacInfoDir()->validTunnelIntfIs(vti, true);
  // 2. Without a restart to recover from, the remote MACs are ready at once.
  if (Rxn::Ptr<VxlanBootStatus> const boot = rmacInfoDir()->vxlanBootStatus(); boot && !hitlessRestartInProgress()) {
    boot->stageRemoteMacsReadyIs(true);
  }
  // 3. Every host of the VTI again; skipped during a hitless restart.
  reevaluateConfiguredRemoteMacs(0, vti, false);
}

void VxlanMacAddrSm::handleVtiDown(Wire::IntfId const& vti) {
  rmacInfoDir()->validTunnelIntfDel(vti);
  // Forced: the VTI is gone whatever the restart says.
  reevaluateConfiguredRemoteMacs(0, vti, true);
  enqueueRemoteMacFlushReq(0, vti);
  cleanupPendingLists(0, vti);
  vtepConfigDir()->vtepConfigDel(vti);
  vtepGroupConfigDir()->vtepGroupConfigDel(vti);
}

void VxlanMacAddrSm::handleDatapathLearning() {
  static bool const togglePerVniControlPlaneEnabled = getToggleState("PerVniControlPlane", true);
  if (!togglePerVniControlPlaneEnabled || vxlanInfo()->datapathLearning()) {
    return;
  }
  RXN_TRACE(7, " datapathLearning turned off, flushing learned remote macs");
  for (auto const& [vti, status] : vtiStatusDir()->vtiStatus()) {
    enqueueRemoteMacFlushReq(0, vti);
  }
}

// The stage is handled on a fresh turn, after the notifications that come
// with the flag have settled.
void VxlanMacAddrSm::setStageRemoteMacsReadyTimer() {
  if (initialized()) {
    stageRemoteMacsReadyTimer_->timeMinIs(Rxn::System::currentTime());
  }
}

void VxlanMacAddrSm::handleStageRemoteMacsReady() {
  if (!initialized() || !rmacInfoDir() || !rmacInfoDir()->vxlanBootStatus()) {
    return;
  }
  Rxn::Ptr<VxlanBootStatus> const boot = rmacInfoDir()->vxlanBootStatus();
  RXN_TRACE(7, " stageRemoteMacsReady: " << boot->stageRemoteMacsReady());
  if (!boot->stageRemoteMacsReady()) {
    return;
  }
  RXN_RING(7, " stageRemoteMacsReady=True");
  // Without a recovery under way handleVtiUp has just re-evaluated.
  RXN_TRACE(7, " No need to re-evaluate configured remote macs");
  boot->stageReevaluateRmacsDoneIs(true);
}

// --- Verification ------------------------------------------------------------------------

// The lists, the status rows and the counts taken from them agree.
void VxlanMacAddrSm::handleVerify() {
  if (!initialized() || !hostTable() || !statusTable()) {
    return;
  }
  for (auto const& [key, queued] : updateList()) {
    assert(!!hostTable()->entry(key));
  }
  for (auto const& [key, pending] : unprogrammedRemoteMacList()) {
    assert(!!hostTable()->entry(key));
  }
  for (auto const& [key, pending] : pendingResolveRemoteMacList()) {
    assert(vtepMacAddrList(pending.swTunnelGroupId()) && vtepMacAddrList(pending.swTunnelGroupId())->macAddrList(key));
  }
  for (auto const& [key, status] : statusTable()->statusEntry()) {
    verifyHost(key, status);
  }
  for (auto const& [id, list] : vtepMacAddrList()) {
    assert(list->macAddrLists() > 0);
  }
  verifyRefcounts();
}

// A host on its way to another VTEP keeps its status row while it waits,
// but has already left its old VTEP's hosts: the pending row speaks for it.
void VxlanMacAddrSm::verifyHost(Bridging::MacVlanPair const& key, StatusEntry const& status) const {
  Fab::SwTunnelGroupId const swTunnelGroupId = status.swTunnelGroupId();
  if (PendingRemoteMacEntry const pending = pendingResolveRemoteMacList(key);
      !!pending && pending.swTunnelGroupId() != swTunnelGroupId) {
    return;
  }
  // clang-format off
  assert(vtepMacAddrList( swTunnelGroupId ) && vtepMacAddrList( swTunnelGroupId )->macAddrList( key ));
  // clang-format on
  Rxn::Ptr<VtepStatus> const vtepStatus = vtepStatusDir()->vtepStatus(status.vtiIntfId());
  Rxn::Ptr<VtepGroupStatus> const vtepGroupStatus = vtepGroupStatusDir()->vtepGroupStatus(status.vtiIntfId());
  if (swTunnelGroupId.isSingleMemberGroup()) {
    // clang-format off
    assert(!vtepGroupStatus || !vtepGroupStatus->hwVtepGroupInfo( swTunnelGroupId ));
    // clang-format on
  } else {
    // clang-format off
    assert(!vtepStatus || !vtepStatus->hwVtepInfo( swTunnelGroupId ));
    // clang-format on
  }
  // While the VTI's request lists stand, the host's VTEP is in exactly one.
  Rxn::Ptr<VtepConfig> const config = vtepConfigDir()->vtepConfig(status.vtiIntfId());
  Rxn::Ptr<VtepGroupConfig> const groupConfig = vtepGroupConfigDir()->vtepGroupConfig(status.vtiIntfId());
  if (config && groupConfig) {
    bool const single = swTunnelGroupId.isSingleMemberGroup();
    // clang-format off
    assert(config->remoteVtepList( swTunnelGroupId ) == single);
    assert(groupConfig->vtepGroupList( swTunnelGroupId ) == (!single && vtepGroupSupported()));
    // clang-format on
  }
}

void VxlanMacAddrSm::verifyRefcounts() const {
  std::unordered_map<std::uint32_t, std::uint32_t> nextHopUses;
  std::unordered_map<std::uint32_t, std::uint32_t> vlanUses;
  for (auto const& [key, status] : statusTable()->statusEntry()) {
    if (status.nextHopId().valid()) {
      ++nextHopUses[status.nextHopId().value()];
    }
    ++vlanUses[key.vlanId().value()];
  }
  Rxn::Ptr<RemoteMacInfoDir> const dir = rmacInfoDir();
  assert(dir->nextHopIdRefcountTable()->refcounts() == nextHopUses.size());
  for (auto const& [nextHopId, uses] : nextHopUses) {
    // clang-format off
    assert(dir->nextHopIdRefcountTable()->refcount( nextHopId ).value() == uses);
    assert(vtepConfigDir()->activeNextHopIdList( Fab::FabNextHopId( nextHopId ) ) || vtepGroupConfigDir()->activeNextHopIdList( Fab::FabNextHopId( nextHopId ) ));
    // clang-format on
  }
  assert(dir->vlanRefcountTable()->refcounts() == vlanUses.size());
  for (auto const& [vlanId, uses] : vlanUses) {
    // clang-format off
    assert(dir->vlanRefcountTable()->refcount( vlanId ).value() == uses);
    assert(dir->vniInfo()->activeVxlanVlan( Bridging::VlanId( vlanId ) ));
    // clang-format on
  }
}

// --- Reactors --------------------------------------------------------------------------

void VxlanMacAddrSm::RxnVerifyData::onVerify() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVerify();
}

void VxlanMacAddrSm::RxnVxlanInfo::onState() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVxlanStateUpdate();
}

void VxlanMacAddrSm::RxnVxlanInfo::onActivatedVti(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActivatedVti(vti);
}

void VxlanMacAddrSm::RxnVxlanInfo::onActivatedVtirxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActivatedVti();
}

void VxlanMacAddrSm::RxnVxlanInfo::onDatapathLearning() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleDatapathLearning();
}

void VxlanMacAddrSm::RxnVtepStatus::onHwVtepInfo(Fab::SwTunnelGroupId const& swTunnelGroupId) {
  if (rxnMarkedForDeletion()) return;
  handleNextHopIdUpdate(swTunnelGroupId);
}

void VxlanMacAddrSm::RxnVtepStatusDir::onVtepStatus(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtepStatus_.follow(owner(), notifier()->vtepStatus(), vti);
}

void VxlanMacAddrSm::RxnVtepStatusDir::onVtepStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanMacAddrSm::RxnVtepStatusDir::rxnReplay() {
  owner()->vtepStatus_.reconcile(owner(), notifier()->vtepStatus());
}

void VxlanMacAddrSm::RxnVtepGroupStatus::onHwVtepGroupInfo(Fab::SwTunnelGroupId const& swTunnelGroupId) {
  if (rxnMarkedForDeletion()) return;
  handleNextHopIdUpdate(swTunnelGroupId);
}

void VxlanMacAddrSm::RxnVtepGroupStatusDir::onVtepGroupStatus(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtepGroupStatus_.follow(owner(), notifier()->vtepGroupStatus(), vti);
}

void VxlanMacAddrSm::RxnVtepGroupStatusDir::onVtepGroupStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanMacAddrSm::RxnVtepGroupStatusDir::rxnReplay() {
  owner()->vtepGroupStatus_.reconcile(owner(), notifier()->vtepGroupStatus());
}

void VxlanMacAddrSm::RxnVxlanStatusDir::onVxlanStatus(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vxlanStatus_.follow(owner(), notifier()->vxlanStatus(), vti);
}

void VxlanMacAddrSm::RxnVxlanStatusDir::onVxlanStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanMacAddrSm::RxnVxlanStatusDir::rxnReplay() {
  owner()->vxlanStatus_.reconcile(owner(), notifier()->vxlanStatus());
}

void VxlanMacAddrSm::RxnVxlanHwStatusDir::onBumStatus() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->bumStatus_->notifierIs(notifier()->bumStatus());
}

void VxlanMacAddrSm::RxnBumStatus::onBumVtepList(Vxlan::MacVlanPair const& key) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->bumVtepList_.follow(owner(), notifier()->bumVtepList(), key);
}

void VxlanMacAddrSm::RxnBumStatus::onBumVtepListrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanMacAddrSm::RxnBumStatus::rxnReplay() {
  owner()->bumVtepList_.reconcile(owner(), notifier()->bumVtepList());
}

void VxlanMacAddrSm::RxnHostTable::onEntry(Bridging::MacVlanPair const& key) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleRemoteHost(key);
}

void VxlanMacAddrSm::RxnHostTable::onEntryrxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleRemoteHost();
}

void VxlanMacAddrSm::RxnHostTable::rxnReplay() {
  owner()->handleRemoteHost();
}

void VxlanMacAddrSm::RxnNextHopIdRefcountTable::onRefcount(std::uint32_t const& key) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleUnusedNextHopId(Fab::FabNextHopId(key));
}

void VxlanMacAddrSm::RxnVlanRefcountTable::onRefcount(std::uint32_t const& key) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleUnusedVlan(Bridging::VlanId(static_cast<std::uint16_t>(key)));
}

void VxlanMacAddrSm::RxnVlanVniMapShadow::onVlanVniMap(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  handleVlanVniMapUpdate(vlanId);
}

void VxlanMacAddrSm::RxnVlanVniMapShadow::onVlanVniMaprxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleVlanVniMapUpdate();
}

// A removal is forced through a hitless restart; a new mapping is not.
void VxlanMacAddrSm::RxnVlanVniMapShadow::handleVlanVniMapUpdate(Bridging::VlanId const& vlanId) {
  VxlanMacAddrSm* const sm = owner();
  Wire::IntfId const vti = fwkKey();
  if (!sm->initialized() || !sm->vtiActivated(vti)) {
    return;
  }
  bool const gone = !notifier()->vlanVniMap(vlanId);
  sm->reevaluateConfiguredRemoteMacs(vlanId.value(), vti, gone);
  if (gone) {
    sm->enqueueRemoteMacFlushReq(vlanId.value(), vti);
    sm->cleanupPendingLists(vlanId.value(), vti);
  }
}

void VxlanMacAddrSm::RxnVlanVniMapShadow::handleVlanVniMapUpdate() {
  for (auto const& [vlanId, entry] : notifier()->vlanVniMap()) {
    handleVlanVniMapUpdate(vlanId);
  }
}

void VxlanMacAddrSm::RxnVniInfo::onVlanVniMapShadow(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vlanVniMapShadow_.follow(owner(), notifier()->vlanVniMapShadow(), vti);
}

void VxlanMacAddrSm::RxnVniInfo::onVlanVniMapShadowrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VxlanMacAddrSm::RxnVniInfo::rxnReplay() {
  owner()->vlanVniMapShadow_.reconcile(owner(), notifier()->vlanVniMapShadow());
}

void VxlanMacAddrSm::RxnVxlanBootStatus::onStageRemoteMacsReady() {
  if (rxnMarkedForDeletion()) return;
  owner()->setStageRemoteMacsReadyTimer();
}

void VxlanMacAddrSm::RxnRemoteMacInfoDir::onHostTable() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->hostTable_->notifierIs(notifier()->hostTable());
}

void VxlanMacAddrSm::RxnRemoteMacInfoDir::onNextHopIdRefcountTable() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->nextHopIdRefcountTable_->notifierIs(notifier()->nextHopIdRefcountTable());
}

void VxlanMacAddrSm::RxnRemoteMacInfoDir::onVlanRefcountTable() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vlanRefcountTable_->notifierIs(notifier()->vlanRefcountTable());
}

void VxlanMacAddrSm::RxnRemoteMacInfoDir::onVniInfo() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vniInfo_->notifierIs(notifier()->vniInfo());
}

void VxlanMacAddrSm::RxnRemoteMacInfoDir::onVxlanBootStatus() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vxlanBootStatus_->notifierIs(notifier()->vxlanBootStatus());
}

void VxlanMacAddrSm::RxnRemoteMacInfoDir::rxnReplay() {
  replay(this, &RxnRemoteMacInfoDir::onHostTable, &RxnRemoteMacInfoDir::onNextHopIdRefcountTable,
         &RxnRemoteMacInfoDir::onVlanRefcountTable, &RxnRemoteMacInfoDir::onVniInfo,
         &RxnRemoteMacInfoDir::onVxlanBootStatus);
}

void VxlanMacAddrSm::RxnProcessRemoteHostTimer::onTime() {
  if (rxnMarkedForDeletion()) return;
  owner()->processRemoteHost();
}

void VxlanMacAddrSm::RxnStageRemoteMacsReadyTimer::onTime() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleStageRemoteMacsReady();
}

}  // namespace Fab::VXLAN

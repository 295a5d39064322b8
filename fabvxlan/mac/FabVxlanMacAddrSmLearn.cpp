// The learn restriction of VxlanMacAddrSm: per VLAN, the remote VTEPs whose
// MACs data-plane learning accepts, the counters of every decision, and the
// sweep that withdraws hosts a change of the rules no longer allows.

#include <cassert>

#include "fabvxlan/mac/FabVxlanMacAddrSm.h"
#include "fabvxlan/runtime/Log.h"
#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanMacAddrSmLearn");

namespace Fab::VXLAN {

namespace {

using Vxlan::AllowLearnMode;
using Vxlan::LearnRestrictStatus;

// Declared for the platform's use: a refusal here is counted and traced.
[[maybe_unused]] Rxn::LogHandle const VXLAN_LEARN_NOTALLOWED(
    "VXLAN_LEARN_NOTALLOWED", 4,
    "Received VXLAN packet from VTEP %s for VNI %s, but that VTEP is not part of the set of trusted sources for "
    "dataplane learning.",
    "The switch is only doing VXLAN dataplane learning from VTEPs that have been configured as trusted using "
    "'vxlan learn'.",
    "Please ensure that the VTEP configuration is consistent across all the switches. That might imply adding this "
    "VTEP to the vxlan learn list.",
    60.0, 1.0, 0);

Vxlan::MacVlanPair floodListKey(Bridging::VlanId const& vlanId) {
  return Vxlan::MacVlanPair(Wire::EthAddr(), vlanId);
}

Vxlan::VtepPrefix hostPrefix(Wire::IpAddr const& ip) {
  return Vxlan::VtepPrefix(Wire::IpGenPrefix(Wire::IpGenAddr(ip), 32));
}

bool covers(Vxlan::VtepPrefix const& vtepPrefix, Wire::IpGenAddr const& vtep) {
  Wire::IpGenPrefix const& prefix = vtepPrefix.prefix();
  if (prefix.isV6() != vtep.isV6()) {
    return false;
  }
  if (prefix.isV6()) {
    return prefix.v6Prefix().contains(vtep.v6Addr());
  }
  return prefix.length() == 0 || prefix.v4Prefix().contains(vtep.v4Addr());
}

// Brings a status that learns from the flood list in line with the list.
void updateLearnStatusFromFlood(Bridging::VlanId const& vlanId, Rxn::Ptr<Vxlan::BumVtepList const> const& bumVtepList,
                                Rxn::Ptr<LearnRestrictStatus> const& learnRestrictStatus) {
  for (auto it = learnRestrictStatus->prefixList().begin(); it != learnRestrictStatus->prefixList().end();) {
    Vxlan::VtepPrefix const prefix = it.key();
    ++it;
    RXN_TRACE(8, " check whether remove vtep " << prefix << " vlan " << vlanId);
    if (bumVtepList && !prefix.prefix().isV6() && bumVtepList->remoteVtepAddr(prefix.prefix().addr().v4Addr())) {
      continue;
    }
    RXN_TRACE(8, " remove prefix " << prefix);
    learnRestrictStatus->prefixListDel(prefix);
    learnRestrictStatus->numMatchesDel(prefix);
  }
  if (!bumVtepList) {
    return;
  }
  for (auto const& [ip, member] : bumVtepList->remoteVtepAddr()) {
    Vxlan::VtepPrefix const prefix = hostPrefix(ip);
    RXN_TRACE(8, " check whether add prefix " << prefix);
    if (!learnRestrictStatus->prefixList(prefix)) {
      RXN_TRACE(8, " add vtep " << ip);
      learnRestrictStatus->prefixListIs(prefix, true);
      learnRestrictStatus->numMatchesIs(prefix, 0);
    }
  }
}

}  // namespace

// --- The check --------------------------------------------------------------------------

bool VxlanMacAddrSm::checkLearnFromVtep(std::uint32_t vlanId, Wire::IpGenAddr const& vtep, bool stats) {
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = vxlanHwStatusDir()->learnStatus();
  assert(!!learnStatus);
  Bridging::VlanId const vlan(static_cast<std::uint16_t>(vlanId));
  Rxn::Ptr<LearnRestrictStatus> const status = learnStatus->learnStatusList(vlan);
  if (!status) {
    return true;
  }
  switch (status->learnFrom()) {
    case AllowLearnMode::learnFromDefault:
    case AllowLearnMode::learnFromAny:
      if (stats) {
        status->numMatchAnyIs(status->numMatchAny() + 1);
      }
      RXN_TRACE(8, " learnFromAny " << vtep);
      return true;
    case AllowLearnMode::learnFromFloodList: {
      Rxn::Ptr<Vxlan::BumStatus> const bumStatus = vxlanHwStatusDir()->bumStatus();
      assert(!!bumStatus);
      Rxn::Ptr<Vxlan::BumVtepList> const list = bumStatus->bumVtepList(floodListKey(vlan));
      if (list && !vtep.isV6() && list->remoteVtepAddr(vtep.v4Addr())) {
        if (stats) {
          Vxlan::VtepPrefix const prefix = hostPrefix(vtep.v4Addr());
          status->numMatchesIs(prefix, status->numMatches(prefix) + 1);
          status->numMatchFloodListIs(status->numMatchFloodList() + 1);
        }
        RXN_TRACE(8, " learnFromFloodList match " << vtep);
        return true;
      }
      if (stats) {
        status->numRejectFloodListIs(status->numRejectFloodList() + 1);
      }
      RXN_TRACE(8, " learnFromFloodList reject " << vtep);
      return false;
    }
    case AllowLearnMode::learnFromList:
      for (auto const& [prefix, member] : status->prefixList()) {
        if (!covers(prefix, vtep)) {
          continue;
        }
        if (stats) {
          status->numMatchesIs(prefix, status->numMatches(prefix) + 1);
          status->numMatchListIs(status->numMatchList() + 1);
        }
        RXN_TRACE(8, " learnFromList match " << vtep << " " << prefix);
        return true;
      }
      if (stats) {
        status->numRejectListIs(status->numRejectList() + 1);
      }
      RXN_TRACE(8, " learnFromList reject " << vtep);
      return false;
  }
  RXN_TRACE(8, " Unknown learnFrom");
  return false;
}

// The outside writer withdraws a refused row; that drives the host road.
void VxlanMacAddrSm::cleanupRemoteMacsLearnRestrict(Bridging::VlanId const& vlanId) {
  if (!rmacInfoDir()->hostTable()) {
    return;
  }
  for (auto const& [key, entry] : hostTable()->entry()) {
    if (key.vlanId() != vlanId || !entry.swTunnelGroupId().isSingleMemberGroup()) {
      continue;
    }
    Wire::IpAddr const vtep = swTunnelIdManager()->getTunnelIpFromSwTunnelGroupId(entry.swTunnelGroupId());
    if (!checkLearnFromVtep(vlanId.value(), Wire::IpGenAddr(vtep), false)) {
      RXN_TRACE(7, "Deleting entry vlanId " << vlanId << " " << key.mac() << " VTEP " << vtep);
      triggerReevaluation(key.mac(), vlanId.value(), RemoteMacEvent::Oper::operDelete_);
    }
  }
}

// --- One VTI's restrictions ----------------------------------------------------------------

VxlanMacAddrSm::RxnVxlanStatus::RxnVxlanStatus(Rxn::Ptr<Vxlan::VxlanStatus const> const& vxlanStatus,
                                               VxlanMacAddrSm* owner)
    : Reactor(vxlanStatus, owner),
      vlanToLearnRestrict_(nested_, "Fab::VXLAN::VxlanMacAddrSm::RxnVxlanStatus", "vlanToLearnRestrict") {
  vlanToLearnRestrict_.reconcile(this, vxlanStatus->vlanToLearnRestrict());
  handleInitialized();
}

void VxlanMacAddrSm::RxnVxlanStatus::handleInitialized() {
  if (!owner()->initialized()) {
    RXN_TRACE(8, " not yet initialized ");
    return;
  }
  initialized_ = true;
  vlanToLearnRestrict_.forEach([](RxnVlanToLearnRestrict* reactor) { reactor->handleInitialized(); });
}

void VxlanMacAddrSm::RxnVxlanStatus::onVlanToLearnRestrict(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion() || !notifier()) return;
  vlanToLearnRestrict_.follow(this, notifier()->vlanToLearnRestrict(), vlanId);
}

void VxlanMacAddrSm::RxnVxlanStatus::onVlanToLearnRestrictrxnImmediate() {
  if (rxnMarkedForDeletion() || !notifier()) return;
  vlanToLearnRestrict_.reconcile(this, notifier()->vlanToLearnRestrict());
}

void VxlanMacAddrSm::RxnVxlanStatus::onVlanToClearCounterRequestTime(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  handleVlanToClearCounterRequestTime(vlanId);
}

void VxlanMacAddrSm::RxnVxlanStatus::onVlanToClearCounterRequestTimerxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleVlanToClearCounterRequestTime();
}

void VxlanMacAddrSm::RxnVxlanStatus::rxnReplay() {
  vlanToLearnRestrict_.reconcile(this, notifier()->vlanToLearnRestrict());
  handleVlanToClearCounterRequestTime();
}

// A request time is served once.
void VxlanMacAddrSm::RxnVxlanStatus::handleVlanToClearCounterRequestTime(Bridging::VlanId const& vlanId) {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = owner()->vxlanHwStatusDir()->learnStatus();
  if (!learnStatus) {
    return;
  }
  double const requestTime = notifier()->vlanToClearCounterRequestTime(vlanId);
  Rxn::Ptr<LearnRestrictStatus> const status = learnStatus->learnStatusList(vlanId);
  if (requestTime == 0.0 || !status || requestTime == status->lastClearTime()) {
    return;
  }
  RXN_TRACE(7, "  vlanId " << vlanId << " clear counters: " << (requestTime - status->lastClearTime()));
  for (auto const& [prefix, count] : status->numMatches()) {
    status->numMatchesIs(prefix, 0);
  }
  status->numMatchAnyIs(0);
  status->numMatchListIs(0);
  status->numMatchFloodListIs(0);
  status->numRejectListIs(0);
  status->numRejectFloodListIs(0);
  status->lastClearTimeIs(requestTime);
}

void VxlanMacAddrSm::RxnVxlanStatus::handleVlanToClearCounterRequestTime() {
  for (auto const& [vlanId, time] : notifier()->vlanToClearCounterRequestTime()) {
    handleVlanToClearCounterRequestTime(vlanId);
  }
}

// --- One VLAN's restriction -----------------------------------------------------------------

VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::RxnVlanToLearnRestrict(
    Rxn::Ptr<Vxlan::LearnRestrict const> const& restrict, RxnVxlanStatus* owner)
    : Reactor(restrict, owner) {
  handleInitialized();
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::handleInitialized() {
  if (!owner()->initialized()) {
    RXN_TRACE(8, " not yet initialized ");
    return;
  }
  initialized_ = true;
  handleLearnFrom();
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::cleanup() {
  initialized_ = false;
  if (Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = sm()->vxlanHwStatusDir()->learnStatus()) {
    learnStatus->learnStatusListDel(vlanId());
  }
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::rxnReplay() {
  replay(this, &RxnVlanToLearnRestrict::handleLearnFrom);
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::onLearnFrom() {
  if (rxnMarkedForDeletion()) return;
  handleLearnFrom();
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::onPrefixList(Vxlan::VtepPrefix const& prefix) {
  if (rxnMarkedForDeletion()) return;
  handlePrefixList(prefix);
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::onPrefixListrxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handlePrefixList();
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::handleLearnFrom() {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = sm()->vxlanHwStatusDir()->learnStatus();
  Rxn::Ptr<Vxlan::LearnRestrict const> const restrict = notifier();
  Bridging::VlanId const vlan = vlanId();
  // 1. No restriction: the VLAN learns from everyone.
  if (!restrict || restrict->learnFrom() == AllowLearnMode::learnFromDefault) {
    RXN_TRACE(7, " delete vlan " << vlan);
    learnStatus->learnStatusListDel(vlan);
    sm()->cleanupRemoteMacsLearnRestrict(vlan);
    return;
  }
  // 2. A new mode starts its prefixes and counters afresh.
  Rxn::Ptr<LearnRestrictStatus> status = learnStatus->learnStatusList(vlan);
  if (!status) {
    status = learnStatus->learnStatusListIs(vlan);
    status->learnFromIs(AllowLearnMode::learnFromDefault);
  }
  RXN_TRACE(7, " set " << vlan << " " << restrict->learnFrom());
  if (status->learnFrom() != restrict->learnFrom()) {
    status->learnFromIs(restrict->learnFrom());
    status->prefixListDelAll();
    status->numMatchesDelAll();
    if (restrict->learnFrom() == AllowLearnMode::learnFromFloodList) {
      Rxn::Ptr<Vxlan::BumStatus> const bumStatus = sm()->vxlanHwStatusDir()->bumStatus();
      updateLearnStatusFromFlood(vlan, bumStatus ? bumStatus->bumVtepList(floodListKey(vlan)) : nullptr, status);
    } else if (restrict->learnFrom() == AllowLearnMode::learnFromList) {
      RXN_TRACE(7, " adding prefixList size " << restrict->prefixLists());
      for (auto const& [prefix, member] : restrict->prefixList()) {
        status->prefixListIs(prefix, true);
        status->numMatchesIs(prefix, 0);
      }
    }
  }
  // 3. The hosts that the rules no longer allow.
  sm()->cleanupRemoteMacsLearnRestrict(vlan);
}

// A new prefix lets more in and cannot disallow a host: no sweep.
void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::handlePrefixList(Vxlan::VtepPrefix const& prefix) {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = sm()->vxlanHwStatusDir()->learnStatus();
  Rxn::Ptr<Vxlan::LearnRestrict const> const restrict = notifier();
  Bridging::VlanId const vlan = vlanId();
  if (restrict->prefixList(prefix)) {
    Rxn::Ptr<LearnRestrictStatus> const status = learnStatus->learnStatusListIs(vlan);
    status->learnFromIs(restrict->learnFrom());
    status->prefixListIs(prefix, true);
    status->numMatchesIs(prefix, 0);
    if (restrict->learnFrom() != AllowLearnMode::learnFromDefault) {
      RXN_TRACE(7, " add prefix " << prefix);
      return;
    }
    learnStatus->learnStatusListDel(vlan);
    return;
  }
  Rxn::Ptr<LearnRestrictStatus> const status = learnStatus->learnStatusList(vlan);
  if (!status) {
    return;
  }
  RXN_TRACE(7, " del prefix " << prefix);
  status->prefixListDel(prefix);
  status->numMatchesDel(prefix);
  if (status->prefixLists() == 0 && status->learnFrom() == AllowLearnMode::learnFromDefault) {
    RXN_TRACE(7, " delete vlan " << vlan);
    learnStatus->learnStatusListDel(vlan);
  }
  sm()->cleanupRemoteMacsLearnRestrict(vlan);
}

void VxlanMacAddrSm::RxnVxlanStatus::RxnVlanToLearnRestrict::handlePrefixList() {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = sm()->vxlanHwStatusDir()->learnStatus();
  Rxn::Ptr<Vxlan::LearnRestrict const> const restrict = notifier();
  Bridging::VlanId const vlan = vlanId();
  if (Rxn::Ptr<LearnRestrictStatus> const status = learnStatus->learnStatusList(vlan)) {
    if (restrict) {
      status->learnFromIs(restrict->learnFrom());
      if (restrict->learnFrom() == AllowLearnMode::learnFromList) {
        status->prefixListDelAll();
        status->numMatchesDelAll();
      }
    } else {
      learnStatus->learnStatusListDel(vlan);
      sm()->cleanupRemoteMacsLearnRestrict(vlan);
    }
  }
  if (!restrict) {
    return;
  }
  for (auto const& [prefix, member] : restrict->prefixList()) {
    RXN_TRACE(8, " handle prefix " << prefix);
    handlePrefixList(prefix);
  }
}

// --- The flood lists ---------------------------------------------------------------------

VxlanMacAddrSm::RxnBumVtepList::RxnBumVtepList(Rxn::Ptr<Vxlan::BumVtepList const> const& list, VxlanMacAddrSm* owner)
    : Reactor(list, owner) {
  handleInitialized();
}

void VxlanMacAddrSm::RxnBumVtepList::handleInitialized() {
  if (!owner()->initialized()) {
    RXN_TRACE(8, " not yet initialized ");
    return;
  }
  initialized_ = true;
  handleRemoteVtepAddr();
}

void VxlanMacAddrSm::RxnBumVtepList::onRemoteVtepAddr(Wire::IpAddr const& ip) {
  if (rxnMarkedForDeletion()) return;
  handleRemoteVtepAddr(ip);
}

void VxlanMacAddrSm::RxnBumVtepList::onRemoteVtepAddrrxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleRemoteVtepAddr();
}

Rxn::Ptr<Vxlan::LearnRestrictStatus> VxlanMacAddrSm::RxnBumVtepList::floodListStatus() const {
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = owner()->vxlanHwStatusDir()->learnStatus();
  Rxn::Ptr<LearnRestrictStatus> const status = learnStatus ? learnStatus->learnStatusList(vlanId()) : nullptr;
  return status && status->learnFrom() == AllowLearnMode::learnFromFloodList ? status : nullptr;
}

void VxlanMacAddrSm::RxnBumVtepList::handleRemoteVtepAddr() {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<LearnRestrictStatus> const status = floodListStatus();
  if (!status) {
    return;
  }
  RXN_TRACE(7, " updating for vlan " << vlanId());
  updateLearnStatusFromFlood(vlanId(), notifier(), status);
  owner()->cleanupRemoteMacsLearnRestrict(vlanId());
}

// An address added lets more in: no sweep.
void VxlanMacAddrSm::RxnBumVtepList::handleRemoteVtepAddr(Wire::IpAddr const& ip) {
  if (!initialized_) {
    return;
  }
  Rxn::Ptr<LearnRestrictStatus> const status = floodListStatus();
  if (!status) {
    return;
  }
  RXN_TRACE(7, " updating for vlan " << vlanId());
  Vxlan::VtepPrefix const prefix = hostPrefix(ip);
  if (notifier()->remoteVtepAddr(ip)) {
    RXN_TRACE(8, " check whether add prefix " << prefix);
    if (!status->prefixList(prefix)) {
      RXN_TRACE(8, " add vtep " << ip);
      status->prefixListIs(prefix, true);
      status->numMatchesIs(prefix, 0);
    }
    return;
  }
  RXN_TRACE(8, " check whether remove vtep " << prefix);
  if (status->prefixList(prefix)) {
    RXN_TRACE(8, " remove prefix " << prefix);
    status->prefixListDel(prefix);
    status->numMatchesDel(prefix);
    owner()->cleanupRemoteMacsLearnRestrict(vlanId());
  }
}

}  // namespace Fab::VXLAN

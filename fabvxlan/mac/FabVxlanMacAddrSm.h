#pragma once
// Fab::VXLAN::VxlanMacAddrSm: resolves every remote host (a MAC behind a
// remote VTEP) to a tunnel and a next hop. The writer of the host table asks
// for a host with hwOpResolve; the machine takes the keys in slices of one
// time quantum, requests the VTEP (or VTEP group) from the VTEP machines,
// writes the host's status row once the VTEP has hardware, counts the next
// hops, VLANs and tunnel groups that the rows use, and publishes the hosts
// that the hardware holds in the forwarding database. It keeps the learn
// restriction per VLAN and follows the feature state and the VTIs.

#include "fabvxlan/mac/FabVxlanMacAddrSmState.h"
#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "fabvxlan/state/FabIds.h"
#include "fabvxlan/state/FabVni.h"
#include "fabvxlan/state/FabVtep.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/RemoteMac.h"
#include "fabvxlan/state/imported/Mlag.h"
#include "fabvxlan/state/imported/MlagIntf.h"
#include "fabvxlan/state/imported/Slab.h"
#include "fabvxlan/state/imported/Vxlan.h"

namespace Fab::VXLAN {

class VxlanMacAddrSm : public Fab::FabBaseSm, public VxlanMacAddrSmState {
 public:
  class RxnVerifyData : public Rxn::Reactor<VxlanMacAddrSm, Fab::VerifyData const> {
   public:
    using Reactor::Reactor;
    void onVerify() override;
  };

  class RxnVxlanInfo : public Rxn::Reactor<VxlanMacAddrSm, FabVxlanInfo> {
   public:
    using Reactor::Reactor;
    void onState() override;
    void onActivatedVti(Wire::IntfId const& vti) override;
    void onActivatedVtirxnImmediate() override;
    void onDatapathLearning() override;
  };

  // The hardware of the remote VTEPs of one VTI.
  class RxnVtepStatus : public Rxn::Reactor<VxlanMacAddrSm, VtepStatus const> {
   public:
    using Reactor::Reactor;
    void onHwVtepInfo(Fab::SwTunnelGroupId const& swTunnelGroupId) override;
    void handleNextHopIdUpdate(Fab::SwTunnelGroupId const& swTunnelGroupId);
  };

  class RxnVtepStatusDir : public Rxn::Reactor<VxlanMacAddrSm, VtepStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVtepStatus(Wire::IntfId const& vti) override;
    void onVtepStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  class RxnVtepGroupStatus : public Rxn::Reactor<VxlanMacAddrSm, VtepGroupStatus const> {
   public:
    using Reactor::Reactor;
    void onHwVtepGroupInfo(Fab::SwTunnelGroupId const& swTunnelGroupId) override;
    void handleNextHopIdUpdate(Fab::SwTunnelGroupId const& swTunnelGroupId);
  };

  class RxnVtepGroupStatusDir : public Rxn::Reactor<VxlanMacAddrSm, VtepGroupStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVtepGroupStatus(Wire::IntfId const& vti) override;
    void onVtepGroupStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // The learn restriction of one VTI: one nested reactor per VLAN, and the
  // clear requests of its counters.
  class RxnVxlanStatus : public Rxn::Reactor<VxlanMacAddrSm, Vxlan::VxlanStatus const> {
   public:
    class RxnVlanToLearnRestrict : public Rxn::Reactor<RxnVxlanStatus, Vxlan::LearnRestrict const> {
     public:
      RxnVlanToLearnRestrict(Rxn::Ptr<Vxlan::LearnRestrict const> const& restrict, RxnVxlanStatus* owner);
      void onLearnFrom() override;
      void onPrefixList(Vxlan::VtepPrefix const& prefix) override;
      void onPrefixListrxnImmediate() override;

      void handleInitialized();
      void handleLearnFrom();
      void handlePrefixList(Vxlan::VtepPrefix const& prefix);
      void handlePrefixList();

     protected:
      void rxnReplay() override;
      void rxnRemovalHook() override { cleanup(); }

     private:
      void cleanup();
      VxlanMacAddrSm* sm() const { return owner()->owner(); }
      Bridging::VlanId vlanId() const { return fwkKey(); }
      bool initialized_ = false;
    };

    RxnVxlanStatus(Rxn::Ptr<Vxlan::VxlanStatus const> const& vxlanStatus, VxlanMacAddrSm* owner);
    void onVlanToLearnRestrict(Bridging::VlanId const& vlanId) override;
    void onVlanToLearnRestrictrxnImmediate() override;
    void onVlanToClearCounterRequestTime(Bridging::VlanId const& vlanId) override;
    void onVlanToClearCounterRequestTimerxnImmediate() override;

    void handleInitialized();
    void handleVlanToClearCounterRequestTime(Bridging::VlanId const& vlanId);
    void handleVlanToClearCounterRequestTime();
    bool initialized() const { return initialized_; }

   protected:
    void rxnReplay() override;
    void rxnRemovalHook() override { initialized_ = false; }
    Rxn::ReactorRegistry* rxnNested() override { return &nested_; }

   private:
    Rxn::ReactorRegistry nested_;
    Rxn::ReactorCollection<Bridging::VlanId, RxnVlanToLearnRestrict> vlanToLearnRestrict_;
    bool initialized_ = false;
  };

  class RxnVxlanStatusDir : public Rxn::Reactor<VxlanMacAddrSm, Vxlan::VxlanStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVxlanStatus(Wire::IntfId const& vti) override;
    void onVxlanStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // The flood list of one (MAC, VLAN): a VLAN learning from its flood list
  // follows it.
  class RxnBumVtepList : public Rxn::Reactor<VxlanMacAddrSm, Vxlan::BumVtepList const> {
   public:
    RxnBumVtepList(Rxn::Ptr<Vxlan::BumVtepList const> const& list, VxlanMacAddrSm* owner);
    void onRemoteVtepAddr(Wire::IpAddr const& ip) override;
    void onRemoteVtepAddrrxnImmediate() override;

    void handleInitialized();
    void handleRemoteVtepAddr(Wire::IpAddr const& ip);
    void handleRemoteVtepAddr();

   protected:
    void rxnRemovalHook() override { initialized_ = false; }

   private:
    // The VLAN's status when it learns from its flood list; null otherwise.
    Rxn::Ptr<Vxlan::LearnRestrictStatus> floodListStatus() const;
    Bridging::VlanId vlanId() const { return fwkKey().vlanId(); }
    bool initialized_ = false;
  };

  class RxnBumStatus : public Rxn::Reactor<VxlanMacAddrSm, Vxlan::BumStatus const> {
   public:
    using Reactor::Reactor;
    void onBumVtepList(Vxlan::MacVlanPair const& key) override;
    void onBumVtepListrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  class RxnVxlanHwStatusDir : public Rxn::Reactor<VxlanMacAddrSm, Vxlan::VxlanHwStatusDir> {
   public:
    using Reactor::Reactor;
    void onBumStatus() override;

   protected:
    void rxnReplay() override { onBumStatus(); }
  };

  class RxnHostTable : public Rxn::Reactor<VxlanMacAddrSm, HostTable const> {
   public:
    using Reactor::Reactor;
    void onEntry(Bridging::MacVlanPair const& key) override;
    void onEntryrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  class RxnNextHopIdRefcountTable : public Rxn::Reactor<VxlanMacAddrSm, RefcountTable const> {
   public:
    using Reactor::Reactor;
    void onRefcount(std::uint32_t const& key) override;
  };

  class RxnVlanRefcountTable : public Rxn::Reactor<VxlanMacAddrSm, RefcountTable const> {
   public:
    using Reactor::Reactor;
    void onRefcount(std::uint32_t const& key) override;
  };

  // The VLAN to VNI map in hardware of one VTI.
  class RxnVlanVniMapShadow : public Rxn::Reactor<VxlanMacAddrSm, VlanVniMapShadow const> {
   public:
    using Reactor::Reactor;
    void onVlanVniMap(Bridging::VlanId const& vlanId) override;
    void onVlanVniMaprxnImmediate() override;

    void handleVlanVniMapUpdate(Bridging::VlanId const& vlanId);
    void handleVlanVniMapUpdate();
  };

  class RxnVniInfo : public Rxn::Reactor<VxlanMacAddrSm, FabVniInfo const> {
   public:
    using Reactor::Reactor;
    void onVlanVniMapShadow(Wire::IntfId const& vti) override;
    void onVlanVniMapShadowrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  class RxnVxlanBootStatus : public Rxn::Reactor<VxlanMacAddrSm, VxlanBootStatus const> {
   public:
    using Reactor::Reactor;
    void onStageRemoteMacsReady() override;
  };

  // Follows the tables of the directory, so that one made later is adopted.
  class RxnRemoteMacInfoDir : public Rxn::Reactor<VxlanMacAddrSm, RemoteMacInfoDir> {
   public:
    using Reactor::Reactor;
    void onHostTable() override;
    void onNextHopIdRefcountTable() override;
    void onVlanRefcountTable() override;
    void onVniInfo() override;
    void onVxlanBootStatus() override;

   protected:
    void rxnReplay() override;
  };

  class RxnProcessRemoteHostTimer : public Rxn::Reactor<VxlanMacAddrSm, Rxn::Clock const> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };

  class RxnStageRemoteMacsReadyTimer : public Rxn::Reactor<VxlanMacAddrSm, Rxn::Clock const> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };

  VxlanMacAddrSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                 Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepConfigDir> const& vtepConfigDir,
                 Rxn::Ptr<VtepStatusDir const> const& vtepStatusDir,
                 Rxn::Ptr<Vxlan::VxlanConfigDir const> const& vxlanConfigDir,
                 Rxn::Ptr<Vxlan::VxlanStatusDir const> const& vxlanStatusDir,
                 Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                 Rxn::Ptr<RemoteMacInfoDir> const& rmacInfoDir, Rxn::Ptr<Mlag::HostTable const> const& mlagHostTable,
                 Rxn::Ptr<Mlag::Status const> const& mlagStatus, Rxn::Ptr<VtepGroupConfigDir> const& vtepGroupConfigDir,
                 Rxn::Ptr<VtepGroupStatusDir const> const& vtepGroupStatusDir,
                 Rxn::Ptr<Slab::HostOutputReader> const& l2RibOutput,
                 Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager);
  char const* fwkType() const override { return "Fab::VXLAN::VxlanMacAddrSm"; }

  // --- Inputs and outputs.
  Rxn::Ptr<Fab::VerifyData const> verifyData() const { return verifyData_->notifier(); }
  Rxn::Ptr<FabVxlanInfo> vxlanInfo() const { return vxlanInfo_->notifier(); }
  Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir() const { return vtiStatusDir_; }
  Rxn::Ptr<VtepConfigDir> const& vtepConfigDir() const { return vtepConfigDir_; }
  Rxn::Ptr<VtepStatusDir const> vtepStatusDir() const { return vtepStatusDir_->notifier(); }
  Rxn::Ptr<Vxlan::VxlanConfigDir const> const& vxlanConfigDir() const { return vxlanConfigDir_; }
  Rxn::Ptr<Vxlan::VxlanStatusDir const> vxlanStatusDir() const { return vxlanStatusDir_->notifier(); }
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir() const { return vxlanHwStatusDir_->notifier(); }
  Rxn::Ptr<RemoteMacInfoDir> rmacInfoDir() const { return rmacInfoDir_->notifier(); }
  Rxn::Ptr<Mlag::HostTable const> const& mlagHostTable() const { return mlagHostTable_; }
  Rxn::Ptr<Mlag::Status const> const& mlagStatus() const { return mlagStatus_; }
  Rxn::Ptr<VtepGroupConfigDir> const& vtepGroupConfigDir() const { return vtepGroupConfigDir_; }
  Rxn::Ptr<VtepGroupStatusDir const> vtepGroupStatusDir() const { return vtepGroupStatusDir_->notifier(); }
  Rxn::Ptr<Slab::HostOutputReader> const& l2RibOutput() const { return l2RibOutput_; }
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager() const { return swTunnelIdManager_; }
  Rxn::Ptr<HostTable> hostTable() const { return rmacInfoDir()->hostTable(); }
  Rxn::Ptr<HostStatusTable> statusTable() const { return rmacInfoDir()->hostStatusTable(); }
  RxnVxlanStatus* vxlanStatus(Wire::IntfId const& vti) const { return vxlanStatus_(vti); }

  // --- The host road.
  void handleRemoteHost(Bridging::MacVlanPair const& key);
  void handleRemoteHost();
  void processRemoteHost();
  void processRemoteHost(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                         Fab::SwTunnelGroupId const& swTunnelGroupId, Bridging::EntryType entryType);
  void updateRemoteMacVtepMap(Bridging::MacVlanPair const& key, Wire::IntfId const& vti,
                              Fab::SwTunnelGroupId const& swTunnelGroupId, Fab::FabTunnelId const& tunnelId,
                              Bridging::EntryType entryType);
  void removeRemoteMacVtepMap(Bridging::MacVlanPair const& key, Wire::IntfId const& vti,
                              Fab::SwTunnelGroupId const& swTunnelGroupId);
  void removeRemoteMacFromFdbStatus(Vxlan::MacVlanPair const& key);

  // --- Status rows, next-hop events and re-evaluation.
  void updateRemoteHostStatus(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                              Fab::SwTunnelGroupId const& swTunnelGroupId, Bridging::EntryType entryType,
                              Fab::FabNextHopId const& nextHopId, Fab::FabTunnelId const& tunnelId);
  void removeRemoteHostStatus(Bridging::MacVlanPair const& key);
  void handleNextHopIdUpdate(Wire::IntfId const& vtiIntfId, Fab::SwTunnelGroupId const& swTunnelGroupId,
                             Fab::FabNextHopId const& nextHopId, Fab::FabTunnelId const& tunnelId);
  void vtepHardwareChanged(Wire::IntfId const& vtiIntfId, Fab::SwTunnelGroupId const& swTunnelGroupId,
                           Fab::FabNextHopId const& nextHopId, Fab::FabTunnelId const& tunnelId, bool present);
  void handleUnusedNextHopId(Fab::FabNextHopId const& nextHopId);
  void handleUnusedVlan(Bridging::VlanId const& vlanId);
  void reevaluateConfiguredRemoteMacs(std::uint32_t vlanId, Wire::IntfId const& vti, bool force);
  void triggerReevaluation(Wire::EthAddr const& macAddr, std::uint32_t vlanId, RemoteMacEvent::Oper oper);
  void enqueueRemoteMacFlushReq(std::uint32_t vlanId, Wire::IntfId const& vtiIntfId);
  void cleanupPendingLists(std::uint32_t vlanId, Wire::IntfId const& vtiIntfId);

  // --- The learn restriction.
  bool checkLearnFromVtep(std::uint32_t vlanId, Wire::IpGenAddr const& vtep, bool stats);
  void cleanupRemoteMacsLearnRestrict(Bridging::VlanId const& vlanId);

  // --- The lifecycle.
  void handleInitialized() override;
  void handleVxlanStateUpdate();
  void handleActivatedVti(Wire::IntfId const& vti);
  void handleActivatedVti();
  void handleVtiUp(Wire::IntfId const& vti);
  void handleVtiDown(Wire::IntfId const& vti);
  void handleDatapathLearning();
  void setStageRemoteMacsReadyTimer();
  void handleStageRemoteMacsReady();
  void handleVerify();

  // Wall seconds of the longest run of the quantum so far: the most that a
  // burst of hosts has held up the loop at once.
  double longestQuantumRun() const { return longestQuantumRun_; }

 private:
  bool vtiActivated(Wire::IntfId const& vti) const { return vxlanInfo()->activatedVti(vti); }
  bool hitlessRestartInProgress() const;
  void dropTunnelInfo(Rxn::Ptr<VtepMacAddrList> const& list);
  void releaseRequestedVtep(Bridging::MacVlanPair const& key, Wire::IntfId const& vtiIntfId,
                            Fab::SwTunnelGroupId const& swTunnelGroupId);
  void publishLearnedHost(Bridging::MacVlanPair const& key, HostEntry const& entry);
  // What the VTEP or group of a host has in hardware, through its status row
  // of the VTI; an empty answer while it has none.
  void readVtepHardware(Fab::SwTunnelGroupId const& swTunnelGroupId, Wire::IntfId const& vtiIntfId,
                        Fab::FabNextHopId& nextHopId, Fab::FabTunnelId& tunnelId);
  // The learn restriction of one L2Rib, configured or MLAG source.
  void reevaluateConfiguredHosts(std::uint32_t vlanId, Wire::IntfId const& vti);
  void reevaluateL2RibHosts(std::uint32_t vlanId);
  void reevaluateL2RibHost(Bridging::MacVlanPair const& key);
  void reevaluateMlagHosts(std::uint32_t vlanId, Wire::IntfId const& vti);
  void reevaluateMlagHost(Mlag::HostEntry const& mhost, Wire::IntfId const& vti);
  void verifyHost(Bridging::MacVlanPair const& key, StatusEntry const& status) const;
  void verifyRefcounts() const;
  void requestVerify() const { Fab::requestVerify(verifyData()); }

  Rxn::ReactorPtr<RxnVerifyData> verifyData_;
  Rxn::ReactorPtr<RxnVxlanInfo> vxlanInfo_;
  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir_;
  Rxn::Ptr<VtepConfigDir> vtepConfigDir_;
  Rxn::ReactorPtr<RxnVtepStatusDir> vtepStatusDir_;
  Rxn::Ptr<Vxlan::VxlanConfigDir const> vxlanConfigDir_;
  Rxn::ReactorPtr<RxnVxlanStatusDir> vxlanStatusDir_;
  Rxn::ReactorPtr<RxnVxlanHwStatusDir> vxlanHwStatusDir_;
  Rxn::ReactorPtr<RxnBumStatus> bumStatus_;
  Rxn::ReactorPtr<RxnRemoteMacInfoDir> rmacInfoDir_;
  Rxn::ReactorPtr<RxnHostTable> hostTable_;
  Rxn::ReactorPtr<RxnNextHopIdRefcountTable> nextHopIdRefcountTable_;
  Rxn::ReactorPtr<RxnVlanRefcountTable> vlanRefcountTable_;
  Rxn::ReactorPtr<RxnVniInfo> vniInfo_;
  Rxn::ReactorPtr<RxnVxlanBootStatus> vxlanBootStatus_;
  Rxn::Ptr<Mlag::HostTable const> mlagHostTable_;
  Rxn::Ptr<Mlag::Status const> mlagStatus_;
  Rxn::Ptr<VtepGroupConfigDir> vtepGroupConfigDir_;
  Rxn::ReactorPtr<RxnVtepGroupStatusDir> vtepGroupStatusDir_;
  Rxn::Ptr<Slab::HostOutputReader> l2RibOutput_;
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> swTunnelIdManager_;
  Rxn::ReactorPtr<RxnProcessRemoteHostTimer> processRemoteHostTimer_;
  Rxn::ReactorPtr<RxnStageRemoteMacsReadyTimer> stageRemoteMacsReadyTimer_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVtepStatus> vtepStatus_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVtepGroupStatus> vtepGroupStatus_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVlanVniMapShadow> vlanVniMapShadow_;
  Rxn::ReactorCollection<Vxlan::MacVlanPair, RxnBumVtepList> bumVtepList_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVxlanStatus> vxlanStatus_;
  double longestQuantumRun_ = 0.0;
};

Rxn::Ptr<VxlanMacAddrSm> vxlanMacAddrSmFactory(
    Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
    Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepConfigDir> const& vtepConfigDir,
    Rxn::Ptr<VtepStatusDir const> const& vtepStatusDir, Rxn::Ptr<Vxlan::VxlanConfigDir const> const& vxlanConfigDir,
    Rxn::Ptr<Vxlan::VxlanStatusDir const> const& vxlanStatusDir,
    Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir, Rxn::Ptr<RemoteMacInfoDir> const& rmacInfoDir,
    Rxn::Ptr<Mlag::HostTable const> const& mlagHostTable, Rxn::Ptr<Mlag::Status const> const& mlagStatus,
    Rxn::Ptr<VtepGroupConfigDir> const& vtepGroupConfigDir,
    Rxn::Ptr<VtepGroupStatusDir const> const& vtepGroupStatusDir, Rxn::Ptr<Slab::HostOutputReader> const& l2RibOutput,
    Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager);

}  // namespace Fab::VXLAN

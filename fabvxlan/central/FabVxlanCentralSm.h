#pragma once
// Fab::VXLAN::VxlanCentralSm: the one state of the whole feature, rolled up
// from the VTIs and the sub-machines, and the choice of BUM replication with
// the flood data that goes with it.

#include <vector>

#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/imported/L2Rib.h"
#include "fabvxlan/state/imported/Vxlan.h"

namespace Fab::VXLAN {

class VxlanCentralSm : public Fab::FabBaseSm {
 public:
  // The sub-states of the feature.
  class RxnVxlanInfo : public Rxn::Reactor<VxlanCentralSm, FabVxlanInfo> {
   public:
    using Reactor::Reactor;
    void onVtepSmState() override;
    void onVtepGroupSmState() override;
    void onVxlanMacSmState() override;
    void onVniSmState() override;

   protected:
    void rxnReplay() override;
  };

  // Keeps one RxnVtiStatus per VTI of the directory.
  class RxnVtiStatusDir : public Rxn::Reactor<VxlanCentralSm, Vxlan::VtiStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVtiStatus(Wire::IntfId const& intfId) override;
    void onVtiStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // One VTI: its oper status and its multicast groups.
  class RxnVtiStatus : public Rxn::Reactor<VxlanCentralSm, Vxlan::VtiStatus const> {
   public:
    RxnVtiStatus(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus, VxlanCentralSm* owner);
    void onOperStatus() override;
    void onFloodMcastGrp() override;
    void onVlanToGroup(Bridging::VlanId const& vlanId) override;
    void onVlanToGrouprxnImmediate() override;

    void handleInitialized();
    void handleOperStatus();
    void handleFloodGrp();
    void handleVlanToGroup(Bridging::VlanId const& vlanId);
    void handleVlanToGroup();

   protected:
    void rxnReplay() override;
    void rxnRemovalHook() override { cleanup(); }

   private:
    void cleanup();
    bool initialized_ = false;
  };

  class RxnVlanFloodSet;

  // The L2Rib flood sets: their source bits and one reactor per VLAN.
  class RxnL2RibFloodSet : public Rxn::Reactor<VxlanCentralSm, L2Rib::FloodSetOutput const> {
   public:
    using Reactor::Reactor;
    void onSource() override;
    void onVlanFloodSet(Bridging::VlanId const& vlanId) override;
    void onVlanFloodSetrxnImmediate() override;

   protected:
    void rxnReplay() override;

   private:
    void handleSource();
    void reconcileVlanFloodSets();
  };

  // Holds the hardware status directory, written on oper status changes.
  class RxnVxlanHwStatusDir : public Rxn::Reactor<VxlanCentralSm, Vxlan::VxlanHwStatusDir> {
   public:
    using Reactor::Reactor;
  };

  // The flood sets of one VLAN, one nested reactor per MAC.
  class RxnVlanFloodSet : public Rxn::Reactor<VxlanCentralSm, L2Rib::VlanFloodSet const> {
   public:
    // One flood set: its type and its VXLAN destinations.
    class RxnFloodSet : public Rxn::Reactor<RxnVlanFloodSet, L2Rib::FloodSet const> {
     public:
      using Reactor::Reactor;
      void onFloodSetType() override;
      void onDestSet(L2Rib::Dest const& dest) override;
      void onDestSetrxnImmediate() override;

      void handleFloodSetType();
      void handleDestSet(L2Rib::Dest const& dest);
      void handleDestSet();

     protected:
      void rxnReplay() override;
      void rxnRemovalHook() override { handleDel(); }

     private:
      void handleDel();
      VxlanCentralSm* sm() const { return owner()->owner(); }
      Vxlan::MacVlanPair bumKey() const;
    };

    RxnVlanFloodSet(Rxn::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSet, VxlanCentralSm* owner);
    void onFloodSet(Wire::EthAddr const& mac) override;
    void onFloodSetrxnImmediate() override;
    RxnFloodSet* floodSet(Wire::EthAddr const& mac) const { return floodSet_(mac); }
    // Calls fn on each nested flood set reactor.
    template <class Fn>
    void forEachFloodSet(Fn&& fn) const {
      floodSet_.forEach(fn);
    }

   protected:
    void rxnReplay() override;
    void rxnRemovalHook() override { handleDel(); }
    Rxn::ReactorRegistry* rxnNested() override { return &nested_; }

   private:
    void handleDel();
    Rxn::ReactorRegistry nested_;
    Rxn::ReactorCollection<Wire::EthAddr, RxnFloodSet> floodSet_;
  };

  VxlanCentralSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                 Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                 Rxn::Ptr<L2Rib::FloodSetOutput const> const& l2RibFloodSet,
                 Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir, Rxn::Ptr<Vxlan::BumStatus> const& bumStatus,
                 Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus);
  char const* fwkType() const override { return "Fab::VXLAN::VxlanCentralSm"; }

  void handleInitialized() override;

  Rxn::Ptr<FabVxlanInfo> vxlanInfo() const { return vxlanInfo_->notifier(); }
  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir() const { return vtiStatusDir_->notifier(); }
  Rxn::Ptr<L2Rib::FloodSetOutput const> l2RibFloodSet() const { return l2RibFloodSet_->notifier(); }
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir() const { return vxlanHwStatusDir_->notifier(); }
  Rxn::Ptr<Vxlan::BumStatus> const& bumStatus() const { return bumStatus_; }
  Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus() const { return vxlanBootStatus_; }

  // Set by the platform agent, before handleInitialized(), on a platform with VTEP groups.
  bool vtepGroupSupported() const { return vtepGroupSupported_; }
  void vtepGroupSupportedIs(bool supported) { vtepGroupSupported_ = supported; }
  // True only during handleInitialized() of a hitless restart.
  bool inHitlessRestart() const { return inHitlessRestart_; }
  void inHitlessRestartIs(bool inHitlessRestart) { inHitlessRestart_ = inHitlessRestart; }
  // The BUM VTEPs of the previous life that L2Rib has not confirmed yet.
  Rxn::HashMap2018<Vxlan::MacVlanVtep, bool> const& hitlessRestartEntries() const { return hitlessRestartEntries_; }
  void hitlessRestartEntriesIs(Vxlan::MacVlanVtep const& entry, bool present);
  void hitlessRestartEntriesDel(Vxlan::MacVlanVtep const& entry) { hitlessRestartEntries_.erase(entry); }
  void hitlessRestartEntriesDelAll() { hitlessRestartEntries_.clear(); }
  // Set by the platform agent before it goes down for a hitless restart.
  bool disableCleanupOnRestart() const { return disableCleanupOnRestart_; }
  void disableCleanupOnRestartIs(bool disable) { disableCleanupOnRestart_ = disable; }

  RxnVtiStatus* vtiStatusIs(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus);
  Rxn::Ptr<Vxlan::VtiStatus const> vtiStatusDel(Wire::IntfId const& intfId);
  RxnVtiStatus* vtiStatus(Wire::IntfId const& intfId) const { return vtiStatus_(intfId); }
  RxnVlanFloodSet* vlanFloodSetIs(Rxn::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSet);
  Rxn::Ptr<L2Rib::VlanFloodSet const> vlanFloodSetDel(Bridging::VlanId const& vlanId);
  RxnVlanFloodSet* vlanFloodSet(Bridging::VlanId const& vlanId) const { return vlanFloodSet_(vlanId); }
  std::size_t vlanFloodSets() const { return vlanFloodSet_.size(); }

  // A sub-machine that has not answered yet, and the state it is in.
  struct Awaited {
    char const* machine;
    FabVxlanState state;
  };
  // What the feature waits on while it is initializing_ (the sub-machines
  // not yet initialized_) or cleaning_ (those not yet clean_); empty in the
  // other states.
  std::vector<Awaited> awaitedSubMachines() const;

  // The roll-up of the feature state.
  void updateVxlanState();
  bool isVtiOperStatusUp() const;
  bool isControllerClientMode() const;

  // The BUM replication mode and its flood data.
  void handleBumReplicationMode();
  void reviewBumRepMode();
  bool isBumRepMulticast() const;
  bool ignoreCliFloodLists() const;
  void removeStaleRestartEntries();

 private:
  bool allAt(FabVxlanState state) const;
  std::vector<Awaited> subMachinesNotAt(FabVxlanState state) const;
  // Whether some VTI of the directory satisfies the predicate.
  template <class Predicate>
  bool anyVti(Predicate&& predicate) const;
  std::uint32_t l2RibSource() const;
  void replayFloodSets();
  void recordRestartEntries();
  void forgetVanishedVtis();

  Rxn::ReactorPtr<RxnVxlanInfo> vxlanInfo_;
  Rxn::ReactorPtr<RxnVtiStatusDir> vtiStatusDir_;
  Rxn::ReactorPtr<RxnL2RibFloodSet> l2RibFloodSet_;
  Rxn::ReactorPtr<RxnVxlanHwStatusDir> vxlanHwStatusDir_;
  Rxn::Ptr<Vxlan::BumStatus> bumStatus_;
  Rxn::Ptr<VxlanBootStatus> vxlanBootStatus_;
  bool vtepGroupSupported_ = false;
  bool inHitlessRestart_ = false;
  Rxn::HashMap2018<Vxlan::MacVlanVtep, bool> hitlessRestartEntries_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVtiStatus> vtiStatus_;
  Rxn::ReactorCollection<Bridging::VlanId, RxnVlanFloodSet> vlanFloodSet_;
  bool disableCleanupOnRestart_ = false;
};

Rxn::Ptr<VxlanCentralSm> vxlanCentralSmFactory(Rxn::Ptr<Fab::FabCommonSmData> const& acsd,
                                               Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                                               Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                                               Rxn::Ptr<L2Rib::FloodSetOutput const> const& l2RibFloodSet,
                                               Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                                               Rxn::Ptr<Vxlan::BumStatus> const& bumStatus,
                                               Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus);

}  // namespace Fab::VXLAN

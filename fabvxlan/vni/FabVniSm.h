#pragma once
// Fab::VXLAN::VniSm: programs each VTI's VLAN to VNI map into the hardware
// through the FabHelperVniConfig/FabHelperVniStatus handshake. Wishes queue in
// an update list; the VLANs with nothing in flight are drained by a clock in
// slices of one time quantum; a removal under remote MACs waits until they
// are flushed. VlanVniMapShadow publishes exactly what the hardware holds and
// accepted. The machine follows the feature state, asks the platform to
// initialise and clean up, and recovers the map across a hitless restart.

#include <set>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "fabvxlan/state/FabVni.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/imported/Bridging.h"
#include "fabvxlan/state/imported/Vxlan.h"
#include "fabvxlan/vni/FabHelperVni.h"
#include "fabvxlan/vni/FabVniSmState.h"

namespace Fab::VXLAN {

class VniSm : public Fab::FabBaseSm, public VniSmState {
 public:
  class RxnVerifyData : public Rxn::Reactor<VniSm, Fab::VerifyData const> {
   public:
    using Reactor::Reactor;
    void onVerify() override;
  };

  class RxnVxlanInfo : public Rxn::Reactor<VniSm, FabVxlanInfo> {
   public:
    using Reactor::Reactor;
    void onState() override;
    void onActivatedVti(Wire::IntfId const& vti) override;
  };

  class RxnVniInfo : public Rxn::Reactor<VniSm, FabVniInfo> {
   public:
    using Reactor::Reactor;
    void onActiveVxlanVlan(Bridging::VlanId const& vlanId) override;
  };

  class RxnVtiStatusDir : public Rxn::Reactor<VniSm, Vxlan::VtiStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVtiStatus(Wire::IntfId const& vti) override;
    void onVtiStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // One VTI: its wanted map.
  class RxnVtiStatus : public Rxn::Reactor<VniSm, Vxlan::VtiStatus const> {
   public:
    using Reactor::Reactor;
    void onVlanToVniMap(Bridging::VlanId const& vlanId) override;
    void onVlanToVniMaprxnImmediate() override;

    void handleVlanVniMap(Bridging::VlanId const& vlanId);
    void handleVlanVniMap();

   protected:
    void rxnReplay() override { handleVlanVniMap(); }

   private:
    // The valid pair of FabVniInfo for a mapping in force, or none.
    void validPairIs(Bridging::VlanId const& vlanId, Vxlan::VniExtOrNone const& vni);
  };

  class RxnBridgingConfig : public Rxn::Reactor<VniSm, Bridging::Config const> {
   public:
    using Reactor::Reactor;
    void onVlanConfig(Bridging::VlanId const& vlanId) override;
    void onVlanConfigrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // One VLAN: whether it is active decides whether its mappings may stand.
  class RxnVlanConfig : public Rxn::Reactor<VniSm, Bridging::VlanConfig const> {
   public:
    RxnVlanConfig(Rxn::Ptr<Bridging::VlanConfig const> const& vlanConfig, VniSm* owner);
    void onAdminState() override;

    void handleInitialized();
    void handleVlanUpdate();
    bool initialized() const { return initialized_; }

   protected:
    void rxnReplay() override { handleVlanUpdate(); }
    void rxnRemovalHook() override { cleanup(); }

   private:
    void cleanup();
    bool initialized_ = false;
  };

  class RxnHelperVniStatus : public Rxn::Reactor<VniSm, FabHelper::FabHelperVniStatus const> {
   public:
    using Reactor::Reactor;
    void onHwInit() override;
    void onHwCleanup() override;
    void onStatusEntry(Bridging::VlanId const& vlanId) override;

    void handleHwInit();
    void handleHwCleanup();

   protected:
    void rxnReplay() override { replay(this, &RxnHelperVniStatus::handleHwInit, &RxnHelperVniStatus::handleHwCleanup); }
  };

  class RxnUpdateClock : public Rxn::Reactor<VniSm, Rxn::Clock const> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };

  VniSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
        Rxn::Ptr<FabVniInfo> const& vniInfo, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
        Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
        Rxn::Ptr<Bridging::Config const> const& bridgingConfig, Rxn::Ptr<FabHelper::FabHelperVni> const& fabVniHelper,
        Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus);
  char const* fwkType() const override { return "Fab::VXLAN::VniSm"; }

  // --- Inputs and outputs.
  Rxn::Ptr<Fab::VerifyData const> verifyData() const { return verifyData_->notifier(); }
  Rxn::Ptr<FabVxlanInfo> vxlanInfo() const { return vxlanInfo_->notifier(); }
  Rxn::Ptr<FabVniInfo> vniInfo() const { return vniInfo_->notifier(); }
  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir() const { return vtiStatusDir_->notifier(); }
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir() const { return vxlanHwStatusDir_; }
  Rxn::Ptr<Bridging::Config const> bridgingConfig() const { return bridgingConfig_->notifier(); }
  Rxn::Ptr<FabHelper::FabHelperVni> const& fabVniHelper() const { return fabVniHelper_; }
  Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus() const { return vxlanBootStatus_; }
  Rxn::Ptr<FabHelper::FabHelperVniStatus const> status() const { return helperVniStatus_->notifier(); }
  Rxn::Ptr<FabHelper::FabHelperVniConfig> const& config() const { return config_; }
  RxnVtiStatus* vtiStatus(Wire::IntfId const& vti) const { return vtiStatus_(vti); }
  RxnVlanConfig* vlanConfig(Bridging::VlanId const& vlanId) const { return vlanConfig_(vlanId); }

  // --- The pipeline.
  void updateVlanVniMap(Wire::IntfId const& vti, Bridging::VlanId const& vlanId, Vxlan::VniExtOrNone const& newVni);
  void updateListEntryIs(ModifyVlanVniMapEntry const& entry);
  void doRemoveUpdateListEntry(Bridging::VlanId const& vlanId);
  void doUpdateVlanVniMapInUpdateList(ModifyVlanVniMapEntry const& entry);
  void doUpdateVlanVniMapInPendingList(ModifyVlanVniMapEntry const& entry);
  void updateQueuedVlanVniMap();
  void maybeAddToHelperVlanVniMapConfig(ModifyVlanVniMapEntry const& entry);
  void addPlatformConfig(FabHelper::FabHelperVniConfigEntry const& entry);
  void delPlatformConfig(Bridging::VlanId const& vlanId);
  void doHandleHelperVlanVniMapStatus(Bridging::VlanId const& vlanId);
  bool updateShadow(Vxlan::VniExtOrNone const& vni, Bridging::VlanId const& vlanId, Wire::IntfId const& vtiIntfId,
                    bool add);
  bool isVlanActive(Bridging::VlanId const& vlanId) const;
  void handleVtiDown(Wire::IntfId const& vti);
  // The VTI whose mapping, wish or row a VLAN has, if any: a VLAN is mapped
  // on one VTI at a time.
  Wire::IntfId holderOf(Bridging::VlanId const& vlanId) const;
  void handleActivatedVti(Wire::IntfId const& vti);
  void handleActiveVxlanVlanUpdate(Bridging::VlanId const& vlanId);

  // --- The lifecycle and recovery.
  void handleInitialized() override;
  void handleVxlanStateUpdate();
  void resumeKeptState();
  bool readyForCleanup() const;
  void maybeDoHwCleanup();
  void maybePublishVlanVniMappingReadyStage();
  void maybeDeleteRecoveredEntry(ModifyVlanVniMapEntry const& entry);
  void handleVerify();

 private:
  void requestVerify() const { Fab::requestVerify(verifyData()); }
  // Whether any VTI has a mapping in the shadow.
  bool shadowEmpty() const;
  // Whether a mapping is in force, or a row stands that no list will remove.
  bool holdsUnqueuedRows() const;
  void flushRemainingRows();
  std::set<Wire::IntfId> vtisHoldingRows() const;
  std::set<Bridging::VlanId> vlansHeldBy(Wire::IntfId const& vti) const;
  void reclaimVlan(Bridging::VlanId const& vlanId);
  // Shows the VTI's rows that the platform refused in its new hardware status.
  void markUnprogrammedRows(Wire::IntfId const& vti);
  void retryUnprogrammedMappings();
  // Runs the drain's loop until the set is empty or the quantum is used up.
  void drainDirtyVlans(double deadline);
  void drainOne(Bridging::VlanId const& vlanId);
  // The answer for a VLAN with a status row: whether to reprogram, and
  // whether to keep the queued wish.
  void takeProgrammedAnswer(Bridging::VlanId const& vlanId, ModifyVlanVniMapEntry const& entry, bool& reprogram,
                            bool& keep);
  void verifyVlan(Bridging::VlanId const& vlanId, FabHelper::FabHelperVniConfigEntry const& row) const;

  Rxn::ReactorPtr<RxnVerifyData> verifyData_;
  Rxn::ReactorPtr<RxnVxlanInfo> vxlanInfo_;
  Rxn::ReactorPtr<RxnVniInfo> vniInfo_;
  Rxn::ReactorPtr<RxnVtiStatusDir> vtiStatusDir_;
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir_;
  Rxn::ReactorPtr<RxnBridgingConfig> bridgingConfig_;
  Rxn::Ptr<FabHelper::FabHelperVni> fabVniHelper_;
  Rxn::Ptr<VxlanBootStatus> vxlanBootStatus_;
  Rxn::Ptr<FabHelper::FabHelperVniConfig> config_;
  Rxn::ReactorPtr<RxnHelperVniStatus> helperVniStatus_;
  Rxn::ReactorPtr<RxnUpdateClock> updateClock_;
  Rxn::ReactorCollection<Bridging::VlanId, RxnVlanConfig> vlanConfig_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVtiStatus> vtiStatus_;
};

Rxn::Ptr<VniSm> vniSmFactory(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                             Rxn::Ptr<FabVniInfo> const& vniInfo,
                             Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                             Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                             Rxn::Ptr<Bridging::Config const> const& bridgingConfig,
                             Rxn::Ptr<FabHelper::FabHelperVni> const& fabVniHelper,
                             Rxn::Ptr<VxlanBootStatus> const& vxlanBootStatus);

}  // namespace Fab::VXLAN

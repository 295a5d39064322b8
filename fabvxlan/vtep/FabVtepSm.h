#pragma once
// Fab::VXLAN::VtepSm: owns every tunnel of the system. It brings the
// platform's VTEP helper and tunnel layer up and down by counter handshakes,
// follows the VTIs and the controller client mode, turns each remote VTEP
// that hosts need into a tunnel request with a generation, publishes the
// tunnel layer's answer in VtepStatus, keeps next hops alive while they are
// in use, and recovers its tunnels after a hitless restart.

#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "fabvxlan/state/FabIds.h"
#include "fabvxlan/state/FabTunnel.h"
#include "fabvxlan/state/FabVtep.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/RemoteMac.h"
#include "fabvxlan/state/imported/Vxlan.h"
#include "fabvxlan/vtep/FabHelperVtep.h"
#include "fabvxlan/vtep/FabVtepEventSm.h"
#include "fabvxlan/vtep/FabVtepSmState.h"

namespace Fab::VXLAN {

class VtepSm : public Fab::FabBaseSm, public VtepSmState {
 public:
  using NextHopInfo = Fab::VXLAN::NextHopInfo;

  class RxnVerifyData : public Rxn::Reactor<VtepSm, Fab::VerifyData const> {
   public:
    using Reactor::Reactor;
    void onVerify() override;

   protected:
    void rxnReplay() override { owner()->handleVerify(); }
  };

  class RxnVxlanInfo : public Rxn::Reactor<VtepSm, FabVxlanInfo> {
   public:
    using Reactor::Reactor;
    void onState() override;
    void onActivatedVti(Wire::IntfId const& vti) override;
    void onActivatedVtirxnImmediate() override;

   protected:
    void rxnReplay() override { owner()->handleActivatedVti(); }
  };

  class RxnVtiStatusDir : public Rxn::Reactor<VtepSm, Vxlan::VtiStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVtiStatus(Wire::IntfId const& vti) override;
    void onVtiStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // One VTI: the attributes that reach the platform hook.
  class RxnVtiStatus : public Rxn::Reactor<VtepSm, Vxlan::VtiStatus const> {
   public:
    using Reactor::Reactor;
    void onLocalVtepAddr() override;
    void onVArpVtepAddr() override;
    void onUdpPort() override;
    void onControllerClientMode() override;
    void onControllerControlPlane() override;
    void onDatapathLearning() override;
    void onControllerClientL3Mode() override;
    void onVxlanNsSnooping() override;
    void onVxlanNaSnooping() override;

    void handleLocalVtep();
    void handleVarpVtep();
    void handleUdpPort();
    void handleControllerClientMode();
    void handleControllerControlPlane();
    void handleDatapathLearning();
    void handleControllerClientL3Mode();
    void handleVxlanNsSnooping();
    void handleVxlanNaSnooping();

   protected:
    void rxnReplay() override;
    void rxnRemovalHook() override { cleanup(); }

   private:
    // The gated handlers act only while the VTI is ready.
    bool ready(char const* handler) const;
    void cleanup();
  };

  class RxnVtepConfigDir : public Rxn::Reactor<VtepSm, VtepConfigDir const> {
   public:
    using Reactor::Reactor;
    void onVtepConfig(Wire::IntfId const& vti) override;
    void onVtepConfigrxnImmediate() override;
    void onActiveNextHopIdList(Fab::FabNextHopId const& nhId) override;

   protected:
    void rxnReplay() override;
  };

  // The remote VTEPs that the hosts of one VTI need.
  class RxnVtepConfig : public Rxn::Reactor<VtepSm, VtepConfig const> {
   public:
    RxnVtepConfig(Rxn::Ptr<VtepConfig const> const& config, VtepSm* owner);
    void onRemoteVtepList(Fab::SwTunnelGroupId const& id) override;
    void onRemoteVtepListrxnImmediate() override;

    void handleInitialized();
    void handleRemoteVtep();
    void handleRemoteVtep(Fab::SwTunnelGroupId const& id);
    bool initialized() const { return initialized_; }

   protected:
    void rxnRemovalHook() override { cleanup(); }

   private:
    void requestTunnel(Fab::SwTunnelGroupId const& id);
    void cleanup();
    bool initialized_ = false;
  };

  class RxnTunnelStatus : public Rxn::Reactor<VtepSm, Fab::FabTunnelStatus const> {
   public:
    using Reactor::Reactor;
    void onInit() override;
    void onCleanup() override;
    void onTunnelStatusEntry(Fab::TunnelKey const& key) override;
    void onTunnelStatusEntryrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // The tunnel layer's answer for one tunnel.
  class RxnTunnelStatusEntry : public Rxn::Reactor<VtepSm, Fab::FabTunnelStatusEntry const> {
   public:
    RxnTunnelStatusEntry(Rxn::Ptr<Fab::FabTunnelStatusEntry const> const& entry, VtepSm* owner);
    void onNextHopId() override;
    void handleTunnelStatus();

   protected:
    void rxnReplay() override { handleTunnelStatus(); }
    void rxnRemovalHook() override { cleanup(); }

   private:
    void cleanup();
  };

  class RxnFabVtepHelper : public Rxn::Reactor<VtepSm, FabHelper::FabHelperVtep> {
   public:
    using Reactor::Reactor;
    void onHwInitStatus() override;
    void onHwCleanupStatus() override;
    void onDataPathLearningDisableStatus() override;
    void onDataPathLearningEnableStatus() override;
  };

  class RxnVxlanBootStatus : public Rxn::Reactor<VtepSm, VxlanBootStatus const> {
   public:
    using Reactor::Reactor;
    void onStageRemoteMacsReady() override;
  };

  class RxnVxlanHwStatusDir : public Rxn::Reactor<VtepSm, Vxlan::VxlanHwStatusDir> {
   public:
    using Reactor::Reactor;
  };

  VtepSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
         Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir,
         Rxn::Ptr<VtepStatusDir> const& vtepStatusDir, Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
         Rxn::Ptr<VtepEvent> const& vtepEvent, Rxn::Ptr<Fab::FabTunnelConfig> const& tunnelConfig,
         Rxn::Ptr<Fab::FabTunnelStatus const> const& tunnelStatus,
         Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
         Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager,
         Rxn::Ptr<VxlanBootStatus const> const& vxlanBootStatus);
  char const* fwkType() const override { return "Fab::VXLAN::VtepSm"; }

  // --- Inputs and outputs.
  Rxn::Ptr<Fab::VerifyData const> verifyData() const { return verifyData_->notifier(); }
  Rxn::Ptr<FabVxlanInfo> vxlanInfo() const { return vxlanInfo_->notifier(); }
  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir() const { return vtiStatusDir_->notifier(); }
  Rxn::Ptr<VtepConfigDir const> vtepConfigDir() const { return vtepConfigDir_->notifier(); }
  Rxn::Ptr<VtepStatusDir> const& vtepStatusDir() const { return vtepStatusDir_; }
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir() const { return vxlanHwStatusDir_->notifier(); }
  Rxn::Ptr<VtepEvent> const& vtepEvent() const { return vtepEvent_; }
  Rxn::Ptr<Fab::FabTunnelConfig> const& tunnelConfig() const { return tunnelConfig_; }
  Rxn::Ptr<Fab::FabTunnelStatus const> tunnelStatus() const { return tunnelStatus_->notifier(); }
  Rxn::Ptr<FabHelper::FabHelperVtep> fabVtepHelper() const { return fabVtepHelper_->notifier(); }
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager() const { return swTunnelIdManager_; }
  Rxn::Ptr<VxlanBootStatus const> vxlanBootStatus() const { return vxlanBootStatus_->notifier(); }
  Rxn::Ptr<VtepEventSm> const& vtepEventSm() const { return vtepEventSm_; }
  RxnVtiStatus* vtiStatus(Wire::IntfId const& vti) const { return vtiStatus_(vti); }
  RxnVtepConfig* vtepConfig(Wire::IntfId const& vti) const { return vtepConfig_(vti); }
  RxnTunnelStatusEntry* tunnelStatusEntry(Fab::TunnelKey const& key) const { return tunnelStatusEntry_(key); }

  // --- The lifecycle.
  void handleInitialized() override;
  void handleVerify();
  bool hitlessRestartSupported() const;
  bool inHitlessRecovery() const;
  void handleRemoteMacsReady();
  void handleVxlanStateUpdate();
  void maybeDoHwCleanup();
  void handleActivatedVti(Wire::IntfId const& vti);
  void handleActivatedVti();
  void handleVtiUp(Wire::IntfId const& vti);
  void handleVtiDown(Wire::IntfId const& vti);
  void updateDatapathLearning();
  void handleTunnelInitStatus();
  void handleTunnelCleanupStatus();
  void handleVtepHelperInitStatus();
  void handleVtepHelperCleanupStatus();
  void handleDataPathDisableStatus();
  void handleDataPathEnableStatus();

  // --- The tunnels.
  void cleanupNextHopId(Wire::IntfId const& vti, Fab::SwTunnelGroupId const& swTunnelGroupId,
                        Fab::FabNextHopId const& nextHopId);
  void handleActiveNextHopId(Fab::FabNextHopId const& nhId);
  void handleActiveNextHopId();
  void removeRemoteVtep(Wire::IntfId const& vti, Fab::SwTunnelGroupId const& swTunnelGroupId);
  void checkAndRemoveVtepInfo(Wire::IntfId const& vti);
  // The readiness test of a tunnel for a VTI.
  bool tunnelReady(Wire::IntfId const& vti) const;
  // The VTI whose tunnel to this remote VTEP an answer of the VRF is for: the
  // VTI that owns the VRF, or another of the VRF that lists the VTEP. All
  // VTIs share VRF 0, and a remote VTEP is listed on one VTI at a time.
  Wire::IntfId vtiOfTunnel(Fab::VrfId const& vrf, Fab::SwTunnelGroupId const& id) const;

 private:
  bool vtiReady(Wire::IntfId const& vti) const;
  void requestVerify() const { Fab::requestVerify(verifyData()); }
  void handleDataPathStatus(bool enableAnswered);
  void neutralizeHook(Wire::IntfId const& vti);
  // A VTI other than this one that is ready, if any.
  Wire::IntfId otherReadyVti(Wire::IntfId const& vti) const;
  // What VtepStatus showed of the VTI's tunnels that stand, published again.
  void republishTunnel(Wire::IntfId const& vti, Fab::SwTunnelGroupId const& id);
  void recoverTunnelLayer();
  std::uint64_t firstGeneration() const;
  void resumeKeptState();
  void deleteStaleTunnels();
  void endRecovery();
  void withdrawUnheldPublications();
  Rxn::Ptr<Vxlan::VxlanHwStatus> vxlanHwStatus(Wire::IntfId const& vti) const;

  Rxn::ReactorPtr<RxnVerifyData> verifyData_;
  Rxn::ReactorPtr<RxnVxlanInfo> vxlanInfo_;
  Rxn::ReactorPtr<RxnVtiStatusDir> vtiStatusDir_;
  Rxn::ReactorPtr<RxnVtepConfigDir> vtepConfigDir_;
  Rxn::Ptr<VtepStatusDir> vtepStatusDir_;
  Rxn::ReactorPtr<RxnVxlanHwStatusDir> vxlanHwStatusDir_;
  Rxn::Ptr<VtepEvent> vtepEvent_;
  Rxn::Ptr<Fab::FabTunnelConfig> tunnelConfig_;
  Rxn::ReactorPtr<RxnTunnelStatus> tunnelStatus_;
  Rxn::ReactorPtr<RxnFabVtepHelper> fabVtepHelper_;
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> swTunnelIdManager_;
  Rxn::ReactorPtr<RxnVxlanBootStatus> vxlanBootStatus_;
  Rxn::Ptr<VtepEventSm> vtepEventSm_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVtiStatus> vtiStatus_;
  Rxn::ReactorCollection<Wire::IntfId, RxnVtepConfig> vtepConfig_;
  Rxn::ReactorCollection<Fab::TunnelKey, RxnTunnelStatusEntry> tunnelStatusEntry_;
};

Rxn::Ptr<VtepSm> vtepSmFactory(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                               Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                               Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir,
                               Rxn::Ptr<VtepStatusDir> const& vtepStatusDir,
                               Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                               Rxn::Ptr<VtepEvent> const& vtepEvent, Rxn::Ptr<Fab::FabTunnelConfig> const& tunnelConfig,
                               Rxn::Ptr<Fab::FabTunnelStatus const> const& tunnelStatus,
                               Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
                               Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager,
                               Rxn::Ptr<VxlanBootStatus const> const& vxlanBootStatus);

}  // namespace Fab::VXLAN

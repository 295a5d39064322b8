#pragma once
// Fab::VXLAN::VtiStatusDirSm: hands each attribute of each VXLAN tunnel
// interface (VTI) to the platform. One nested VtiStatusSm follows each
// Vxlan::VtiStatus of the directory, and each change of an attribute becomes
// one call of a virtual hook.
//
// A platform agent derives from VtiStatusDirSm, overrides the hooks that
// program its chip, creates the machine with Fab::smFactory (or the base one
// with vtiStatusDirSmFactory) and calls handleInitialized() once the
// directory is complete. A hook that is not overridden only traces.
//
// The machine has no part in the feature state of VxlanCentralSm: it
// programs a VTI as long as the VTI is in the directory, and undoes it
// (cleanup, ending in doCleanup) when the VTI leaves or the machine goes away.

#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/runtime/String.h"
#include "fabvxlan/state/imported/Vxlan.h"

namespace Fab::VXLAN {

class VtiStatusDirSm : public Rxn::ReactorOwner {
 public:
  // Keeps one VtiStatusSm per VTI of the directory.
  class RxnVtiStatusDir : public Rxn::Reactor<VtiStatusDirSm, Vxlan::VtiStatusDir const> {
   public:
    using Reactor::Reactor;
    void onVtiStatus(Wire::IntfId const& intfId) override;
    void onVtiStatusrxnImmediate() override;

   protected:
    void rxnReplay() override;
  };

  // One VTI: each attribute that the platform programs, passed to its hook.
  // Its handlers have no initialized test: a change reaches the hook at once.
  class VtiStatusSm : public Rxn::Reactor<VtiStatusDirSm, Vxlan::VtiStatus const> {
   public:
    // Starts the VTI at once: the start list runs from here.
    VtiStatusSm(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus, VtiStatusDirSm* owner);

    Wire::IntfId const& intfId() const { return intfId_; }
    Rxn::Ptr<Vxlan::VtiStatus const> vtiStatus() const { return notifier(); }
    // Whether the start list has run while the machine was initialized.
    bool initialized() const { return initialized_; }

    // The start list: doInitialize, then every attribute in turn.
    void handleInitialized();

    void onUdpPort() override;
    void onVtepToVtepBridging() override;
    void onLocalVtepAddr() override;
    void onLocalVtepAddr6() override;
    void onMlagVtepAddr() override;
    void onMcastGrpDecap(Wire::IpAddr const& mcastGrp) override;
    void onMcastGrpDecaprxnImmediate() override;
    void onVArpVtepAddr() override;
    void onVtepAddrMask() override;
    void onMlagSharedRouterMacAddr() override;
    void onOperStatus() override;
    void onVxlanNsSnooping() override;
    void onVtepSetForSourcePruning(Wire::IpAddr const& vtep) override;
    void onVtepSetForSourcePruningrxnImmediate() override;
    void onVtepSourcePruningAll() override;

    void handleVtiDestUdpPort(Wire::IntfId const& intfId);
    // Bridging between VTEPs, and the source pruning that depends on it.
    void handleVtepToVtepBridging(Wire::IntfId const& intfId);
    void handleLocalVtepAddr(Wire::IntfId const& intfId);
    void handleLocalVtepAddr6(Wire::IntfId const& intfId);
    void handleMlagVtepAddr(Wire::IntfId const& intfId);
    // For a group added and for one removed alike: the hook reads the set.
    void handleMcastGrpDecap(Wire::IpAddr const& mcastGrp);
    void handleMcastGrpDecap();
    void handleVarpVtepAddr(Wire::IntfId const& intfId);
    void handleVtepAddrMask(Wire::IntfId const& intfId);
    void handleMlagSharedRouterMac(Wire::IntfId const& intfId);
    void handleOperStatus(Wire::IntfId const& intfId);
    void handleVxlanNdMcastSnooping(Wire::IntfId const& intfId);
    // Source pruning reaches the platform only while bridging is on.
    void handleVtepSetForSourcePruning(Wire::IpAddr const& vtep);
    void handleVtepSetForSourcePruning();

   protected:
    void rxnReplay() override;
    void rxnRemovalHook() override { cleanup(); }

   private:
    // Undoes the VTI on the platform; always ends in doCleanup.
    void cleanup();
    void vtepToVtepBridgingConfigCleanup();
    // Runs the steps in order and stops once a step has retired this VTI.
    template <class... Steps>
    void whileLive(Steps&&... steps);
    // Calls fn on each member of a set of the VTI while the VTI lives.
    template <class Set, class Fn>
    void forEachWhileLive(Set const& set, Fn&& fn);
    Rxn::String const& traceName() const;

    Wire::IntfId intfId_;
    bool initialized_ = false;
  };

  VtiStatusDirSm(Rxn::String name, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir);
  char const* fwkType() const override { return "Fab::VXLAN::VtiStatusDirSm"; }

  // The platform hooks. Each default only traces, so that a platform
  // overrides what its chip programs.
  virtual void doSetupVxlanDestUdpPort(Wire::IntfId vtiIntfId, Wire::UdpPort udpPort);
  virtual void doSetupVtepToVtepBridging(Wire::IntfId vtiIntfId, bool vtepToVtepBridging);
  virtual void doSetupVxlanSrcAddr(Wire::IntfId vtiIntfId, Wire::IpAddr srcAddr);
  virtual void doSetupVxlanSrcAddrV6(Wire::IntfId vtiIntfId, Wire::Ip6Addr const& srcAddr);
  virtual void doSetupMlagVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr mlagVtepIp);
  // Called for a group added and for one removed: the platform reads the
  // VTI's mcastGrpDecap to tell which.
  virtual void doSetupMcastGrpDecap(Wire::IntfId vtiIntfId, Wire::IpAddr mcastGrp);
  virtual void doSetupVxlanVarpVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr varpVtepAddr);
  virtual void doSetupVxlanVtepAddrMask(Wire::IntfId vtiIntfId, Wire::IpAddr vtepAddrMask);
  virtual void doSetupVxlanMlagSharedRouterMac(Wire::IntfId vtiIntfId, Wire::EthAddr const& macAddr);
  virtual void doUpdateOperStatus(Wire::IntfId vtiIntfId, Interface::IntfOperStatus operStatus);
  virtual void doSetupVxlanNdMcastSnooping(Wire::IntfId vtiIntfId, bool enable);
  virtual void doSetupVtepForSourcePruning(Wire::IntfId vtiIntfId, Wire::IpAddr vtep, bool add);
  virtual void doSetupVtepSourcePruningAll(Wire::IntfId vtiIntfId, bool vtepSourcePruningAll);
  virtual void doCleanup(Wire::IntfId vtiIntfId);
  virtual void doInitialize(Wire::IntfId vtiIntfId);

  // Called once by the platform agent, when the directory is complete: every
  // VTI runs its start list again, now reaching the platform's hooks.
  virtual void handleInitialized();

  // The VTI machines. They follow the directory by themselves; these are the
  // mutators the directory's reactor uses.
  virtual Rxn::Ptr<Vxlan::VtiStatus const> vtiStatusDel(Wire::IntfId const& intfId);
  // Any VTI may have changed: a machine for each VTI of the directory, and
  // none for the rest.
  virtual void vtiStatusNotify();
  virtual VtiStatusSm* vtiStatusIs(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus);
  // Stops following the directory. The VTI machines stay as they are until a
  // directory is given again, which they are reconciled with.
  virtual void vtiStatusDirDel();
  virtual void vtiStatusDirIs(Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir);

  Rxn::String const& name() const { return name_; }
  bool initialized() const { return initialized_; }
  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir() const { return vtiStatusDir_->notifier(); }
  VtiStatusSm* vtiStatus(Wire::IntfId const& intfId) const { return vtiStatus_(intfId); }
  std::size_t vtiStatuses() const { return vtiStatus_.size(); }

 private:
  Rxn::String name_;
  Rxn::ReactorPtr<RxnVtiStatusDir> vtiStatusDir_;
  Rxn::ReactorCollection<Wire::IntfId, VtiStatusSm> vtiStatus_;
  bool initialized_ = false;
};

// The machine with the default hooks. A platform builds its own subclass
// with Fab::smFactory<Subclass>(name, vtiStatusDir).
Rxn::Ptr<VtiStatusDirSm> vtiStatusDirSmFactory(Rxn::String name, Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir);

}  // namespace Fab::VXLAN

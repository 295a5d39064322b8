#pragma once
// FabHelper::FabHelperVniSm: the platform's side of the VLAN to VNI map. It
// follows FabHelperVniConfig and answers in FabHelperVniStatus. A platform
// derives from it and overrides handleVlanVniMap() to program its chip:
//
//   - config row absent: remove the mapping, then statusEntryDel(vlan);
//   - action vlanVniMapAdded_: program it, then statusEntryIs() with the same
//     VLAN, VNI and VTI and a tableAddStatus of success_ or full_;
//   - action vlanVniMapDeletedMacFlushPending_: keep the row in hardware, do
//     what the flush needs, and change no status.
//
// It may answer from inside the call (a synchronous platform) or later.

#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/vni/FabHelperVni.h"

namespace FabHelper {

class FabHelperVniSm : public Rxn::PtrInterface {
 public:
  class RxnHelperVniConfig : public Rxn::Reactor<FabHelperVniSm, FabHelperVniConfig const> {
   public:
    using Reactor::Reactor;
    void onHwInit() override;
    void onHwCleanup() override;
    void onConfigEntry(Bridging::VlanId const& vlanId) override;
  };

  FabHelperVniSm(Rxn::Ptr<FabHelperVniConfig const> const& helperVniConfig,
                 Rxn::Ptr<FabHelperVniStatus> const& helperVniStatus);
  char const* fwkType() const override { return "FabHelper::FabHelperVniSm"; }

  // Defaults: init and cleanup are answered at once.
  virtual void handleHwInit();
  virtual void handleHwCleanup();
  // No default: a platform must program its own chip.
  virtual void handleVlanVniMap(Bridging::VlanId const& vlanId);
  virtual void rxnDoZombieReactors(bool zombie);
  virtual void helperVniConfigDel();
  virtual void helperVniConfigIs(Rxn::Ptr<FabHelperVniConfig const> const& helperVniConfig);

  Rxn::Ptr<FabHelperVniConfig const> helperVniConfig() const;
  Rxn::Ptr<FabHelperVniStatus> const& helperVniStatus() const { return helperVniStatus_; }

 private:
  Rxn::Ptr<RxnHelperVniConfig> helperVniConfig_;
  Rxn::Ptr<FabHelperVniStatus> helperVniStatus_;
};

}  // namespace FabHelper

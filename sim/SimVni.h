#pragma once
// The VLAN to VNI side of the simulated platform: the chip's table of
// mappings, with a capacity, and the platform's FabHelperVniSm that programs
// it from FabHelperVniConfig and answers in FabHelperVniStatus, at once or
// an answer later.

#include <cstddef>
#include <map>
#include <set>

#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/vni/FabHelperVniSm.h"
#include "sim/AnswerQueue.h"

namespace Sim {

// What the chip holds. It outlives an agent restart.
struct VniTable {
  struct Mapping {
    Vxlan::VniExtOrNone vni;
    Wire::IntfId vti;
  };
  std::size_t capacity = 4094;
  // Simulated seconds that one write takes: the loop's time moves on with
  // the chip's work, as it would on hardware.
  double programCost = 0.0;
  std::map<Bridging::VlanId, Mapping> mappings;
  // Mappings that stopped learning while the remote MACs on them are flushed.
  std::set<Bridging::VlanId> flushing;
  bool initialized = false;
};

// The platform's VNI hook: on verification, the chip must hold every mapping
// that config asks for and status reports programmed.
class SimFabHelperVni : public FabHelper::FabHelperVni {
 public:
  SimFabHelperVni(VniTable const& table, Rxn::Ptr<Fab::VerifyData const> const& verifyData);
  void verifyHwVni() override;

 private:
  VniTable const& table_;
  Rxn::Ptr<Fab::VerifyData const> verifyData_;
};

class SimFabHelperVniSm : public FabHelper::FabHelperVniSm {
 public:
  // With no answer queue the platform answers within the request.
  SimFabHelperVniSm(Rxn::Ptr<FabHelper::FabHelperVniConfig const> const& config,
                    Rxn::Ptr<FabHelper::FabHelperVniStatus> const& status, VniTable& table, AnswerQueue* answers);

  void handleHwInit() override;
  void handleHwCleanup() override;
  void handleVlanVniMap(Bridging::VlanId const& vlanId) override;

 private:
  void answer(std::function<void()> work);
  void program(Bridging::VlanId const& vlanId);

  VniTable& table_;
  AnswerQueue* answers_;
};

// After a hitless restart the chip still holds the mappings of the earlier
// life. Once the new life has sent its own (its mapping stage is ready), the
// platform removes those that no config row asks for any more.
class VniTableSweeper : public Rxn::PtrInterface {
 public:
  VniTableSweeper(Rxn::Ptr<Fab::VXLAN::VxlanBootStatus const> const& boot,
                  Rxn::Ptr<FabHelper::FabHelperVniConfig const> const& config, VniTable& table);

 private:
  class RxnBootStatus : public Rxn::Reactor<VniTableSweeper, Fab::VXLAN::VxlanBootStatus const> {
   public:
    using Reactor::Reactor;
    void onStageVlanVniMappingReady() override;
  };
  void sweep();

  Rxn::Ptr<FabHelper::FabHelperVniConfig const> config_;
  VniTable& table_;
  Rxn::Ptr<RxnBootStatus> boot_;
};

}  // namespace Sim

#include "sim/SimPlatform.h"

#include <functional>
#include <limits>

RXN_TRACE_MODULE("FabVxlanSim");

namespace Sim {

using Fab::VXLAN::FabVxlanInfo;
using Fab::VXLAN::FabVxlanState;
using Fab::VXLAN::VxlanBootStatus;

// A platform answer that comes the answer delay after it was asked for; a
// delay of 0 answers at the next turn, never within the asking handler.
class DelayedAnswer {
 public:
  DelayedAnswer(double delay, std::function<void()> answer)
      : delay_(delay), answer_(std::move(answer)), clock_(new RxnClock(Rxn::ActivityFacility::clock(), this)) {
    clock_->hasNotificationActiveIs(true);
  }
  ~DelayedAnswer() { clock_->timeMinIs(std::numeric_limits<double>::infinity()); }
  void ask() { clock_->timeMinIs(delay_ > 0 ? Rxn::System::currentTime() + delay_ : 0.0); }

 private:
  class RxnClock : public Rxn::Reactor<DelayedAnswer, Rxn::Clock const> {
   public:
    using Reactor::Reactor;
    void onTime() override {
      if (rxnMarkedForDeletion()) return;
      owner()->answer_();
    }
  };

  double delay_;
  std::function<void()> answer_;
  Rxn::Ptr<RxnClock> clock_;
};

// Stands in for a sub-machine of the feature: follows FabVxlanInfo::state
// and answers in the machine's sub-state as its handshake with the hardware
// would, the platform's answer delay later.
class SubStateStandIn : public Rxn::PtrInterface {
 public:
  using Getter = FabVxlanState (FabVxlanInfo::*)() const;
  using Setter = void (FabVxlanInfo::*)(FabVxlanState const&);

  SubStateStandIn(std::string name, Rxn::Ptr<FabVxlanInfo> const& info, Getter get, Setter set, double delay)
      : name_(std::move(name)), get_(get), set_(set), info_(new RxnVxlanInfo(info, this)), answer_(delay, [this] {
          RXN_TRACE(7, name_ << " answered " << answerState_);
          (info_->notifier().get()->*set_)(answerState_);
        }) {
    info_->hasNotificationActiveIs(true);
  }

  std::string const& name() const { return name_; }

  // Starts the hardware handshake the feature state asks for, if any.
  void handleState() {
    FabVxlanInfo& info = *info_->notifier();
    FabVxlanState const mine = (info.*get_)();
    switch (info.state()) {
      case FabVxlanState::initializing_:
        if (mine == FabVxlanState::clean_) {
          begin(FabVxlanState::initializing_, FabVxlanState::initialized_);
        }
        break;
      case FabVxlanState::cleaning_:
        if (mine == FabVxlanState::initializing_ || mine == FabVxlanState::initialized_) {
          begin(FabVxlanState::cleaning_, FabVxlanState::clean_);
        }
        break;
      default:
        break;
    }
  }

 private:
  class RxnVxlanInfo : public Rxn::Reactor<SubStateStandIn, FabVxlanInfo> {
   public:
    using Reactor::Reactor;
    void onState() override {
      if (rxnMarkedForDeletion()) return;
      owner()->handleState();
    }
  };

  void begin(FabVxlanState requested, FabVxlanState answer) {
    RXN_TRACE(7, name_ << " requests " << requested << ", the platform will answer " << answer);
    answerState_ = answer;
    (info_->notifier().get()->*set_)(requested);
    answer_.ask();
  }

  std::string name_;
  Getter get_;
  Setter set_;
  FabVxlanState answerState_ = FabVxlanState::clean_;
  Rxn::Ptr<RxnVxlanInfo> info_;
  DelayedAnswer answer_;
};

// Stands in for a sub-machine's part in a hitless restart: once the stage
// before is ready, it publishes its own stage, the answer delay later.
class StageStandIn : public Rxn::PtrInterface {
 public:
  using Getter = bool (VxlanBootStatus::*)() const;
  using Setter = void (VxlanBootStatus::*)(bool const&);

  StageStandIn(std::string name, Rxn::Ptr<VxlanBootStatus> const& boot, Getter before, Setter stage, double delay)
      : before_(before), boot_(new RxnBootStatus(boot, this)), answer_(delay, [this, name = std::move(name), stage] {
          RXN_TRACE(7, name << " publishes its restart stage");
          (boot_->notifier().get()->*stage)(true);
        }) {
    boot_->hasNotificationActiveIs(true);
  }

  void handleBootStatus() {
    if ((boot_->notifier().get()->*before_)()) {
      answer_.ask();
    }
  }

 private:
  class RxnBootStatus : public Rxn::Reactor<StageStandIn, VxlanBootStatus> {
   public:
    using Reactor::Reactor;
    void onStageBumVtepListReady() override { forward(); }
    void onStageVlanVniMappingReady() override { forward(); }
    void onStageRemoteMacsReady() override { forward(); }

   private:
    void forward() {
      if (rxnMarkedForDeletion()) return;
      owner()->handleBootStatus();
    }
  };

  Getter before_;
  Rxn::Ptr<RxnBootStatus> boot_;
  DelayedAnswer answer_;
};

Platform::Platform(PlatformConfig const& config) : config_(config) {
  acsd_ = Fab::fabCommonSmDataFactory("acsd");
  verifyHarness_ = new Fab::VerifyHarness(acsd_->verifyDataIs("verifyData"));
  vxlanInfo_ = Fab::VXLAN::fabVxlanInfoFactory("vxlanInfo");
  vtiStatusDir_ = Vxlan::vtiStatusDirFactory("vtiStatusDir");
  l2RibFloodSet_ = L2Rib::floodSetOutputFactory("l2RibFloodSet");
  vxlanHwStatusDir_ = Vxlan::vxlanHwStatusDirFactory("vxlanHwStatusDir");
  bumStatus_ = vxlanHwStatusDir_->bumStatusIs("bumStatus");
  vxlanBootStatus_ = Fab::VXLAN::vxlanBootStatusFactory("vxlanBootStatus");
  bridgingConfig_ = Bridging::configFactory("bridgingConfig");
  start();
}

Platform::~Platform() {
  central_ = nullptr;
  standIns_.clear();
  stageStandIns_.clear();
}

void Platform::start() {
  buildMachines();
  startMachines();
}

void Platform::buildMachines() {
  central_ = Fab::VXLAN::vxlanCentralSmFactory(acsd_, vxlanInfo_, vtiStatusDir_, l2RibFloodSet_, vxlanHwStatusDir_,
                                               bumStatus_, vxlanBootStatus_);
  central_->vtepGroupSupportedIs(config_.vtepGroupSupported);
  if (!config_.standIns) {
    return;
  }
  double const delay = config_.answerDelay;
  standIns_.push_back(
      new SubStateStandIn("VtepSm", vxlanInfo_, &FabVxlanInfo::vtepSmState, &FabVxlanInfo::vtepSmStateIs, delay));
  standIns_.push_back(
      new SubStateStandIn("VniSm", vxlanInfo_, &FabVxlanInfo::vniSmState, &FabVxlanInfo::vniSmStateIs, delay));
  standIns_.push_back(new SubStateStandIn("VxlanMacAddrSm", vxlanInfo_, &FabVxlanInfo::vxlanMacSmState,
                                          &FabVxlanInfo::vxlanMacSmStateIs, delay));
  if (config_.vtepGroupSupported) {
    standIns_.push_back(new SubStateStandIn("VtepGroupSm", vxlanInfo_, &FabVxlanInfo::vtepGroupSmState,
                                            &FabVxlanInfo::vtepGroupSmStateIs, delay));
  }
  stageStandIns_.push_back(new StageStandIn("VniSm", vxlanBootStatus_, &VxlanBootStatus::stageBumVtepListReady,
                                            &VxlanBootStatus::stageVlanVniMappingReadyIs, delay));
  stageStandIns_.push_back(new StageStandIn("VxlanMacAddrSm", vxlanBootStatus_,
                                            &VxlanBootStatus::stageVlanVniMappingReady,
                                            &VxlanBootStatus::stageRemoteMacsReadyIs, delay));
  stageStandIns_.push_back(new StageStandIn("VxlanMacAddrSm", vxlanBootStatus_, &VxlanBootStatus::stageRemoteMacsReady,
                                            &VxlanBootStatus::stageReevaluateRmacsDoneIs, delay));
}

// The sub-machines start first, so that the first decision of the central
// machine reaches machines that already follow it.
void Platform::startMachines() {
  for (Rxn::Ptr<SubStateStandIn> const& standIn : standIns_) {
    standIn->handleState();
  }
  for (Rxn::Ptr<StageStandIn> const& standIn : stageStandIns_) {
    standIn->handleBootStatus();
  }
  central_->handleInitialized();
}

void Platform::agentDown(Shutdown how) {
  if (!agentRunning()) {
    return;
  }
  bool const restarting = how == Shutdown::forRestart;
  RXN_TRACE(1, "the agent goes down" << (restarting ? " for a hitless restart" : " for good"));
  central_->disableCleanupOnRestartIs(restarting);
  central_ = nullptr;
  standIns_.clear();
  stageStandIns_.clear();
}

void Platform::agentUp() {
  if (agentRunning()) {
    return;
  }
  RXN_TRACE(1, "the agent comes back after a hitless restart");
  // The stages of the restart start over.
  vxlanInfo_ = Fab::VXLAN::fabVxlanInfoFactory("vxlanInfo");
  vxlanBootStatus_->vxlanHitlessRestartSupportedIs(config_.hitlessRestartSupported);
  vxlanBootStatus_->stageBumVtepListReadyIs(false);
  vxlanBootStatus_->stageVlanVniMappingReadyIs(false);
  vxlanBootStatus_->stageRemoteMacsReadyIs(false);
  vxlanBootStatus_->stageReevaluateRmacsDoneIs(false);
  ++restarts_;
  start();
}

void Platform::settle() {
  activity_.run();
}

std::vector<std::string> Platform::standInNames() const {
  std::vector<std::string> names;
  for (Rxn::Ptr<SubStateStandIn> const& standIn : standIns_) {
    names.push_back(standIn->name());
  }
  return names;
}

Rxn::Ptr<Vxlan::VtiStatus> Platform::vti(Wire::IntfId const& intfId) {
  return vtiStatusDir_->vtiStatusIs(intfId);
}

Rxn::Ptr<L2Rib::FloodSet> Platform::floodSet(Bridging::VlanId const& vlanId, Wire::EthAddr const& mac) {
  return l2RibFloodSet_->vlanFloodSetIs(vlanId)->floodSetIs(mac);
}

void Platform::floodSetDel(Bridging::VlanId const& vlanId, Wire::EthAddr const& mac) {
  Rxn::Ptr<L2Rib::VlanFloodSet> const vlan = l2RibFloodSet_->vlanFloodSet(vlanId);
  if (!vlan) {
    return;
  }
  vlan->floodSetDel(mac);
  if (vlan->floodSets() == 0) {
    l2RibFloodSet_->vlanFloodSetDel(vlanId);
  }
}

}  // namespace Sim

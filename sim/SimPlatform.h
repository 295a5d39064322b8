#pragma once
// Sim::Platform: the reference platform agent, on a simulated platform.
//
// It creates the shared entities, creates the state machines by their
// factories, starts them in the order a platform agent must, answers the
// platform's side of every handshake, and runs the loop in simulated time.
// For sub-machines that this build does not have yet it stands in as a test
// harness would: a stand-in follows FabVxlanInfo::state and answers in its
// sub-state after the platform's answer delay.

#include <memory>
#include <vector>

#include "fabvxlan/FabVxlan.h"

namespace Sim {

struct PlatformConfig {
  // Seconds the platform takes to answer a hardware handshake.
  double answerDelay = 0.0;
  bool vtepGroupSupported = false;
  // Whether a restart of the agent is hitless (the hardware keeps forwarding).
  bool hitlessRestartSupported = true;
  // Stand-ins answer the feature state for the sub-machines not built yet;
  // without them a test drives the sub-states by hand.
  bool standIns = true;
};

// How the agent goes down: to come back hitlessly, or for good.
enum class Shutdown { forRestart, forGood };

class SubStateStandIn;
class StageStandIn;

class Platform {
 public:
  explicit Platform(PlatformConfig const& config = {});
  ~Platform();
  Platform(Platform const&) = delete;
  Platform& operator=(Platform const&) = delete;

  PlatformConfig const& config() const { return config_; }
  Rxn::Activity& activity() { return activity_; }
  double now() const { return activity_.now() - Rxn::Activity::kSimulatedStart; }

  // Builds the machines and starts them. Called once by the constructor.
  void start();
  // A hitless restart of the agent: the machines go away with cleanup
  // disabled and are built again over the surviving entities.
  void restartHitlessly() {
    agentDown();
    agentUp();
  }
  // The two halves of a hitless restart, for a scenario that changes the
  // world while the agent is away. The restarted agent publishes a rested
  // FabVxlanInfo: the feature and every sub-machine start from clean_, and
  // the kept hardware is found again through the handshakes.
  void agentDown(Shutdown how = Shutdown::forRestart);
  void agentUp();
  bool agentRunning() const { return !!central_; }

  void runUntilIdle() { activity_.runUntilIdle(); }
  void runFor(double seconds) { activity_.runFor(seconds); }
  // Runs until no timer is armed: every pending answer has come.
  void settle();

  // The VTI of this name, made if it does not exist.
  Rxn::Ptr<Vxlan::VtiStatus> vti(Wire::IntfId const& intfId);
  void vtiDel(Wire::IntfId const& intfId) { vtiStatusDir_->vtiStatusDel(intfId); }
  // The L2Rib flood set of (VLAN, MAC), made if it does not exist.
  Rxn::Ptr<L2Rib::FloodSet> floodSet(Bridging::VlanId const& vlanId, Wire::EthAddr const& mac);
  void floodSetDel(Bridging::VlanId const& vlanId, Wire::EthAddr const& mac);

  // Shared entities.
  Rxn::Ptr<Fab::FabCommonSmData> const& acsd() const { return acsd_; }
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> const& vxlanInfo() const { return vxlanInfo_; }
  Rxn::Ptr<Vxlan::VtiStatusDir> const& vtiStatusDir() const { return vtiStatusDir_; }
  Rxn::Ptr<L2Rib::FloodSetOutput> const& l2RibFloodSet() const { return l2RibFloodSet_; }
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir() const { return vxlanHwStatusDir_; }
  Rxn::Ptr<Vxlan::BumStatus> const& bumStatus() const { return bumStatus_; }
  Rxn::Ptr<Fab::VXLAN::VxlanBootStatus> const& vxlanBootStatus() const { return vxlanBootStatus_; }
  Rxn::Ptr<Bridging::Config> const& bridgingConfig() const { return bridgingConfig_; }

  // Machines.
  Rxn::Ptr<Fab::VXLAN::VxlanCentralSm> const& central() const { return central_; }
  // The names of the sub-machines a stand-in answers for.
  std::vector<std::string> standInNames() const;
  int restarts() const { return restarts_; }

 private:
  void buildMachines();
  void startMachines();

  PlatformConfig config_;
  Rxn::Activity activity_{Rxn::Activity::TimeMode::simulated};
  Rxn::Ptr<Fab::FabCommonSmData> acsd_;
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> vxlanInfo_;
  Rxn::Ptr<Vxlan::VtiStatusDir> vtiStatusDir_;
  Rxn::Ptr<L2Rib::FloodSetOutput> l2RibFloodSet_;
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir_;
  Rxn::Ptr<Vxlan::BumStatus> bumStatus_;
  Rxn::Ptr<Fab::VXLAN::VxlanBootStatus> vxlanBootStatus_;
  Rxn::Ptr<Bridging::Config> bridgingConfig_;
  Rxn::Ptr<Fab::VerifyHarness> verifyHarness_;

  Rxn::Ptr<Fab::VXLAN::VxlanCentralSm> central_;
  std::vector<Rxn::Ptr<SubStateStandIn>> standIns_;
  std::vector<Rxn::Ptr<StageStandIn>> stageStandIns_;
  int restarts_ = 0;
};

}  // namespace Sim

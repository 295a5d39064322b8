#pragma once
// Sim::Platform: the reference platform agent, on a simulated platform.
//
// It creates the shared entities, creates the state machines by their
// factories, starts them in the order a platform agent must, answers the
// platform's side of every handshake, and runs the loop in simulated time.
// For sub-machines that this build does not have yet it stands in as a test
// harness would: a stand-in follows FabVxlanInfo::state and answers in its
// sub-state after the platform's answer delay.

#include <cstdint>
#include <memory>
#include <vector>

#include "fabvxlan/FabVxlan.h"
#include "sim/SimMac.h"
#include "sim/SimVni.h"
#include "sim/SimVtep.h"
#include "sim/SimVtiStatusDirSm.h"

namespace Sim {

struct PlatformConfig {
  // Seconds the platform takes to answer a hardware handshake.
  double answerDelay = 0.0;
  bool vtepGroupSupported = false;
  // Whether a restart of the agent is hitless (the hardware keeps forwarding).
  bool hitlessRestartSupported = true;
  // The sub-machines (real or stand-ins) answer the feature state; without
  // them a test drives the sub-states by hand.
  bool subMachines = true;
  // The VTEP hook: generation ids in tunnel keys, and the remote VTEPs the
  // platform can take.
  bool useUniqGenId = true;
  std::uint32_t maxRemoteVteps = 100;
  TunnelLayerLimits tunnelLayer;
  // The chip's VLAN to VNI table: its size, and whether the platform answers
  // within each request instead of an answer delay later.
  std::size_t vniTableSize = 4094;
  bool vniSynchronous = false;
  // Seconds of the loop's time that writing one mapping into the chip takes.
  double vniProgramCost = 20e-6;
  // Simulated time, or the wall clock (for benchmarks).
  bool realTime = false;
  // The remote MAC machine runs, and the platform writes its host table. A
  // test of the VTEP or VNI machine may play it instead, writing VtepConfig
  // and activeVxlanVlan by hand.
  bool remoteMacMachine = true;
  // The chip's MAC table, and the seconds it takes to program a host.
  std::size_t macTableSize = std::size_t{1} << 21;
  double macAnswerDelay = 0.0;
};

// How the agent goes down: to come back hitlessly, or for good.
enum class Shutdown { forRestart, forGood };
// What a restarted agent finds of its own entities (FabVxlanInfo, FabVniInfo):
// published anew at rest, or kept as they were, as a persistent store keeps
// them.
enum class OwnState { rested, kept };

class SubStateStandIn;
class VniTableSweeper;
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
  void restartHitlessly(OwnState own = OwnState::rested) {
    agentDown();
    agentUp(own);
  }
  // The two halves of a hitless restart, for a scenario that changes the
  // world while the agent is away. The restarted agent makes its hooks anew.
  // With its own state rested, the feature and every sub-machine start from
  // clean_ and find the kept hardware again through the handshakes; with its
  // state kept, they start where the earlier life stopped.
  void agentDown(Shutdown how = Shutdown::forRestart);
  void agentUp(OwnState own = OwnState::rested);
  // The agent and the platform start again from nothing, as after a reload:
  // the chips are reset and every entity of the agent is new. The world
  // around it (VTIs, bridging, L2Rib) stays.
  void restartCold();
  bool agentRunning() const { return !!central_; }
  // Whether a test plays the remote MAC machine (see PlatformConfig).
  bool remoteMacsByHand() const { return !config_.remoteMacMachine; }

  void runUntilIdle() { activity_.runUntilIdle(); }
  void runFor(double seconds) { activity_.runFor(seconds); }
  // Runs until no timer is armed: every pending answer has come.
  void settle();
  // The platform's answers from now on, of the hooks (VTEP and VNI, or one
  // of them), of the tunnel layer or of all: their delay, whether they are
  // held back until released, and whether those that are due together come
  // newest first.
  enum class Answerer { all, hook, vtepHook, vniHook, tunnelLayer };
  struct Answers {
    double delay = 0.0;
    bool held = false;
    bool newestFirst = false;
  };
  void answersAre(Answers const& answers, Answerer answerer = Answerer::all);
  // Each answerer's settings and queue, for checks that wait for answers.
  Answers const& answers(Answerer answerer) const;
  AnswerQueue const* answerQueue(Answerer answerer) const;

  // The VTI of this name, made if it does not exist.
  Rxn::Ptr<Vxlan::VtiStatus> vti(Wire::IntfId const& intfId);
  void vtiDel(Wire::IntfId const& intfId) { vtiStatusDir_->vtiStatusDel(intfId); }
  // The L2Rib flood set of (VLAN, MAC), made if it does not exist.
  Rxn::Ptr<L2Rib::FloodSet> floodSet(Bridging::VlanId const& vlanId, Wire::EthAddr const& mac);
  void floodSetDel(Bridging::VlanId const& vlanId, Wire::EthAddr const& mac);
  // A remote VTEP that the hosts of a VTI need, as the remote MAC machine
  // lists it in VtepConfig; the VTI's VtepConfig goes with its last VTEP.
  void remoteVtepIs(Wire::IntfId const& vti, Wire::IpAddr const& vtep, bool needed);
  // The remote MAC machine drops the VTI's request list at once, as it does
  // when the VTI goes down.
  void remoteVtepsWithdrawn(Wire::IntfId const& vti) {
    refuseWhileRemoteMacMachineRuns("a VTI's remote VTEPs");
    vtepConfigDir_->vtepConfigDel(vti);
  }
  Fab::SwTunnelGroupId vtepId(Wire::IpAddr const& vtep) const;
  // Whether another VTI than this one lists the VTEP or still holds its tunnel.
  bool vtepUsedElsewhere(Wire::IntfId const& vti, Fab::SwTunnelGroupId const& vtep) const;
  // A VLAN's mapping on a VTI, or none.
  void vlanVniIs(Wire::IntfId const& vti, Bridging::VlanId const& vlanId, Vxlan::VniExtOrNone const& vni);
  // Whether remote MACs use the VLAN, as the remote MAC machine says.
  void activeVxlanVlanIs(Bridging::VlanId const& vlanId, bool active);
  // The data path copies a frame to the CPU. Without a VTI up nothing reads
  // it, and it is lost.
  void learnFrame(std::vector<std::uint8_t> const& frame);

  // Shared entities.
  Rxn::Ptr<Fab::FabCommonSmData> const& acsd() const { return acsd_; }
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> const& vxlanInfo() const { return vxlanInfo_; }
  Rxn::Ptr<Vxlan::VtiStatusDir> const& vtiStatusDir() const { return vtiStatusDir_; }
  Rxn::Ptr<L2Rib::FloodSetOutput> const& l2RibFloodSet() const { return l2RibFloodSet_; }
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir() const { return vxlanHwStatusDir_; }
  Rxn::Ptr<Vxlan::BumStatus> const& bumStatus() const { return bumStatus_; }
  Rxn::Ptr<Fab::VXLAN::VxlanBootStatus> const& vxlanBootStatus() const { return vxlanBootStatus_; }
  Rxn::Ptr<Bridging::Config> const& bridgingConfig() const { return bridgingConfig_; }
  Rxn::Ptr<Fab::VXLAN::VtepConfigDir> const& vtepConfigDir() const { return vtepConfigDir_; }
  Rxn::Ptr<Fab::VXLAN::VtepStatusDir> const& vtepStatusDir() const { return vtepStatusDir_; }
  Rxn::Ptr<Fab::VXLAN::VtepEvent> const& vtepEvent() const { return vtepEvent_; }
  Rxn::Ptr<Fab::FabTunnelConfig> const& tunnelConfig() const { return tunnelConfig_; }
  Rxn::Ptr<Fab::FabTunnelStatus> const& tunnelStatus() const { return tunnelStatus_; }
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelGroupIdManager() const { return swTunnelGroupIdManager_; }
  Rxn::Ptr<Fab::VXLAN::FabVniInfo> const& vniInfo() const { return vniInfo_; }
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> const& rmacInfoDir() const { return rmacInfoDir_; }
  Rxn::Ptr<Fab::VXLAN::VtepGroupConfigDir> const& vtepGroupConfigDir() const { return vtepGroupConfigDir_; }
  Rxn::Ptr<Fab::VXLAN::VtepGroupStatusDir> const& vtepGroupStatusDir() const { return vtepGroupStatusDir_; }
  Rxn::Ptr<Vxlan::VxlanStatusDir> const& vxlanStatusDir() const { return vxlanStatusDir_; }
  // The world's sources of remote hosts.
  HostSources const& hostSources() const { return hostSources_; }

  // The platform's side.
  Rxn::Ptr<SimFabHelperVtep> const& fabHelperVtep() const { return fabHelperVtep_; }
  // The chip; a test may change it behind the machines' back, as a fault would.
  VtepHardware& vtepHardware() { return vtepHardware_; }
  SimTunnelLayer& tunnelLayer() const { return *tunnelLayer_; }
  LearnWire const& learnWire() const { return learnWire_; }
  Rxn::Ptr<SimFabHelperVni> const& fabHelperVni() const { return fabHelperVni_; }
  VniTable& vniTable() { return vniTable_; }
  VtiHardware const& vtiHardware() const { return vtiHardware_; }
  MacTable& macTable() { return macTable_; }
  HostWriter& hostWriter() { return *hostWriter_; }
  // The named log messages of the agent so far, as the platform's log shows them.
  std::vector<std::string> const& logs() const { return logs_; }

  // Machines.
  Rxn::Ptr<Fab::VXLAN::VxlanCentralSm> const& central() const { return central_; }
  Rxn::Ptr<Fab::VXLAN::VtepSm> const& vtepSm() const { return vtepSm_; }
  Rxn::Ptr<Fab::VXLAN::VniSm> const& vniSm() const { return vniSm_; }
  Rxn::Ptr<Fab::VXLAN::VxlanMacAddrSm> const& vxlanMacAddrSm() const { return vxlanMacAddrSm_; }
  Rxn::Ptr<SimVtiStatusDirSm> const& vtiStatusDirSm() const { return vtiStatusDirSm_; }
  // The names of the sub-machines a stand-in answers for.
  std::vector<std::string> standInNames() const;
  int restarts() const { return restarts_; }

 private:
  void buildMachines();
  void buildHooks();
  void buildStandIns();
  void startMachines();
  // What the chip kept of the map, for the restarted agent to recover.
  void publishRecoveredVlanToVniMap();
  // The agent's own entities, new; the boot status of a restarted agent.
  void createOwnEntities();
  void republishBootStatus(bool hitless);
  void resetHardware();
  // The remote MAC machine's directory, new with each life of the agent.
  void createRemoteMacInfoDir();
  void refuseWhileRemoteMacMachineRuns(char const* what) const;

  PlatformConfig config_;
  Rxn::Activity activity_{config_.realTime ? Rxn::Activity::TimeMode::real : Rxn::Activity::TimeMode::simulated};
  Rxn::Ptr<Fab::FabCommonSmData> acsd_;
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> vxlanInfo_;
  Rxn::Ptr<Vxlan::VtiStatusDir> vtiStatusDir_;
  Rxn::Ptr<L2Rib::FloodSetOutput> l2RibFloodSet_;
  Rxn::Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir_;
  Rxn::Ptr<Vxlan::BumStatus> bumStatus_;
  Rxn::Ptr<Fab::VXLAN::VxlanBootStatus> vxlanBootStatus_;
  Rxn::Ptr<Bridging::Config> bridgingConfig_;
  Rxn::Ptr<Fab::VXLAN::VtepConfigDir> vtepConfigDir_;
  Rxn::Ptr<Fab::VXLAN::VtepStatusDir> vtepStatusDir_;
  Rxn::Ptr<Fab::VXLAN::VtepEvent> vtepEvent_;
  Rxn::Ptr<Fab::FabTunnelConfig> tunnelConfig_;
  Rxn::Ptr<Fab::FabTunnelStatus> tunnelStatus_;
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> swTunnelGroupIdManager_;
  Rxn::Ptr<Fab::VXLAN::FabVniInfo> vniInfo_;
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> rmacInfoDir_;
  Rxn::Ptr<Fab::VXLAN::VtepGroupConfigDir> vtepGroupConfigDir_;
  Rxn::Ptr<Fab::VXLAN::VtepGroupStatusDir> vtepGroupStatusDir_;
  Rxn::Ptr<Vxlan::VxlanStatusDir> vxlanStatusDir_;
  HostSources hostSources_;
  Rxn::Ptr<Fab::VerifyHarness> verifyHarness_;
  std::vector<std::string> logs_;
  Answers vtepHookAnswers_;
  Answers vniHookAnswers_;
  Answers tunnelLayerAnswers_;

  // The chip and the tunnel layer outlive the agent; the hooks do not.
  VtepHardware vtepHardware_;
  AnswerQueue tunnelAnswers_;
  Rxn::Ptr<SimTunnelLayer> tunnelLayer_;
  LearnWire learnWire_;
  std::unique_ptr<AnswerQueue> helperAnswerQueue_;
  Rxn::Ptr<SimFabHelperVtep> fabHelperVtep_;
  Rxn::Ptr<VtepHelperAnswers> helperAnswers_;
  VniTable vniTable_;
  VtiHardware vtiHardware_;
  MacTable macTable_;
  Rxn::Ptr<HostWriter> hostWriter_;
  std::unique_ptr<AnswerQueue> vniAnswerQueue_;
  Rxn::Ptr<SimFabHelperVni> fabHelperVni_;
  Rxn::Ptr<SimFabHelperVniSm> vniHelperSm_;
  Rxn::Ptr<VniTableSweeper> vniTableSweeper_;

  Rxn::Ptr<Fab::VXLAN::VxlanCentralSm> central_;
  Rxn::Ptr<Fab::VXLAN::VtepSm> vtepSm_;
  Rxn::Ptr<Fab::VXLAN::VniSm> vniSm_;
  Rxn::Ptr<Fab::VXLAN::VxlanMacAddrSm> vxlanMacAddrSm_;
  Rxn::Ptr<SimVtiStatusDirSm> vtiStatusDirSm_;
  std::vector<Rxn::Ptr<SubStateStandIn>> standIns_;
  std::vector<Rxn::Ptr<StageStandIn>> stageStandIns_;
  int restarts_ = 0;
};

}  // namespace Sim

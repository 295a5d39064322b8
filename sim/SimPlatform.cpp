#include "sim/SimPlatform.h"

#include <functional>
#include <stdexcept>
#include <string>

RXN_TRACE_MODULE("FabVxlanSim");

namespace Sim {

using Fab::VXLAN::FabVxlanInfo;
using Fab::VXLAN::FabVxlanState;
using Fab::VXLAN::VxlanBootStatus;

// Stands in for a sub-machine of the feature: follows FabVxlanInfo::state
// and answers in the machine's sub-state as its handshake with the hardware
// would, the platform's answer delay later.
class SubStateStandIn : public Rxn::PtrInterface {
 public:
  using Getter = FabVxlanState (FabVxlanInfo::*)() const;
  using Setter = void (FabVxlanInfo::*)(FabVxlanState const&);

  SubStateStandIn(std::string name, Rxn::Ptr<FabVxlanInfo> const& info, Getter get, Setter set, double delay)
      : name_(std::move(name)), get_(get), set_(set), info_(new RxnVxlanInfo(info, this)), answers_(delay) {
    info_->hasNotificationActiveIs(true);
  }

  std::string const& name() const { return name_; }

  // At the start of the agent: a handshake that a kept state left half-way
  // is answered by the new platform side, as the machine's would be.
  void resume() {
    FabVxlanInfo& info = *info_->notifier();
    FabVxlanState const mine = (info.*get_)();
    if (mine == FabVxlanState::initializing_ || mine == FabVxlanState::cleaning_) {
      FabVxlanState const answer =
          mine == FabVxlanState::initializing_ ? FabVxlanState::initialized_ : FabVxlanState::clean_;
      answers_.post([this, mine, answer] { answerIfStill(mine, answer); });
    }
    handleState();
  }

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
    (info_->notifier().get()->*set_)(requested);
    answers_.post([this, requested, answer] { answerIfStill(requested, answer); });
  }

  // An answer that a later request overtook changes nothing.
  void answerIfStill(FabVxlanState requested, FabVxlanState answer) {
    FabVxlanInfo* const info = info_->notifier().get();
    if ((info->*get_)() == requested) {
      RXN_TRACE(7, name_ << " answered " << answer);
      (info->*set_)(answer);
    }
  }

  std::string name_;
  Getter get_;
  Setter set_;
  Rxn::Ptr<RxnVxlanInfo> info_;
  AnswerQueue answers_;
};

// Stands in for a sub-machine's part in a hitless restart: once the stage
// before is ready, it publishes its own stage, the answer delay later.
class StageStandIn : public Rxn::PtrInterface {
 public:
  using Getter = bool (VxlanBootStatus::*)() const;
  using Setter = void (VxlanBootStatus::*)(bool const&);

  StageStandIn(std::string name, Rxn::Ptr<VxlanBootStatus> const& boot, Getter before, Setter stage, double delay)
      : name_(std::move(name)), before_(before), stage_(stage), boot_(new RxnBootStatus(boot, this)), answers_(delay) {
    boot_->hasNotificationActiveIs(true);
  }

  void handleBootStatus() {
    if ((boot_->notifier().get()->*before_)()) {
      answers_.post([this] { publishStage(); });
    }
  }

  void publishStage() {
    RXN_TRACE(7, name_ << " publishes its restart stage");
    (boot_->notifier().get()->*stage_)(true);
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

  std::string name_;
  Getter before_;
  Setter stage_;
  Rxn::Ptr<RxnBootStatus> boot_;
  AnswerQueue answers_;
};

Platform::Platform(PlatformConfig const& config)
    : config_(config),
      vtepHookAnswers_{config.answerDelay},
      vniHookAnswers_{config.answerDelay},
      tunnelLayerAnswers_{config.answerDelay},
      tunnelAnswers_(config.answerDelay) {
  acsd_ = Fab::fabCommonSmDataFactory("acsd");
  verifyHarness_ = new Fab::VerifyHarness(acsd_->verifyDataIs("verifyData"));
  vtiStatusDir_ = Vxlan::vtiStatusDirFactory("vtiStatusDir");
  l2RibFloodSet_ = L2Rib::floodSetOutputFactory("l2RibFloodSet");
  bridgingConfig_ = Bridging::configFactory("bridgingConfig");
  vxlanStatusDir_ = Vxlan::vxlanStatusDirFactory("vxlanStatusDir");
  hostSources_.l2RibHosts = L2Rib::hostOutputFactory("l2RibHostOutput");
  hostSources_.l2RibReader = new Slab::HostOutputReader(hostSources_.l2RibHosts);
  hostSources_.vxlanConfigDir = Vxlan::vxlanConfigDirFactory("vxlanConfigDir");
  hostSources_.vxlanConfigDir->fdbConfigIs("fdbConfig");
  hostSources_.mlagHosts = Mlag::hostTableFactory("mlagHostTable");
  hostSources_.mlagStatus = Mlag::statusFactory("mlagStatus");
  macTable_.capacity = config_.macTableSize;
  createOwnEntities();
  vniTable_.capacity = config_.vniTableSize;
  vniTable_.programCost = config_.realTime ? 0.0 : config_.vniProgramCost;
  Rxn::logSinkIs(
      [this](Rxn::LogHandle const& handle, Rxn::String const& text) { logs_.push_back(Rxn::logLine(handle, text)); });
  // A new platform's clock starts over: what an earlier platform of this
  // process logged holds none of its messages back.
  Rxn::logRateLimitReset();
  Fab::VXLAN::learnSocketOpenerIs([this] { return learnWire_.open(); });
  start();
}

// The entities that the agent and its platform own: a cold start makes them
// anew, with the tunnel layer that answers them.
void Platform::createOwnEntities() {
  vxlanInfo_ = Fab::VXLAN::fabVxlanInfoFactory("vxlanInfo");
  vxlanHwStatusDir_ = Vxlan::vxlanHwStatusDirFactory("vxlanHwStatusDir");
  bumStatus_ = vxlanHwStatusDir_->bumStatusIs("bumStatus");
  vxlanBootStatus_ = Fab::VXLAN::vxlanBootStatusFactory("vxlanBootStatus");
  vtepConfigDir_ = Fab::VXLAN::vtepConfigDirFactory("vtepConfigDir");
  vtepStatusDir_ = Fab::VXLAN::vtepStatusDirFactory("vtepStatusDir");
  vtepEvent_ = Fab::VXLAN::vtepEventFactory("vtepEvent");
  tunnelConfig_ = Fab::fabTunnelConfigFactory("tunnelConfig");
  tunnelStatus_ = Fab::fabTunnelStatusFactory("tunnelStatus");
  swTunnelGroupIdManager_ = Fab::swTunnelGroupIdManagerFactory("swTunnelGroupIdManager");
  vniInfo_ = Fab::VXLAN::fabVniInfoFactory("vniInfo");
  vtepGroupConfigDir_ = Fab::VXLAN::vtepGroupConfigDirFactory("vtepGroupConfigDir");
  vtepGroupStatusDir_ = Fab::VXLAN::vtepGroupStatusDirFactory("vtepGroupStatusDir");
  vxlanHwStatusDir_->fdbStatusIs("fdbStatus");
  vxlanHwStatusDir_->learnStatusIs("learnStatus");
  createRemoteMacInfoDir();
  tunnelLayer_ = new SimTunnelLayer(tunnelConfig_, tunnelStatus_, config_.tunnelLayer, tunnelAnswers_);
}

void Platform::createRemoteMacInfoDir() {
  rmacInfoDir_ = Fab::VXLAN::remoteMacInfoDirFactory("rmacInfoDir");
  rmacInfoDir_->hostTableIs("hostTable");
  rmacInfoDir_->hostStatusTableIs("hostStatusTable");
  rmacInfoDir_->nextHopIdRefcountTableIs("nextHopIdRefcountTable");
  rmacInfoDir_->vlanRefcountTableIs("vlanRefcountTable");
  rmacInfoDir_->tunnelInfoDirIs("tunnelInfoDir");
  rmacInfoDir_->remoteMacFlushReqTableIs("remoteMacFlushReqTable");
  rmacInfoDir_->vniInfoIs(vniInfo_);
  rmacInfoDir_->vxlanBootStatusIs(vxlanBootStatus_);
  // A test that plays the remote MAC machine writes no hosts.
  if (!config_.remoteMacMachine) {
    return;
  }
  if (!hostWriter_) {
    hostWriter_ =
        new HostWriter(hostSources_, vtiStatusDir_, swTunnelGroupIdManager_, macTable_, config_.macAnswerDelay);
    hostWriter_->vtepBusyIs(
        [this](Wire::IntfId const& vti, Fab::SwTunnelGroupId const& vtep) { return vtepUsedElsewhere(vti, vtep); });
  }
  hostWriter_->agentIs(rmacInfoDir_, vxlanBootStatus_, vxlanHwStatusDir_->fdbStatus(), vtepConfigDir_);
}

Platform::~Platform() {
  hostWriter_ = nullptr;
  vxlanMacAddrSm_ = nullptr;
  central_ = nullptr;
  vtepSm_ = nullptr;
  vniSm_ = nullptr;
  vtiStatusDirSm_ = nullptr;
  standIns_.clear();
  stageStandIns_.clear();
  Fab::VXLAN::learnSocketOpenerIs(nullptr);
  Rxn::logSinkIs(nullptr);
}

void Platform::start() {
  buildMachines();
  startMachines();
}

// The hooks belong to the agent: a restarted agent makes them anew, over the
// chip that kept its state.
void Platform::buildHooks() {
  helperAnswerQueue_ = std::make_unique<AnswerQueue>(vtepHookAnswers_.delay);
  helperAnswerQueue_->heldIs(vtepHookAnswers_.held);
  fabHelperVtep_ = new SimFabHelperVtep(vtepHardware_, acsd_->verifyData(), config_.maxRemoteVteps);
  fabHelperVtep_->useUniqGenIdIs(config_.useUniqGenId);
  helperAnswers_ = new VtepHelperAnswers(fabHelperVtep_, *helperAnswerQueue_);
  tunnelLayer_->helperIs(fabHelperVtep_);
  fabHelperVni_ = new SimFabHelperVni(vniTable_, acsd_->verifyData());
  fabHelperVni_->handleInitialized();
  if (!config_.vniSynchronous) {
    vniAnswerQueue_ = std::make_unique<AnswerQueue>(vniHookAnswers_.delay);
    vniAnswerQueue_->heldIs(vniHookAnswers_.held);
    vniAnswerQueue_->newestFirstIs(vniHookAnswers_.newestFirst);
  }
  vniHelperSm_ =
      new SimFabHelperVniSm(fabHelperVni_->config(), fabHelperVni_->status(), vniTable_, vniAnswerQueue_.get());
  vniTableSweeper_ = new VniTableSweeper(vxlanBootStatus_, fabHelperVni_->config(), vniTable_);
}

void Platform::buildMachines() {
  central_ = Fab::VXLAN::vxlanCentralSmFactory(acsd_, vxlanInfo_, vtiStatusDir_, l2RibFloodSet_, vxlanHwStatusDir_,
                                               bumStatus_, vxlanBootStatus_);
  central_->vtepGroupSupportedIs(config_.vtepGroupSupported);
  if (!config_.subMachines) {
    return;
  }
  buildHooks();
  vtepSm_ = Fab::VXLAN::vtepSmFactory(acsd_, vxlanInfo_, vtiStatusDir_, vtepConfigDir_, vtepStatusDir_,
                                      vxlanHwStatusDir_, vtepEvent_, tunnelConfig_, tunnelStatus_, fabHelperVtep_,
                                      swTunnelGroupIdManager_, vxlanBootStatus_);
  vniSm_ = Fab::VXLAN::vniSmFactory(acsd_, vxlanInfo_, vniInfo_, vtiStatusDir_, vxlanHwStatusDir_, bridgingConfig_,
                                    fabHelperVni_, vxlanBootStatus_);
  vtiStatusDirSm_ = Fab::smFactory<SimVtiStatusDirSm>("Sim", vtiStatusDir_, vtiHardware_);
  if (config_.remoteMacMachine) {
    vxlanMacAddrSm_ = Fab::VXLAN::vxlanMacAddrSmFactory(
        acsd_, vxlanInfo_, vtiStatusDir_, vtepConfigDir_, vtepStatusDir_, hostSources_.vxlanConfigDir, vxlanStatusDir_,
        vxlanHwStatusDir_, rmacInfoDir_, hostSources_.mlagHosts, hostSources_.mlagStatus, vtepGroupConfigDir_,
        vtepGroupStatusDir_, hostSources_.l2RibReader, swTunnelGroupIdManager_);
    vxlanMacAddrSm_->vtepGroupSupportedIs(config_.vtepGroupSupported);
  }
  buildStandIns();
}

void Platform::buildStandIns() {
  double const delay = config_.answerDelay;
  if (!vxlanMacAddrSm_) {
    standIns_.push_back(new SubStateStandIn("VxlanMacAddrSm", vxlanInfo_, &FabVxlanInfo::vxlanMacSmState,
                                            &FabVxlanInfo::vxlanMacSmStateIs, delay));
  }
  if (config_.vtepGroupSupported) {
    standIns_.push_back(new SubStateStandIn("VtepGroupSm", vxlanInfo_, &FabVxlanInfo::vtepGroupSmState,
                                            &FabVxlanInfo::vtepGroupSmStateIs, delay));
  }
  // Until the recovery of remote MACs exists, the platform publishes its
  // stage once the mappings are ready, so that the stages keep their order.
  stageStandIns_.push_back(new StageStandIn("RemoteMacRecoveryHelperSm", vxlanBootStatus_,
                                            &VxlanBootStatus::stageVlanVniMappingReady,
                                            &VxlanBootStatus::stageRemoteMacsReadyIs, delay));
  if (!vxlanMacAddrSm_) {
    stageStandIns_.push_back(new StageStandIn("VxlanMacAddrSm", vxlanBootStatus_,
                                              &VxlanBootStatus::stageRemoteMacsReady,
                                              &VxlanBootStatus::stageReevaluateRmacsDoneIs, delay));
  }
}

// The sub-machines start first, so that the first decision of the central
// machine reaches machines that already follow it.
void Platform::startMachines() {
  if (vtepSm_) {
    vtepSm_->handleInitialized();
    vniSm_->handleInitialized();
    vtiStatusDirSm_->handleInitialized();
  }
  if (vxlanMacAddrSm_) {
    vxlanMacAddrSm_->handleInitialized();
  }
  for (Rxn::Ptr<SubStateStandIn> const& standIn : standIns_) {
    standIn->resume();
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
  vxlanMacAddrSm_ = nullptr;
  vtepSm_ = nullptr;
  vniSm_ = nullptr;
  vtiStatusDirSm_ = nullptr;
  standIns_.clear();
  stageStandIns_.clear();
  vniTableSweeper_ = nullptr;
  vniHelperSm_ = nullptr;
  fabHelperVni_ = nullptr;
  vniAnswerQueue_ = nullptr;
  helperAnswers_ = nullptr;
  fabHelperVtep_ = nullptr;
  helperAnswerQueue_ = nullptr;
  tunnelLayer_->helperIs(nullptr);
}

void Platform::agentUp(OwnState own) {
  if (agentRunning()) {
    return;
  }
  RXN_TRACE(
      1, "the agent comes back after a hitless restart" << (own == OwnState::kept ? ", with its state as it was" : ""));
  // The feature's state is kept, or starts at rest; the VNI machine's
  // published map starts anew with its hook, but for what the remote MAC
  // machine republishes.
  if (own == OwnState::rested) {
    vxlanInfo_ = Fab::VXLAN::fabVxlanInfoFactory("vxlanInfo");
  }
  Rxn::Ptr<Fab::VXLAN::FabVniInfo> const previous = vniInfo_;
  vniInfo_ = Fab::VXLAN::fabVniInfoFactory("vniInfo");
  // The VTEP requests of the earlier life stand, so that the tunnels they
  // keep survive; the new remote MAC machine lists the next hops and VLANs
  // it uses anew as it resolves its hosts again, and the host writer drops
  // the requests no host came back for. A test that plays the machine keeps
  // its VLANs.
  vtepConfigDir_->activeNextHopIdListDelAll();
  vtepGroupConfigDir_->activeNextHopIdListDelAll();
  if (remoteMacsByHand()) {
    for (auto const& [vlanId, active] : previous->activeVxlanVlan()) {
      vniInfo_->activeVxlanVlanIs(vlanId, true);
    }
  }
  Rxn::logRateLimitReset();
  publishRecoveredVlanToVniMap();
  republishBootStatus(config_.hitlessRestartSupported);
  createRemoteMacInfoDir();
  ++restarts_;
  start();
}

void Platform::restartCold() {
  RXN_TRACE(1, "the agent and the platform restart cold");
  agentDown();
  tunnelAnswers_.clear();
  resetHardware();
  createOwnEntities();
  Rxn::logRateLimitReset();
  republishBootStatus(false);
  ++restarts_;
  start();
}

// The stages of a restart start over.
void Platform::republishBootStatus(bool hitless) {
  vxlanBootStatus_->vxlanHitlessRestartSupportedIs(hitless);
  vxlanBootStatus_->stageBumVtepListReadyIs(false);
  vxlanBootStatus_->stageVlanVniMappingReadyIs(false);
  vxlanBootStatus_->stageRemoteMacsReadyIs(false);
  vxlanBootStatus_->stageReevaluateRmacsDoneIs(false);
}

void Platform::resetHardware() {
  vtepHardware_ = VtepHardware();
  vniTable_.mappings.clear();
  vniTable_.flushing.clear();
  vniTable_.initialized = false;
  vtiHardware_.vti.clear();
  macTable_.rows.clear();
}

void Platform::publishRecoveredVlanToVniMap() {
  vxlanBootStatus_->recoveredVlanToVniMapDelAll();
  for (auto const& [vlanId, mapping] : vniTable_.mappings) {
    vxlanBootStatus_->recoveredVlanToVniMapIs(vlanId, Fab::VXLAN::VniEntry(vlanId, mapping.vni, mapping.vti));
  }
}

void Platform::settle() {
  activity_.run();
}

void Platform::answersAre(Answers const& answers, Answerer answerer) {
  if (answerer == Answerer::all) {
    config_.answerDelay = answers.delay;
  }
  bool const all = answerer == Answerer::all;
  bool const hooks = all || answerer == Answerer::hook;
  if (hooks || answerer == Answerer::vtepHook) vtepHookAnswers_ = answers;
  if (hooks || answerer == Answerer::vniHook) vniHookAnswers_ = answers;
  if (all || answerer == Answerer::tunnelLayer) tunnelLayerAnswers_ = answers;
  auto apply = [](AnswerQueue* queue, Answers const& settings) {
    if (queue != nullptr) {
      queue->delayIs(settings.delay);
      queue->heldIs(settings.held);
      queue->newestFirstIs(settings.newestFirst);
    }
  };
  apply(helperAnswerQueue_.get(), vtepHookAnswers_);
  apply(vniAnswerQueue_.get(), vniHookAnswers_);
  apply(&tunnelAnswers_, tunnelLayerAnswers_);
}

Platform::Answers const& Platform::answers(Answerer answerer) const {
  switch (answerer) {
    case Answerer::vniHook:
      return vniHookAnswers_;
    case Answerer::tunnelLayer:
      return tunnelLayerAnswers_;
    default:
      return vtepHookAnswers_;
  }
}

AnswerQueue const* Platform::answerQueue(Answerer answerer) const {
  switch (answerer) {
    case Answerer::vniHook:
      return vniAnswerQueue_.get();
    case Answerer::tunnelLayer:
      return &tunnelAnswers_;
    default:
      return helperAnswerQueue_.get();
  }
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

void Platform::remoteVtepIs(Wire::IntfId const& vti, Wire::IpAddr const& vtep, bool needed) {
  refuseWhileRemoteMacMachineRuns("a remote VTEP");
  Fab::SwTunnelGroupId const id = vtepId(vtep);
  if (needed) {
    vtepConfigDir_->vtepConfigIs(vti)->remoteVtepListIs(id, true);
    return;
  }
  Rxn::Ptr<Fab::VXLAN::VtepConfig> const config = vtepConfigDir_->vtepConfig(vti);
  if (!config) {
    return;
  }
  config->remoteVtepListDel(id);
  if (config->remoteVtepLists() == 0) {
    vtepConfigDir_->vtepConfigDel(vti);
  }
}

// Listed, or still draining, on another VTI.
bool Platform::vtepUsedElsewhere(Wire::IntfId const& vti, Fab::SwTunnelGroupId const& vtep) const {
  for (auto const& [other, config] : vtepConfigDir_->vtepConfig()) {
    if (other != vti && config->remoteVtepList(vtep)) return true;
  }
  if (vtepSm_) {
    for (auto const& [other, dir] : vtepSm_->vtepInfoDir()) {
      if (other != vti && dir->vtepInfo(vtep)) return true;
    }
  }
  return false;
}

// The remote MAC machine owns these lists; writing them behind its back
// breaks its counts.
void Platform::refuseWhileRemoteMacMachineRuns(char const* what) const {
  if (!remoteMacsByHand()) {
    throw std::logic_error(std::string(what) + " is the remote MAC machine's to list; give hosts instead");
  }
}

Fab::SwTunnelGroupId Platform::vtepId(Wire::IpAddr const& vtep) const {
  return swTunnelGroupIdManager_->getSwTunnelGroupIdForTunnelIp(vtep);
}

void Platform::vlanVniIs(Wire::IntfId const& vti, Bridging::VlanId const& vlanId, Vxlan::VniExtOrNone const& vni) {
  if (vni.valid()) {
    this->vti(vti)->vlanToVniMapIs(vlanId, Vxlan::VniSourcePair(vni, "static"));
  } else {
    this->vti(vti)->vlanToVniMapDel(vlanId);
  }
}

void Platform::activeVxlanVlanIs(Bridging::VlanId const& vlanId, bool active) {
  refuseWhileRemoteMacMachineRuns("a VLAN's remote MACs");
  if (active) {
    vniInfo_->activeVxlanVlanIs(vlanId, true);
  } else {
    vniInfo_->activeVxlanVlanDel(vlanId);
  }
}

void Platform::learnFrame(std::vector<std::uint8_t> const& frame) {
  if (!vtepSm_ || !vtepSm_->vtepEventSm()) {
    RXN_TRACE(7, "no VTI reads learn frames: the frame is lost");
    return;
  }
  learnWire_.send(frame);
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

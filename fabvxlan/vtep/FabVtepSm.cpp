#include "fabvxlan/vtep/FabVtepSm.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "fabvxlan/runtime/RingLog.h"
#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanVtepSm");

namespace Fab::VXLAN {

namespace {

using Fab::FabNextHopId;
using Fab::SwTunnelGroupId;

Wire::IpAddr const kNoAddress;
Fab::VrfId const kDefaultVrf;

// A tunnel of this machine: from the local VTEP (zero address) to the remote one.
Fab::TunnelKey tunnelKey(Wire::IpAddr const& remote, Fab::VrfId const& vrf, std::uint64_t genId) {
  return Fab::TunnelKey(Wire::IpGenAddr(kNoAddress), Wire::IpGenAddr(remote), vrf, genId);
}

// The clock in microseconds: the wall clock of a real agent, the simulated
// clock of a simulated one.
std::uint64_t clockMicroseconds() {
  double const now = Rxn::System::currentTime();
  double const seconds = std::floor(now);
  return static_cast<std::uint64_t>(seconds) * 1000000 + static_cast<std::uint64_t>((now - seconds) * 1e6);
}

}  // namespace

// --- Construction ---------------------------------------------------------------

VtepSm::VtepSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
               Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
               Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir, Rxn::Ptr<VtepStatusDir> const& vtepStatusDir,
               Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir, Rxn::Ptr<VtepEvent> const& vtepEvent,
               Rxn::Ptr<Fab::FabTunnelConfig> const& tunnelConfig,
               Rxn::Ptr<Fab::FabTunnelStatus const> const& tunnelStatus,
               Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
               Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager,
               Rxn::Ptr<VxlanBootStatus const> const& vxlanBootStatus)
    : FabBaseSm(acsd),
      verifyData_(reactors(), new RxnVerifyData(acsd->verifyData(), this)),
      vxlanInfo_(reactors(), new RxnVxlanInfo(vxlanInfo, this)),
      vtiStatusDir_(reactors(), new RxnVtiStatusDir(vtiStatusDir, this)),
      vtepConfigDir_(reactors(), new RxnVtepConfigDir(vtepConfigDir, this)),
      vtepStatusDir_(vtepStatusDir),
      vxlanHwStatusDir_(reactors(), new RxnVxlanHwStatusDir(vxlanHwStatusDir, this)),
      vtepEvent_(vtepEvent),
      tunnelConfig_(tunnelConfig),
      tunnelStatus_(reactors(), new RxnTunnelStatus(tunnelStatus, this)),
      fabVtepHelper_(reactors(), new RxnFabVtepHelper(fabVtepHelper, this)),
      swTunnelIdManager_(swTunnelIdManager),
      vxlanBootStatus_(reactors(), new RxnVxlanBootStatus(vxlanBootStatus, this)),
      vtiStatus_(reactors(), "Fab::VXLAN::VtepSm", "vtiStatus"),
      vtepConfig_(reactors(), "Fab::VXLAN::VtepSm", "vtepConfig"),
      tunnelStatusEntry_(reactors(), "Fab::VXLAN::VtepSm", "tunnelStatusEntry") {
  vtiStatus_.reconcile(this, vtiStatusDir->vtiStatus());
  vtepConfig_.reconcile(this, vtepConfigDir->vtepConfig());
  tunnelStatusEntry_.reconcile(this, tunnelStatus->tunnelStatusEntry());
}

Rxn::Ptr<VtepSm> vtepSmFactory(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<FabVxlanInfo> const& vxlanInfo,
                               Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                               Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir,
                               Rxn::Ptr<VtepStatusDir> const& vtepStatusDir,
                               Rxn::Ptr<Vxlan::VxlanHwStatusDir> const& vxlanHwStatusDir,
                               Rxn::Ptr<VtepEvent> const& vtepEvent, Rxn::Ptr<Fab::FabTunnelConfig> const& tunnelConfig,
                               Rxn::Ptr<Fab::FabTunnelStatus const> const& tunnelStatus,
                               Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
                               Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelIdManager,
                               Rxn::Ptr<VxlanBootStatus const> const& vxlanBootStatus) {
  return Fab::smFactory<VtepSm>(acsd, vxlanInfo, vtiStatusDir, vtepConfigDir, vtepStatusDir, vxlanHwStatusDir,
                                vtepEvent, tunnelConfig, tunnelStatus, fabVtepHelper, swTunnelIdManager,
                                vxlanBootStatus);
}

// --- Start ------------------------------------------------------------------------

void VtepSm::handleInitialized() {
  Rxn::Ptr<Fab::FabTunnelStatus const> const status = tunnelStatus();
  RXN_TRACE(8, " tunnel init config " << tunnelConfig_->init() << " tunnel init status " << status->init()
                                      << " tunnel cleanup config " << tunnelConfig_->cleanup()
                                      << " tunnel cleanup status " << status->cleanup());
  initializedIs(true);
  // Before anything else is asked of the hook.
  resumeKeptState();
  vtepEventCountsIs("vtepEventCounts");
  genIdIs(firstGeneration());
  RXN_TRACE(7, " initial genId " << genId());
  vtiStatus_.forEach([this](RxnVtiStatus* reactor) { handleVtiUp(reactor->fwkKey()); });
  // The published list starts empty in any case.
  // A counted copy of each status: the deletes run handlers that may change the directory.
  for (auto it = vxlanHwStatusDir()->vxlanHwStatus().begin(); it != vxlanHwStatusDir()->vxlanHwStatus().end(); ++it) {
    auto const hwStatus = it.value();
    hwStatus->remoteVtepDelAll();
  }
  RXN_TRACE(7, " tunnelConfig entries: " << tunnelConfig_->tunnelConfigEntrys()
                                         << " activeNextHopId entries: " << tunnelConfig_->activeNextHopIds());
  RXN_RING(7, " tunnelConfig entries: %zu activeNextHopId entries: %zu", tunnelConfig_->tunnelConfigEntrys(),
           tunnelConfig_->activeNextHopIds());
  if (!hitlessRestartSupported()) {
    tunnelConfig_->activeNextHopIdDelAll();
    tunnelConfig_->tunnelConfigEntryDelAll();
    // No tunnel of an earlier life stands any more: neither does what it published.
    for (auto it = vtepStatusDir_->vtepStatus().begin(); it != vtepStatusDir_->vtepStatus().end(); ++it) {
      auto const status = it.value();
      status->hwVtepInfoDelAll();
    }
  } else {
    recoverTunnelLayer();
  }
  if (tunnelConfig_->init() > tunnelConfig_->cleanup()) {
    RXN_TRACE(7, " set hw restart");
    hwRestartIs(true);
  }
  // The VTEP configurations that were there before the start, now that the
  // generations of the previous life are known.
  vtepConfig_.forEach([](RxnVtepConfig* reactor) { reactor->handleInitialized(); });
  handleVxlanStateUpdate();
  handleRemoteMacsReady();
}

// An agent that kept the feature's state across a restart brings a new hook
// to a machine that is up or cleaning: the hook is told once that it runs,
// so that its counters pair every later cleanup with an init.
void VtepSm::resumeKeptState() {
  FabVxlanState const mine = vxlanInfo()->vtepSmState();
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  if ((mine == FabVxlanState::initialized_ || mine == FabVxlanState::cleaning_) && helper->hwInitConfig() == 0) {
    RXN_TRACE(7, " resuming kept state " << mine << ", the new hook is told it runs");
    helper->hwInitConfigInc(1);
    // The modes the earlier life published are those the chip has.
    controllerClientModeIs(vxlanInfo()->controllerClientMode());
    datapathLearningIs(vxlanInfo()->datapathLearning());
    updateDatapathLearning();
  }
}

// The clock in microseconds, but above every generation the tunnel layer
// still holds: two lives started within one tick of the clock would
// otherwise hand out the same generations, and an answer about a tunnel of
// the one would be taken for the other's.
std::uint64_t VtepSm::firstGeneration() const {
  std::uint64_t first = clockMicroseconds();
  for (auto const& [key, entry] : tunnelConfig_->tunnelConfigEntry()) {
    first = std::max(first, key.genId() + 1);
  }
  // A tunnel whose removal is still unanswered holds its generation too.
  for (auto const& [key, entry] : tunnelStatus()->tunnelStatusEntry()) {
    first = std::max(first, key.genId() + 1);
  }
  return first;
}

// The tunnel layer stood through the restart: the generations of its entries
// come back, and its active next hops wait for confirmation.
void VtepSm::recoverTunnelLayer() {
  RXN_TRACE(7, " In hitless mode ");
  if (fabVtepHelper()->useUniqGenId()) {
    for (auto const& [key, entry] : tunnelConfig_->tunnelConfigEntry()) {
      RXN_TRACE(7, " Recovered currentGeneration for tunnel config: " << key << " genId: " << key.genId()
                                                                      << " vrf: " << key.vrf());
      currentGenerationIs(Fab::VrfAndIpAddr(key.vrf(), key.dst().v4Addr()), key.genId());
    }
  }
  for (auto const& [nextHopId, active] : tunnelConfig_->activeNextHopId()) {
    RXN_TRACE(7, " Added nextHopId: " << nextHopId << " to pendingList");
    pendingActiveNextHopIdIs(nextHopId, true);
  }
}

bool VtepSm::hitlessRestartSupported() const {
  Rxn::Ptr<VxlanBootStatus const> const boot = vxlanBootStatus();
  return boot && boot->vxlanHitlessRestartSupported();
}

bool VtepSm::inHitlessRecovery() const {
  return hitlessRestartSupported() && !vxlanBootStatus()->stageRemoteMacsReady();
}

void VtepSm::handleRemoteMacsReady() {
  if (!initialized() || !hitlessRestartSupported()) {
    return;
  }
  Rxn::Ptr<VxlanBootStatus const> const boot = vxlanBootStatus();
  if (boot && !boot->stageRemoteMacsReady()) {
    RXN_TRACE(7, " stageRemoteMacsReady() is False");
    return;
  }
  endRecovery();
}

// What the earlier life left and the new one did not confirm goes: next
// hops nobody uses again, and tunnels no VTEP came back for.
void VtepSm::endRecovery() {
  for (auto const& [nextHopId, pending] : pendingActiveNextHopId()) {
    RXN_TRACE(7, " Delete stale nhid: " << nextHopId);
    RXN_RING(7, " Delete stale nhid: %u", nextHopId.value());
    tunnelConfig_->activeNextHopIdDel(nextHopId);
  }
  pendingActiveNextHopIdDelAll();
  deleteStaleTunnels();
  withdrawUnheldPublications();
}

// What the earlier life published for a VTI and this one does not hold: the
// VTEP came back through another VTI, or not at all.
void VtepSm::withdrawUnheldPublications() {
  for (auto const& [vti, status] : vtepStatusDir_->vtepStatus()) {
    Rxn::Ptr<VtepInfoDir> const dir = vtepInfoDir(vti);
    for (auto it = status->hwVtepInfo().begin(); it != status->hwVtepInfo().end(); ++it) {
      SwTunnelGroupId const id = it.key();
      if (!dir || !dir->vtepInfo(id)) {
        RXN_TRACE(7, " Withdraw stale vtep status: " << vti << " " << id);
        status->hwVtepInfoDel(id);
      }
    }
  }
}

// A tunnel entry of the previous life that no VTEP came back for.
void VtepSm::deleteStaleTunnels() {
  for (auto it = tunnelConfig_->tunnelConfigEntry().begin(); it != tunnelConfig_->tunnelConfigEntry().end(); ++it) {
    Fab::TunnelKey const key = it.key();
    SwTunnelGroupId const id = swTunnelIdManager_->getSwTunnelGroupIdForTunnelIp(key.dst().v4Addr());
    bool held = false;
    for (auto const& [vti, dir] : vtepInfoDir()) {
      held = held || !!dir->vtepInfo(id);
    }
    if (held) {
      continue;
    }
    RXN_TRACE(7, " Delete stale vtep config: " << key << " genId: " << key.genId() << " vrf: " << key.vrf());
    RXN_RING(7, " Delete stale vtep config: %s genId: %lu vrf: %u", key.stringValue(), key.genId(), key.vrf().value());
    currentGenerationDel(Fab::VrfAndIpAddr(key.vrf(), key.dst().v4Addr()));
    tunnelConfig_->tunnelConfigEntryDel(key);
    // Readers may rely on a published tunnel standing for a listed VTEP.
    for (auto const& [vti, status] : vtepStatusDir_->vtepStatus()) {
      status->hwVtepInfoDel(id);
    }
  }
}

// --- The feature state --------------------------------------------------------------

void VtepSm::handleVxlanStateUpdate() {
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  RXN_TRACE(8, " state " << info->state() << (hwRestart() ? " is restart" : "") << " hwInitConfig "
                         << helper->hwInitConfig() << " hwInitStatus " << helper->hwInitStatus() << " hwCleanupConfig "
                         << helper->hwCleanupConfig() << " hwCleanupStatus " << helper->hwCleanupStatus());
  if (!initialized()) {
    return;
  }
  switch (info->state()) {
    case FabVxlanState::initialized_:
      // The central machine never runs ahead of this machine.
      assert(vxlanInfo()->vtepSmState() == FabVxlanState::initialized_);
      vtiStatus_.forEach([this](RxnVtiStatus* reactor) { handleVtiUp(reactor->fwkKey()); });
      break;
    case FabVxlanState::initializing_: {
      info->vtepSmStateIs(FabVxlanState::initializing_);
      // The modes to start with: those of the first active VTI in controller client mode.
      RxnVtiStatus* first = nullptr;
      vtiStatus_.forEach([&](RxnVtiStatus* reactor) {
        if (first == nullptr && info->activatedVti(reactor->fwkKey()) && reactor->notifier()->controllerClientMode()) {
          first = reactor;
        }
      });
      if (first != nullptr && (first->notifier()->controllerClientMode() != controllerClientMode() ||
                               first->notifier()->datapathLearning() != datapathLearning())) {
        controllerClientModeIs(first->notifier()->controllerClientMode());
        datapathLearningIs(first->notifier()->datapathLearning());
        updateDatapathLearning();
      } else if (helper->dataPathLearningEnableConfig() == 0 && helper->dataPathLearningDisableConfig() == 0) {
        // A new hook over a chip that an earlier life may have left learning
        // otherwise is told once what the machine starts from.
        updateDatapathLearning();
      }
      helper->hwInitConfigInc(1);
      break;
    }
    case FabVxlanState::cleaning_:
      // A machine that finished its cleanup has nothing to take down: an
      // agent that kept the feature's state restarts it here.
      if (info->vtepSmState() == FabVxlanState::clean_) {
        RXN_TRACE(7, " already clean ");
        break;
      }
      info->vtepSmStateIs(FabVxlanState::cleaning_);
      vtiStatus_.forEach([this](RxnVtiStatus* reactor) { handleVtiDown(reactor->fwkKey()); });
      // A stop ends a hitless recovery: nothing more will come back, and the
      // cleanup waits for every tunnel.
      if (inHitlessRecovery()) {
        RXN_TRACE(7, " stopping during a hitless recovery: stale tunnels go");
        endRecovery();
      }
      maybeDoHwCleanup();
      break;
    case FabVxlanState::clean_:
      assert(vxlanInfo()->vtepSmState() == FabVxlanState::clean_);
      break;
  }
}

void VtepSm::handleVtepHelperInitStatus() {
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  if (!initialized() || helper->hwInitConfig() != helper->hwInitStatus() ||
      helper->hwCleanupConfig() != helper->hwCleanupStatus()) {
    return;
  }
  // An answer that a cleanup overtook starts nothing: the tunnel layer is
  // brought up only by a start, and the next start asks the hook again.
  if (vxlanInfo()->vtepSmState() != FabVxlanState::initializing_) {
    RXN_TRACE(7, " ignored hwInit answer in vtep state " << vxlanInfo()->vtepSmState());
    return;
  }
  RXN_TRACE(7, " initiating tunnel init " << tunnelConfig_->init() << (hwRestart() ? " is restart" : ""));
  if (hwRestart()) {
    // The tunnel layer stands from an earlier life: its counters must agree.
    assert(tunnelConfig()->init());
    RXN_TRACE(7, " call handleTunnelInitStatus directly");
    handleTunnelInitStatus();
    hwRestartIs(false);
    return;
  }
  tunnelConfig_->initInc(1);
}

void VtepSm::handleTunnelInitStatus() {
  Rxn::Ptr<Fab::FabTunnelStatus const> const status = tunnelStatus();
  if (!initialized() || vxlanInfo()->vtepSmState() != FabVxlanState::initializing_) {
    return;
  }
  // The hook comes first: the tunnel layer of an earlier life may answer
  // before the new hook does, and the hook's answer then goes on from here.
  if (fabVtepHelper()->hwInitConfig() != fabVtepHelper()->hwInitStatus()) {
    RXN_TRACE(7, " tunnel layer up, waiting for the hook's init ");
    return;
  }
  if (status->init() != 0 && status->init() == tunnelConfig_->init() && tunnelConfig_->cleanup() == status->cleanup()) {
    RXN_TRACE(7, " vtepSm is ready ");
    assert(fabVtepHelper()->hwInitConfig() == fabVtepHelper()->hwInitStatus());
    vxlanInfo()->vtepSmStateIs(FabVxlanState::initialized_);
  }
}

void VtepSm::maybeDoHwCleanup() {
  if (!initialized()) {
    return;
  }
  Rxn::Ptr<Fab::FabTunnelStatus const> const status = tunnelStatus();
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  RXN_TRACE(8, " nr tunnel entries " << status->tunnelStatusEntrys() << " tunnel init " << tunnelConfig_->init()
                                     << " tunnel cleanup config " << tunnelConfig_->cleanup()
                                     << " tunnel cleanup status " << status->cleanup());
  if (status->tunnelStatusEntrys() != 0) {
    return;
  }
  if (tunnelConfig_->cleanup() != status->cleanup()) {
    RXN_TRACE(7, " tunnel cleanup is pending ");
    return;
  }
  if (tunnelConfig_->init() > tunnelConfig_->cleanup()) {
    RXN_TRACE(7, " initiating tunnel clean up " << tunnelConfig_->init());
    // Set to the value of init, not raised by one: the answer follows. The
    // tunnel layer of an earlier life goes with it, so the next start asks
    // for a tunnel init of its own.
    tunnelConfig_->cleanupIs(tunnelConfig_->init());
    hwRestartIs(false);
    return;
  }
  if (helper->hwInitConfig() > helper->hwCleanupConfig()) {
    RXN_TRACE(7, " initiating vtep helper clean up ");
    helper->hwCleanupConfigInc(1);
  }
}

void VtepSm::handleTunnelCleanupStatus() {
  if (!initialized()) {
    return;
  }
  // A cleanup of an earlier life answered after the new start's init: the
  // tunnel layer is up once both of its counters agree, whichever came last.
  if (vxlanInfo()->vtepSmState() == FabVxlanState::initializing_) {
    handleTunnelInitStatus();
    return;
  }
  if (vxlanInfo()->vtepSmState() != FabVxlanState::cleaning_) {
    return;
  }
  // The hook goes after the tunnel layer, and only once the layer is down:
  // an init that a start asked for after the cleanup brought it up again,
  // and it is cleaned once more first.
  if (tunnelConfig_->cleanup() == tunnelStatus()->cleanup()) {
    RXN_TRACE(7, " tunnel cleanup answered ");
    maybeDoHwCleanup();
  }
}

void VtepSm::handleVtepHelperCleanupStatus() {
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  if (!initialized() || vxlanInfo()->vtepSmState() != FabVxlanState::cleaning_ ||
      helper->hwCleanupConfig() != helper->hwCleanupStatus()) {
    return;
  }
  assert(tunnelConfig()->cleanup() == tunnelStatus()->cleanup());
  RXN_TRACE(7, " vtepSm is clean ");
  datapathLearningIs(true);
  controllerClientModeIs(false);
  vccModeUpdatePendingIs(false);
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  info->datapathLearningIs(true);
  info->controllerClientModeIs(false);
  info->vtepSmStateIs(FabVxlanState::clean_);
}

// --- The VTIs --------------------------------------------------------------------------

bool VtepSm::vtiReady(Wire::IntfId const& vti) const {
  return initialized() && vxlanInfo()->state() == FabVxlanState::initialized_ && vxlanInfo()->activatedVti(vti);
}

bool VtepSm::tunnelReady(Wire::IntfId const& vti) const {
  return vxlanInfo()->state() == FabVxlanState::initialized_ && !!vtepStatusDir_->vtepStatus(vti) &&
         vxlanInfo()->activatedVti(vti);
}

Rxn::Ptr<Vxlan::VxlanHwStatus> VtepSm::vxlanHwStatus(Wire::IntfId const& vti) const {
  return vxlanHwStatusDir()->vxlanHwStatus(vti);
}

void VtepSm::handleActivatedVti(Wire::IntfId const& vti) {
  if (!initialized()) {
    return;
  }
  if (vxlanInfo()->activatedVti(vti)) {
    RXN_TRACE(7, "vti " << vti << " activated ");
    RXN_RING(7, "vti %s activated ", vti.stringValue());
    handleVtiUp(vti);
  } else {
    RXN_TRACE(7, "vti " << vti << " deactivated ");
    RXN_RING(7, "vti %s deactivated ", vti.stringValue());
    handleVtiDown(vti);
  }
  requestVerify();
}

void VtepSm::handleActivatedVti() {
  if (!initialized()) {
    return;
  }
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  for (auto it = info->activatedVti().begin(); it != info->activatedVti().end(); ++it) {
    handleActivatedVti(Wire::IntfId(it.key()));
  }
}

// The hook in its neutral state, for a VTI that is not ready or gone. The
// UDP port is one for the whole chip: it stays while another VTI is ready.
void VtepSm::neutralizeHook(Wire::IntfId const& vti) {
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  if (!otherReadyVti(vti)) {
    helper->udpPortConfigIs(Wire::UdpPort());
  }
  helper->updateLocalVtepSrcIp(vti, kNoAddress);
  helper->updateVarpVtepSrcIp(vti, kNoAddress);
}

Wire::IntfId VtepSm::otherReadyVti(Wire::IntfId const& vti) const {
  Wire::IntfId other;
  vtiStatus_.forEach([this, &vti, &other](RxnVtiStatus* reactor) {
    if (!other && reactor->fwkKey() != vti && vtiReady(reactor->fwkKey())) {
      other = reactor->fwkKey();
    }
  });
  return other;
}

Wire::IntfId VtepSm::vtiOfTunnel(Fab::VrfId const& vrf, SwTunnelGroupId const& id) const {
  Wire::IntfId const owner = vrfToVti(vrf);
  Rxn::Ptr<VtepConfig const> const ownerConfig = vtepConfigDir()->vtepConfig(owner);
  if (ownerConfig && ownerConfig->remoteVtepList(id)) {
    return owner;
  }
  // A ready VTI whose VRF entry went with its emptied directory is in VRF 0
  // all the same.
  for (auto const& [vti, config] : vtepConfigDir()->vtepConfig()) {
    if (vtiToVrf(vti) == vrf && tunnelReady(vti) && config->remoteVtepList(id)) {
      return vti;
    }
  }
  return owner;
}

// A VTI that comes back finds its tunnels standing; nothing about them
// changes, so no answer would publish them again.
void VtepSm::republishTunnel(Wire::IntfId const& vti, SwTunnelGroupId const& id) {
  Wire::IpAddr const ip = swTunnelIdManager_->getTunnelIpFromSwTunnelGroupId(id);
  Fab::VrfId const vrf = vtiToVrf(vti);
  std::uint64_t const gen = fabVtepHelper()->useUniqGenId() ? currentGeneration(Fab::VrfAndIpAddr(vrf, ip)) : 0;
  if (RxnTunnelStatusEntry* const entry = tunnelStatusEntry_(tunnelKey(ip, vrf, gen))) {
    entry->handleTunnelStatus();
  }
}

void VtepSm::handleVtiUp(Wire::IntfId const& vti) {
  if (!vtiReady(vti)) {
    RXN_TRACE(8, "vti " << vti << " not ready yet " << initialized() << " " << vxlanInfo()->state() << " "
                        << vxlanInfo()->activatedVti(vti));
    neutralizeHook(vti);
    return;
  }
  vtepStatusDir_->vtepStatusIs(vti);
  vtiToVrfIs(vti, kDefaultVrf);
  vrfToVtiIs(kDefaultVrf, vti);
  if (Rxn::Ptr<RxnVtiStatus> const reactor = vtiStatus_(vti)) {
    reactor->handleLocalVtep();
    reactor->handleVarpVtep();
    reactor->handleUdpPort();
    reactor->handleControllerClientMode();
    reactor->handleDatapathLearning();
    reactor->handleControllerClientL3Mode();
    reactor->handleVxlanNsSnooping();
    reactor->handleVxlanNaSnooping();
    reactor->handleControllerControlPlane();
  }
  Rxn::Ptr<Vxlan::VxlanHwStatus> const vxlanHwStatus = this->vxlanHwStatus(vti);
  assert(vxlanHwStatus);
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  vxlanHwStatus->portIdIs(helper->getTunnelPortId());
  vxlanHwStatus->cpuSourcePortIdIs(helper->getVxlanCpuSourcePortId());
  if (Rxn::Ptr<RxnVtepConfig> const config = vtepConfig_(vti)) {
    config->handleRemoteVtep();
  }
  if (!vtepEventSm_) {
    vtepEventSm_ = vtepEventSmFactory(vtiStatusDir(), vtepEvent_, vxlanInfo(), acsd(), helper, vtepConfigDir());
  }
}

void VtepSm::handleVtiDown(Wire::IntfId const& vti) {
  neutralizeHook(vti);
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  helper->controllerClientL3ModeIs(false);
  helper->vxlanNsSnoopingIs(false);
  helper->vxlanNaSnoopingIs(false);
  vtepEventSm_ = nullptr;
  vtepStatusDir_->vtepStatusDel(vti);
  // The VRF that all VTIs share passes to a VTI that is still ready.
  Fab::VrfId const vrf = vtiToVrf(vti);
  if (vrfToVti(vrf) == vti) {
    if (Wire::IntfId const other = otherReadyVti(vti); !!other) {
      vrfToVtiIs(vrf, other);
    } else {
      vrfToVtiDel(vrf);
    }
  }
  if (vxlanInfo()->state() == FabVxlanState::cleaning_) {
    maybeDoHwCleanup();
  }
  requestVerify();
}

// --- The modes -----------------------------------------------------------------------------

void VtepSm::updateDatapathLearning() {
  RXN_TRACE(7, " datapathLearning: " << datapathLearning());
  if (vccModeUpdatePending()) {
    RXN_TRACE(7, " Vcc mode update pending, deferred the new update");
    RXN_RING(7, " Vcc mode update pending, deferred the new update");
    return;
  }
  vccModeUpdatePendingIs(true);
  if (datapathLearning()) {
    RXN_TRACE(7, " Enabling datapath learning ");
    fabVtepHelper()->dataPathLearningEnableConfigInc(1);
  } else {
    RXN_TRACE(7, " Disabling datapath learning. ");
    fabVtepHelper()->dataPathLearningDisableConfigInc(1);
  }
}

void VtepSm::handleDataPathDisableStatus() {
  handleDataPathStatus(false);
}

void VtepSm::handleDataPathEnableStatus() {
  handleDataPathStatus(true);
}

// Any change of a status counter ends the one request that is out.
void VtepSm::handleDataPathStatus(bool enableAnswered) {
  if (!initialized()) {
    return;
  }
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  RXN_TRACE(7, (enableAnswered ? " VtepSm dplearning mode " : "")
                   << " VtepSm controller mode " << controllerClientMode() << " Vcc mode update pending "
                   << vccModeUpdatePending() << " Vcc enable config " << helper->dataPathLearningEnableConfig()
                   << " Vcc enable status " << helper->dataPathLearningEnableStatus()
                   << (enableAnswered ? " Vcc mode disable config " : " Vcc disable config ")
                   << helper->dataPathLearningDisableConfig()
                   << (enableAnswered ? " Vcc mode disable status " : " Vcc disable status ")
                   << helper->dataPathLearningDisableStatus());
  RXN_RING(7, " VtepSm controller mode %d Vcc mode update pending %d Vcc enable config %u Vcc enable status %u",
           controllerClientMode(), vccModeUpdatePending(), helper->dataPathLearningEnableConfig(),
           helper->dataPathLearningEnableStatus());
  FabVxlanState const state = vxlanInfo()->state();
  if (state != FabVxlanState::initializing_ && state != FabVxlanState::initialized_) {
    RXN_TRACE(7, " ignored result in vxlan state " << state);
    RXN_RING(7, " ignored result in vxlan state %s", state);
    return;
  }
  // The goal changed while the platform worked: ask again.
  if (datapathLearning() != enableAnswered) {
    if (datapathLearning()) {
      helper->dataPathLearningEnableConfigInc(1);
    } else {
      helper->dataPathLearningDisableConfigInc(1);
    }
    return;
  }
  vccModeUpdatePendingIs(false);
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  info->controllerClientModeIs(controllerClientMode());
  info->datapathLearningIs(datapathLearning());
}

// --- Verification ---------------------------------------------------------------------------

void VtepSm::handleVerify() {
  if (!initialized()) {
    return;
  }
  Rxn::Ptr<FabVxlanInfo> const info = vxlanInfo();
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = fabVtepHelper();
  for (auto it = info->activatedVti().begin(); it != info->activatedVti().end(); ++it) {
    Wire::IntfId const vti = it.key();
    Wire::UdpPort port;
    Wire::IpAddr local;
    Wire::IpAddr vArp;
    if (info->state() == FabVxlanState::initialized_) {
      if (Rxn::Ptr<Vxlan::VtiStatus> const status = vtiStatusDir()->vtiStatus(vti)) {
        port = status->udpPort();
        local = status->localVtepAddr();
        vArp = status->vArpVtepAddr();
        if (!vccModeUpdatePending()) {
          helper->verifyVccMode(status->controllerClientMode());
        }
      }
    }
    helper->verifyUdpPort(vti, port);
    helper->verifyLocalVtepSrcIp(vti, local);
    helper->verifyVarpVtepSrcIp(vti, vArp);
  }
}

// --- The tunnels ------------------------------------------------------------------------------

void VtepSm::cleanupNextHopId(Wire::IntfId const& vti, SwTunnelGroupId const& swTunnelGroupId,
                              FabNextHopId const& nextHopId) {
  if (Rxn::Ptr<VtepInfoDir> const dir = vtepInfoDir(vti)) {
    if (Rxn::Ptr<VtepInfo> const info = dir->vtepInfo(swTunnelGroupId)) {
      info->nextHopIdDel(nextHopId);
    }
  }
  nextHopInfoDel(nextHopId);
  fabVtepHelper()->nextHopIdToTunnelIdMapDel(nextHopId);
  tunnelConfig_->activeNextHopIdDel(nextHopId);
}

void VtepSm::handleActiveNextHopId(FabNextHopId const& nhId) {
  if (!initialized()) {
    RXN_TRACE(8, " not yet ready ");
    return;
  }
  // clang-format off
  assert(!!nextHopInfo( nhId ));
  // clang-format on
  NextHopInfo const info = nextHopInfo(nhId);
  SwTunnelGroupId const id = info.swTunnelGroupId();
  Wire::IntfId const vtiIntfId = info.vtiIntfId();
  // clang-format off
  assert(vtepInfoDir( vtiIntfId ));
  // clang-format on
  Rxn::Ptr<VtepInfo> const vtepInfo = vtepInfoDir(vtiIntfId)->vtepInfo(id);
  assert(vtepInfo);
  if (vtepConfigDir()->activeNextHopIdList(nhId)) {
    RXN_TRACE(7, " next hop id " << nhId << " added ");
    RXN_RING(7, " next hop id %u added ", nhId.value());
    // clang-format off
    assert(vtepInfo->nextHopId( nhId ));
    // clang-format on
    tunnelConfig_->activeNextHopIdIs(nhId, true);
    return;
  }
  RXN_TRACE(7, " next hop id " << nhId << " removed ");
  RXN_RING(7, " next hop id %u removed ", nhId.value());
  if (nhId == vtepInfo->curNextHopId()) {
    RXN_TRACE(7, "Possibly deferring release of current next hop id " << nhId);
  } else {
    cleanupNextHopId(vtiIntfId, id, nhId);
  }
  RXN_TRACE(7, " nr next hops " << vtepInfo->nextHopIds());
  // The id may have been the last thing that held a deleted VTEP up.
  removeRemoteVtep(vtiIntfId, id);
  checkAndRemoveVtepInfo(vtiIntfId);
}

void VtepSm::handleActiveNextHopId() {
  if (!initialized()) {
    return;
  }
  assert(vtepConfigDir()->activeNextHopIdLists() == 0);
}

void VtepSm::removeRemoteVtep(Wire::IntfId const& vti, SwTunnelGroupId const& swTunnelGroupId) {
  Rxn::Ptr<VtepConfig const> const config = vtepConfigDir()->vtepConfig(vti);
  if (config && config->remoteVtepList(swTunnelGroupId)) {
    RXN_TRACE(7, " remoteVtep " << swTunnelGroupId << " not removed ");
    RXN_RING(7, " remoteVtep %s not removed ", swTunnelGroupId.stringValue());
    return;
  }
  Rxn::Ptr<VtepInfoDir> const vInfo = vtepInfoDir(vti);
  assert(vInfo);
  // clang-format off
  assert(vInfo->vtepInfo( swTunnelGroupId ));
  // clang-format on
  Rxn::Ptr<VtepInfo> const info = vInfo->vtepInfo(swTunnelGroupId);
  Rxn::Ptr<VtepConfigDir const> const configDir = vtepConfigDir();
  for (auto it = info->nextHopId().begin(); it != info->nextHopId().end(); ++it) {
    FabNextHopId const nextHopId = it.key();
    if (configDir->activeNextHopIdList(nextHopId)) {
      RXN_TRACE(7, " nextHopId " << nextHopId << " still in use ");
      RXN_TRACE(7, " not deleting vtep tunnel " << swTunnelGroupId);
      return;
    }
    if (nextHopId != info->curNextHopId()) {
      cleanupNextHopId(vti, swTunnelGroupId, nextHopId);
    }
  }
  cleanupNextHopId(vti, swTunnelGroupId, info->curNextHopId());
  // clang-format off
  assert(vInfo->vtepInfo( swTunnelGroupId )->nextHopIds() == 0);
  // clang-format on
  RXN_TRACE(7, " Removing remote VTEP " << swTunnelGroupId);
  RXN_RING(7, " Removing remote VTEP %s", swTunnelGroupId.stringValue());
  if (Rxn::Ptr<VtepStatus> const status = vtepStatusDir_->vtepStatus(vti)) {
    status->hwVtepInfoDel(swTunnelGroupId);
  }
  Wire::IpAddr const ip = swTunnelIdManager_->getTunnelIpFromSwTunnelGroupId(swTunnelGroupId);
  Fab::VrfId const vrf = vtiToVrf(vti);
  std::uint64_t genId = 0;
  if (fabVtepHelper()->useUniqGenId()) {
    genId = currentGeneration(Fab::VrfAndIpAddr(vrf, ip));
    assert(genId);
  }
  tunnelConfig_->tunnelConfigEntryDel(tunnelKey(ip, vrf, genId));
  currentGenerationDel(Fab::VrfAndIpAddr(vrf, ip));
  if (Rxn::Ptr<Vxlan::VxlanHwStatus> const hwStatus = vxlanHwStatus(vti)) {
    hwStatus->remoteVtepDel(ip);
  }
  vInfo->vtepInfoDel(swTunnelGroupId);
  fabVtepHelper()->deleteVtepHandle(vti, ip);
  if (vxlanInfo()->state() == FabVxlanState::cleaning_) {
    maybeDoHwCleanup();
  }
}

void VtepSm::checkAndRemoveVtepInfo(Wire::IntfId const& vti) {
  Rxn::Ptr<VtepInfoDir> const dir = vtepInfoDir(vti);
  if (dir && dir->vtepInfos() == 0 && !vtepConfigDir()->vtepConfig(vti)) {
    RXN_TRACE(7, " deleting vtepInfoDir " << vti);
    vtepInfoDirDel(vti);
    vtiToVrfDel(vti);
  }
}

// --- RxnVerifyData, RxnVxlanInfo, RxnVtiStatusDir ---------------------------------------------------

void VtepSm::RxnVerifyData::onVerify() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVerify();
}

void VtepSm::RxnVxlanInfo::onState() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVxlanStateUpdate();
}

void VtepSm::RxnVxlanInfo::onActivatedVti(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActivatedVti(vti);
}

void VtepSm::RxnVxlanInfo::onActivatedVtirxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActivatedVti();
}

void VtepSm::RxnVtiStatusDir::onVtiStatus(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtiStatus_.follow(owner(), notifier()->vtiStatus(), vti);
}

void VtepSm::RxnVtiStatusDir::onVtiStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  rxnReplay();
}

void VtepSm::RxnVtiStatusDir::rxnReplay() {
  owner()->vtiStatus_.reconcile(owner(), notifier()->vtiStatus());
}

// --- RxnVtiStatus ----------------------------------------------------------------------------------

void VtepSm::RxnVtiStatus::onLocalVtepAddr() {
  if (rxnMarkedForDeletion()) return;
  handleLocalVtep();
}

void VtepSm::RxnVtiStatus::onVArpVtepAddr() {
  if (rxnMarkedForDeletion()) return;
  handleVarpVtep();
}

void VtepSm::RxnVtiStatus::onUdpPort() {
  if (rxnMarkedForDeletion()) return;
  handleUdpPort();
}

void VtepSm::RxnVtiStatus::onControllerClientMode() {
  if (rxnMarkedForDeletion()) return;
  handleControllerClientMode();
}

void VtepSm::RxnVtiStatus::onControllerControlPlane() {
  if (rxnMarkedForDeletion()) return;
  handleControllerControlPlane();
}

void VtepSm::RxnVtiStatus::onDatapathLearning() {
  if (rxnMarkedForDeletion()) return;
  handleDatapathLearning();
}

void VtepSm::RxnVtiStatus::onControllerClientL3Mode() {
  if (rxnMarkedForDeletion()) return;
  handleControllerClientL3Mode();
}

void VtepSm::RxnVtiStatus::onVxlanNsSnooping() {
  if (rxnMarkedForDeletion()) return;
  handleVxlanNsSnooping();
}

void VtepSm::RxnVtiStatus::onVxlanNaSnooping() {
  if (rxnMarkedForDeletion()) return;
  handleVxlanNaSnooping();
}

void VtepSm::RxnVtiStatus::rxnReplay() {
  replay(this, &RxnVtiStatus::handleLocalVtep, &RxnVtiStatus::handleVarpVtep, &RxnVtiStatus::handleUdpPort,
         &RxnVtiStatus::handleControllerClientMode, &RxnVtiStatus::handleControllerControlPlane,
         &RxnVtiStatus::handleDatapathLearning, &RxnVtiStatus::handleControllerClientL3Mode,
         &RxnVtiStatus::handleVxlanNsSnooping, &RxnVtiStatus::handleVxlanNaSnooping);
}

bool VtepSm::RxnVtiStatus::ready(char const* handler) const {
  if (owner()->vtiReady(fwkKey())) {
    return true;
  }
  RXN_TRACE(8, handler << " " << fwkKey() << " not ready yet ");
  return false;
}

void VtepSm::RxnVtiStatus::handleLocalVtep() {
  if (!ready("handleLocalVtep")) return;
  Wire::IpAddr const local = notifier()->localVtepAddr();
  owner()->fabVtepHelper()->updateLocalVtepSrcIp(fwkKey(), local);
  RXN_RING(7, "vti %s local vtep %s", fwkKey().stringValue(), RingLog::Ip4{local.value()});
  owner()->requestVerify();
}

void VtepSm::RxnVtiStatus::handleVarpVtep() {
  if (!ready("handleVarpVtep")) return;
  Wire::IpAddr const vArp = notifier()->vArpVtepAddr();
  owner()->fabVtepHelper()->updateVarpVtepSrcIp(fwkKey(), vArp);
  RXN_RING(7, "vti %s varp vtep %s", fwkKey().stringValue(), RingLog::Ip4{vArp.value()});
  owner()->requestVerify();
}

void VtepSm::RxnVtiStatus::handleUdpPort() {
  if (!ready("handleUdpPort")) return;
  Wire::UdpPort const port = notifier()->udpPort();
  owner()->fabVtepHelper()->udpPortConfigIs(port);
  RXN_RING(7, "vti %s udp port %u", fwkKey().stringValue(), port.value());
  owner()->requestVerify();
}

void VtepSm::RxnVtiStatus::handleControllerClientL3Mode() {
  if (!ready("handleControllerClientL3Mode")) return;
  bool const mode = notifier()->controllerClientL3Mode();
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = owner()->fabVtepHelper();
  if (mode != helper->controllerClientL3Mode()) {
    RXN_TRACE(7, " Changing Vcc L3 mode to " << mode);
    helper->controllerClientL3ModeIs(mode);
  }
}

void VtepSm::RxnVtiStatus::handleControllerClientMode() {
  if (!ready("handleControllerClientMode")) return;
  VtepSm* const sm = owner();
  bool const mode = notifier()->controllerClientMode();
  if (mode == sm->controllerClientMode()) {
    return;
  }
  RXN_TRACE(7, " Changing Vcc mode to " << mode);
  sm->controllerClientModeIs(mode);
  // A request that is out publishes the mode at its end.
  if (sm->vccModeUpdatePending()) {
    return;
  }
  // The mode alone needs no platform action.
  sm->vxlanInfo()->controllerClientModeIs(mode);
}

void VtepSm::RxnVtiStatus::handleDatapathLearning() {
  if (!ready("handleDatapathLearning")) return;
  VtepSm* const sm = owner();
  bool const learning = notifier()->datapathLearning();
  if (learning == sm->datapathLearning()) {
    return;
  }
  RXN_TRACE(7, " Changing datapathLearning to " << learning);
  sm->datapathLearningIs(learning);
  sm->updateDatapathLearning();
}

void VtepSm::RxnVtiStatus::handleVxlanNsSnooping() {
  if (!owner()->initialized()) return;
  owner()->fabVtepHelper()->vxlanNsSnoopingIs(notifier()->vxlanNsSnooping());
}

void VtepSm::RxnVtiStatus::handleVxlanNaSnooping() {
  if (!owner()->initialized()) return;
  owner()->fabVtepHelper()->vxlanNaSnoopingIs(notifier()->vxlanNaSnooping());
}

void VtepSm::RxnVtiStatus::handleControllerControlPlane() {
  if (!owner()->initialized()) return;
  bool const controlPlane = notifier()->controllerControlPlane();
  RXN_TRACE(7, " Controller control plane:  " << controlPlane);
  owner()->vxlanInfo()->controllerControlPlaneIs(controlPlane);
}

void VtepSm::RxnVtiStatus::cleanup() {
  VtepSm* const sm = owner();
  // The machine going away leaves the hardware as it is: only a VTI that
  // left its directory goes down.
  if (!sm->initialized() || sm->vtiStatusDir()->vtiStatus(fwkKey()) == notifier()) {
    return;
  }
  sm->handleVtiDown(fwkKey());
}

// --- RxnVtepConfigDir and RxnVtepConfig ------------------------------------------------------------------

void VtepSm::RxnVtepConfigDir::onVtepConfig(Wire::IntfId const& vti) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtepConfig_.follow(owner(), notifier()->vtepConfig(), vti);
}

void VtepSm::RxnVtepConfigDir::onVtepConfigrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtepConfig_.reconcile(owner(), notifier()->vtepConfig());
}

void VtepSm::RxnVtepConfigDir::onActiveNextHopIdList(FabNextHopId const& nhId) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleActiveNextHopId(nhId);
}

void VtepSm::RxnVtepConfigDir::rxnReplay() {
  owner()->vtepConfig_.reconcile(owner(), notifier()->vtepConfig());
  owner()->handleActiveNextHopId();
}

VtepSm::RxnVtepConfig::RxnVtepConfig(Rxn::Ptr<VtepConfig const> const& config, VtepSm* owner) : Reactor(config, owner) {
  handleInitialized();
}

void VtepSm::RxnVtepConfig::onRemoteVtepList(SwTunnelGroupId const& id) {
  if (rxnMarkedForDeletion()) return;
  handleRemoteVtep(id);
}

void VtepSm::RxnVtepConfig::onRemoteVtepListrxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleRemoteVtep();
}

void VtepSm::RxnVtepConfig::handleInitialized() {
  VtepSm* const sm = owner();
  if (!sm->initialized()) {
    RXN_TRACE(8, "vtepConfig " << fwkKey() << " not yet ready ");
    return;
  }
  sm->vtepInfoDirIs(fwkKey());
  initialized_ = true;
  handleRemoteVtep();
}

void VtepSm::RxnVtepConfig::handleRemoteVtep() {
  if (!initialized_) {
    RXN_TRACE(8, "vtepConfig " << fwkKey() << " not yet ready ");
    return;
  }
  Rxn::Ptr<VtepConfig const> const config = notifier();
  for (auto it = config->remoteVtepList().begin(); it != config->remoteVtepList().end(); ++it) {
    handleRemoteVtep(SwTunnelGroupId(it.key()));
  }
}

void VtepSm::RxnVtepConfig::handleRemoteVtep(SwTunnelGroupId const& id) {
  if (!initialized_) {
    return;
  }
  VtepSm* const sm = owner();
  Wire::IntfId const vti = fwkKey();
  if (!id) {
    RXN_TRACE(1, " Error: Invalid remote VTEP " << id);
    RXN_RING(1, " Error: Invalid remote VTEP %s", id.stringValue());
    return;
  }
  if (!notifier()->remoteVtepList(id)) {
    RXN_TRACE(7, " remote VTEP " << id << " removed ");
    RXN_RING(7, " remote VTEP %s removed ", id.stringValue());
    // Listed and taken away before the VTI was ready: nothing was set up.
    if (Rxn::Ptr<VtepInfoDir> const vInfo = sm->vtepInfoDir(vti); !vInfo || !vInfo->vtepInfo(id)) {
      RXN_TRACE(7, " remote VTEP " << id << " was never taken up ");
      return;
    }
    sm->removeRemoteVtep(vti, id);
    sm->checkAndRemoveVtepInfo(vti);
    // Also when the removal waits for a next hop in use.
    sm->vtepEventCounts()->vtepDeleteEventInc(1);
    return;
  }
  RXN_TRACE(7, " VTEP " << id << " added ");
  RXN_RING(7, " VTEP %s added ", id.stringValue());
  if (!sm->tunnelReady(vti)) {
    // Nothing is remembered: the next handleVtiUp takes the VTEP up again.
    RXN_TRACE(7, " not ready yet " << id << " vti activated? " << sm->vxlanInfo()->activatedVti(vti) << " vtepStatus? "
                                   << !!sm->vtepStatusDir()->vtepStatus(vti));
    return;
  }
  SwTunnelGroupId const swTunnelGroupId = id;
  assert(swTunnelGroupId.isSingleMemberGroup());
  requestTunnel(swTunnelGroupId);
}

// A remote VTEP into the hardware: a tunnel request with its generation.
void VtepSm::RxnVtepConfig::requestTunnel(SwTunnelGroupId const& id) {
  VtepSm* const sm = owner();
  Wire::IntfId const vti = fwkKey();
  Rxn::Ptr<VtepInfoDir> const dir = sm->vtepInfoDirIs(vti);
  if (dir->vtepInfo(id)) {
    RXN_TRACE(8, " vtepInfo already exists for " << id);
    // A draining VTEP comes back: its record went if the VTI flapped meanwhile.
    sm->republishTunnel(vti, id);
    return;
  }
  Fab::VrfId const vrf = sm->vtiToVrf(vti);
  dir->vtepInfoIs(id);
  Wire::IpAddr const ip = sm->swTunnelIdManager()->getTunnelIpFromSwTunnelGroupId(id);
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = sm->fabVtepHelper();
  std::uint64_t gen = 0;
  if (helper->useUniqGenId()) {
    Fab::VrfAndIpAddr const key(vrf, ip);
    if (sm->inHitlessRecovery() && sm->currentGeneration(key) != 0) {
      gen = sm->currentGeneration(key);
      RXN_TRACE(7, " reusing old genId: " << gen << " after restart vtep: " << ip);
    } else {
      gen = sm->genId();
      sm->currentGenerationIs(key, gen);
      sm->genIdIs(gen + 1);
    }
  }
  RXN_TRACE(7, " genId is: " << gen << " vtep:" << ip);
  helper->createVtepHandle(vti, ip);
  Fab::TunnelKey const key = tunnelKey(ip, vrf, gen);
  Fab::FabTunnelConfigEntry const config(key, 64);
  bool const stood = sm->tunnelConfig()->tunnelConfigEntry(key) == config;
  sm->tunnelConfig()->tunnelConfigEntryIs(config);
  sm->vtepEventCounts()->vtepAddEventInc(1);
  // A reused generation, or a tunnel of an earlier life that its VTI takes
  // up only now, finds its status standing: no change of it will be notified.
  if (Rxn::Ptr<RxnTunnelStatusEntry> const entry = sm->tunnelStatusEntry(key);
      entry && (helper->useUniqGenId() || stood)) {
    entry->handleTunnelStatus();
  }
}

void VtepSm::RxnVtepConfig::cleanup() {
  VtepSm* const sm = owner();
  Wire::IntfId const vtiIntfId = fwkKey();
  // Nothing to undo before the start, and the machine going away leaves its
  // tunnels standing: only a configuration that left its directory goes.
  if (!initialized_ || sm->vtepConfigDir()->vtepConfig(vtiIntfId) == notifier()) {
    return;
  }
  Rxn::Ptr<VtepSm> const hold(sm);
  auto vtepSm = [sm] { return sm; };
  // clang-format off
  assert(vtepSm()->vtepInfoDir( vtiIntfId ));
  // clang-format on
  Rxn::Ptr<VtepInfoDir> const dir = sm->vtepInfoDir(vtiIntfId);
  for (auto it = dir->vtepInfo().begin(); it != dir->vtepInfo().end(); ++it) {
    sm->removeRemoteVtep(vtiIntfId, SwTunnelGroupId(it.key()));
  }
  sm->checkAndRemoveVtepInfo(vtiIntfId);
}

// --- RxnTunnelStatus and RxnTunnelStatusEntry --------------------------------------------------------------

void VtepSm::RxnTunnelStatus::onInit() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleTunnelInitStatus();
}

void VtepSm::RxnTunnelStatus::onCleanup() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleTunnelCleanupStatus();
}

void VtepSm::RxnTunnelStatus::onTunnelStatusEntry(Fab::TunnelKey const& key) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->tunnelStatusEntry_.follow(owner(), notifier()->tunnelStatusEntry(), key);
}

void VtepSm::RxnTunnelStatus::onTunnelStatusEntryrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->tunnelStatusEntry_.reconcile(owner(), notifier()->tunnelStatusEntry());
}

void VtepSm::RxnTunnelStatus::rxnReplay() {
  owner()->handleTunnelInitStatus();
  owner()->handleTunnelCleanupStatus();
  owner()->tunnelStatusEntry_.reconcile(owner(), notifier()->tunnelStatusEntry());
}

VtepSm::RxnTunnelStatusEntry::RxnTunnelStatusEntry(Rxn::Ptr<Fab::FabTunnelStatusEntry const> const& entry,
                                                   VtepSm* owner)
    : Reactor(entry, owner) {
  handleTunnelStatus();
}

void VtepSm::RxnTunnelStatusEntry::onNextHopId() {
  if (rxnMarkedForDeletion()) return;
  handleTunnelStatus();
}

void VtepSm::RxnTunnelStatusEntry::handleTunnelStatus() {
  VtepSm* const sm = owner();
  auto vtepSm = [sm] { return sm; };
  Fab::TunnelKey const key = fwkKey();
  Wire::IpAddr const ip = key.dst().v4Addr();
  if (!sm->initialized()) {
    RXN_TRACE(8, " not yet ready ");
    return;
  }
  if (!sm->vrfToVti().contains(key.vrf())) {
    return;
  }
  Wire::IntfId const vtiIntfId = sm->vtiOfTunnel(key.vrf(), sm->swTunnelIdManager()->getSwTunnelGroupIdForTunnelIp(ip));
  Fab::FabTunnelId const tunnelId = notifier()->tunnelId();
  FabNextHopId const nextHopId = notifier()->nextHopId();
  RXN_TRACE(7,
            " tunnel status " << key << " tunnelId " << tunnelId << " nextHopId " << nextHopId << " vti " << vtiIntfId);
  RXN_RING(7, " tunnel status %s tunnelId %u nextHopId %u vti %s", key.stringValue(), tunnelId.value(),
           nextHopId.value(), vtiIntfId.stringValue());
  SwTunnelGroupId const swTunnelGroupId = sm->swTunnelIdManager()->getSwTunnelGroupIdForTunnelIp(ip);
  assert(swTunnelGroupId.isSingleMemberGroup());
  Rxn::Ptr<VtepConfig const> const config = sm->vtepConfigDir()->vtepConfig(vtiIntfId);
  Rxn::Ptr<VtepStatus> const status = sm->vtepStatusDir()->vtepStatus(vtiIntfId);
  if (!config || !status || !config->remoteVtepList(swTunnelGroupId)) {
    return;
  }
  Rxn::Ptr<FabHelper::FabHelperVtep> const helper = sm->fabVtepHelper();
  // The status of an earlier life of the tunnel is stale.
  if (helper->useUniqGenId() && key.genId() != sm->currentGeneration(Fab::VrfAndIpAddr(key.vrf(), ip))) {
    return;
  }
  if (nextHopId == FabNextHopId()) {
    return;
  }
  // A next hop recovered from the previous life is confirmed.
  sm->pendingActiveNextHopIdDel(nextHopId);
  Rxn::Ptr<VtepInfoDir> const vInfo = sm->vtepInfoDir(vtiIntfId);
  if (!!sm->nextHopInfo(nextHopId)) {
    // clang-format off
    assert(vtepSm()->nextHopInfo( nextHopId ).swTunnelGroupId() == swTunnelGroupId);
    assert(vtepSm()->nextHopInfo( nextHopId ).vtiIntfId() == vtiIntfId);
    assert(vInfo->vtepInfo( swTunnelGroupId )->nextHopId( nextHopId ));
    // clang-format on
  }
  Rxn::Ptr<Vxlan::VxlanHwStatus> const hwStatus = sm->vxlanHwStatus(vtiIntfId);
  if (nextHopId.valid()) {
    sm->nextHopInfoIs(nextHopId, NextHopInfo(nextHopId, swTunnelGroupId, vtiIntfId));
    Rxn::Ptr<VtepInfo> const vtepInfo = vInfo ? vInfo->vtepInfo(swTunnelGroupId) : nullptr;
    assert(vtepInfo);
    vtepInfo->nextHopIdIs(nextHopId, true);
    helper->nextHopIdToTunnelIdMapIs(nextHopId, tunnelId);
    RXN_TRACE(7, " adding " << ip << " to published list ");
    if (hwStatus) {
      hwStatus->remoteVtepIs(ip, true);
    }
  } else {
    RXN_TRACE(7, " removing " << ip << " from published list ");
    if (hwStatus) {
      hwStatus->remoteVtepDel(ip);
    }
  }
  RXN_TRACE(7, " publishing result in vtepStatus ");
  Rxn::Ptr<VtepInfo> const vtepInfo = vInfo ? vInfo->vtepInfo(swTunnelGroupId) : nullptr;
  if (!vtepInfo) {
    return;
  }
  // Make before break: an old next hop that was in use, given up, and kept
  // only while it was current, goes now that a new one stands.
  FabNextHopId const old = vtepInfo->curNextHopId();
  if (old.valid() && old != nextHopId && !sm->vtepConfigDir()->activeNextHopIdList(old) &&
      sm->tunnelConfig()->activeNextHopId(old)) {
    RXN_TRACE(7, "Releasing old next hop id " << old);
    RXN_RING(7, "Releasing old next hop id %u", old.value());
    sm->cleanupNextHopId(vtiIntfId, swTunnelGroupId, old);
  }
  vtepInfo->curNextHopIdIs(nextHopId);
  status->hwVtepInfoIs(HwVtepInfo(swTunnelGroupId, tunnelId, nextHopId));
}

void VtepSm::RxnTunnelStatusEntry::cleanup() {
  VtepSm* const sm = owner();
  // The last status entry going while cleaning may finish the take-down;
  // the machine going away finishes nothing.
  if (!sm->initialized() || sm->tunnelStatus()->tunnelStatusEntry(fwkKey()) == notifier() ||
      sm->vxlanInfo()->state() != FabVxlanState::cleaning_) {
    return;
  }
  sm->maybeDoHwCleanup();
}

// --- RxnFabVtepHelper and RxnVxlanBootStatus ----------------------------------------------------------------------

void VtepSm::RxnFabVtepHelper::onHwInitStatus() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVtepHelperInitStatus();
}

void VtepSm::RxnFabVtepHelper::onHwCleanupStatus() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVtepHelperCleanupStatus();
}

void VtepSm::RxnFabVtepHelper::onDataPathLearningDisableStatus() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleDataPathDisableStatus();
}

void VtepSm::RxnFabVtepHelper::onDataPathLearningEnableStatus() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleDataPathEnableStatus();
}

void VtepSm::RxnVxlanBootStatus::onStageRemoteMacsReady() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleRemoteMacsReady();
}

}  // namespace Fab::VXLAN

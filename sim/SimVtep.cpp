#include "sim/SimVtep.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/FabBaseSm.h"

RXN_TRACE_MODULE("FabVxlanSim");

namespace Sim {

// --- The hook -------------------------------------------------------------------

SimFabHelperVtep::SimFabHelperVtep(VtepHardware& hardware, Rxn::Ptr<Fab::VerifyData const> const& verifyData,
                                   std::uint32_t maxRemoteVteps)
    : FabHelperVtep("fabHelperVtep"), hardware_(hardware), verifyData_(verifyData), maxRemoteVteps_(maxRemoteVteps) {}

void SimFabHelperVtep::createVtepHandle(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& remoteVtepIp) {
  hardware_.vtepHandles.emplace(vtiIntfId, remoteVtepIp);
}

void SimFabHelperVtep::deleteVtepHandle(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& remoteVtepIp) {
  hardware_.vtepHandles.erase({vtiIntfId, remoteVtepIp});
}

namespace {
void program(std::map<Wire::IntfId, Wire::IpAddr>& table, Wire::IntfId const& vti, Wire::IpAddr const& address) {
  if (!address) {
    table.erase(vti);
  } else {
    table[vti] = address;
  }
}
}  // namespace

void SimFabHelperVtep::updateLocalVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& localVtepSrcIp) {
  program(hardware_.localVtepSrcIp, vtiIntfId, localVtepSrcIp);
}

void SimFabHelperVtep::updateVarpVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& vArpVtepAddr) {
  program(hardware_.varpVtepSrcIp, vtiIntfId, vArpVtepAddr);
}

// A port asked for and not yet answered is not in the chip yet (a port
// asked for and asked back is still on its way); after a
// hitless restart the chip keeps the port of the earlier life until this
// life asks for one.
void SimFabHelperVtep::verifyUdpPort(Wire::IntfId const& vtiIntfId, Wire::UdpPort const& udpPort) {
  if (udpPortAsked_ && udpPortAnswersDue_ == 0 && hardware_.udpPort != udpPort) {
    FAB_VERIFY_FAILURE(verifyData_, vtiIntfId.stringValue() + ": UDP port " + udpPort.stringValue() +
                                        " expected, the chip has " + hardware_.udpPort.stringValue());
  }
}

void SimFabHelperVtep::verifyAddress(char const* what, std::map<Wire::IntfId, Wire::IpAddr> const& programmed,
                                     Wire::IntfId const& vtiIntfId, Wire::IpAddr const& expected) const {
  auto const found = programmed.find(vtiIntfId);
  Wire::IpAddr const actual = found == programmed.end() ? Wire::IpAddr() : found->second;
  if (actual != expected) {
    FAB_VERIFY_FAILURE(verifyData_, vtiIntfId.stringValue() + ": " + what + " " + expected.stringValue() +
                                        " expected, the chip has " + actual.stringValue());
  }
}

void SimFabHelperVtep::verifyLocalVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& localVtepSrcIp) {
  verifyAddress("local VTEP address", hardware_.localVtepSrcIp, vtiIntfId, localVtepSrcIp);
}

void SimFabHelperVtep::verifyVarpVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& vArpVtepSrcIp) {
  verifyAddress("virtual-ARP VTEP address", hardware_.varpVtepSrcIp, vtiIntfId, vArpVtepSrcIp);
}

// Whatever the mode, the chip learns from the data path as the hook last
// answered: only a fault behind the hook's back makes them differ.
// Verification runs only with no learning request out.
void SimFabHelperVtep::verifyVccMode(bool enable) {
  if (hardware_.dataPathLearning != learningAnswered_) {
    FAB_VERIFY_FAILURE(verifyData_, std::string("data path learning is ") +
                                        (hardware_.dataPathLearning ? "on" : "off") + " in controller client mode " +
                                        (enable ? "on" : "off") + ", the hook answered " +
                                        (learningAnswered_ ? "on" : "off"));
  }
}

// --- The hook's handshakes --------------------------------------------------------

VtepHelperAnswers::VtepHelperAnswers(Rxn::Ptr<SimFabHelperVtep> const& helper, AnswerQueue& answers)
    : answers_(answers), helper_(new RxnHelper(helper, this)) {
  helper_->hasNotificationActiveIs(true);
}

void VtepHelperAnswers::RxnHelper::onHwInitConfig() {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([owner = owner()] {
    owner->hardware().initialized = true;
    owner->helper().hwInitStatusIs(owner->helper().hwInitConfig());
  });
}

void VtepHelperAnswers::RxnHelper::onHwCleanupConfig() {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([owner = owner()] {
    // The cleanup frees what the hook holds, VTEP handles of an earlier life
    // that the new one never asked for included, and puts data path learning
    // back to its default, on, where the machine returns at a cleanup.
    VtepHardware& chip = owner->hardware();
    chip.initialized = false;
    chip.udpPort = Wire::UdpPort();
    chip.vtepHandles.clear();
    owner->helper().learningIs(true);
    owner->helper().hwCleanupStatusIs(owner->helper().hwCleanupConfig());
  });
}

void VtepHelperAnswers::RxnHelper::onDataPathLearningDisableConfig() {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([owner = owner()] {
    owner->helper().learningIs(false);
    owner->helper().dataPathLearningDisableStatusIs(owner->helper().dataPathLearningDisableConfig());
  });
}

void VtepHelperAnswers::RxnHelper::onDataPathLearningEnableConfig() {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([owner = owner()] {
    owner->helper().learningIs(true);
    owner->helper().dataPathLearningEnableStatusIs(owner->helper().dataPathLearningEnableConfig());
  });
}

void VtepHelperAnswers::RxnHelper::onUdpPortConfig() {
  if (rxnMarkedForDeletion()) return;
  owner()->helper().udpPortAskedIs(+1);
  owner()->answers_.post([owner = owner()] {
    owner->helper().udpPortAskedIs(-1);
    owner->hardware().udpPort = owner->helper().udpPortConfig();
    owner->helper().udpPortStatusIs(owner->helper().udpPortConfig());
  });
}

// --- The tunnel layer --------------------------------------------------------------

SimTunnelLayer::SimTunnelLayer(Rxn::Ptr<Fab::FabTunnelConfig const> const& config,
                               Rxn::Ptr<Fab::FabTunnelStatus> const& status, TunnelLayerLimits const& limits,
                               AnswerQueue& answers)
    : config_(config),
      status_(status),
      limits_(limits),
      answers_(answers),
      configReactor_(new RxnConfig(config, this)) {
  for (std::uint32_t id = 1; id <= limits.tunnels; ++id) {
    freeTunnelIds_.insert(id);
  }
  for (std::uint32_t i = 0; i < limits.nextHops; ++i) {
    freeNextHopIds_.insert(kFirstNextHopId + i);
  }
  configReactor_->hasNotificationActiveIs(true);
}

void SimTunnelLayer::helperIs(Rxn::Ptr<FabHelper::FabHelperVtep const> const& helper) {
  helperReactor_ = helper ? new RxnHelper(helper, this) : nullptr;
  if (helperReactor_) {
    helperReactor_->hasNotificationActiveIs(true);
  }
  // The hook of an earlier life held ids that the new one may not.
  for (std::uint32_t const nhId : std::set<std::uint32_t>(retired_)) {
    answers_.post([this, nhId] { reclaim(nhId); });
  }
}

void SimTunnelLayer::RxnConfig::onInit() {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([layer = owner()] { layer->status_->initIs(layer->config_->init()); });
}

void SimTunnelLayer::RxnConfig::onCleanup() {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([layer = owner()] { layer->status_->cleanupIs(layer->config_->cleanup()); });
}

void SimTunnelLayer::RxnConfig::onTunnelConfigEntry(Fab::TunnelKey const& key) {
  if (rxnMarkedForDeletion()) return;
  // Each request is answered as asked: a tunnel deleted and asked for again
  // is taken down and set up anew.
  bool const wanted = notifier()->tunnelConfigEntry().find(key) != nullptr;
  owner()->answers_.post([layer = owner(), key, wanted] { layer->answerEntry(key, wanted); });
}

void SimTunnelLayer::RxnConfig::onActiveNextHopId(Fab::FabNextHopId const& nhId) {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([layer = owner(), id = nhId.value()] { layer->reclaim(id); });
}

void SimTunnelLayer::RxnHelper::onNextHopIdToTunnelIdMap(Fab::FabNextHopId const& nhId) {
  if (rxnMarkedForDeletion()) return;
  owner()->answers_.post([layer = owner(), id = nhId.value()] { layer->reclaim(id); });
}

void SimTunnelLayer::answerEntry(Fab::TunnelKey const& key, bool wanted) {
  bool const standing = tunnels_.count(key) != 0;
  if (wanted && !standing) {
    setUp(key);
  } else if (!wanted && standing) {
    tearDown(key);
  }
}

void SimTunnelLayer::setUp(Fab::TunnelKey const& key) {
  serve(key, tunnels_[key]);
}

void SimTunnelLayer::tearDown(Fab::TunnelKey const& key) {
  Tunnel const tunnel = tunnels_[key];
  tunnels_.erase(key);
  starved_.erase(std::remove(starved_.begin(), starved_.end(), key), starved_.end());
  status_->tunnelStatusEntryDel(key);
  if (tunnel.tunnelId.valid()) {
    freeTunnelIds_.insert(tunnel.tunnelId.value());
  }
  if (tunnel.nextHopId.valid()) {
    retire(tunnel.nextHopId.value());
  }
  serveStarved();
}

void SimTunnelLayer::serve(Fab::TunnelKey const& key, Tunnel& tunnel) {
  if (!tunnel.tunnelId.valid() && !freeTunnelIds_.empty()) {
    tunnel.tunnelId = Fab::FabTunnelId(*freeTunnelIds_.begin());
    freeTunnelIds_.erase(freeTunnelIds_.begin());
  }
  if (!tunnel.tunnelId.valid() || freeNextHopIds_.empty()) {
    RXN_TRACE(1, "tunnel layer: no " << (tunnel.tunnelId.valid() ? "next hop" : "tunnel") << " free for " << key
                                     << ", it waits unreachable");
    if (std::find(starved_.begin(), starved_.end(), key) == starved_.end()) {
      starved_.push_back(key);
    }
    tunnel.nextHopId = Fab::FabNextHopId(kUnreachable);
    publish(key, tunnel);
    return;
  }
  std::uint32_t const nhId = *freeNextHopIds_.begin();
  freeNextHopIds_.erase(freeNextHopIds_.begin());
  tunnel.nextHopId = Fab::FabNextHopId(nhId);
  currentNextHop_[nhId] = key;
  publish(key, tunnel);
}

void SimTunnelLayer::publish(Fab::TunnelKey const& key, Tunnel const& tunnel) {
  Rxn::Ptr<Fab::FabTunnelStatusEntry> const entry = status_->tunnelStatusEntryIs(key);
  entry->tunnelIdIs(tunnel.tunnelId);
  entry->nextHopIdIs(tunnel.nextHopId);
}

bool SimTunnelLayer::switchNextHop(Wire::IpAddr const& vtep) {
  bool moved = false;
  for (auto& [key, tunnel] : tunnels_) {
    if (key.dst() != Wire::IpGenAddr(vtep) || !tunnel.nextHopId.valid()) {
      continue;
    }
    if (freeNextHopIds_.empty()) {
      RXN_TRACE(1, "tunnel layer: no next hop free to move " << key << " to");
      continue;
    }
    std::uint32_t const old = tunnel.nextHopId.value();
    std::uint32_t const nhId = *freeNextHopIds_.begin();
    freeNextHopIds_.erase(freeNextHopIds_.begin());
    currentNextHop_[nhId] = key;
    tunnel.nextHopId = Fab::FabNextHopId(nhId);
    RXN_TRACE(7, "tunnel layer: " << key << " moves from next hop " << old << " to " << nhId);
    publish(key, tunnel);
    retire(old);
    moved = true;
  }
  return moved;
}

std::set<Fab::TunnelKey> SimTunnelLayer::tunnelKeys() const {
  std::set<Fab::TunnelKey> keys;
  for (auto const& [key, tunnel] : tunnels_) {
    keys.insert(key);
  }
  return keys;
}

bool SimTunnelLayer::reachable(Wire::IpAddr const& vtep) const {
  for (auto const& [key, tunnel] : tunnels_) {
    if (key.dst() == Wire::IpGenAddr(vtep) && tunnel.nextHopId.valid()) {
      return true;
    }
  }
  return false;
}

void SimTunnelLayer::retire(std::uint32_t nhId) {
  currentNextHop_.erase(nhId);
  retired_.insert(nhId);
  reclaim(nhId);
}

bool SimTunnelLayer::nextHopHeld(std::uint32_t nhId) const {
  Fab::FabNextHopId const id(nhId);
  Rxn::Ptr<FabHelper::FabHelperVtep const> const helper = helperReactor_ ? helperReactor_->notifier() : nullptr;
  return currentNextHop_.count(nhId) != 0 || config_->activeNextHopId(id) ||
         (helper && helper->nextHopIdToTunnelIdMap().find(id) != nullptr);
}

void SimTunnelLayer::reclaim(std::uint32_t nhId) {
  if (retired_.count(nhId) == 0 || nextHopHeld(nhId)) {
    return;
  }
  RXN_TRACE(8, "tunnel layer: next hop " << nhId << " is free again");
  retired_.erase(nhId);
  freeNextHopIds_.insert(nhId);
  serveStarved();
}

void SimTunnelLayer::serveStarved() {
  std::vector<Fab::TunnelKey> const waiting = std::move(starved_);
  starved_.clear();
  for (Fab::TunnelKey const& key : waiting) {
    auto const found = tunnels_.find(key);
    if (found != tunnels_.end()) {
      serve(key, found->second);
    }
  }
}

// --- The learn wire ------------------------------------------------------------------

LearnWire::LearnWire() {
  if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends_) < 0) {
    throw Rxn::ErrnoException(errno, "creating the simulated learn wire");
  }
}

LearnWire::~LearnWire() {
  ::close(ends_[0]);
  ::close(ends_[1]);
}

int LearnWire::open() const {
  return ::fcntl(ends_[0], F_DUPFD_CLOEXEC, 0);
}

bool LearnWire::pending() const {
  std::uint8_t byte = 0;
  return ::recv(ends_[0], &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) >= 0;
}

void LearnWire::send(std::vector<std::uint8_t> const& frame) const {
  if (::send(ends_[1], frame.data(), frame.size(), MSG_DONTWAIT) < 0) {
    RXN_TRACE(1, "learn wire: frame lost, errno " << errno);
  }
}

}  // namespace Sim

#include "fabvxlan/vti/FabVtiStatusDirSm.h"

#include <utility>

#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/FabBaseSm.h"

RXN_TRACE_MODULE("FabVxlanVtiStatusDirSm");

// Every trace of the module names the machine it comes from.
#define VTI_TRACE(level, machineName, args) \
  RXN_TRACE(level, " " << (machineName) << " VtiStatusDirSm::VtiStatusSm::" << __func__ << args)

namespace Fab::VXLAN {

namespace {

// How every default hook ends its trace: the platform did not ask for it.
constexpr char const* kIgnoring = " Ignoring notification";

}  // namespace

// --- The machine ----------------------------------------------------------------

VtiStatusDirSm::VtiStatusDirSm(Rxn::String name, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir)
    : name_(std::move(name)),
      vtiStatusDir_(reactors(), new RxnVtiStatusDir(vtiStatusDir, this)),
      vtiStatus_(reactors(), "Fab::VXLAN::VtiStatusDirSm", "vtiStatus") {
  // The VTIs present now start here, where a subclass's hooks do not exist
  // yet: the platform hears them from handleInitialized().
  if (vtiStatusDir) {
    vtiStatus_.reconcile(this, vtiStatusDir->vtiStatus());
  }
}

Rxn::Ptr<VtiStatusDirSm> vtiStatusDirSmFactory(Rxn::String name, Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir) {
  return Fab::smFactory<VtiStatusDirSm>(std::move(name), vtiStatusDir);
}

void VtiStatusDirSm::handleInitialized() {
  initialized_ = true;
  vtiStatus_.forEach([](VtiStatusSm* vti) { vti->handleInitialized(); });
}

Rxn::Ptr<Vxlan::VtiStatus const> VtiStatusDirSm::vtiStatusDel(Wire::IntfId const& intfId) {
  return vtiStatus_.del(intfId);
}

void VtiStatusDirSm::vtiStatusNotify() {
  if (Rxn::Ptr<Vxlan::VtiStatusDir const> const dir = vtiStatusDir()) {
    vtiStatus_.reconcile(this, dir->vtiStatus());
  }
}

VtiStatusDirSm::VtiStatusSm* VtiStatusDirSm::vtiStatusIs(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus) {
  return vtiStatus_.is(this, vtiStatus);
}

void VtiStatusDirSm::vtiStatusDirDel() {
  vtiStatusDir_->notifierIs(nullptr);
}

void VtiStatusDirSm::vtiStatusDirIs(Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir) {
  vtiStatusDir_->notifierIs(vtiStatusDir);
}

// --- The default hooks --------------------------------------------------------------

void VtiStatusDirSm::doSetupVxlanDestUdpPort(Wire::IntfId vtiIntfId, Wire::UdpPort udpPort) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " udpPort: " << udpPort << kIgnoring);
}

void VtiStatusDirSm::doSetupVtepToVtepBridging(Wire::IntfId vtiIntfId, bool vtepToVtepBridging) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " vtepToVtepBridging: " << vtepToVtepBridging << kIgnoring);
}

void VtiStatusDirSm::doSetupVxlanSrcAddr(Wire::IntfId vtiIntfId, Wire::IpAddr srcAddr) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " srcAddr: " << srcAddr << kIgnoring);
}

void VtiStatusDirSm::doSetupVxlanSrcAddrV6(Wire::IntfId vtiIntfId, Wire::Ip6Addr const& srcAddr) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " srcAddr: " << srcAddr << kIgnoring);
}

void VtiStatusDirSm::doSetupMlagVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr mlagVtepIp) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " mlagVtepIp: " << mlagVtepIp << kIgnoring);
}

void VtiStatusDirSm::doSetupMcastGrpDecap(Wire::IntfId vtiIntfId, Wire::IpAddr mcastGrp) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " mcastGrp: " << mcastGrp << kIgnoring);
}

void VtiStatusDirSm::doSetupVxlanVarpVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr varpVtepAddr) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " varpVtepAddr: " << varpVtepAddr << kIgnoring);
}

void VtiStatusDirSm::doSetupVxlanVtepAddrMask(Wire::IntfId vtiIntfId, Wire::IpAddr vtepAddrMask) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " vtepAddrMask: " << vtepAddrMask << kIgnoring);
}

void VtiStatusDirSm::doSetupVxlanMlagSharedRouterMac(Wire::IntfId vtiIntfId, Wire::EthAddr const& macAddr) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " macAddr: " << macAddr << kIgnoring);
}

void VtiStatusDirSm::doUpdateOperStatus(Wire::IntfId vtiIntfId, Interface::IntfOperStatus operStatus) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " operStatus: " << operStatus << kIgnoring);
}

void VtiStatusDirSm::doSetupVxlanNdMcastSnooping(Wire::IntfId vtiIntfId, bool enable) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " enable: " << enable << kIgnoring);
}

void VtiStatusDirSm::doSetupVtepForSourcePruning(Wire::IntfId vtiIntfId, Wire::IpAddr vtep, bool add) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " vtep: " << vtep << " add: " << add << kIgnoring);
}

void VtiStatusDirSm::doSetupVtepSourcePruningAll(Wire::IntfId vtiIntfId, bool vtepSourcePruningAll) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << " vtepSourcePruningAll: " << vtepSourcePruningAll << kIgnoring);
}

void VtiStatusDirSm::doCleanup(Wire::IntfId vtiIntfId) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << kIgnoring);
}

void VtiStatusDirSm::doInitialize(Wire::IntfId vtiIntfId) {
  VTI_TRACE(8, name_, " IntfId: " << vtiIntfId << kIgnoring);
}

// --- RxnVtiStatusDir --------------------------------------------------------------

void VtiStatusDirSm::RxnVtiStatusDir::onVtiStatus(Wire::IntfId const& intfId) {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtiStatus_.follow(owner(), notifier()->vtiStatus(), intfId);
}

void VtiStatusDirSm::RxnVtiStatusDir::onVtiStatusrxnImmediate() {
  if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
  owner()->vtiStatusNotify();
}

void VtiStatusDirSm::RxnVtiStatusDir::rxnReplay() {
  owner()->vtiStatusNotify();
}

// --- VtiStatusSm ------------------------------------------------------------------

VtiStatusDirSm::VtiStatusSm::VtiStatusSm(Rxn::Ptr<Vxlan::VtiStatus const> const& vtiStatus, VtiStatusDirSm* owner)
    : Reactor(vtiStatus, owner), intfId_(vtiStatus->intfId()) {
  handleInitialized();
}

template <class... Steps>
void VtiStatusDirSm::VtiStatusSm::whileLive(Steps&&... steps) {
  ((rxnMarkedForDeletion() ? void() : steps()), ...);
}

template <class Set, class Fn>
void VtiStatusDirSm::VtiStatusSm::forEachWhileLive(Set const& set, Fn&& fn) {
  for (auto it = set.begin(); it != set.end() && !rxnMarkedForDeletion(); ++it) {
    auto const key = it.key();
    fn(key);
  }
}

Rxn::String const& VtiStatusDirSm::VtiStatusSm::traceName() const {
  return owner()->name();
}

// Unlike the reactors of the other machines, the start does not wait for the
// machine to be initialized: it runs at creation and again at
// handleInitialized(). A hook that retires the VTI stops the rest.
void VtiStatusDirSm::VtiStatusSm::handleInitialized() {
  VTI_TRACE(8, traceName(), " IntfId: " << intfId_);
  initialized_ = owner()->initialized();
  Wire::IntfId const intf = intfId_;
  VtiStatusDirSm* const sm = owner();
  whileLive([&] { sm->doInitialize(intf); }, [&] { handleVtiDestUdpPort(intf); },
            [&] { handleVtepToVtepBridging(intf); }, [&] { handleLocalVtepAddr(intf); },
            [&] { handleLocalVtepAddr6(intf); }, [&] { handleMlagVtepAddr(intf); }, [&] { handleMcastGrpDecap(); },
            [&] { handleVarpVtepAddr(intf); }, [&] { handleVtepAddrMask(intf); },
            [&] { handleMlagSharedRouterMac(intf); }, [&] { handleOperStatus(intf); },
            [&] { handleVxlanNdMcastSnooping(intf); });
}

// Attached to another VtiStatus of the same VTI: every attribute again, with
// operStatus before the address mask, and no doInitialize.
void VtiStatusDirSm::VtiStatusSm::rxnReplay() {
  Wire::IntfId const intf = intfId_;
  whileLive([&] { handleVtiDestUdpPort(intf); }, [&] { handleVtepToVtepBridging(intf); },
            [&] { handleVtepSetForSourcePruning(); }, [&] { handleLocalVtepAddr(intf); },
            [&] { handleLocalVtepAddr6(intf); }, [&] { handleMlagVtepAddr(intf); }, [&] { handleMcastGrpDecap(); },
            [&] { handleVarpVtepAddr(intf); }, [&] { handleOperStatus(intf); }, [&] { handleVtepAddrMask(intf); },
            [&] { handleMlagSharedRouterMac(intf); }, [&] { handleVxlanNdMcastSnooping(intf); });
}

void VtiStatusDirSm::VtiStatusSm::onUdpPort() {
  if (rxnMarkedForDeletion()) return;
  handleVtiDestUdpPort(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onVtepToVtepBridging() {
  if (rxnMarkedForDeletion()) return;
  handleVtepToVtepBridging(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onLocalVtepAddr() {
  if (rxnMarkedForDeletion()) return;
  handleLocalVtepAddr(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onLocalVtepAddr6() {
  if (rxnMarkedForDeletion()) return;
  handleLocalVtepAddr6(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onMlagVtepAddr() {
  if (rxnMarkedForDeletion()) return;
  handleMlagVtepAddr(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onMcastGrpDecap(Wire::IpAddr const& mcastGrp) {
  if (rxnMarkedForDeletion()) return;
  handleMcastGrpDecap(mcastGrp);
}

void VtiStatusDirSm::VtiStatusSm::onMcastGrpDecaprxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleMcastGrpDecap();
}

void VtiStatusDirSm::VtiStatusSm::onVArpVtepAddr() {
  if (rxnMarkedForDeletion()) return;
  handleVarpVtepAddr(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onVtepAddrMask() {
  if (rxnMarkedForDeletion()) return;
  handleVtepAddrMask(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onMlagSharedRouterMacAddr() {
  if (rxnMarkedForDeletion()) return;
  handleMlagSharedRouterMac(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onOperStatus() {
  if (rxnMarkedForDeletion()) return;
  handleOperStatus(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onVxlanNsSnooping() {
  if (rxnMarkedForDeletion()) return;
  handleVxlanNdMcastSnooping(notifier()->intfId());
}

void VtiStatusDirSm::VtiStatusSm::onVtepSetForSourcePruning(Wire::IpAddr const& vtep) {
  if (rxnMarkedForDeletion()) return;
  handleVtepSetForSourcePruning(vtep);
}

void VtiStatusDirSm::VtiStatusSm::onVtepSetForSourcePruningrxnImmediate() {
  if (rxnMarkedForDeletion()) return;
  handleVtepSetForSourcePruning();
}

void VtiStatusDirSm::VtiStatusSm::onVtepSourcePruningAll() {
  if (rxnMarkedForDeletion()) return;
  handleVtepSetForSourcePruning();
}

void VtiStatusDirSm::VtiStatusSm::handleVtiDestUdpPort(Wire::IntfId const& intfId) {
  Wire::UdpPort const udpPort = vtiStatus()->udpPort();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " udpPort: " << udpPort);
  // The port goes to the platform as the wire field carries it.
  Wire::NetU16 wirePort;
  wirePort.valueIs(udpPort.value());
  owner()->doSetupVxlanDestUdpPort(intfId, Wire::UdpPort(wirePort.value()));
}

void VtiStatusDirSm::VtiStatusSm::handleVtepToVtepBridging(Wire::IntfId const& intfId) {
  bool const bridging = vtiStatus()->vtepToVtepBridging();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " vtepToVtepBridging: " << bridging);
  owner()->doSetupVtepToVtepBridging(intfId, bridging);
  // Pruning is programmed only with bridging on: turning it on brings the
  // whole set along.
  whileLive([this] { handleVtepSetForSourcePruning(); });
}

void VtiStatusDirSm::VtiStatusSm::handleLocalVtepAddr(Wire::IntfId const& intfId) {
  Wire::IpAddr const addr = vtiStatus()->localVtepAddr();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " localVtepAddr: " << addr);
  owner()->doSetupVxlanSrcAddr(intfId, addr);
}

void VtiStatusDirSm::VtiStatusSm::handleLocalVtepAddr6(Wire::IntfId const& intfId) {
  Wire::Ip6Addr const addr = vtiStatus()->localVtepAddr6();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " localVtepAddr6: " << addr);
  owner()->doSetupVxlanSrcAddrV6(intfId, addr);
}

void VtiStatusDirSm::VtiStatusSm::handleMlagVtepAddr(Wire::IntfId const& intfId) {
  Wire::IpAddr const addr = vtiStatus()->mlagVtepAddr();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " mlagVtepAddr: " << addr);
  owner()->doSetupMlagVtepAddr(intfId, addr);
}

void VtiStatusDirSm::VtiStatusSm::handleMcastGrpDecap(Wire::IpAddr const& mcastGrp) {
  VTI_TRACE(8, traceName(), " IntfId: " << intfId_ << " mcastGrp: " << mcastGrp);
  owner()->doSetupMcastGrpDecap(intfId_, mcastGrp);
}

void VtiStatusDirSm::VtiStatusSm::handleMcastGrpDecap() {
  Rxn::Ptr<Vxlan::VtiStatus const> const vti = vtiStatus();
  forEachWhileLive(vti->mcastGrpDecap(), [this](Wire::IpAddr const& group) { handleMcastGrpDecap(group); });
}

void VtiStatusDirSm::VtiStatusSm::handleVarpVtepAddr(Wire::IntfId const& intfId) {
  Wire::IpAddr const addr = vtiStatus()->vArpVtepAddr();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " vArpVtepAddr: " << addr);
  owner()->doSetupVxlanVarpVtepAddr(intfId, addr);
}

void VtiStatusDirSm::VtiStatusSm::handleVtepAddrMask(Wire::IntfId const& intfId) {
  Wire::IpAddr const mask = vtiStatus()->vtepAddrMask();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " vtepAddrMask: " << mask);
  owner()->doSetupVxlanVtepAddrMask(intfId, mask);
}

void VtiStatusDirSm::VtiStatusSm::handleMlagSharedRouterMac(Wire::IntfId const& intfId) {
  Wire::EthAddr const mac = vtiStatus()->mlagSharedRouterMacAddr();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " mlagSharedRouterMacAddr: " << mac);
  owner()->doSetupVxlanMlagSharedRouterMac(intfId, mac);
}

void VtiStatusDirSm::VtiStatusSm::handleOperStatus(Wire::IntfId const& intfId) {
  Interface::IntfOperStatus const operStatus = vtiStatus()->operStatus();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " operStatus: " << operStatus);
  owner()->doUpdateOperStatus(intfId, operStatus);
}

void VtiStatusDirSm::VtiStatusSm::handleVxlanNdMcastSnooping(Wire::IntfId const& intfId) {
  bool const snooping = vtiStatus()->vxlanNsSnooping();
  VTI_TRACE(8, traceName(), " IntfId: " << intfId << " vxlanNsSnooping: " << snooping);
  owner()->doSetupVxlanNdMcastSnooping(intfId, snooping);
}

void VtiStatusDirSm::VtiStatusSm::handleVtepSetForSourcePruning(Wire::IpAddr const& vtep) {
  VTI_TRACE(8, traceName(), " IntfId: " << intfId_ << " vtep: " << vtep);
  Rxn::Ptr<Vxlan::VtiStatus const> const vti = vtiStatus();
  if (!vti->vtepToVtepBridging()) {
    return;
  }
  bool const held = vti->vtepSetForSourcePruning(vtep);
  owner()->doSetupVtepForSourcePruning(intfId_, vtep, held);
  VTI_TRACE(7, traceName(), " IntfId: " << intfId_ << " vtep: " << vtep << (held ? " add" : " remove"));
}

void VtiStatusDirSm::VtiStatusSm::handleVtepSetForSourcePruning() {
  Rxn::Ptr<Vxlan::VtiStatus const> const vti = vtiStatus();
  if (vti->vtepToVtepBridging()) {
    owner()->doSetupVtepSourcePruningAll(intfId_, vti->vtepSourcePruningAll());
  }
  forEachWhileLive(vti->vtepSetForSourcePruning(),
                   [this](Wire::IpAddr const& vtep) { handleVtepSetForSourcePruning(vtep); });
}

// The VTI leaves the directory, or the machine goes away: the platform undoes
// what it programmed, and hears doCleanup last.
void VtiStatusDirSm::VtiStatusSm::cleanup() {
  VTI_TRACE(8, traceName(), " IntfId: " << intfId_);
  // Once more for each group the VTI still has, for the platform to take
  // them down with the VTI.
  handleMcastGrpDecap();
  vtepToVtepBridgingConfigCleanup();
  owner()->doCleanup(intfId_);
}

void VtiStatusDirSm::VtiStatusSm::vtepToVtepBridgingConfigCleanup() {
  VTI_TRACE(8, traceName(), " IntfId: " << intfId_);
  VtiStatusDirSm* const sm = owner();
  sm->doSetupVtepToVtepBridging(intfId_, false);
  sm->doSetupVtepSourcePruningAll(intfId_, false);
  Rxn::Ptr<Vxlan::VtiStatus const> const vti = vtiStatus();
  for (auto it = vti->vtepSetForSourcePruning().begin(); it != vti->vtepSetForSourcePruning().end(); ++it) {
    sm->doSetupVtepForSourcePruning(intfId_, it.key(), false);
  }
}

}  // namespace Fab::VXLAN

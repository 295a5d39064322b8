#include "fabvxlan/vni/FabHelperVniSm.h"

#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabHelperVniSm");

namespace FabHelper {

FabHelperVniSm::FabHelperVniSm(Rxn::Ptr<FabHelperVniConfig const> const& helperVniConfig,
                               Rxn::Ptr<FabHelperVniStatus> const& helperVniStatus)
    : helperVniStatus_(helperVniStatus) {
  helperVniConfigIs(helperVniConfig);
}

Rxn::Ptr<FabHelperVniConfig const> FabHelperVniSm::helperVniConfig() const {
  return helperVniConfig_ ? helperVniConfig_->notifier() : nullptr;
}

void FabHelperVniSm::helperVniConfigIs(Rxn::Ptr<FabHelperVniConfig const> const& helperVniConfig) {
  helperVniConfig_ = helperVniConfig ? new RxnHelperVniConfig(helperVniConfig, this) : nullptr;
  if (helperVniConfig_) {
    helperVniConfig_->hasNotificationActiveIs(true);
  }
}

void FabHelperVniSm::helperVniConfigDel() {
  helperVniConfigIs(nullptr);
}

void FabHelperVniSm::rxnDoZombieReactors(bool zombie) {
  if (helperVniConfig_) {
    helperVniConfig_->rxnDoZombieReactors(zombie);
  }
}

void FabHelperVniSm::handleHwInit() {
  RXN_TRACE(7, " hwInit " << helperVniConfig()->hwInit());
  helperVniStatus_->hwInitIs(helperVniConfig()->hwInit());
}

void FabHelperVniSm::handleHwCleanup() {
  RXN_TRACE(7, " hwCleanup " << helperVniConfig()->hwCleanup());
  helperVniStatus_->hwCleanupIs(helperVniConfig()->hwCleanup());
}

void FabHelperVniSm::handleVlanVniMap(Bridging::VlanId const&) {
  throw Rxn::NoImplementationException("handleVlanVniMap need to be implemented in the derived class");
}

void FabHelperVniSm::RxnHelperVniConfig::onHwInit() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleHwInit();
}

void FabHelperVniSm::RxnHelperVniConfig::onHwCleanup() {
  if (rxnMarkedForDeletion()) return;
  owner()->handleHwCleanup();
}

void FabHelperVniSm::RxnHelperVniConfig::onConfigEntry(Bridging::VlanId const& vlanId) {
  if (rxnMarkedForDeletion()) return;
  owner()->handleVlanVniMap(vlanId);
}

}  // namespace FabHelper

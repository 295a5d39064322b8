// The defaults of the FabHelperVtep hooks. Those a platform must implement
// end the process through fabAssert, unless the agent is a no-op agent.

#include "fabvxlan/vtep/FabHelperVtep.h"

namespace FabHelper {

void FabHelperVtep::createVtepHandle(Wire::IntfId const&, Wire::IpAddr const&) {}

void FabHelperVtep::deleteVtepHandle(Wire::IntfId const&, Wire::IpAddr const&) {}

void FabHelperVtep::updateLocalVtepSrcIp(Wire::IntfId const&, Wire::IpAddr const&) {
  fabAssert("Call to unimplemented FabHelperVtep::updateLocalVtepSrcIp");
}

void FabHelperVtep::updateVarpVtepSrcIp(Wire::IntfId const&, Wire::IpAddr const&) {}

std::uint16_t FabHelperVtep::getTunnelPortId() {
  return 0;
}

std::uint16_t FabHelperVtep::getVxlanCpuSourcePortId() {
  return 0;
}

void FabHelperVtep::verifyUdpPort(Wire::IntfId const&, Wire::UdpPort const&) {
  fabAssert("Call to unimplemented FabHelperVtep::verifyUdpPort");
}

void FabHelperVtep::verifyLocalVtepSrcIp(Wire::IntfId const&, Wire::IpAddr const&) {
  fabAssert("Call to unimplemented FabHelperVtep::verifyLocalVtep");
}

void FabHelperVtep::verifyVarpVtepSrcIp(Wire::IntfId const&, Wire::IpAddr const&) {}

void FabHelperVtep::verifyVccMode(bool) {
  fabAssert("Call to unimplemented FabHelperVtep::verifyVccMode");
}

std::uint32_t FabHelperVtep::getMaxRemoteVteps() {
  fabAssert("Call to unimplemented FabHelperVtep::getMaxRemoteVteps");
  return 0;
}

}  // namespace FabHelper

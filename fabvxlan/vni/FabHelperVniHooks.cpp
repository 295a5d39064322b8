// The hook object of the VLAN to VNI map: its two entities and the default of
// the verification that a platform must implement.

#include "fabvxlan/vni/FabHelperVni.h"

namespace FabHelper {

void FabHelperVni::handleInitialized() {
  configIs("fabHelperVniConfig");
  statusIs("fabHelperVniStatus");
}

void FabHelperVni::verifyHwVni() {
  fabAssert("Call to unimplemented FabHelperTunnel::verifyHwVni");
}

}  // namespace FabHelper

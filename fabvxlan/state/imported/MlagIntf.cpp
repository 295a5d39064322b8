#include "fabvxlan/state/imported/MlagIntf.h"

namespace Mlag {

Wire::IntfId getVxlanIntf(Rxn::String const& mlagIntfName) {
  Wire::IntfId const intf(mlagIntfName.substr(0, mlagIntfName.find('.')));
  if (!Wire::VxlanTunnelIntfId::isVxlanTunnelIntfId(intf)) {
    Rxn::throwRangeException("'" + mlagIntfName + "' is no VXLAN interface of the MLAG");
  }
  return intf;
}

}  // namespace Mlag

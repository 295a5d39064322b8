#pragma once
// The VXLAN interface of an MLAG interface name.

#include "fabvxlan/state/imported/Wire.h"

namespace Mlag {

// "Vxlan1" or "Vxlan1.<anything>" is the VXLAN interface Vxlan1; any other
// name throws a range exception.
Wire::IntfId getVxlanIntf(Rxn::String const& mlagIntfName);

}  // namespace Mlag

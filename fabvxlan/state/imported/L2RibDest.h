#pragma once
// L2Rib helpers beside the declared types.

#include "fabvxlan/state/imported/L2Rib.h"

namespace L2Rib {

// The destination type of a VXLAN VTEP.
inline DestType destTypeVxlan() {
  return DestType::destTypeVxlan;
}

// A VXLAN destination of a VTEP.
inline Dest vxlanDest(Wire::IpAddr const& vtep) {
  Dest dest;
  dest.destTypeIs(destTypeVxlan());
  dest.vxlanIs(Wire::IpGenAddr(vtep));
  return dest;
}

}  // namespace L2Rib

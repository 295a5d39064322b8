// The operations of Fab::VXLAN::RefcountTable.

#include "fabvxlan/state/RemoteMac.h"

namespace Fab::VXLAN {

void RefcountTable::incRefcount(unsigned int key) {
  RefcountVal const present = refcount(key);
  refcountIs(key, RefcountVal(!present ? 1 : present.value() + 1));
}

void RefcountTable::decRefcount(unsigned int key) {
  RefcountVal const present = refcount(key);
  if (!present || present.value() <= 1) {
    refcountDel(key);
  } else {
    refcountIs(key, RefcountVal(present.value() - 1));
  }
}

RefcountVal RefcountTable::refcount(Bridging::VlanId const& vlanId) const {
  return refcount(std::uint32_t{vlanId.value()});
}

}  // namespace Fab::VXLAN

// The operations of Fab::SwTunnelGroupIdManager.

#include "fabvxlan/state/FabIds.h"

namespace Fab {

SwTunnelGroupId SwTunnelGroupIdManager::getSwTunnelGroupIdForTunnelIp(Wire::IpAddr const& ip) {
  return convertToSwTunnelGroupId(SwTunnelGroupType::singleMemberGroup_, ip.value());
}

Wire::IpAddr SwTunnelGroupIdManager::getTunnelIpFromSwTunnelGroupId(SwTunnelGroupId const& id) const {
  return id.isSingleMemberGroup() ? Wire::IpAddr(static_cast<std::uint32_t>(id.value())) : Wire::IpAddr();
}

TunnelIpAddrList SwTunnelGroupIdManager::getTunnelIpListFromSwTunnelGroupId(SwTunnelGroupId const& id) const {
  if (!id.isSingleMemberGroup()) {
    return group(id);
  }
  TunnelIpAddrList list;
  list.tunnelIpAddrIs(getTunnelIpFromSwTunnelGroupId(id), true);
  return list;
}

bool SwTunnelGroupIdManager::isSwTunnelGroupIdValid(SwTunnelGroupId const& id) const {
  return id.isSingleMemberGroup() || (id.isMultiMemberGroup() && group().contains(id));
}

void SwTunnelGroupIdManager::updateSwTunnelGroupIdRefcount(SwTunnelGroupId const& newId, SwTunnelGroupId const& oldId) {
  if (newId == oldId) {
    return;
  }
  if (!!newId) {
    refcountIs(newId, refcount(newId) + 1);
  }
  decSwTunnelGroupIdRefcount(oldId);
}

void SwTunnelGroupIdManager::decSwTunnelGroupIdRefcount(SwTunnelGroupId const& id) {
  std::uint32_t const count = refcount(id);
  if (count > 1) {
    refcountIs(id, count - 1);
  } else {
    refcountDel(id);
  }
}

}  // namespace Fab

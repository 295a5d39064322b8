#pragma once
// The whole stack with remote hosts: a fixture for the tests of VxlanMacAddrSm.

#include <string>

#include "fabvxlan/mac/FabVxlanMacAddrSm.h"
#include "tests/SimFixture.h"

namespace FabTest {

class MacFixture : public SimFixture {
 protected:
  explicit MacFixture(Sim::PlatformConfig const& config = {}) : SimFixture(config) {}

  Fab::VXLAN::VxlanMacAddrSm& macSm() { return *platform().vxlanMacAddrSm(); }
  Fab::VXLAN::RemoteMacInfoDir& dir() { return *platform().rmacInfoDir(); }
  Vxlan::FdbStatus& fdb() { return *platform().vxlanHwStatusDir()->fdbStatus(); }

  // Vxlan1 up, mapping each VLAN of first..last to VNI 10000 + VLAN.
  void vtiUpMapping(int first, int last) {
    for (int vlan = first; vlan <= last; ++vlan) {
      platform().bridgingConfig()->vlanConfigIs(Bridging::VlanId(vlan));
      platform().vlanVniIs(kVxlan1, Bridging::VlanId(vlan), Vxlan::VniExtOrNone(10000 + vlan));
    }
    vtiUp(kVxlan1);
    platform().settle();
  }
  static Bridging::MacVlanPair key(int vlan, int host) {
    return Bridging::MacVlanPair(Wire::EthAddr(std::array<std::uint8_t, 6>{2, 0, 0, 0, 0, static_cast<std::uint8_t>(host)}),
                                 Bridging::VlanId(vlan));
  }
  // The L2Rib learns the host behind the VTEP, or forgets it.
  void l2RibHost(int vlan, int host, char const* vtepAddress) {
    platform().hostSources().l2RibHosts->hostIs(
        L2Rib::HostAndSource(key(vlan, host), L2Rib::vxlanDest(Wire::IpAddr::fromString(vtepAddress)), 0));
  }
  void l2RibHostGone(int vlan, int host) { platform().hostSources().l2RibHosts->hostDel(key(vlan, host)); }

  Fab::VXLAN::StatusEntry status(int vlan, int host) { return dir().hostStatusTable()->statusEntry(key(vlan, host)); }
  bool pending(int vlan, int host) { return !!macSm().pendingResolveRemoteMacList(key(vlan, host)); }
  // The VTEP the forwarding database has for the host, or "none".
  std::string learnedVtep(int vlan, int host) {
    Bridging::MacVlanPair const k = key(vlan, host);
    Vxlan::LearnedHost const learned = fdb().learnedHost(Vxlan::MacVlanPair(k.mac(), k.vlanId()));
    return !learned ? "none" : learned.remoteVtepAddr().stringValue();
  }
  bool listed(char const* vtepAddress) {
    Rxn::Ptr<Fab::VXLAN::VtepConfig> const config = platform().vtepConfigDir()->vtepConfig(kVxlan1);
    return config && config->remoteVtepList(vtep(vtepAddress));
  }
  std::uint32_t nextHopUses(std::uint32_t nextHop) {
    return dir().nextHopIdRefcountTable()->refcount(nextHop).value();
  }
  bool nextHopActive(std::uint32_t nextHop) {
    return platform().vtepConfigDir()->activeNextHopIdList(Fab::FabNextHopId(nextHop));
  }
  bool vlanActive(int vlan) { return platform().vniInfo()->activeVxlanVlan(Bridging::VlanId(vlan)); }
};

}  // namespace FabTest

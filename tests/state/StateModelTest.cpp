// The state model: value types in their usual forms and ranges, the tables
// with operations of their own, and the keyed entity hierarchy.

#include <gtest/gtest.h>

#include "fabvxlan/FabVxlan.h"

namespace {

template <class Fn>
std::string rangeErrorOf(Fn&& fn) {
  try {
    fn();
  } catch (Rxn::RangeException const& e) {
    return e.what();
  }
  return "no error";
}

TEST(StateModel, AddressesAndPrefixesOfBothFamilies) {
  Wire::Ip6Addr const v6 = Wire::Ip6Addr::fromString("2001:db8::1");
  EXPECT_EQ(v6.stringValue(), "2001:db8::1");
  Wire::Ip6Prefix const net6 = Wire::Ip6Prefix::fromString("2001:db8::/32");
  EXPECT_TRUE(net6.contains(v6));
  EXPECT_FALSE(net6.contains(Wire::Ip6Addr::fromString("2001:db9::1")));

  Wire::IpPrefix const net4 = Wire::IpPrefix::fromString("10.1.0.0/16");
  EXPECT_TRUE(net4.contains(Wire::IpAddr::fromString("10.1.200.3")));
  EXPECT_FALSE(net4.contains(Wire::IpAddr::fromString("10.2.0.1")));
  EXPECT_TRUE(Wire::IpPrefix::fromString("0.0.0.0/0").contains(Wire::IpAddr::fromString("192.0.2.1")));

  Wire::IpGenAddr const gen4 = Wire::IpGenAddr::fromString("10.0.0.1");
  EXPECT_FALSE(gen4.isV6());
  EXPECT_EQ(gen4.v4Addr(), Wire::IpAddr::fromString("10.0.0.1"));
  EXPECT_TRUE(Wire::IpGenAddr::fromString("::1").isV6());
  EXPECT_EQ(Wire::IpGenPrefix::fromString("2001:db8::/48").v6Prefix().length(), 48);
  EXPECT_EQ(Rxn::strepToValue<Wire::IpGenPrefix>(Rxn::valueToStrep(Wire::IpGenPrefix::fromString("10.0.0.0/8"))),
            Wire::IpGenPrefix::fromString("10.0.0.0/8"));
  EXPECT_EQ(rangeErrorOf([] { Wire::IpPrefix::fromString("10.0.0.0/33"); }),
            "bad prefix '10.0.0.0/33': expected address/length");
  EXPECT_EQ(rangeErrorOf([] { Wire::IpGenPrefix(Wire::IpGenAddr::fromString("10.0.0.0"), 40); }),
            "prefix length 40 > 32 not allowed");
}

TEST(StateModel, IdsKnowTheirMarkersAndRanges) {
  EXPECT_FALSE(Fab::FabNextHopId().valid());
  EXPECT_TRUE(!Fab::FabNextHopId());
  EXPECT_FALSE(Fab::FabNextHopId(0xFFFFFFFE).valid());  // an unprogrammed host
  EXPECT_FALSE(Fab::FabNextHopId(0xFFFFFFFD).valid());  // restored, not yet resolved
  EXPECT_FALSE(!Fab::FabNextHopId(0xFFFFFFFE));
  EXPECT_TRUE(Fab::FabNextHopId(7).valid());
  EXPECT_EQ(Fab::FabNextHopId().stringValue(), "invalid");
  EXPECT_FALSE(Fab::FabTunnelId().valid());
  EXPECT_TRUE(Fab::FabTunnelId(0xFFFFFFFE).valid());

  EXPECT_EQ(Vxlan::VniExtOrNone().stringValue(), "none");
  EXPECT_FALSE(Vxlan::VniExtOrNone().valid());
  EXPECT_EQ(Vxlan::VniExtOrNone::fromString("10010").value(), 10010U);
  EXPECT_EQ(rangeErrorOf([] { Bridging::VlanIdOrNone(4095); }), "VlanIdOrNone::value > 4094 not allowed");
  EXPECT_EQ(Bridging::VlanIdOrNone().stringValue(), "none");
  EXPECT_EQ(rangeErrorOf([] { L3::VrfName(std::string(101, 'v')); }),
            "VrfName::bytes > VrfName::maxLength not allowed");

  EXPECT_EQ(Mlag::getVxlanIntf("Vxlan1.peer"), Wire::IntfId("Vxlan1"));
  EXPECT_EQ(rangeErrorOf([] { Mlag::getVxlanIntf("Port-Channel10"); }),
            "'Port-Channel10' is no VXLAN interface of the MLAG");

  // The empty VNI entry has no VNI, whatever else it holds.
  Fab::VXLAN::VniEntry entry(Bridging::VlanId(10), Vxlan::VniExtOrNone(), Wire::IntfId("Vxlan1"));
  EXPECT_TRUE(!entry);
  entry.vniIs(Vxlan::VniExtOrNone(10010));
  EXPECT_FALSE(!entry);
}

TEST(StateModel, TunnelGroupIdsNameAVtepOrAGroup) {
  Fab::SwTunnelGroupId const vtep = Fab::SwTunnelGroupId::fromString("10.0.0.2");
  EXPECT_TRUE(vtep.isSingleMemberGroup());
  EXPECT_FALSE(vtep.isMultiMemberGroup());
  EXPECT_EQ(vtep.stringValue(), "10.0.0.2");
  Fab::SwTunnelGroupId const group = Fab::SwTunnelGroupId::fromString("group-7");
  EXPECT_TRUE(group.isMultiMemberGroup());
  EXPECT_EQ(group, Fab::convertToSwTunnelGroupId(Fab::SwTunnelGroupType::multiMemberGroup_, 7));
  EXPECT_TRUE(!Fab::SwTunnelGroupId());
  EXPECT_FALSE(Fab::SwTunnelGroupId().isSingleMemberGroup());
  EXPECT_EQ(Fab::SwTunnelGroupId::fromString("none"), Fab::SwTunnelGroupId());
  EXPECT_EQ(Rxn::strepToValue<Fab::SwTunnelGroupId>(Rxn::valueToStrep(group)), group);
  EXPECT_EQ(rangeErrorOf([] { Fab::SwTunnelGroupId::fromString("group-0"); }),
            "bad Fab::SwTunnelGroupId 'group-0': groups are numbered from 1");

  Rxn::Ptr<Fab::SwTunnelGroupIdManager> manager = Fab::swTunnelGroupIdManagerFactory("swTunnelIdManager");
  Wire::IpAddr const ip = Wire::IpAddr::fromString("10.0.0.2");
  EXPECT_EQ(manager->getSwTunnelGroupIdForTunnelIp(ip), vtep);
  EXPECT_EQ(manager->getTunnelIpFromSwTunnelGroupId(vtep), ip);
  EXPECT_TRUE(manager->getTunnelIpListFromSwTunnelGroupId(vtep).tunnelIpAddr(ip));
  EXPECT_TRUE(manager->isSwTunnelGroupIdValid(vtep));
  EXPECT_FALSE(manager->isSwTunnelGroupIdValid(group));
  Fab::TunnelIpAddrList members;
  members.tunnelIpAddrIs(ip, true);
  members.tunnelIpAddrIs(Wire::IpAddr::fromString("10.0.0.3"), true);
  manager->groupIs(group, members);
  EXPECT_TRUE(manager->isSwTunnelGroupIdValid(group));
  EXPECT_EQ(manager->getTunnelIpListFromSwTunnelGroupId(group).tunnelIpAddrs(), 2U);

  // References move from one id to another; a count that reaches 0 goes.
  manager->updateSwTunnelGroupIdRefcount(vtep, Fab::SwTunnelGroupId());
  manager->updateSwTunnelGroupIdRefcount(vtep, Fab::SwTunnelGroupId());
  manager->updateSwTunnelGroupIdRefcount(group, vtep);
  EXPECT_EQ(manager->refcount(vtep), 1U);
  EXPECT_EQ(manager->refcount(group), 1U);
  manager->decSwTunnelGroupIdRefcount(vtep);
  manager->decSwTunnelGroupIdRefcount(group);
  EXPECT_EQ(manager->refcounts(), 0U);
}

class RefcountRecorder : public Fab::VXLAN::RefcountTable::NotifieeConst {
 public:
  void onRefcount(std::uint32_t const& key) override { heard.push_back(key); }
  std::vector<std::uint32_t> heard;
};

TEST(StateModel, ARefcountTableHasARowOnlyWhileCounted) {
  Rxn::Ptr<Fab::VXLAN::RefcountTable> table = Fab::VXLAN::refcountTableFactory("vlanRefcountTable");
  Rxn::Ptr<RefcountRecorder> recorder(new RefcountRecorder);
  recorder->notifierIs(table);
  recorder->isRegisteredNotifieeIs(true);
  recorder->hasNotificationActiveIs(true);

  EXPECT_TRUE(!table->refcount(10));
  EXPECT_EQ(table->refcount(10).value(), 0xFFFFFFFFU);
  table->incRefcount(10);
  table->incRefcount(10);
  EXPECT_EQ(table->refcount(10).value(), 2U);
  table->decRefcount(10);
  EXPECT_TRUE(!!table->refcount(10));
  table->decRefcount(10);
  EXPECT_TRUE(!table->refcount(10));
  EXPECT_EQ(table->refcounts(), 0U);
  table->decRefcount(10);  // nothing left to drop: no change, no notification
  EXPECT_EQ(recorder->heard, (std::vector<std::uint32_t>{10, 10, 10, 10}));
}

class VtiRecorder : public Vxlan::VtiStatus::NotifieeConst {
 public:
  void onOperStatus() override { heard.push_back("operStatus"); }
  void onVlanToGroup(Bridging::VlanId const& vlan) override { heard.push_back("vlanToGroup " + vlan.stringValue()); }
  void onUdpPort() override { heard.push_back("udpPort"); }
  std::vector<std::string> heard;
};

TEST(StateModel, AVtiIsAnInterfaceOfItsDirectoryWithEveryLevelNotifying) {
  Rxn::Ptr<Vxlan::VtiStatusDir> dir = Vxlan::vtiStatusDirFactory("vtiStatusDir");
  Rxn::Ptr<Vxlan::VtiStatus> vti = dir->vtiStatusIs(Wire::IntfId("Vxlan1"));
  EXPECT_EQ(vti->intfId(), Wire::IntfId("Vxlan1"));
  EXPECT_EQ(vti->fwkKey(), Wire::IntfId("Vxlan1"));
  EXPECT_EQ(vti->fullName(), "/vtiStatusDir/Vxlan1");
  EXPECT_EQ(vti->operStatus(), Interface::IntfOperStatus::intfOperDown);
  EXPECT_TRUE(vti->datapathLearning());

  Rxn::Ptr<VtiRecorder> recorder(new VtiRecorder);
  recorder->notifierIs(vti);
  recorder->isRegisteredNotifieeIs(true);
  recorder->hasNotificationActiveIs(true);
  vti->operStatusIs(Interface::IntfOperStatus::intfOperUp);            // Interface::IntfStatus
  vti->vlanToGroupIs(Bridging::VlanId(10), Wire::IpAddr(0xEF010101));  // Interface::EthIntfStatus
  vti->udpPortIs(Wire::UdpPort(4789));                                 // Vxlan::VtiStatus
  EXPECT_EQ(recorder->heard, (std::vector<std::string>{"operStatus", "vlanToGroup 10", "udpPort"}));

  // Per VTI shadows key their two maps by two fields of one entry.
  Rxn::Ptr<Fab::VXLAN::FabVniInfo> vniInfo = Fab::VXLAN::fabVniInfoFactory("vniInfo");
  Rxn::Ptr<Fab::VXLAN::VlanVniMapShadow> shadow = vniInfo->vlanVniMapShadowIs(Wire::IntfId("Vxlan1"));
  Fab::VXLAN::VniEntry const entry(Bridging::VlanId(10), Vxlan::VniExtOrNone(10010), Wire::IntfId("Vxlan1"));
  shadow->vlanVniMapIs(entry);
  shadow->vniVlanMapIs(entry);
  EXPECT_EQ(shadow->vlanVniMap(Bridging::VlanId(10)), entry);
  EXPECT_EQ(shadow->vniVlanMap(Vxlan::VniExtOrNone(10010)), entry);
  EXPECT_TRUE(!shadow->vlanVniMap(Bridging::VlanId(20)));
}

}  // namespace

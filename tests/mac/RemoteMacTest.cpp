// The road of remote hosts through VxlanMacAddrSm on the simulated platform:
// resolution behind VTEPs, the counts of next hops and VLANs, moves,
// switchovers, flushes and the feature's cleanup.

#include <gtest/gtest.h>

#include "tests/mac/MacFixture.h"

namespace FabTest {
namespace {

using Answerer = Sim::Platform::Answerer;
using Fab::VXLAN::FabVxlanState;

class RemoteMacTest : public MacFixture {
 protected:
  void holdTunnelAnswers(bool held) {
    platform().answersAre({0, held}, Answerer::tunnelLayer);
    platform().runUntilIdle();
  }
};

TEST_F(RemoteMacTest, HostsWaitForTheirVtepThenReachTheChipAndTheForwardingDatabase) {
  vtiUpMapping(10, 10);
  holdTunnelAnswers(true);
  l2RibHost(10, 1, "10.0.0.2");
  l2RibHost(10, 2, "10.0.0.3");
  l2RibHost(10, 3, "10.0.0.2");
  platform().runUntilIdle();
  // Requested, not yet answered: every host waits, nothing is counted.
  EXPECT_TRUE(listed("10.0.0.2"));
  EXPECT_TRUE(listed("10.0.0.3"));
  EXPECT_TRUE(pending(10, 1) && pending(10, 2) && pending(10, 3));
  EXPECT_FALSE(status(10, 1));
  EXPECT_FALSE(vlanActive(10));

  holdTunnelAnswers(false);
  platform().settle();
  std::uint32_t const nh2 = publishedNextHop("10.0.0.2");
  std::uint32_t const nh3 = publishedNextHop("10.0.0.3");
  EXPECT_EQ(status(10, 1).nextHopId().value(), nh2);
  EXPECT_EQ(status(10, 2).nextHopId().value(), nh3);
  EXPECT_FALSE(pending(10, 1));
  EXPECT_EQ(nextHopUses(nh2), 2u);
  EXPECT_TRUE(nextHopActive(nh2) && nextHopActive(nh3));
  EXPECT_TRUE(vlanActive(10));
  EXPECT_EQ(learnedVtep(10, 1), "10.0.0.2");
  EXPECT_EQ(learnedVtep(10, 2), "10.0.0.3");
  ASSERT_NE(platform().macTable().rows.find(key(10, 1)), nullptr);
  EXPECT_EQ(platform().macTable().rows.find(key(10, 1))->nextHopId.value(), nh2);
  EXPECT_EQ(stackFailure(), "");

  // The last host of a VTEP releases its request, its tunnel row and its next hop.
  Fab::FabTunnelId const tunnel2 = published("10.0.0.2").tunnelId();
  l2RibHostGone(10, 1);
  platform().settle();
  EXPECT_EQ(nextHopUses(nh2), 1u);
  EXPECT_EQ(learnedVtep(10, 1), "none");
  l2RibHostGone(10, 3);
  platform().settle();
  EXPECT_FALSE(listed("10.0.0.2"));
  EXPECT_FALSE(nextHopActive(nh2));
  EXPECT_FALSE(dir().tunnelInfoDir()->tunnelInfo(tunnel2));
  EXPECT_TRUE(vlanActive(10));
  l2RibHostGone(10, 2);
  platform().settle();
  EXPECT_FALSE(vlanActive(10));
  EXPECT_EQ(platform().macTable().rows.size(), 0u);
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(RemoteMacTest, AHostMovingToAVtepNotYetResolvedKeepsItsOldStatusWhilePending) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  platform().settle();
  std::uint32_t const oldNextHop = publishedNextHop("10.0.0.2");
  holdTunnelAnswers(true);
  l2RibHost(10, 1, "10.0.0.4");
  platform().runUntilIdle();
  EXPECT_TRUE(pending(10, 1));
  EXPECT_EQ(status(10, 1).nextHopId().value(), oldNextHop);
  // Already out of the old VTEP's hosts, whose request goes with its last one.
  EXPECT_FALSE(macSm().vtepMacAddrList(vtep("10.0.0.2")));
  EXPECT_FALSE(listed("10.0.0.2"));
  EXPECT_TRUE(listed("10.0.0.4"));

  holdTunnelAnswers(false);
  platform().settle();
  EXPECT_FALSE(pending(10, 1));
  EXPECT_EQ(status(10, 1).nextHopId().value(), publishedNextHop("10.0.0.4"));
  EXPECT_EQ(learnedVtep(10, 1), "10.0.0.4");
  EXPECT_FALSE(nextHopActive(oldNextHop));
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(RemoteMacTest, ASwitchoverMovesEveryHostAndTheOldNextHopGoesAfterTheLast) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  l2RibHost(10, 2, "10.0.0.2");
  platform().settle();
  std::uint32_t const oldNextHop = publishedNextHop("10.0.0.2");
  platform().tunnelLayer().switchNextHop(Wire::IpAddr::fromString("10.0.0.2"));
  platform().settle();
  std::uint32_t const newNextHop = publishedNextHop("10.0.0.2");
  ASSERT_NE(newNextHop, oldNextHop);
  EXPECT_EQ(status(10, 1).nextHopId().value(), newNextHop);
  EXPECT_EQ(status(10, 2).nextHopId().value(), newNextHop);
  EXPECT_EQ(nextHopUses(newNextHop), 2u);
  EXPECT_FALSE(nextHopActive(oldNextHop));
  ASSERT_NE(platform().macTable().rows.find(key(10, 2)), nullptr);
  EXPECT_EQ(platform().macTable().rows.find(key(10, 2))->nextHopId.value(), newNextHop);
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(RemoteMacTest, AMappingRemovedUnderLiveHostsFlushesThemFirst) {
  vtiUpMapping(10, 11);
  l2RibHost(10, 1, "10.0.0.2");
  l2RibHost(11, 2, "10.0.0.2");
  platform().settle();
  ASSERT_EQ(learnedVtep(10, 1), "10.0.0.2");
  platform().vlanVniIs(kVxlan1, Bridging::VlanId(10), Vxlan::VniExtOrNone());
  platform().settle();
  EXPECT_FALSE(dir().hostTable()->entry(key(10, 1)));
  EXPECT_EQ(learnedVtep(10, 1), "none");
  EXPECT_FALSE(vlanActive(10));
  EXPECT_FALSE(platform().vniInfo()->vlanVniMapShadow(kVxlan1)->vlanVniMap(Bridging::VlanId(10)));
  EXPECT_EQ(learnedVtep(11, 2), "10.0.0.2");
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(RemoteMacTest, TheVtiGoingDownFlushesItsHostsAndTheFeatureCleansAfterTheLastRow) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  l2RibHost(10, 2, "10.0.0.3");
  platform().settle();
  vtiUp(kVxlan1, false);
  platform().settle();
  EXPECT_EQ(dir().hostTable()->entrys(), 0u);
  EXPECT_EQ(fdb().learnedHosts(), 0u);
  EXPECT_EQ(info().vxlanMacSmState(), FabVxlanState::clean_);
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(stackFailure(), "");
  // Back up: the sources still have the hosts, and they come back.
  vtiUp(kVxlan1);
  platform().settle();
  EXPECT_EQ(learnedVtep(10, 2), "10.0.0.3");
}

TEST_F(RemoteMacTest, HostsComeBackAcrossAHitlessRestart) {
  verifyAcrossRestart(
      [this] {
        vtiUpMapping(10, 10);
        l2RibHost(10, 1, "10.0.0.2");
        l2RibHost(10, 2, "10.0.0.3");
      },
      [this] {
        EXPECT_EQ(learnedVtep(10, 1), "10.0.0.2");
        EXPECT_EQ(learnedVtep(10, 2), "10.0.0.3");
        EXPECT_EQ(status(10, 2).nextHopId().value(), publishedNextHop("10.0.0.3"));
        EXPECT_TRUE(platform().vxlanBootStatus()->stageReevaluateRmacsDone());
        EXPECT_EQ(stackFailure(), "");
      });
}

// A group of VTEPs needs a platform that supports them; without, its hosts
// wait, and the log says why.
TEST_F(RemoteMacTest, AHostBehindAVtepGroupWaitsWhenThePlatformHasNoGroups) {
  vtiUpMapping(10, 10);
  Fab::SwTunnelGroupId const group(Fab::SwTunnelGroupType::multiMemberGroup_, 7);
  Fab::TunnelIpAddrList members;
  members.tunnelIpAddrIs(Wire::IpAddr::fromString("10.0.0.2"), true);
  members.tunnelIpAddrIs(Wire::IpAddr::fromString("10.0.0.3"), true);
  platform().swTunnelGroupIdManager()->groupIs(group, members);
  dir().hostTable()->entryIs(
      key(10, 5), Fab::VXLAN::HostEntry(key(10, 5), kVxlan1, group, Bridging::EntryType::evpnDynamicMac, 0.0, {},
                                        Fab::VXLAN::HostHwOperation::hwOpResolve_));
  platform().settle();
  EXPECT_TRUE(pending(10, 5));
  EXPECT_FALSE(platform().vtepGroupConfigDir()->vtepGroupConfig(kVxlan1)->vtepGroupList(group));
  ASSERT_FALSE(platform().logs().empty());
  EXPECT_NE(platform().logs().back().find(
                "%VXLAN-4-L2_ECMP_NOTSUPPORTED: Cannot program MAC address 0200.0000.0005 in VLAN 10"),
            std::string::npos);
}

TEST_F(RemoteMacTest, ACorruptedL2RibRowIsReportedAndSkippedByTheReevaluation) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  l2RibHost(10, 2, "10.0.0.2");
  platform().settle();
  Slab::HostOutputReader& reader = *platform().hostSources().l2RibReader;
  reader.rowCorruptedIs(key(10, 1), true);
  std::uint64_t const eventsBefore = dir().remoteMacEvent().seqNo();
  vtiUp(kVxlan1, false);
  platform().runUntilIdle();
  EXPECT_EQ(reader.corruptions(), 1u);
  EXPECT_NE(reader.lastCorruption().find(key(10, 1).stringValue()), std::string::npos);
  // The other host was still asked about.
  EXPECT_GT(dir().remoteMacEvent().seqNo(), eventsBefore);
}

// Without generation ids a tunnel's key is the same in every life of the
// tunnel, and the platform has one tunnel to give.
class OneTunnelWithoutGenerationsTest : public MacFixture {
 protected:
  static Sim::PlatformConfig oneTunnel() {
    Sim::PlatformConfig config;
    config.useUniqGenId = false;
    config.tunnelLayer.tunnels = 1;
    return config;
  }
  OneTunnelWithoutGenerationsTest() : MacFixture(oneTunnel()) {}
};

// A VTEP taken away and asked for again before the tunnel layer answers the
// removal: the layer gives it the tunnel that another VTEP freed, then takes
// it down as asked and gives the tunnel to a third VTEP. The first VTEP's
// publication still names the tunnel until its new answer comes. A host
// resolved behind it meanwhile leaves the tunnel's row to the VTEP that the
// layer gave the tunnel to last.
TEST_F(OneTunnelWithoutGenerationsTest, ATunnelGivenToAnotherVtepKeepsItsRowWhileAnEarlierAnswerStillNamesIt) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.3");
  platform().settle();
  // 10.0.0.2 waits for a tunnel first, then 10.0.0.4.
  l2RibHost(10, 2, "10.0.0.2");
  platform().settle();
  l2RibHost(10, 3, "10.0.0.4");
  platform().settle();
  ASSERT_TRUE(published("10.0.0.3").tunnelId().valid());
  ASSERT_FALSE(published("10.0.0.2").tunnelId().valid());

  platform().answersAre({1.0, false}, Sim::Platform::Answerer::tunnelLayer);
  l2RibHostGone(10, 1);
  platform().runFor(0.1);
  l2RibHostGone(10, 2);
  platform().runFor(0.1);
  l2RibHost(10, 2, "10.0.0.2");
  // The removal of 10.0.0.3 is answered, then that of 10.0.0.2; the new
  // request of 10.0.0.2 is not yet.
  platform().runFor(0.95);
  Fab::FabTunnelId const tunnel = published("10.0.0.4").tunnelId();
  ASSERT_TRUE(tunnel.valid());
  ASSERT_EQ(published("10.0.0.2").tunnelId(), tunnel);
  EXPECT_EQ(dir().tunnelInfoDir()->tunnelInfo(tunnel).swTunnelGroupId(), vtep("10.0.0.4"));

  l2RibHost(10, 4, "10.0.0.2");
  platform().runUntilIdle();
  EXPECT_EQ(status(10, 4).tunnelId(), tunnel);
  EXPECT_EQ(dir().tunnelInfoDir()->tunnelInfo(tunnel).swTunnelGroupId(), vtep("10.0.0.4"));

  // The new answer: no tunnel free; the row stays with the VTEP that has it.
  platform().settle();
  EXPECT_FALSE(published("10.0.0.2").tunnelId().valid());
  EXPECT_EQ(dir().tunnelInfoDir()->tunnelInfo(tunnel).swTunnelGroupId(), vtep("10.0.0.4"));
  EXPECT_EQ(stackFailure(), "");
}

}  // namespace
}  // namespace FabTest

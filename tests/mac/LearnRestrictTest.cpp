// The learn restriction per VLAN: which VTEPs a VLAN learns from, the
// counters of every decision, the sweeps when the rules change, and clears.

#include <gtest/gtest.h>

#include "tests/mac/MacFixture.h"

namespace FabTest {
namespace {

using Vxlan::AllowLearnMode;

class LearnRestrictTest : public MacFixture {
 protected:
  explicit LearnRestrictTest(Sim::PlatformConfig const& config = {}) : MacFixture(config) {}
  Vxlan::LearnRestrict& restrictVlan(int vlan) {
    return *platform().vxlanStatusDir()->vxlanStatusIs(kVxlan1)->vlanToLearnRestrictIs(Bridging::VlanId(vlan));
  }
  static Vxlan::VtepPrefix prefix(char const* text) { return Vxlan::VtepPrefix(Wire::IpGenPrefix::fromString(text)); }
  Vxlan::LearnRestrictStatus& learnStatus(int vlan) {
    return *platform().vxlanHwStatusDir()->learnStatus()->learnStatusList(Bridging::VlanId(vlan));
  }
  bool hasRow(int vlan, int host) { return !!dir().hostTable()->entry(key(vlan, host)); }
};

TEST_F(LearnRestrictTest, AListAdmitsCoveredVtepsCountsEachDecisionAndSweepsWhenItNarrows) {
  vtiUpMapping(10, 10);
  restrictVlan(10).prefixListIs(prefix("10.0.0.0/31"), true);
  restrictVlan(10).learnFromIs(AllowLearnMode::learnFromList);
  platform().settle();
  l2RibHost(10, 1, "10.0.0.1");
  l2RibHost(10, 2, "10.0.0.3");
  platform().settle();
  EXPECT_EQ(learnedVtep(10, 1), "10.0.0.1");
  // Refused: the writer withdraws the row on the machine's word.
  EXPECT_FALSE(hasRow(10, 2));
  EXPECT_EQ(learnStatus(10).numMatchList(), 1u);
  EXPECT_EQ(learnStatus(10).numRejectList(), 1u);
  EXPECT_EQ(learnStatus(10).numMatches(prefix("10.0.0.0/31")), 1u);

  // Narrowed: the sweep withdraws the host it no longer allows, counting nothing.
  restrictVlan(10).prefixListIs(prefix("10.0.0.2/32"), true);
  restrictVlan(10).prefixListDel(prefix("10.0.0.0/31"));
  platform().settle();
  EXPECT_FALSE(hasRow(10, 1));
  EXPECT_EQ(learnedVtep(10, 1), "none");
  EXPECT_EQ(learnStatus(10).numRejectList(), 1u);
  EXPECT_FALSE(learnStatus(10).prefixList(prefix("10.0.0.0/31")));

  // Any VTEP: the prefixes go, and a host learned again is counted as such.
  restrictVlan(10).learnFromIs(AllowLearnMode::learnFromAny);
  platform().settle();
  EXPECT_EQ(learnStatus(10).prefixLists(), 0u);
  l2RibHost(10, 2, "10.0.0.5");
  platform().settle();
  EXPECT_EQ(learnedVtep(10, 2), "10.0.0.5");
  EXPECT_EQ(learnStatus(10).numMatchAny(), 1u);
  EXPECT_EQ(stackFailure(), "");

  // No restriction: everything is learned, nothing counted.
  platform().vxlanStatusDir()->vxlanStatus(kVxlan1)->vlanToLearnRestrictDel(Bridging::VlanId(10));
  platform().settle();
  EXPECT_FALSE(platform().vxlanHwStatusDir()->learnStatus()->learnStatusList(Bridging::VlanId(10)));
}

TEST_F(LearnRestrictTest, AClearRequestIsServedOnce) {
  vtiUpMapping(10, 10);
  restrictVlan(10).learnFromIs(AllowLearnMode::learnFromAny);
  l2RibHost(10, 1, "10.0.0.1");
  platform().settle();
  ASSERT_EQ(learnStatus(10).numMatchAny(), 1u);
  Vxlan::VxlanStatus& status = *platform().vxlanStatusDir()->vxlanStatus(kVxlan1);
  status.vlanToClearCounterRequestTimeIs(Bridging::VlanId(10), 5.0);
  EXPECT_EQ(learnStatus(10).numMatchAny(), 0u);
  EXPECT_EQ(learnStatus(10).lastClearTime(), 5.0);
  l2RibHost(10, 2, "10.0.0.1");
  platform().settle();
  status.vlanToClearCounterRequestTimeNotify();
  EXPECT_EQ(learnStatus(10).numMatchAny(), 1u);
}

TEST_F(LearnRestrictTest, AFloodListRestrictionFollowsTheFloodList) {
  platform().l2RibFloodSet()->sourceIs(4);
  vtiUpMapping(20, 20);
  restrictVlan(20).learnFromIs(AllowLearnMode::learnFromFloodList);
  platform().settle();
  // No flood list: every VTEP is refused.
  l2RibHost(20, 1, "10.0.0.2");
  platform().settle();
  EXPECT_FALSE(hasRow(20, 1));
  EXPECT_EQ(learnStatus(20).numRejectFloodList(), 1u);

  floodVteps(20, {"10.0.0.2", "10.0.0.3"});
  platform().settle();
  ASSERT_EQ(bumVteps(20), "10.0.0.2 10.0.0.3");
  EXPECT_TRUE(learnStatus(20).prefixList(prefix("10.0.0.2/32")));
  // Re-admission is the writer's: the L2Rib learns the host anew.
  l2RibHostGone(20, 1);
  l2RibHost(20, 1, "10.0.0.2");
  platform().settle();
  EXPECT_EQ(learnedVtep(20, 1), "10.0.0.2");
  EXPECT_EQ(learnStatus(20).numMatchFloodList(), 1u);
  EXPECT_EQ(learnStatus(20).numMatches(prefix("10.0.0.2/32")), 1u);

  // Out of the flood list: its hosts are withdrawn.
  platform()
      .floodSet(Bridging::VlanId(20), kZeroMac)
      ->destSetDel(L2Rib::vxlanDest(Wire::IpAddr::fromString("10.0.0.2")));
  platform().settle();
  EXPECT_FALSE(learnStatus(20).prefixList(prefix("10.0.0.2/32")));
  EXPECT_FALSE(hasRow(20, 1));
  EXPECT_EQ(stackFailure(), "");
}

// The writer answers a second after the machine asks.
class SlowWriterLearnRestrictTest : public LearnRestrictTest {
 protected:
  static Sim::PlatformConfig slowWriter() {
    Sim::PlatformConfig config;
    config.macAnswerDelay = 1.0;
    return config;
  }
  SlowWriterLearnRestrictTest() : LearnRestrictTest(slowWriter()) {}
  bool inHostsOf(char const* vtepAddress, int vlan, int host) {
    Rxn::Ptr<Fab::VXLAN::VtepMacAddrList> const list = macSm().vtepMacAddrList(vtep(vtepAddress));
    return list && list->macAddrList(key(vlan, host));
  }
};

// Refused when it is resolved again, a host gives up only the VTEP it asked
// for: the VTEPs that its status row or its pending row stand on keep it
// among their hosts until the writer withdraws its row.
TEST_F(SlowWriterLearnRestrictTest, ARefusedHostKeepsTheVtepsItsRowsStandOnUntilItIsWithdrawn) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  platform().settle();
  ASSERT_TRUE(!!status(10, 1));
  platform().answersAre({0, true}, Sim::Platform::Answerer::tunnelLayer);
  l2RibHost(10, 2, "10.0.0.3");
  platform().runUntilIdle();
  ASSERT_TRUE(pending(10, 2));

  // The rule narrows: the sweep asks the writer to withdraw both hosts. Before
  // it answers, the L2Rib learns them again: the first from another source,
  // the second behind another VTEP.
  restrictVlan(10).prefixListIs(prefix("10.0.0.4/32"), true);
  restrictVlan(10).learnFromIs(AllowLearnMode::learnFromList);
  platform().runUntilIdle();
  platform().hostSources().l2RibHosts->hostIs(
      L2Rib::HostAndSource(key(10, 1), L2Rib::vxlanDest(Wire::IpAddr::fromString("10.0.0.2")), 1));
  l2RibHost(10, 2, "10.0.0.5");
  platform().runUntilIdle();
  EXPECT_EQ(learnStatus(10).numRejectList(), 2u);
  EXPECT_TRUE(!!status(10, 1));
  EXPECT_TRUE(inHostsOf("10.0.0.2", 10, 1));
  EXPECT_TRUE(listed("10.0.0.2"));
  EXPECT_TRUE(pending(10, 2));
  EXPECT_TRUE(inHostsOf("10.0.0.3", 10, 2));
  EXPECT_TRUE(listed("10.0.0.3"));
  EXPECT_FALSE(listed("10.0.0.5"));
  EXPECT_EQ(stackFailure(false), "");

  // The writer withdraws both rows, and the VTEPs go with them.
  platform().answersAre({0, false}, Sim::Platform::Answerer::tunnelLayer);
  platform().settle();
  EXPECT_FALSE(hasRow(10, 1));
  EXPECT_FALSE(hasRow(10, 2));
  EXPECT_FALSE(status(10, 1));
  EXPECT_FALSE(pending(10, 2));
  EXPECT_FALSE(listed("10.0.0.2"));
  EXPECT_FALSE(listed("10.0.0.3"));
  EXPECT_EQ(stackFailure(), "");
}

}  // namespace
}  // namespace FabTest

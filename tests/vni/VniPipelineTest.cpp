// The VLAN to VNI pipeline of VniSm: wishes through the queue into the
// platform's config, the answers into the shadow, one operation in flight per
// VLAN, removals that wait for remote MACs, inactive VLANs, a full table.

#include <gtest/gtest.h>

#include "tests/vni/VniFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

class VniPipelineTest : public VniFixture {
 protected:
  void featureUp() {
    vlansActive(10, 12);
    vtiUp(kVxlan1);
    platform().settle();
    ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  }
};

TEST_F(VniPipelineTest, AMappingReachesTheHardwareAndOnlyThenTheShadow) {
  featureUp();
  maps(10, 10010);
  platform().runUntilIdle();
  // Sent, not answered: queued, not marked for resending, out of the shadow.
  EXPECT_EQ(configRow(10).vni().value(), 10010U);
  EXPECT_EQ(configRow(10).vlanVniMapConfigAction(), FabHelper::vlanVniMapAdded_);
  EXPECT_TRUE(!!queued(10));
  EXPECT_FALSE(dirty(10));
  EXPECT_EQ(shadowVni(10), 0U);
  // The valid pair is written at once.
  EXPECT_EQ(platform().vniInfo()->validVlanVniMap(Bridging::VlanId(10)).vni().value(), 10010U);
  EXPECT_EQ(platform().vniInfo()->validVniVlanMap(Vxlan::VniExtOrNone(10010)).vlanId(), Bridging::VlanId(10));

  platform().settle();
  EXPECT_EQ(statusRow(10).tableAddStatus(), FabTypes::success_);
  EXPECT_EQ(shadowVni(10), 10010U);
  EXPECT_FALSE(!!queued(10));

  // A VNI moves to another VLAN: the pairs stay one to one.
  maps(11, 10010);
  platform().settle();
  EXPECT_FALSE(!!platform().vniInfo()->validVlanVniMap(Bridging::VlanId(10)));
  EXPECT_EQ(platform().vniInfo()->validVniVlanMap(Vxlan::VniExtOrNone(10010)).vlanId(), Bridging::VlanId(11));
}

TEST_F(VniPipelineTest, AChangeInFlightWaitsForTheAnswerAndLeavesTheShadowAlone) {
  featureUp();
  holdVniAnswers(true);
  maps(10, 10010);
  platform().runUntilIdle();
  maps(10, 20010);
  platform().runUntilIdle();
  EXPECT_EQ(queued(10).newVni().value(), 20010U);
  EXPECT_FALSE(dirty(10));
  EXPECT_EQ(configRow(10).vni().value(), 10010U);

  // The answer for 10010 finds the wish moved on: the old row goes, then 20010.
  holdVniAnswers(false);
  platform().runFor(0.15);
  EXPECT_EQ(shadowVni(10), 0U);
  EXPECT_FALSE(!!configRow(10));
  platform().settle();
  EXPECT_EQ(shadowVni(10), 20010U);
  EXPECT_EQ(statusRow(10).vni().value(), 20010U);
  EXPECT_FALSE(!!queued(10));
}

TEST_F(VniPipelineTest, AWishBackToNoneBeforeAnythingWasSentIsDropped) {
  featureUp();
  maps(10, 10010);
  maps(10, 0);
  EXPECT_FALSE(!!queued(10));
  EXPECT_FALSE(dirty(10));
  platform().settle();
  EXPECT_EQ(vniConfig().configEntrys(), 0U);
}

TEST_F(VniPipelineTest, ARemovalUnderRemoteMacsWaitsForThemWithoutATimeout) {
  featureUp();
  maps(10, 10010);
  platform().settle();
  remoteMacsOn(10);

  maps(10, 0);
  platform().runUntilIdle();
  // Out of the shadow at once; the row stays, flushing, until the MACs are gone.
  EXPECT_EQ(shadowVni(10), 0U);
  EXPECT_EQ(configRow(10).vlanVniMapConfigAction(), FabHelper::vlanVniMapDeletedMacFlushPending_);
  EXPECT_TRUE(!!waiting(10));
  // A newer wish only overwrites the waiting one.
  maps(10, 30010);
  platform().runUntilIdle();
  EXPECT_EQ(waiting(10).newVni().value(), 30010U);
  platform().runFor(600);
  EXPECT_TRUE(!!waiting(10));
  EXPECT_TRUE(!!configRow(10));
  EXPECT_TRUE(platform().vniTable().flushing.count(Bridging::VlanId(10)));

  remoteMacsOn(10, false);
  EXPECT_FALSE(!!waiting(10));
  platform().settle();
  EXPECT_EQ(shadowVni(10), 30010U);
  EXPECT_EQ(configRow(10).vlanVniMapConfigAction(), FabHelper::vlanVniMapAdded_);
}

TEST_F(VniPipelineTest, OnlyAnActiveVlanKeepsItsMapping) {
  featureUp();
  maps(10, 10010);
  maps(11, 10011);
  platform().settle();

  vlansActive(10, 10, Bridging::VlanAdminState::suspended);
  platform().bridgingConfig()->vlanConfigDel(Bridging::VlanId(11));
  platform().settle();
  EXPECT_EQ(shadowVni(10), 0U);
  EXPECT_EQ(shadowVni(11), 0U);
  EXPECT_EQ(vniConfig().configEntrys(), 0U);
  EXPECT_EQ(platform().vniInfo()->validVlanVniMaps(), 0U);

  vlansActive(10, 11);
  platform().settle();
  EXPECT_EQ(shadowVni(10), 10010U);
  EXPECT_EQ(shadowVni(11), 10011U);
}

using SmallTableTest = SmallTableFixture;

TEST_F(SmallTableTest, AFullTableLeavesTheRowUnprogrammedVisiblyAndLogsOnce) {
  tableFilledThenVlan12();

  EXPECT_EQ(statusRow(12).tableAddStatus(), FabTypes::full_);
  EXPECT_TRUE(!!configRow(12));
  EXPECT_FALSE(!!queued(12));
  EXPECT_EQ(shadowVni(12), 0U);
  Vxlan::VxlanHwStatus const& hw = hwStatus();
  EXPECT_EQ(hw.pendingVlanToVniMap(Bridging::VlanId(12)).value(), 10012U);
  ASSERT_EQ(platform().logs().size(), 1U);
  EXPECT_EQ(platform().logs()[0],
            "%ETH-4-VNIVLANMAPFULL: Unable to program VLAN 12 to VNI 10012 mapping due to hardware resource "
            "exhaustion.");

  // The unprogrammed mark goes with its row.
  maps(12, 0);
  platform().settle();
  EXPECT_FALSE(!!configRow(12));
  EXPECT_FALSE(!!hw.pendingVlanToVniMap(Bridging::VlanId(12)));
  maps(12, 10012);
  platform().settle();
  EXPECT_EQ(statusRow(12).tableAddStatus(), FabTypes::full_);

  // Room frees up: the refused row is sent again, and fits.
  maps(10, 0);
  platform().settle();
  EXPECT_EQ(statusRow(12).tableAddStatus(), FabTypes::success_);
  EXPECT_EQ(shadowVni(12), 10012U);
  EXPECT_FALSE(!!hw.pendingVlanToVniMap(Bridging::VlanId(12)));
}

TEST_F(SmallTableTest, AnUnprogrammedMarkDoesNotOutliveARestartThatDropsItsMapping) {
  tableFilledThenVlan12();
  Vxlan::VxlanHwStatus const& hw = hwStatus();
  ASSERT_EQ(hw.pendingVlanToVniMap(Bridging::VlanId(12)).value(), 10012U);

  platform().agentDown();
  maps(12, 0);
  platform().agentUp();
  platform().settle();
  EXPECT_FALSE(!!hw.pendingVlanToVniMap(Bridging::VlanId(12)));
  EXPECT_EQ(shadowVni(10), 10010U);
  EXPECT_EQ(shadowVni(11), 10011U);
}

TEST_F(VniPipelineTest, AVtiGoingDownTakesOnlyItsOwnMappings) {
  vlansActive(10, 20);
  maps(10, 10010, kVxlan1);
  maps(20, 10020, kVxlan2);
  vtiUp(kVxlan1);
  platform().settle();
  vtiUp(kVxlan2);
  platform().settle();
  ASSERT_EQ(shadowVni(10, kVxlan1), 10010U);
  ASSERT_EQ(shadowVni(20, kVxlan2), 10020U);

  vtiUp(kVxlan2, false);
  platform().settle();
  EXPECT_EQ(shadowVni(20, kVxlan2), 0U);
  EXPECT_FALSE(!!configRow(20));
  EXPECT_EQ(shadowVni(10, kVxlan1), 10010U);
  EXPECT_EQ(configRow(10).vni().value(), 10010U);
}

TEST_F(VniPipelineTest, AVniTakenOverBeforeItsAnswerIsStillRemovedAtTheStop) {
  vlansActive(10, 12);
  vtiUp(kVxlan1);
  platform().settle();
  holdVniAnswers(true);
  maps(10, 10010);
  platform().runUntilIdle();
  ASSERT_TRUE(!!configRow(10));
  // VLAN 11 takes the VNI while VLAN 10's add is unanswered.
  maps(11, 10010);
  platform().runUntilIdle();
  vtiUp(kVxlan1, false);
  platform().runUntilIdle();

  holdVniAnswers(false);
  platform().settle();
  EXPECT_EQ(vniConfig().configEntrys(), 0U);
  EXPECT_EQ(platform().vniTable().mappings.size(), 0U);
  EXPECT_EQ(info().vniSmState(), Fab::VXLAN::FabVxlanState::clean_);
}

}  // namespace
}  // namespace FabTest

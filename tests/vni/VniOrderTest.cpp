// Orders of events that once broke the VLAN to VNI map, each a legal
// sequence that the randomized driver found or would find: answers that come
// after the wish moved on, VLANs and VNIs shared between mappings and VTIs,
// and a platform that answers a cleanup before the init it overtook. After
// each, the whole-stack checks of the simulated platform hold.

#include <gtest/gtest.h>

#include "tests/vni/VniFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

// A chip with room for one mapping, answering after half a second.
class OneRowTableTest : public VniFixture {
 protected:
  OneRowTableTest() : VniFixture(platformWith(0.5, false, 1)) {}
  // VLAN 10 fills the table; VLAN 11 is asked for and will be refused.
  void vlan11InFlightOnAFullTable() {
    vlansActive(10, 11);
    maps(10, 10010);
    vtiUp(kVxlan1);
    platform().settle();
    maps(11, 10011);
    platform().runFor(0.1);
    ASSERT_TRUE(!!configRow(11));
    ASSERT_FALSE(!!statusRow(11));
  }
  Vxlan::VxlanHwStatus const* hwStatus() { return platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1).get(); }
};

TEST_F(OneRowTableTest, ARefusalAnsweredAfterTheWishWentToNoneLeavesNoRow) {
  // The VTI goes down while the refused add is on its way: the feature
  // stops cleanly, with no row left behind.
  vlan11InFlightOnAFullTable();
  vtiUp(kVxlan1, false);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(vniConfig().configEntrys(), 0U);
  EXPECT_EQ(vniStatus().statusEntrys(), 0U);
  EXPECT_TRUE(platform().vniTable().mappings.empty());
  EXPECT_EQ(stackFailure(), "");

  // The mapping alone is withdrawn while its add is on its way.
  vtiUp(kVxlan1);
  platform().settle();
  maps(11, 10011);
  platform().runFor(0.1);
  maps(11, 0);
  platform().settle();
  EXPECT_FALSE(!!configRow(11));
  EXPECT_FALSE(!!hwStatus()->pendingVlanToVniMap(Bridging::VlanId(11)));
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(OneRowTableTest, ARefusalAnsweredAfterTheWishMovedTakesTheNewVniUp) {
  vlan11InFlightOnAFullTable();
  maps(11, 20011);
  platform().settle();
  // The log names the VNI that was refused; the new one is sent, and refused
  // in its turn, visibly.
  ASSERT_FALSE(platform().logs().empty());
  EXPECT_EQ(platform().logs()[0],
            "%ETH-4-VNIVLANMAPFULL: Unable to program VLAN 11 to VNI 10011 mapping due to hardware resource "
            "exhaustion.");
  EXPECT_EQ(configRow(11).vni().value(), 20011U);
  EXPECT_EQ(statusRow(11).tableAddStatus(), FabTypes::full_);
  EXPECT_EQ(hwStatus()->pendingVlanToVniMap(Bridging::VlanId(11)).value(), 20011U);
  EXPECT_EQ(stackFailure(), "");

  // Room frees up: the new VNI is programmed.
  maps(10, 0);
  platform().settle();
  EXPECT_EQ(statusRow(11).tableAddStatus(), FabTypes::success_);
  EXPECT_EQ(shadowVni(11), 20011U);
  EXPECT_EQ(stackFailure(), "");
}

// The hardware status of a VTI goes when the VTI goes down and comes anew
// when it comes up. A VTI that flaps before the drain reaches its refused row
// finds the row still standing, refused, in the chip.
TEST_F(OneRowTableTest, ARefusedRowOfAVtiThatFlapsStaysVisiblyUnprogrammed) {
  // Vxlan2 keeps the feature up and fills the table; Vxlan1's VLAN 11 is
  // refused.
  vlansActive(10, 11);
  maps(10, 10010, kVxlan2);
  vtiUp(kVxlan2);
  platform().settle();
  maps(11, 10011, kVxlan1);
  vtiUp(kVxlan1);
  platform().settle();
  ASSERT_EQ(statusRow(11).tableAddStatus(), FabTypes::full_);
  ASSERT_EQ(hwStatus()->pendingVlanToVniMap(Bridging::VlanId(11)).value(), 10011U);

  // Down and up in one turn: the removal of the row is queued, not sent, and
  // the wish comes back over it.
  platform().vti(kVxlan1)->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  platform().vti(kVxlan1)->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  ASSERT_EQ(statusRow(11).tableAddStatus(), FabTypes::full_);
  EXPECT_EQ(hwStatus()->pendingVlanToVniMap(Bridging::VlanId(11)).value(), 10011U);
  EXPECT_EQ(stackFailure(false), "");

  // The row is sent again, refused again, and shown so.
  platform().settle();
  EXPECT_EQ(statusRow(11).tableAddStatus(), FabTypes::full_);
  EXPECT_EQ(hwStatus()->pendingVlanToVniMap(Bridging::VlanId(11)).value(), 10011U);
  EXPECT_EQ(stackFailure(), "");

  // Room frees up: the mapping is programmed, and the mark goes.
  maps(10, 0, kVxlan2);
  platform().settle();
  EXPECT_EQ(shadowVni(11), 10011U);
  EXPECT_FALSE(!!hwStatus()->pendingVlanToVniMap(Bridging::VlanId(11)));
  EXPECT_EQ(stackFailure(), "");
}

using VniSharingTest = VniFixture;

TEST_F(VniSharingTest, OneVniOnTwoVlansOfAVtiIsCleanedWhenTheVtiGoesDown) {
  vlansActive(10, 11);
  vtiUp(kVxlan1);
  maps(10, 10010);
  platform().settle();
  maps(11, 10010);
  platform().settle();
  ASSERT_EQ(shadowVni(10), 10010U);
  ASSERT_EQ(shadowVni(11), 10010U);

  vtiUp(kVxlan1, false);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(vniConfig().configEntrys(), 0U);
  EXPECT_TRUE(platform().vniTable().mappings.empty());
  EXPECT_EQ(platform().vniInfo()->vlanVniMapShadows(), 0U);
  EXPECT_EQ(stackFailure(), "");
  // The feature can start again.
  vtiUp(kVxlan1);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::initialized_);
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(VniSharingTest, AVlanHeldByOneVtiIgnoresAnotherUntilItIsFree) {
  vlansActive(10, 10);
  maps(10, 10010, kVxlan1);
  vtiUp(kVxlan1);
  platform().settle();
  maps(10, 20010, kVxlan2);
  vtiUp(kVxlan2);
  platform().settle();
  // Vxlan1 holds VLAN 10: the second wish waits, the mapping stays.
  EXPECT_EQ(configRow(10).vtiIntfId(), kVxlan1);
  EXPECT_EQ(shadowVni(10, kVxlan1), 10010U);
  EXPECT_EQ(shadowVni(10, kVxlan2), 0U);
  EXPECT_EQ(stackFailure(), "");

  // Vxlan1 changes its mapping of the VLAN, as before.
  maps(10, 10011, kVxlan1);
  platform().settle();
  EXPECT_EQ(shadowVni(10, kVxlan1), 10011U);

  // Once Vxlan1 lets go, Vxlan2's wish is taken up: no wish is lost.
  vtiUp(kVxlan1, false);
  platform().settle();
  EXPECT_EQ(configRow(10).vtiIntfId(), kVxlan2);
  EXPECT_EQ(shadowVni(10, kVxlan2), 20010U);
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(VniSharingTest, TwoVtisUpInOneTurnWithOverlappingVlansLoseNoWish) {
  vlansActive(10, 10);
  maps(10, 10010, kVxlan1);
  maps(10, 20010, kVxlan2);
  platform().vti(kVxlan1)->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  platform().vti(kVxlan2)->operStatusIs(Interface::IntfOperStatus::intfOperUp);
  platform().settle();
  Wire::IntfId const holder = configRow(10).vtiIntfId();
  Wire::IntfId const other = holder == kVxlan1 ? kVxlan2 : kVxlan1;
  ASSERT_TRUE(holder == kVxlan1 || holder == kVxlan2);
  EXPECT_EQ(stackFailure(), "");

  vtiUp(holder, false);
  platform().settle();
  EXPECT_EQ(configRow(10).vtiIntfId(), other);
  EXPECT_EQ(shadowVni(10, other), other == kVxlan1 ? 10010U : 20010U);
  EXPECT_EQ(stackFailure(), "");
}

// The hook's counters are two independent requests: a platform may answer
// the cleanup before the init that the cleanup overtook.
TEST_F(VniSharingTest, AnInitAnsweredAfterTheCleanupThatOvertookItIsIgnored) {
  using Answerer = Sim::Platform::Answerer;
  platform().answersAre({0.1, true}, Answerer::vniHook);
  vtiUp(kVxlan1);
  ASSERT_EQ(info().vniSmState(), FabVxlanState::initializing_);
  vtiUp(kVxlan1, false);
  ASSERT_EQ(info().vniSmState(), FabVxlanState::cleaning_);
  // Both due in one turn, the newest first: the cleanup, then the init.
  platform().runFor(1);
  platform().answersAre({0.1, false, true}, Answerer::vniHook);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(vniConfig().hwInit(), vniStatus().hwInit());
  EXPECT_EQ(vniConfig().hwCleanup(), vniStatus().hwCleanup());
  EXPECT_EQ(stackFailure(), "");
  vtiUp(kVxlan1);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::initialized_);
}

}  // namespace
}  // namespace FabTest

// The invariants of VniSm end the process with their expression: a platform
// whose answers break the handshake, and a map that falls out of step with
// what verification finds.

#include <gtest/gtest.h>

#include "tests/vni/VniFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

class VniDeathTest : public VniFixture {
 protected:
  VniDeathTest() : VniFixture(platformWith(0.1)) {}
  void mapped() {
    vlansActive(10, 10);
    maps(10, 10010);
    vtiUp(kVxlan1);
    platform().settle();
    ASSERT_EQ(shadowVni(10), 10010U);
  }
  // The platform writes a status row of its own accord.
  void platformAnswers(FabTypes::TableAddStatus result, std::uint32_t vni = 10010) {
    vniStatus().statusEntryIs(
        FabHelper::FabHelperVniStatusEntry(Bridging::VlanId(10), Vxlan::VniExtOrNone(vni), kVxlan1, result));
  }
};

TEST_F(VniDeathTest, APlatformAnswerOutOfTurnEndsTheProcess) {
  mapped();
  // An init answer with the feature up.
  EXPECT_DEATH(
      {
        vniStatus().hwInitIs(0);
        vniStatus().hwInitIs(1);
      },
      literal("( vxlanInfoState == FabVxlanState::initializing_ ) || ( vxlanInfoState == FabVxlanState::cleaning_ )"));
  EXPECT_DEATH(vniStatus().hwCleanupIs(7), literal("vxlanInfoState == FabVxlanState::cleaning_"));
  // A result that is neither success nor full.
  maps(10, 20010);
  platform().settle();
  EXPECT_DEATH(platformAnswers(FabTypes::failure_, 20010), literal("ret == FabTypes::success_"));
}

TEST_F(VniDeathTest, ACleanupAnsweredWithRowsLeftEndsTheProcess) {
  mapped();
  remoteMacsOn(10);
  vtiUp(kVxlan1, false);
  platform().runFor(0.05);
  ASSERT_EQ(info().state(), FabVxlanState::cleaning_);
  ASSERT_EQ(vniConfig().hwCleanup(), vniStatus().hwCleanup());
  // The platform says it cleaned up what was never asked of it.
  std::uint32_t const asked = vniConfig().hwCleanup();
  EXPECT_DEATH(
      {
        vniStatus().hwCleanupIs(asked + 1);
        vniStatus().hwCleanupIs(asked);
      },
      literal("config->configEntrys() == 0"));
}

TEST_F(VniDeathTest, VerificationFindsARowThePlatformDroppedBehindTheMachinesBack) {
  mapped();
  platform().acsd()->verifyData()->verifyRequiredIs(true);
  // The platform forgets its answer: the row looks in flight, but nothing is queued.
  EXPECT_DEATH(
      {
        vniStatus().statusEntryDel(Bridging::VlanId(10));
        platform().acsd()->verifyData()->doRequestVerify();
        platform().runUntilIdle();
      },
      literal("!!updateList( vlanId ) && !dirtyVlan( vlanId )"));
}

using SmallTableDeathTest = SmallTableFixture;

TEST_F(SmallTableDeathTest, VerificationFindsAMarkOrAShadowRowGoneMissing) {
  tableFilledThenVlan12();
  ASSERT_EQ(statusRow(12).tableAddStatus(), FabTypes::full_);
  Fab::VerifyData& verify = *platform().acsd()->verifyData();
  // All in step: verification passes.
  verify.verifyIs(verify.verify() + 1);

  EXPECT_DEATH(
      {
        platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1)->pendingVlanToVniMapDel(Bridging::VlanId(12));
        verify.verifyIs(verify.verify() + 1);
      },
      literal("!vxlanHwStatus || vxlanHwStatus->pendingVlanToVniMap( vlanId ) == configVni"));
  EXPECT_DEATH(
      {
        platform().vniInfo()->vlanVniMapShadow(kVxlan1)->vlanVniMapDel(Bridging::VlanId(10));
        verify.verifyIs(verify.verify() + 1);
      },
      literal("( vlanVniMapShadow && !!vlanVniMapShadow->vlanVniMap( vlanId ) && "
              "vlanVniMapShadow->vlanVniMap( vlanId ).vni() == configVni"));
}

}  // namespace
}  // namespace FabTest

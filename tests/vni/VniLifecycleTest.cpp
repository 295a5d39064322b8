// VniSm's life: the init and cleanup handshakes with the platform, a stop
// that drains every mapping first, and the recovery of the map across a
// hitless restart; and the defaults of the VNI hook.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/vni/VniFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

class VniLifecycleTest : public VniFixture {
 protected:
  FabVxlanState vniState() { return info().vniSmState(); }
};

TEST_F(VniLifecycleTest, TheHardwareIsCleanedOnlyOnceEveryMappingHasGone) {
  vlansActive(10, 12);
  maps(10, 10010);
  maps(11, 10011);
  vtiUp(kVxlan1);
  EXPECT_EQ(vniState(), FabVxlanState::initializing_);
  EXPECT_EQ(vniConfig().hwInit(), 1U);
  platform().runFor(0.1);
  EXPECT_EQ(vniState(), FabVxlanState::initialized_);
  platform().settle();
  remoteMacsOn(11);

  vtiUp(kVxlan1, false);
  EXPECT_EQ(vniState(), FabVxlanState::cleaning_);
  // The mapping under remote MACs holds the cleanup back.
  platform().runFor(5);
  EXPECT_EQ(vniConfig().hwCleanup(), 0U);
  EXPECT_EQ(vniConfig().configEntrys(), 1U);
  EXPECT_EQ(platform().vniInfo()->validVlanVniMaps(), 0U);

  remoteMacsOn(11, false);
  platform().settle();
  EXPECT_EQ(vniConfig().hwCleanup(), 1U);
  EXPECT_EQ(vniStatus().hwCleanup(), 1U);
  EXPECT_EQ(vniState(), FabVxlanState::clean_);
  EXPECT_FALSE(platform().vniTable().initialized);
}

TEST_F(VniLifecycleTest, AnInitAnsweredWhileCleaningChangesNothingAndTheNextStartGoesOn) {
  vlansActive(10, 10);
  maps(10, 10010);
  vtiUp(kVxlan1);
  vtiUp(kVxlan1, false);
  EXPECT_EQ(info().state(), FabVxlanState::cleaning_);
  platform().runFor(0.1);
  // The init answer came during the cleanup: no initialized_.
  EXPECT_EQ(vniStatus().hwInit(), 1U);
  EXPECT_NE(vniState(), FabVxlanState::initialized_);
  platform().settle();
  ASSERT_EQ(vniState(), FabVxlanState::clean_);

  vtiUp(kVxlan1);
  platform().settle();
  EXPECT_EQ(vniConfig().hwInit(), 2U);
  EXPECT_EQ(vniState(), FabVxlanState::initialized_);
  EXPECT_EQ(shadowVni(10), 10010U);
}

// The VTI comes back while the tunnel layer still cleans: the feature stays
// cleaning_ though VniSm's own cleanup was answered, and the VTI's wishes
// drain away. Another cleanup asked then would be answered into the next
// start.
TEST_F(VniLifecycleTest, AMachineWhoseCleanupWasAnsweredAsksForNoOther) {
  vlansActive(10, 10);
  maps(10, 10010);
  vtiUp(kVxlan1);
  platform().settle();
  platform().answersAre({0, true}, Sim::Platform::Answerer::tunnelLayer);
  vtiUp(kVxlan1, false);
  platform().runFor(5);
  ASSERT_EQ(vniState(), FabVxlanState::clean_);
  ASSERT_EQ(info().state(), FabVxlanState::cleaning_);
  vtiUp(kVxlan1);
  platform().runFor(5);
  EXPECT_EQ(vniConfig().hwCleanup(), 1U);
  platform().answersAre({0, false}, Sim::Platform::Answerer::tunnelLayer);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::initialized_);
  EXPECT_EQ(shadowVni(10), 10010U);
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(VniLifecycleTest, ARestartConfirmsTheRecoveredMappingsThatComeBackAndDropsTheRest) {
  vlansActive(10, 12);
  maps(10, 10010);
  maps(11, 10011);
  maps(12, 10012);
  vtiUp(kVxlan1);
  platform().settle();
  ASSERT_EQ(platform().vniTable().mappings.size(), 3U);

  platform().agentDown();
  maps(11, 20011);
  maps(12, 0);
  platform().agentUp();
  Fab::VXLAN::VxlanBootStatus& boot = *platform().vxlanBootStatus();
  EXPECT_EQ(boot.recoveredVlanToVniMaps(), 3U);
  EXPECT_FALSE(boot.stageVlanVniMappingReady());

  platform().settle();
  EXPECT_TRUE(boot.stageVlanVniMappingReady());
  // VLAN 10 came back as it was and vouches for the hardware; VLAN 11 came
  // back with another VNI, VLAN 12 did not come back.
  EXPECT_EQ(boot.recoveredVlanToVniMaps(), 1U);
  EXPECT_EQ(boot.recoveredVlanToVniMap(Bridging::VlanId(10)).vni().value(), 10010U);
  EXPECT_EQ(shadowVni(11), 20011U);
  EXPECT_EQ(platform().vniTable().mappings.count(Bridging::VlanId(12)), 0U);
}

// The VTI goes before the mapping stage of a hitless restart: the stop ends
// the recovery, the earlier life's rows are swept from the chip, and the
// stage is published for the remote MAC machine that waits on it.
TEST_F(VniLifecycleTest, AStopDuringAHitlessRecoveryEndsIt) {
  vlansActive(10, 11);
  maps(10, 10010);
  maps(11, 10011);
  vtiUp(kVxlan1);
  platform().settle();
  platform().agentDown();
  platform().agentUp();
  Fab::VXLAN::VxlanBootStatus& boot = *platform().vxlanBootStatus();
  ASSERT_FALSE(boot.stageVlanVniMappingReady());
  vtiUp(kVxlan1, false);
  platform().settle();
  EXPECT_TRUE(boot.stageVlanVniMappingReady());
  EXPECT_EQ(vniState(), FabVxlanState::clean_);
  EXPECT_TRUE(platform().vniTable().mappings.empty());
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(VniLifecycleTest, ARecoveredMappingThatDisagreesIsDroppedAsSoonAsItsVlanIsSent) {
  vlansActive(10, 12);
  maps(10, 10010);
  maps(11, 10011);
  vtiUp(kVxlan1);
  platform().settle();

  platform().agentDown();
  maps(11, 20011);
  platform().agentUp();
  while (vniState() != FabVxlanState::initialized_) {
    platform().runFor(0.01);
  }
  holdVniAnswers(true);
  platform().runFor(1);
  // Sent, not yet answered: VLAN 11's recovered mapping no longer vouches for
  // anything, VLAN 10's still does, and the stage waits for the answers.
  Fab::VXLAN::VxlanBootStatus& boot = *platform().vxlanBootStatus();
  EXPECT_FALSE(!!boot.recoveredVlanToVniMap(Bridging::VlanId(11)));
  EXPECT_TRUE(!!boot.recoveredVlanToVniMap(Bridging::VlanId(10)));
  EXPECT_FALSE(boot.stageVlanVniMappingReady());

  holdVniAnswers(false);
  platform().settle();
  EXPECT_TRUE(boot.stageVlanVniMappingReady());
  EXPECT_TRUE(!!boot.recoveredVlanToVniMap(Bridging::VlanId(10)));
  EXPECT_EQ(shadowVni(11), 20011U);
}

// VniSm's own rule, apart from the central machine's (which readies the
// stages when no VTI is up): a VTI in the directory keeps a recovery
// waiting; with none at all, the stage is ready at the first call.
TEST_F(VniLifecycleTest, WithNoVtiTheMappingStageIsReadyAtOnce) {
  platform().vti(kVxlan1);
  Fab::VXLAN::VxlanBootStatus& boot = *platform().vxlanBootStatus();
  auto const recovering = [&boot] {
    boot.vxlanHitlessRestartSupportedIs(true);
    boot.stageVlanVniMappingReadyIs(false);
    boot.recoveredVlanToVniMapIs(Bridging::VlanId(10),
                                 Fab::VXLAN::VniEntry(Bridging::VlanId(10), Vxlan::VniExtOrNone(10010), kVxlan1));
  };
  recovering();
  vniSm().maybePublishVlanVniMappingReadyStage();
  EXPECT_FALSE(boot.stageVlanVniMappingReady());
  platform().vtiDel(kVxlan1);
  recovering();
  vniSm().maybePublishVlanVniMappingReadyStage();
  EXPECT_TRUE(boot.stageVlanVniMappingReady());
}

using VniHookDeathTest = VniFixture;

TEST_F(VniHookDeathTest, TheHookDefaultsAnswerAtOnceAndRefuseWhatOnlyAPlatformKnows) {
  Rxn::Ptr<FabHelper::FabHelperVni> const hook = FabHelper::fabHelperVniFactory("hook");
  hook->handleInitialized();
  Rxn::Ptr<FabHelper::FabHelperVniSm> const sm(new FabHelper::FabHelperVniSm(hook->config(), hook->status()));
  hook->config()->hwInitInc(0);
  EXPECT_EQ(hook->status()->hwInit(), 0U);
  hook->config()->hwInitInc(1);
  EXPECT_EQ(hook->status()->hwInit(), 1U);
  hook->config()->hwCleanupInc(1);
  EXPECT_EQ(hook->status()->hwCleanup(), 1U);
  // The exception the first mapping raises is reported, not lost.
  hook->config()->configEntryIs(FabHelper::FabHelperVniConfigEntry(Bridging::VlanId(10), Vxlan::VniExtOrNone(10010),
                                                                   kVxlan1, FabHelper::vlanVniMapAdded_));
  ASSERT_FALSE(platform().logs().empty());
  EXPECT_NE(platform().logs().back().find("handleVlanVniMap need to be implemented in the derived class"),
            std::string::npos)
      << platform().logs().back();
  EXPECT_FALSE(!!hook->status()->statusEntry(Bridging::VlanId(10)));

  EXPECT_DEATH(hook->verifyHwVni(), "Call to unimplemented FabHelperTunnel::verifyHwVni");
  ::setenv("FAB_NOOP_AGENT", "1", 1);
  hook->verifyHwVni();
  ::unsetenv("FAB_NOOP_AGENT");
}

}  // namespace
}  // namespace FabTest

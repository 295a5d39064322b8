// VtepSm across a restart of the agent: the tunnel layer stands through a
// hitless restart, its generations and active next hops are recovered, what
// does not come back is swept once the remote MACs are ready; a restart that
// is not hitless starts the tunnels over.

#include <gtest/gtest.h>

#include <map>

#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

Sim::PlatformConfig restartingPlatform(bool hitless = true) {
  Sim::PlatformConfig config;
  // The test plays the remote MAC machine.
  config.remoteMacMachine = false;
  config.answerDelay = 0.5;
  config.hitlessRestartSupported = hitless;
  return config;
}

class VtepRestartTest : public SimFixture {
 protected:
  explicit VtepRestartTest(Sim::PlatformConfig const& config = restartingPlatform()) : SimFixture(config) {}
  void tunnelsUp() {
    vtiUp(kVxlan1);
    remoteVtep("10.0.0.2");
    remoteVtep("10.0.0.3");
    platform().settle();
  }
  // A hitless restart after which the remote MAC machine lists only
  // 10.0.0.2 and uses no next hop yet, before its stage is ready.
  void restartWhereOnlyTheFirstVtepComesBack() {
    platform().agentDown();
    platform().vtepConfigDir()->activeNextHopIdListDelAll();
    remoteVtep("10.0.0.3", false);
    platform().agentUp();
    platform().runFor(0.5);
    ASSERT_FALSE(platform().vxlanBootStatus()->stageRemoteMacsReady());
  }
  std::map<std::string, Fab::VXLAN::HwVtepInfo> publishedNow() {
    return {{"10.0.0.2", published("10.0.0.2")}, {"10.0.0.3", published("10.0.0.3")}};
  }
};

TEST_F(VtepRestartTest, TunnelsStandUndisturbedThroughAHitlessRestart) {
  std::map<std::string, Fab::VXLAN::HwVtepInfo> before;
  std::map<std::string, std::uint64_t> generations;
  verifyAcrossRestart(
      [&] {
        tunnelsUp();
        readerUses(publishedNextHop("10.0.0.2"));
        before = publishedNow();
        generations = {{"10.0.0.2", generation("10.0.0.2")}, {"10.0.0.3", generation("10.0.0.3")}};
      },
      [&] {
        EXPECT_EQ(info().vtepSmState(), FabVxlanState::initialized_);
        EXPECT_EQ(publishedNow(), before);
        EXPECT_EQ(generation("10.0.0.2"), generations["10.0.0.2"]);
        EXPECT_EQ(generation("10.0.0.3"), generations["10.0.0.3"]);
        EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 2U);
        EXPECT_TRUE(tunnelConfig().activeNextHopId(before["10.0.0.2"].nextHopId()));
        // The tunnel layer was brought up once, in the first life.
        EXPECT_EQ(tunnelConfig().init(), 1U);
        EXPECT_EQ(platform().tunnelStatus()->init(), 1U);
        EXPECT_EQ(platform().tunnelLayer().tunnelsInUse(), 2U);
      });
  // The new life hands out generations above those it recovered.
  remoteVtep("10.0.0.4");
  EXPECT_GT(generation("10.0.0.4"), generations["10.0.0.3"]);
}

TEST_F(VtepRestartTest, WhatDoesNotComeBackIsSweptWhenTheRemoteMacsAreReady) {
  tunnelsUp();
  std::uint32_t const gone = publishedNextHop("10.0.0.3");
  readerUses(gone);
  readerUses(publishedNextHop("10.0.0.2"));
  ASSERT_NO_FATAL_FAILURE(restartWhereOnlyTheFirstVtepComesBack());
  ASSERT_EQ(info().vtepSmState(), FabVxlanState::initialized_);
  // Until then the stale tunnel and its next hop stand, as the hardware has them.
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 2U);
  EXPECT_TRUE(tunnelConfig().activeNextHopId(Fab::FabNextHopId(gone)));
  EXPECT_EQ(vtepSm().pendingActiveNextHopIds(), 1U);
  EXPECT_TRUE(!!published("10.0.0.3"));

  platform().settle();
  EXPECT_TRUE(platform().vxlanBootStatus()->stageRemoteMacsReady());
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 1U);
  EXPECT_FALSE(tunnelConfig().activeNextHopId(Fab::FabNextHopId(gone)));
  EXPECT_EQ(vtepSm().pendingActiveNextHopIds(), 0U);
  EXPECT_EQ(generation("10.0.0.3"), 0U);
  EXPECT_FALSE(!!published("10.0.0.3"));
  EXPECT_TRUE(published("10.0.0.2").nextHopId().valid());
  EXPECT_EQ(platform().tunnelLayer().tunnelsInUse(), 1U);
  EXPECT_EQ(platform().tunnelLayer().nextHopsInUse(), 1U);
}

// The VTI goes before the remote MACs are ready: the stop ends the recovery,
// whose sweep lets the tunnel that did not come back go at once; the one
// still listed goes with its VTEP, and the stop ends clean.
TEST_F(VtepRestartTest, AStopDuringAHitlessRecoveryEndsIt) {
  tunnelsUp();
  readerUses(publishedNextHop("10.0.0.3"));
  ASSERT_NO_FATAL_FAILURE(restartWhereOnlyTheFirstVtepComesBack());
  ASSERT_EQ(tunnelConfig().tunnelConfigEntrys(), 2U);
  vtiUp(kVxlan1, false);
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 1U);
  EXPECT_EQ(vtepSm().pendingActiveNextHopIds(), 0U);
  remoteVtep("10.0.0.2", false);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(platform().tunnelLayer().tunnelsInUse(), 0U);
  EXPECT_EQ(stackFailure(), "");
}

// The agent keeps the feature's state and restarts while the VNI machine
// still cleans: VtepSm's part was done, and it stays clean to the end.
TEST_F(VtepRestartTest, AMachineThatWasCleanStaysCleanInAKeptCleaningState) {
  vtiUp(kVxlan1);
  platform().settle();
  platform().answersAre({0, true}, Sim::Platform::Answerer::vniHook);
  vtiUp(kVxlan1, false);
  platform().runFor(5);
  ASSERT_EQ(info().vtepSmState(), FabVxlanState::clean_);
  ASSERT_EQ(info().state(), FabVxlanState::cleaning_);
  platform().agentDown();
  platform().agentUp(Sim::OwnState::kept);
  platform().answersAre({0, false}, Sim::Platform::Answerer::vniHook);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(stackFailure(), "");
}

// Two lives started in one instant of the clock that seeds generations, on
// a platform that answers at once: a VTEP that the first life set up and let
// go, its tunnel's removal still unanswered, is asked for anew by the second
// with another generation, so that the layer's answers tell them apart.
class PromptRestartTest : public VtepRestartTest {
 protected:
  PromptRestartTest() : VtepRestartTest(promptly()) {}
  static Sim::PlatformConfig promptly() {
    Sim::PlatformConfig config = restartingPlatform();
    config.answerDelay = 0;
    return config;
  }
};

TEST_F(PromptRestartTest, TwoLivesInOneInstantGiveAVtepTwoGenerations) {
  tunnelsUp();
  platform().restartHitlessly();
  remoteVtep("10.0.0.4");
  std::uint64_t const first = generation("10.0.0.4");
  ASSERT_NE(first, 0U);
  platform().answersAre({0, true}, Sim::Platform::Answerer::tunnelLayer);
  remoteVtep("10.0.0.4", false);
  platform().restartHitlessly();
  platform().answersAre({0, false}, Sim::Platform::Answerer::tunnelLayer);
  remoteVtep("10.0.0.4");
  EXPECT_NE(generation("10.0.0.4"), first);
  platform().settle();
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(VtepRestartTest, ATunnelLayerCleanedBeforeTheRestartEndsIsInitializedAnew) {
  vtiUp(kVxlan1);
  platform().settle();
  platform().restartHitlessly();
  // The VTI goes down before the hook answers: the tunnel layer kept from the
  // earlier life is cleaned up, and the hook's late answer comes after that.
  platform().answersAre({0.5, true}, Sim::Platform::Answerer::hook);
  vtiUp(kVxlan1, false);
  platform().runFor(1);
  EXPECT_EQ(tunnelConfig().cleanup(), 1U);
  EXPECT_EQ(platform().tunnelStatus()->cleanup(), 1U);
  platform().answersAre({0.5, false}, Sim::Platform::Answerer::hook);
  platform().settle();
  ASSERT_EQ(info().vtepSmState(), FabVxlanState::clean_);
  // So the next start cannot take it as standing.
  vtiUp(kVxlan1);
  platform().settle();
  EXPECT_EQ(tunnelConfig().init(), 2U);
  EXPECT_EQ(platform().tunnelStatus()->init(), 2U);
  EXPECT_EQ(info().vtepSmState(), FabVxlanState::initialized_);
}

// The tunnel layer's answers count only in the state they belong to: a
// cleanup of an earlier life answered during the new life's start starts no
// cleanup of the hook, and an init answered after the cleanup that overtook
// it brings no stopped machine back.
TEST_F(VtepRestartTest, LateTunnelLayerAnswersNeitherStopAStartNorStartAStop) {
  using Answerer = Sim::Platform::Answerer;
  vtiUp(kVxlan1);
  platform().settle();
  platform().answersAre({0, true}, Answerer::tunnelLayer);
  vtiUp(kVxlan1, false);
  platform().runUntilIdle();
  ASSERT_NE(tunnelConfig().cleanup(), platform().tunnelStatus()->cleanup());
  platform().restartHitlessly();
  vtiUp(kVxlan1);
  platform().runFor(1);
  ASSERT_EQ(info().vtepSmState(), FabVxlanState::initializing_);
  std::uint32_t const cleanups = hook().hwCleanupConfig();
  platform().answersAre({0, false}, Answerer::tunnelLayer);
  platform().settle();
  EXPECT_EQ(hook().hwCleanupConfig(), cleanups);
  EXPECT_EQ(info().state(), FabVxlanState::initialized_);

  // A start's init is overtaken by the stop's cleanup, and the layer answers
  // the cleanup first.
  vtiUp(kVxlan1, false);
  platform().settle();
  platform().answersAre({0, true}, Answerer::tunnelLayer);
  vtiUp(kVxlan1);
  platform().runFor(1);
  vtiUp(kVxlan1, false);
  platform().runUntilIdle();
  Fab::FabTunnelStatus& status = *platform().tunnelStatus();
  status.cleanupIs(tunnelConfig().cleanup());
  platform().runFor(1);
  ASSERT_EQ(info().vtepSmState(), FabVxlanState::clean_);
  status.initIs(tunnelConfig().init());
  platform().runUntilIdle();
  EXPECT_EQ(info().vtepSmState(), FabVxlanState::clean_);
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
}

// Without generations a tunnel's key is the same in every life. A VTI
// deleted and made again as the agent comes back, before the hook answers,
// takes up its VTEP only when the tunnel of the earlier life already stands
// again: its status is published though the tunnel layer answers nothing new.
class RestartWithoutGenerationsTest : public VtepRestartTest {
 protected:
  RestartWithoutGenerationsTest() : VtepRestartTest(withoutGenerations()) {}
  static Sim::PlatformConfig withoutGenerations() {
    Sim::PlatformConfig config = restartingPlatform();
    config.useUniqGenId = false;
    return config;
  }
};

TEST_F(RestartWithoutGenerationsTest, ATunnelOfAnEarlierLifeTakenUpLateIsPublished) {
  vtiUp(kVxlan1);
  Wire::UdpPort const port = platform().vti(kVxlan1)->udpPort();
  platform().vti(kVxlan2)->udpPortIs(port);
  vtiUp(kVxlan2);
  remoteVtep("10.0.0.2", true, kVxlan2);
  platform().settle();
  std::uint32_t const nextHop = published("10.0.0.2", kVxlan2).nextHopId().value();
  ASSERT_NE(nextHop, 0xFFFFFFFFU);
  platform().agentDown();
  platform().agentUp();
  platform().vtiDel(kVxlan2);
  platform().vti(kVxlan2)->udpPortIs(port);
  vtiUp(kVxlan2);
  platform().settle();
  EXPECT_EQ(published("10.0.0.2", kVxlan2).nextHopId().value(), nextHop);
  EXPECT_EQ(stackFailure(), "");
}

class ColdRestartTest : public VtepRestartTest {
 protected:
  ColdRestartTest() : VtepRestartTest(restartingPlatform(false)) {}
};

TEST_F(ColdRestartTest, ARestartThatIsNotHitlessStartsTheTunnelsOver) {
  tunnelsUp();
  std::uint64_t const gen = generation("10.0.0.2");
  platform().restartHitlessly();
  // Nothing of the earlier life is kept or published...
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 0U);
  EXPECT_FALSE(!!published("10.0.0.2"));
  // ...but the tunnel layer still stands, so it is not initialized again.
  EXPECT_TRUE(vtepSm().hwRestart());
  platform().settle();
  EXPECT_EQ(tunnelConfig().init(), 1U);
  EXPECT_TRUE(published("10.0.0.2").nextHopId().valid());
  EXPECT_GT(generation("10.0.0.2"), gen);
}

}  // namespace
}  // namespace FabTest

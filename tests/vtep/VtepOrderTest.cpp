// Orders of events that once broke VtepSm: an init answer that a cleanup
// overtook after a start over a standing tunnel layer, and several VTIs that
// share the chip's UDP port and the one VRF of all tunnels.

#include <gtest/gtest.h>

#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;
using Answerer = Sim::Platform::Answerer;

class VtepOrderTest : public SimFixture {
 protected:
  VtepOrderTest() : SimFixture(playingRemoteMacs()) {}
  // The agent restarts over the standing tunnel layer and its new hook is
  // slow: the machine waits in initializing_ for the hook's init answer.
  void restartWithASlowHook() {
    vtiUp(kVxlan1);
    platform().settle();
    platform().agentDown();
    platform().answersAre({0, true}, Answerer::vtepHook);
    platform().agentUp();
    platform().runUntilIdle();
    ASSERT_EQ(info().vtepSmState(), FabVxlanState::initializing_);
  }
};

TEST_F(VtepOrderTest, AnInitAnswerThatACleanupOvertookBringsNoTunnelLayerUp) {
  ASSERT_NO_FATAL_FAILURE(restartWithASlowHook());
  // The VTI goes before the hook answers: the tunnel layer is cleaned first.
  vtiUp(kVxlan1, false);
  platform().runFor(1);
  platform().answersAre({0, false}, Answerer::vtepHook);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(tunnelConfig().init(), tunnelConfig().cleanup());
  EXPECT_EQ(platform().tunnelStatus()->init(), platform().tunnelStatus()->cleanup());
  EXPECT_EQ(stackFailure(), "");
}

// The same, with the tunnel layer slow too: the hook's init answer comes in
// while the stop waits for the tunnel layer, and asks that layer for nothing.
TEST_F(VtepOrderTest, AnInitAnswerDuringTheCleanupAsksTheTunnelLayerForNothing) {
  ASSERT_NO_FATAL_FAILURE(restartWithASlowHook());
  platform().answersAre({0, true}, Answerer::tunnelLayer);
  vtiUp(kVxlan1, false);
  platform().runFor(1);
  ASSERT_EQ(info().vtepSmState(), FabVxlanState::cleaning_);
  std::uint32_t const init = tunnelConfig().init();
  platform().answersAre({0, false}, Answerer::vtepHook);
  platform().runFor(1);
  EXPECT_EQ(tunnelConfig().init(), init);
  platform().answersAre({0, false}, Answerer::tunnelLayer);
  platform().settle();
  EXPECT_EQ(info().state(), FabVxlanState::clean_);
  EXPECT_EQ(stackFailure(), "");
}

TEST_F(VtepOrderTest, SeveralVtisShareThePortAndTheVrfOfTheTunnels) {
  for (Wire::IntfId const& vti : {kVxlan1, kVxlan2}) {
    platform().vti(vti)->udpPortIs(Wire::UdpPort(4789));
    vtiUp(vti);
  }
  platform().settle();
  ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  remoteVtep("10.0.0.2");
  platform().settle();
  std::uint32_t const first = publishedNextHop("10.0.0.2");
  ASSERT_NE(first, 0xFFFFFFFFU);

  // Vxlan1 flaps while Vxlan2 keeps the feature up: its tunnel is published
  // again, though nothing about it changed.
  vtiUp(kVxlan1, false);
  EXPECT_FALSE(!!platform().vtepStatusDir()->vtepStatus(kVxlan1));
  vtiUp(kVxlan1);
  platform().settle();
  EXPECT_EQ(publishedNextHop("10.0.0.2"), first);
  EXPECT_EQ(stackFailure(), "");

  // Vxlan2 goes: the port stays for Vxlan1, and so does the VRF, so that the
  // tunnel layer's next answer for Vxlan1's VTEP is taken.
  vtiUp(kVxlan2, false);
  platform().settle();
  EXPECT_EQ(hook().udpPortConfig(), Wire::UdpPort(4789));
  EXPECT_EQ(vtepSm().vrfToVti(Fab::VrfId()), kVxlan1);
  ASSERT_TRUE(platform().tunnelLayer().switchNextHop(Wire::IpAddr::fromString("10.0.0.2")));
  platform().settle();
  EXPECT_NE(publishedNextHop("10.0.0.2"), first);
  EXPECT_EQ(stackFailure(), "");
}

// A VTEP drains (its next hop still in use), its VTI flaps, and it is listed
// again: its tunnel stood all along, and is published again.
TEST_F(VtepOrderTest, ADrainingVtepListedAgainAfterAFlapIsPublished) {
  vtiUp(kVxlan1);
  platform().settle();
  remoteVtep("10.0.0.2");
  platform().settle();
  std::uint32_t const nextHop = publishedNextHop("10.0.0.2");
  readerUses(nextHop);
  remoteVtep("10.0.0.2", false);
  ASSERT_EQ(publishedNextHop("10.0.0.2"), nextHop);
  // Another VTI keeps the feature up while Vxlan1 flaps.
  platform().vti(kVxlan2)->udpPortIs(platform().vti(kVxlan1)->udpPort());
  vtiUp(kVxlan2);
  platform().settle();
  vtiUp(kVxlan1, false);
  vtiUp(kVxlan1);
  platform().settle();
  remoteVtep("10.0.0.2");
  platform().settle();
  EXPECT_EQ(publishedNextHop("10.0.0.2"), nextHop);
  EXPECT_EQ(stackFailure(), "");
}

// The remote MAC machine may list a VTEP and take it away again before the
// VTI's tunnel layer is ready: VtepSm has nothing to remove.
TEST_F(VtepOrderTest, AVtepListedAndTakenAwayBeforeTheVtiIsReadyLeavesNothing) {
  platform().answersAre({0, true}, Answerer::vtepHook);
  vtiUp(kVxlan1);
  remoteVtep("10.0.0.2");
  remoteVtep("10.0.0.2", false);
  platform().answersAre({0, false}, Answerer::vtepHook);
  platform().settle();
  EXPECT_FALSE(published("10.0.0.2"));
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 0u);
  EXPECT_EQ(stackFailure(), "");
}

}  // namespace
}  // namespace FabTest

// VtepSm's life: the bring-up and take-down handshakes with the VTEP hook and
// the tunnel layer, the VTI's attributes reaching the hook, and the requests
// of the data path learning mode, on the simulated platform.

#include <gtest/gtest.h>

#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

Sim::PlatformConfig answeringAfter(double seconds) {
  Sim::PlatformConfig config;
  // The test plays the remote MAC machine.
  config.remoteMacMachine = false;
  config.answerDelay = seconds;
  return config;
}

class VtepLifecycleTest : public SimFixture {
 protected:
  VtepLifecycleTest() : SimFixture(answeringAfter(1.0)) {}
  FabVxlanState vtepState() { return info().vtepSmState(); }
  Wire::IpAddr chipLocalVtep() {
    auto const& table = platform().vtepHardware().localVtepSrcIp;
    auto const found = table.find(kVxlan1);
    return found == table.end() ? Wire::IpAddr() : found->second;
  }
};

TEST_F(VtepLifecycleTest, TheHelperComesUpFirstAndGoesDownLastAroundTheTunnelLayer) {
  Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
  vti->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
  vti->udpPortIs(Wire::UdpPort(4789));
  vtiUp(kVxlan1);
  EXPECT_EQ(vtepState(), FabVxlanState::initializing_);
  EXPECT_EQ(hook().hwInitConfig(), 1U);
  EXPECT_EQ(tunnelConfig().init(), 0U);
  // Not ready yet: the hook is held neutral.
  EXPECT_EQ(chipLocalVtep(), Wire::IpAddr());
  EXPECT_EQ(hook().udpPortConfig(), Wire::UdpPort());

  platform().runFor(1);
  EXPECT_EQ(hook().hwInitStatus(), 1U);
  EXPECT_EQ(tunnelConfig().init(), 1U);
  EXPECT_EQ(vtepState(), FabVxlanState::initializing_);

  platform().runFor(1);
  EXPECT_EQ(vtepState(), FabVxlanState::initialized_);
  EXPECT_EQ(info().state(), FabVxlanState::initialized_);
  Vxlan::VxlanHwStatus const& hw = *platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1);
  EXPECT_EQ(hw.portId(), Sim::VtepHardware::kTunnelPortId);
  EXPECT_EQ(hw.cpuSourcePortId(), Sim::VtepHardware::kCpuSourcePortId);
  EXPECT_EQ(chipLocalVtep(), Wire::IpAddr::fromString("10.0.0.1"));
  EXPECT_EQ(hook().udpPortConfig(), Wire::UdpPort(4789));
  EXPECT_TRUE(vtepSm().vtepEventSm());

  remoteVtep("10.0.0.2");
  platform().runFor(1);
  ASSERT_TRUE(published("10.0.0.2").nextHopId().valid());

  // Down with a tunnel standing: the VTI lets go of the hook at once, but the
  // tunnel goes only with its VTEP, and the layers below wait for it.
  vtiUp(kVxlan1, false);
  EXPECT_EQ(vtepState(), FabVxlanState::cleaning_);
  EXPECT_FALSE(vtepSm().vtepEventSm());
  EXPECT_EQ(chipLocalVtep(), Wire::IpAddr());
  EXPECT_EQ(hook().udpPortConfig(), Wire::UdpPort());
  platform().runFor(5);
  EXPECT_EQ(tunnelConfig().cleanup(), 0U);
  EXPECT_EQ(hook().hwCleanupConfig(), 0U);
  // Up again while cleaning: the cleanup still runs to its end.
  vtiUp(kVxlan1);
  EXPECT_EQ(info().state(), FabVxlanState::cleaning_);

  remoteVtep("10.0.0.2", false);
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 0U);
  platform().runFor(1);
  EXPECT_EQ(tunnelConfig().cleanup(), tunnelConfig().init());
  EXPECT_EQ(hook().hwCleanupConfig(), 0U);
  platform().runFor(1);
  EXPECT_EQ(hook().hwCleanupConfig(), 1U);
  EXPECT_EQ(vtepState(), FabVxlanState::cleaning_);
  // Clean, and since the VTI is up, at once a whole new start: the helper
  // first again, then a tunnel init of its own.
  platform().runFor(1);
  EXPECT_EQ(hook().hwCleanupStatus(), 1U);
  EXPECT_EQ(info().state(), FabVxlanState::initializing_);
  EXPECT_EQ(hook().hwInitConfig(), 2U);
  platform().runFor(2);
  EXPECT_EQ(tunnelConfig().init(), 2U);
  EXPECT_EQ(vtepState(), FabVxlanState::initialized_);
}

TEST_F(VtepLifecycleTest, GatedAttributesWaitForTheReadyVtiAndLoseNothing) {
  Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
  vti->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
  vti->vArpVtepAddrIs(Wire::IpAddr::fromString("10.0.0.100"));
  vti->controllerClientModeIs(true);
  vti->controllerClientL3ModeIs(true);
  vti->vxlanNsSnoopingIs(true);
  vti->controllerControlPlaneIs(true);
  platform().runUntilIdle();
  EXPECT_EQ(chipLocalVtep(), Wire::IpAddr());
  EXPECT_FALSE(info().controllerClientMode());
  EXPECT_FALSE(hook().controllerClientL3Mode());
  // These do not wait.
  EXPECT_TRUE(hook().vxlanNsSnooping());
  EXPECT_TRUE(info().controllerControlPlane());

  vtiUp(kVxlan1);
  platform().runFor(2);
  ASSERT_EQ(vtepState(), FabVxlanState::initialized_);
  EXPECT_EQ(chipLocalVtep(), Wire::IpAddr::fromString("10.0.0.1"));
  EXPECT_EQ(platform().vtepHardware().varpVtepSrcIp.at(kVxlan1), Wire::IpAddr::fromString("10.0.0.100"));
  EXPECT_TRUE(info().controllerClientMode());
  EXPECT_TRUE(hook().controllerClientL3Mode());

  vtiUp(kVxlan1, false);
  EXPECT_FALSE(hook().controllerClientL3Mode());
  EXPECT_FALSE(hook().vxlanNsSnooping());
  EXPECT_TRUE(platform().vtepHardware().varpVtepSrcIp.empty());
}

TEST_F(VtepLifecycleTest, OneLearningRequestIsOutAndTheGoalThatStandsAtItsEndIsReached) {
  Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
  vtiUp(kVxlan1);
  platform().runFor(2);
  ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  // The start tells the new hook what the machine starts from.
  EXPECT_EQ(hook().dataPathLearningEnableConfig(), 1U);

  // The goal flips twice while a request is out: no second request, and the
  // answer publishes the goal it started from.
  vti->datapathLearningIs(false);
  EXPECT_EQ(hook().dataPathLearningDisableConfig(), 1U);
  EXPECT_TRUE(info().datapathLearning());
  vti->datapathLearningIs(true);
  vti->datapathLearningIs(false);
  platform().runFor(1);
  EXPECT_EQ(hook().dataPathLearningDisableConfig(), 1U);
  EXPECT_EQ(hook().dataPathLearningEnableConfig(), 1U);
  EXPECT_FALSE(info().datapathLearning());
  EXPECT_FALSE(platform().vtepHardware().dataPathLearning);

  // The goal changes for good while the platform works: the answer asks
  // again, and only the last goal is published.
  vti->datapathLearningIs(true);
  EXPECT_EQ(hook().dataPathLearningEnableConfig(), 2U);
  vti->datapathLearningIs(false);
  vti->controllerClientModeIs(true);
  EXPECT_FALSE(info().controllerClientMode());  // left to the end of the request
  platform().runFor(1);
  EXPECT_EQ(hook().dataPathLearningDisableConfig(), 2U);
  EXPECT_FALSE(info().datapathLearning());
  EXPECT_FALSE(info().controllerClientMode());
  platform().runFor(1);
  EXPECT_FALSE(info().datapathLearning());
  EXPECT_TRUE(info().controllerClientMode());

  // The mode alone needs no request, so it may run ahead of learning.
  vti->controllerClientModeIs(false);
  EXPECT_FALSE(info().controllerClientMode());
  EXPECT_FALSE(info().datapathLearning());
  EXPECT_EQ(hook().dataPathLearningDisableConfig() + hook().dataPathLearningEnableConfig(), 4U);
}

TEST_F(VtepLifecycleTest, AnAnswerWhileCleaningIsDroppedAndTheCleanMachineStartsOver) {
  Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
  vti->controllerClientModeIs(true);
  vtiUp(kVxlan1);
  platform().runFor(2);
  vti->datapathLearningIs(false);
  vtiUp(kVxlan1, false);
  platform().runFor(1);
  // The platform answered while the feature cleaned: nothing is published.
  EXPECT_EQ(hook().dataPathLearningDisableStatus(), 1U);
  EXPECT_TRUE(info().datapathLearning());
  platform().settle();
  ASSERT_EQ(vtepState(), FabVxlanState::clean_);
  EXPECT_TRUE(info().datapathLearning());
  EXPECT_FALSE(info().controllerClientMode());

  // The next start takes its modes from the VTI in controller client mode,
  // with no request left over to block them.
  vtiUp(kVxlan1);
  EXPECT_EQ(hook().dataPathLearningDisableConfig(), 2U);
  platform().settle();
  EXPECT_FALSE(info().datapathLearning());
  EXPECT_TRUE(info().controllerClientMode());
}

}  // namespace
}  // namespace FabTest

// The invariants of VtepSm end the process with their expression, and so do
// the hook operations a platform must implement but did not.

#include <gtest/gtest.h>

#include <cstdlib>

#include "sim/LearnFrames.h"
#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

Sim::PlatformConfig platformWith(double answerDelay, bool useUniqGenId = true) {
  Sim::PlatformConfig config;
  // The test plays the remote MAC machine.
  config.remoteMacMachine = false;
  config.answerDelay = answerDelay;
  config.useUniqGenId = useUniqGenId;
  return config;
}

class VtepDeathTest : public SimFixture {
 protected:
  explicit VtepDeathTest(Sim::PlatformConfig const& config = platformWith(0)) : SimFixture(config) {}
  void featureUp() {
    vtiUp(kVxlan1);
    platform().settle();
    ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  }
  Fab::TunnelKey keyOf(char const* address) {
    return Fab::TunnelKey(Wire::IpGenAddr(Wire::IpAddr()), Wire::IpGenAddr(Wire::IpAddr::fromString(address)),
                          Fab::VrfId(), generation(address));
  }
};

TEST_F(VtepDeathTest, TheReaderMayListOnlyNextHopsItWasGiven) {
  featureUp();
  remoteVtep("10.0.0.2");
  EXPECT_DEATH(readerUses(4242), literal("!!nextHopInfo( nhId )"));
}

TEST_F(VtepDeathTest, TheTunnelLayerMayNotGiveOneNextHopToTwoTunnels) {
  featureUp();
  remoteVtep("10.0.0.2");
  remoteVtep("10.0.0.3");
  Fab::FabNextHopId const taken = published("10.0.0.2").nextHopId();
  EXPECT_DEATH(platform().tunnelStatus()->tunnelStatusEntry(keyOf("10.0.0.3"))->nextHopIdIs(taken),
               literal("vtepSm()->nextHopInfo( nextHopId ).swTunnelGroupId() == swTunnelGroupId"));
}

TEST_F(VtepDeathTest, TheMachinesMayNotFallOutOfStep) {
  featureUp();
  // A VTI activated without its hardware status.
  EXPECT_DEATH(info().activatedVtiIs(kVxlan2, true), literal("Assertion `vxlanHwStatus' failed"));
  // A feature at rest while this machine still stands.
  EXPECT_DEATH(info().stateIs(FabVxlanState::clean_), literal("vxlanInfo()->vtepSmState() == FabVxlanState::clean_"));
}

class NoGenerationDeathTest : public VtepDeathTest {
 protected:
  NoGenerationDeathTest() : VtepDeathTest(platformWith(0, false)) {}
};

TEST_F(NoGenerationDeathTest, GenerationsSwitchedOnUnderATunnelWithoutOneEndTheProcessAtItsRemoval) {
  featureUp();
  remoteVtep("10.0.0.2");
  hook().useUniqGenIdIs(true);
  EXPECT_DEATH(remoteVtep("10.0.0.2", false), literal("Assertion `genId' failed"));
}

// A platform hook that implements only what every VTI needs at once.
class MinimalHook : public FabHelper::FabHelperVtep {
 public:
  MinimalHook() : FabHelperVtep("minimalHook") {}
  void updateLocalVtepSrcIp(Wire::IntfId const&, Wire::IpAddr const&) override {}
};

// VtepSm on a hook of the platform's own, the handshakes answered by the test.
class OwnHookTest : public SimFixture {
 protected:
  static Sim::PlatformConfig handDriven() {
    Sim::PlatformConfig config;
    // The test plays the remote MAC machine.
    config.remoteMacMachine = false;
    config.subMachines = false;
    return config;
  }
  OwnHookTest() : SimFixture(handDriven()) {}
  void start(Rxn::Ptr<FabHelper::FabHelperVtep> const& hook) {
    Sim::Platform& p = platform();
    hook_ = hook;
    sm_ = Fab::VXLAN::vtepSmFactory(p.acsd(), p.vxlanInfo(), p.vtiStatusDir(), p.vtepConfigDir(), p.vtepStatusDir(),
                                    p.vxlanHwStatusDir(), p.vtepEvent(), p.tunnelConfig(), p.tunnelStatus(), hook,
                                    p.swTunnelGroupIdManager(), p.vxlanBootStatus());
    sm_->handleInitialized();
  }
  // The VTI up, the handshakes answered, the other machines ready.
  void featureUp() {
    vtiUp(kVxlan1);
    hook_->dataPathLearningEnableStatusIs(hook_->dataPathLearningEnableConfig());
    hook_->hwInitStatusIs(hook_->hwInitConfig());
    platform().runUntilIdle();
    info().vniSmStateIs(FabVxlanState::initialized_);
    info().vxlanMacSmStateIs(FabVxlanState::initialized_);
    platform().runUntilIdle();
  }

  Rxn::Ptr<FabHelper::FabHelperVtep> hook_;
  Rxn::Ptr<Fab::VXLAN::VtepSm> sm_;
};

using OwnHookDeathTest = OwnHookTest;

TEST_F(OwnHookDeathTest, AHookThatMissesAnOperationEndsTheProcessAtItsFirstCall) {
  EXPECT_DEATH(
      {
        start(new FabHelper::FabHelperVtep("hook"));
        vtiUp(kVxlan1);
      },
      "Call to unimplemented FabHelperVtep::updateLocalVtepSrcIp");
  start(new MinimalHook);
  featureUp();
  ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  platform().acsd()->verifyData()->verifyRequiredIs(true);
  EXPECT_DEATH(
      {
        platform().acsd()->verifyData()->doRequestVerify();
        platform().runUntilIdle();
      },
      "Call to unimplemented FabHelperVtep::verifyVccMode");
}

// A machine built but not yet started has nothing to undo when a VTI's
// request list goes: it has made no directory for it.
TEST_F(OwnHookTest, AMachineNotYetStartedLetsARequestListGo) {
  remoteVtep("10.0.0.2");
  Sim::Platform& p = platform();
  Rxn::Ptr<Fab::VXLAN::VtepSm> const idle =
      Fab::VXLAN::vtepSmFactory(p.acsd(), p.vxlanInfo(), p.vtiStatusDir(), p.vtepConfigDir(), p.vtepStatusDir(),
                                p.vxlanHwStatusDir(), p.vtepEvent(), p.tunnelConfig(), p.tunnelStatus(),
                                new MinimalHook, p.swTunnelGroupIdManager(), p.vxlanBootStatus());
  p.remoteVtepsWithdrawn(kVxlan1);
  EXPECT_FALSE(idle->initialized());
}

// With FAB_NOOP_AGENT a hook that implements nothing lets everything run: the
// VTI comes up with port ids 0 and no learn event is taken, the maximum of
// remote VTEPs being 0. The child reports what it saw in its exit code.
TEST_F(OwnHookDeathTest, ANoopAgentRunsOnTheDefaultsOfTheHook) {
  auto run = [this] {
    ::setenv("FAB_NOOP_AGENT", "1", 1);
    start(new FabHelper::FabHelperVtep("hook"));
    featureUp();
    Vxlan::VxlanHwStatus const& hw = *platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1);
    Sim::LearnFrameSpec frame;
    std::vector<std::uint8_t> const bytes = Sim::buildLearnFrame(frame);
    int const up = info().state() == FabVxlanState::initialized_ ? 1 : 0;
    int const ports = hw.portId() == 0 && hw.cpuSourcePortId() == 0 ? 2 : 0;
    bool const reading = !!sm_->vtepEventSm();
    platform().learnWire().send(bytes);
    platform().runUntilIdle();
    // Read from the wire, and dropped: not merely never arrived.
    bool const read = !platform().learnWire().pending();
    int const dropped = reading && read && platform().vtepEvent()->genId() == 0 ? 4 : 0;
    std::exit(up | ports | dropped);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace FabTest

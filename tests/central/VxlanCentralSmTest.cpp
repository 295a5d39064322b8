// VxlanCentralSm: the roll-up of the feature state, and the BUM replication
// mode with its flood data, through the entities a platform agent owns.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Trace.h"
#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;
using Mode = Vxlan::BumReplicationMode;
constexpr FabVxlanState initializing_ = FabVxlanState::initializing_;
constexpr FabVxlanState initialized_ = FabVxlanState::initialized_;
constexpr FabVxlanState cleaning_ = FabVxlanState::cleaning_;
constexpr FabVxlanState clean_ = FabVxlanState::clean_;

Sim::PlatformConfig handDriven(bool vtepGroupSupported = false) {
  Sim::PlatformConfig config;
  config.subMachines = false;
  config.vtepGroupSupported = vtepGroupSupported;
  return config;
}

// The sub-states are driven by hand here, as the machines' tests drive them.
class RollUpTest : public SimFixture {
 protected:
  RollUpTest() : SimFixture(handDriven()) {}
  void subStatesAre(FabVxlanState vtep, FabVxlanState vni, FabVxlanState mac) {
    info().vtepSmStateIs(vtep);
    info().vniSmStateIs(vni);
    info().vxlanMacSmStateIs(mac);
  }
  // The roll-up from `current` with `vtis` active VTIs.
  FabVxlanState next(FabVxlanState current, int vtis) {
    info().activatedVtiDel(kVxlan1);
    if (vtis > 0) {
      info().activatedVtiIs(kVxlan1, true);
    }
    info().stateIs(current);
    central().updateVxlanState();
    return info().state();
  }
};

TEST_F(RollUpTest, EveryRowOfTheTable) {
  subStatesAre(initialized_, initialized_, initialized_);
  EXPECT_EQ(next(initializing_, 1), initialized_);
  EXPECT_EQ(next(initialized_, 1), initialized_);
  EXPECT_EQ(next(initialized_, 0), cleaning_);
  EXPECT_EQ(next(clean_, 1), initialized_);  // a hitless restart that kept the hardware
  EXPECT_EQ(next(clean_, 0), clean_);

  subStatesAre(initialized_, initializing_, initialized_);
  EXPECT_EQ(next(initializing_, 1), initializing_);
  EXPECT_EQ(next(initializing_, 0), cleaning_);
  EXPECT_EQ(next(clean_, 1), initializing_);
  EXPECT_EQ(next(cleaning_, 1), cleaning_);
  EXPECT_EQ(next(cleaning_, 0), cleaning_);

  subStatesAre(clean_, clean_, clean_);
  EXPECT_EQ(next(initializing_, 0), clean_);
  EXPECT_EQ(next(cleaning_, 0), clean_);
  // Hardware is clean before it is initialised again.
  EXPECT_EQ(next(cleaning_, 1), initializing_);
}

TEST_F(RollUpTest, TheVtepGroupStateWeighsOnlyOnPlatformsWithGroups) {
  subStatesAre(initialized_, initialized_, initialized_);
  info().vtepGroupSmStateIs(cleaning_);
  EXPECT_EQ(next(initializing_, 1), initialized_);
  info().vtepGroupSmStateIs(initializing_);
  EXPECT_EQ(next(clean_, 1), initialized_);

  central().vtepGroupSupportedIs(true);
  EXPECT_EQ(next(initializing_, 1), initializing_);
  info().vtepGroupSmStateIs(initialized_);
  EXPECT_EQ(next(initializing_, 1), initialized_);
}

TEST_F(RollUpTest, NothingMovesBeforeHandleInitialized) {
  platform().agentDown();
  // A machine made by its factory follows nothing until it is started.
  auto late = Fab::VXLAN::vxlanCentralSmFactory(platform().acsd(), platform().vxlanInfo(), platform().vtiStatusDir(),
                                                platform().l2RibFloodSet(), platform().vxlanHwStatusDir(),
                                                platform().bumStatus(), nullptr);
  vtiUp(kVxlan1);
  late->updateVxlanState();
  EXPECT_FALSE(info().activatedVti(kVxlan1));
  EXPECT_EQ(info().state(), clean_);
  // Without a boot status it is a platform without hitless restart: it
  // touches no stage.
  platform().vxlanBootStatus()->stageBumVtepListReadyIs(false);
  late->handleInitialized();
  EXPECT_TRUE(info().activatedVti(kVxlan1));
  EXPECT_EQ(info().state(), initializing_);
  EXPECT_FALSE(platform().vxlanBootStatus()->stageBumVtepListReady());
}

// What a feature that stays initializing_ or cleaning_ waits on, as the
// agent reads it and as the trace tells it at level 7.
class AwaitedTrace {
 public:
  AwaitedTrace() {
    Rxn::traceConfigIs("FabVxlanCentralSm/7");
    Rxn::traceSinkIs([this](Rxn::String const& line) {
      if (std::size_t const text = line.find(" state "); line.find(" waits on ") != std::string::npos) {
        lines_.push_back(line.substr(text + 1));
      }
    });
  }
  ~AwaitedTrace() {
    Rxn::traceConfigIs("");
    Rxn::traceSinkIs(nullptr);
  }
  std::vector<std::string> take() { return std::exchange(lines_, {}); }

 private:
  std::vector<std::string> lines_;
};

std::vector<std::string> awaited(Fab::VXLAN::VxlanCentralSm const& central) {
  std::vector<std::string> machines;
  for (auto const& [machine, state] : central.awaitedSubMachines()) {
    machines.push_back(std::string(machine) + " " + Rxn::valueToString(state));
  }
  return machines;
}

using Lines = std::vector<std::string>;

TEST_F(RollUpTest, AFeatureThatWaitsTellsOnWhichSubMachines) {
  AwaitedTrace trace;
  subStatesAre(initialized_, initializing_, initializing_);
  EXPECT_EQ(next(initializing_, 1), initializing_);
  EXPECT_EQ(awaited(central()), (Lines{"VniSm initializing_", "VxlanMacAddrSm initializing_"}));
  info().vxlanMacSmStateIs(initialized_);
  EXPECT_EQ(awaited(central()), Lines{"VniSm initializing_"});
  EXPECT_EQ(trace.take(), (Lines{"state initializing_ waits on VniSm initializing_, VxlanMacAddrSm initializing_",
                                 "state initializing_ waits on VniSm initializing_"}));
  // The last answer moves the feature on: it waits on nothing.
  info().vniSmStateIs(initialized_);
  EXPECT_EQ(info().state(), initialized_);
  EXPECT_EQ(awaited(central()), Lines{});

  // Cleaning, on a platform with groups: the group machine is waited on too.
  central().vtepGroupSupportedIs(true);
  info().activatedVtiDel(kVxlan1);
  info().stateIs(cleaning_);
  subStatesAre(clean_, cleaning_, clean_);
  info().vtepGroupSmStateIs(cleaning_);
  EXPECT_EQ(info().state(), cleaning_);
  EXPECT_EQ(awaited(central()), (Lines{"VtepGroupSm cleaning_", "VniSm cleaning_"}));
  trace.take();
  info().vtepGroupSmStateIs(clean_);
  info().vniSmStateIs(clean_);
  EXPECT_EQ(info().state(), clean_);
  EXPECT_EQ(awaited(central()), Lines{});
  EXPECT_EQ(trace.take(), Lines{"state cleaning_ waits on VniSm cleaning_"});
}

using RollUpDeathTest = RollUpTest;

TEST_F(RollUpDeathTest, ASubStateThatLeavesInitializedFirstEndsTheProcess) {
  subStatesAre(initialized_, initialized_, initialized_);
  next(initializing_, 1);
  ASSERT_EQ(info().state(), initialized_);
  EXPECT_DEATH(
      {
        info().activatedVtiDel(kVxlan1);
        info().vniSmStateIs(cleaning_);
      },
      literal(
          "( ( vxlanInfo()->vtepSmState() == FabVxlanState::initialized_ ) && ( vtepGroupSupported() ? "
          "vxlanInfo()->vtepGroupSmState() == FabVxlanState::initialized_ : true ) && ( vxlanInfo()->vniSmState() "
          "== FabVxlanState::initialized_ ) && ( vxlanInfo()->vxlanMacSmState() == FabVxlanState::initialized_ ) )"));
}

// With stand-ins answering after a delay, as the platform would.
class HandshakeTest : public SimFixture {
 protected:
  static Sim::PlatformConfig slowPlatform() {
    Sim::PlatformConfig config;
    config.answerDelay = 1.0;
    return config;
  }
  HandshakeTest() : SimFixture(slowPlatform()) {}
};

TEST_F(HandshakeTest, AVtiLeavingTheDirectoryIsWithdrawnButItsHardwareStatusStays) {
  vtiUp(kVxlan1);
  platform().runFor(2);
  ASSERT_EQ(info().state(), initialized_);
  ASSERT_TRUE(platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1));

  platform().vtiDel(kVxlan1);
  platform().runUntilIdle();
  EXPECT_FALSE(info().activatedVti(kVxlan1));
  EXPECT_EQ(info().state(), cleaning_);
  EXPECT_TRUE(platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1));
  platform().runFor(2);
  EXPECT_EQ(info().state(), clean_);
}

TEST_F(HandshakeTest, DroppingTheMachineWithdrawsVtisUnlessARestartIsComing) {
  vtiUp(kVxlan1);
  platform().runFor(2);
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> const before = platform().vxlanInfo();
  platform().agentDown();
  EXPECT_TRUE(before->activatedVti(kVxlan1));
  platform().agentUp();
  platform().runFor(2);
  ASSERT_TRUE(info().activatedVti(kVxlan1));

  // The machine dropped for good withdraws what it published.
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> const last = platform().vxlanInfo();
  platform().agentDown(Sim::Shutdown::forGood);
  EXPECT_FALSE(last->activatedVti(kVxlan1));
}

// The agent kept the feature's state, initialized_ with Vxlan1 activated;
// Vxlan1 was deleted while it was away. It is forgotten, and since no VTI is
// left, the feature stops and its hardware is cleaned.
TEST_F(HandshakeTest, AVtiDeletedWhileTheAgentIsAwayIsNotActivatedAfterIt) {
  platform().vlanVniIs(kVxlan1, Bridging::VlanId(10), Vxlan::VniExtOrNone(10010));
  platform().bridgingConfig()->vlanConfigIs(Bridging::VlanId(10));
  vtiUp(kVxlan1);
  platform().settle();
  ASSERT_EQ(platform().vniTable().mappings.size(), 1U);
  platform().agentDown();
  platform().vtiDel(kVxlan1);
  platform().agentUp(Sim::OwnState::kept);
  EXPECT_EQ(info().activatedVtis(), 0U);
  EXPECT_TRUE(platform().vxlanBootStatus()->stageRemoteMacsReady());
  platform().settle();
  EXPECT_EQ(info().state(), clean_);
  EXPECT_EQ(info().vniSmState(), clean_);
  EXPECT_EQ(info().vtepSmState(), clean_);
  EXPECT_TRUE(platform().vniTable().mappings.empty());
  EXPECT_EQ(platform().tunnelConfig()->init(), platform().tunnelConfig()->cleanup());
  EXPECT_EQ(stackFailure(), "");
  vtiUp(kVxlan2);
  platform().runFor(2);
  vtiUp(kVxlan2, false);
  platform().runFor(2);
  EXPECT_EQ(info().state(), clean_);
}

TEST_F(HandshakeTest, AnAgentRestartedInTheMiddleOfAHandshakeAsksAgain) {
  vtiUp(kVxlan1);
  platform().runFor(0.5);
  ASSERT_EQ(info().vniSmState(), initializing_);
  platform().restartHitlessly();
  platform().runFor(2);
  EXPECT_EQ(info().state(), initialized_);
}

// Replication decisions, with the feature up.
class ReplicationTest : public SimFixture {
 protected:
  ReplicationTest() {
    vtiUp(kVxlan1);
    platform().runUntilIdle();
  }
  Mode mode() { return bum().bumReplicationMode(); }
  void source(std::uint32_t bits) {
    platform().l2RibFloodSet()->sourceIs(bits);
    platform().runUntilIdle();
  }
  void vlanGroup(int vlan, char const* group) {
    Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
    if (group == nullptr) {
      vti->vlanToGroupDel(Bridging::VlanId(vlan));
    } else {
      vti->vlanToGroupIs(Bridging::VlanId(vlan), Wire::IpAddr::fromString(group));
    }
    platform().runUntilIdle();
  }
};

TEST_F(ReplicationTest, TheModeFollowsSourceBitsGroupsAndFloodLists) {
  ASSERT_EQ(info().state(), initialized_);
  EXPECT_EQ(mode(), Mode::bumRepNone);

  vlanGroup(10, "239.1.1.10");
  vlanGroup(11, "239.1.1.11");
  EXPECT_EQ(mode(), Mode::bumRepMulticast);
  EXPECT_EQ(bum().bumMcastGrp(Bridging::VlanId(10)), Wire::IpAddr::fromString("239.1.1.10"));
  vlanGroup(11, nullptr);
  EXPECT_EQ(bum().bumMcastGrps(), 1U);
  EXPECT_EQ(mode(), Mode::bumRepMulticast);

  source(4);
  EXPECT_EQ(mode(), Mode::bumRepMulticast);
  // A flood destination in multicast mode is not stored as such: the mode is
  // decided again, and the change replays every set in full.
  floodVteps(10, {"10.0.0.2", "10.0.0.3"});
  EXPECT_EQ(mode(), Mode::bumRepHeadEnd);
  EXPECT_EQ(bumVteps(10), "10.0.0.2 10.0.0.3");
  EXPECT_EQ(bum().bumMcastGrps(), 0U);

  // Bits 1 and 2 together: the controller wins.
  source(6);
  EXPECT_EQ(mode(), Mode::bumRepController);
  EXPECT_EQ(bumVteps(10), "10.0.0.2 10.0.0.3");

  // The last flood set going reviews head-end mode: multicast again.
  source(4);
  platform().floodSetDel(Bridging::VlanId(10), kZeroMac);
  platform().runUntilIdle();
  EXPECT_EQ(mode(), Mode::bumRepMulticast);
  EXPECT_EQ(bumVteps(10), "none");
  EXPECT_EQ(bum().bumMcastGrp(Bridging::VlanId(10)), Wire::IpAddr::fromString("239.1.1.10"));

  // Without the configured lists in L2Rib a flood destination stays multicast.
  source(0);
  floodVteps(10, {"10.0.0.9"});
  EXPECT_EQ(mode(), Mode::bumRepMulticast);
  EXPECT_EQ(bum().bumVtepLists(), 0U);

  // The last group of a VTI going reconsiders the mode: no source bit, no group.
  vlanGroup(10, nullptr);
  EXPECT_EQ(mode(), Mode::bumRepNone);
}

TEST_F(ReplicationTest, AnUnchangedModeLeavesTheListsAlone) {
  source(4);
  floodVteps(20, {"10.0.0.5"});
  ASSERT_EQ(mode(), Mode::bumRepHeadEnd);
  // Something else wrote into a list; deciding the same mode again does not rebuild it.
  bum()
      .bumVtepList(Vxlan::MacVlanPair(kZeroMac, Bridging::VlanId(20)))
      ->remoteVtepAddrIs(Wire::IpAddr::fromString("10.9.9.9"), true);
  central().handleBumReplicationMode();
  EXPECT_EQ(bumVteps(20), "10.0.0.5 10.9.9.9");
}

TEST_F(ReplicationTest, AListGoesWithItsLastVtepOrItsFloodSet) {
  Wire::EthAddr const host = Wire::EthAddr::fromString("00:00:00:00:00:01");
  source(4);
  floodVteps(20, {"10.0.0.5"});
  floodVteps(21, {"10.0.0.6", "10.0.0.7"});
  floodVteps(21, {"10.0.0.8"}, host);
  ASSERT_EQ(mode(), Mode::bumRepHeadEnd);

  platform()
      .floodSet(Bridging::VlanId(20), kZeroMac)
      ->destSetDel(L2Rib::vxlanDest(Wire::IpAddr::fromString("10.0.0.5")));
  EXPECT_EQ(bumVteps(20), "none");
  // A flood set leaving its VLAN takes its list; the VLAN's other sets stay.
  platform().l2RibFloodSet()->vlanFloodSet(Bridging::VlanId(21))->floodSetDel(host);
  EXPECT_EQ(bumVteps(21, host), "none");
  EXPECT_EQ(bumVteps(21), "10.0.0.6 10.0.0.7");
  EXPECT_EQ(mode(), Mode::bumRepHeadEnd);
}

TEST_F(ReplicationTest, FloodSetTypesMapToListTypes) {
  source(4);
  Rxn::Ptr<L2Rib::FloodSet> const set = platform().floodSet(Bridging::VlanId(30), kZeroMac);
  set->floodSetTypeIs(L2Rib::FloodSetType::floodSetTypeAny);
  floodVteps(30, {"10.0.0.6"});
  auto list = [this] { return bum().bumVtepList(Vxlan::MacVlanPair(kZeroMac, Bridging::VlanId(30))); };
  EXPECT_EQ(list()->bumVtepIpListType(), Vxlan::BumVtepIpListType::bumVtepIpSendToAny);
  set->floodSetTypeIs(L2Rib::FloodSetType::floodSetTypeAll);
  EXPECT_EQ(list()->bumVtepIpListType(), Vxlan::BumVtepIpListType::bumVtepIpSendToAll);
  // An unknown type leaves the list's type as it was.
  set->floodSetTypeIs(static_cast<L2Rib::FloodSetType>(9));
  EXPECT_EQ(list()->bumVtepIpListType(), Vxlan::BumVtepIpListType::bumVtepIpSendToAll);
}

TEST_F(ReplicationTest, ACleaningFeatureReplicatesNothingUnlessARestartKeepsTheMode) {
  source(4);
  floodVteps(10, {"10.0.0.2"});
  ASSERT_EQ(mode(), Mode::bumRepHeadEnd);
  // The feature cleans, its VTI still up, before the sub-machines answer.
  info().stateIs(cleaning_);
  ASSERT_TRUE(central().isVtiOperStatusUp());

  central().inHitlessRestartIs(true);
  central().handleBumReplicationMode();
  EXPECT_EQ(mode(), Mode::bumRepHeadEnd);
  EXPECT_EQ(bumVteps(10), "10.0.0.2");

  central().inHitlessRestartIs(false);
  central().handleBumReplicationMode();
  EXPECT_EQ(mode(), Mode::bumRepNone);
  EXPECT_EQ(bum().bumVtepLists(), 0U);
}

using ReplicationDeathTest = ReplicationTest;

TEST_F(ReplicationDeathTest, AFloodDestinationThatIsNoVtepEndsTheProcess) {
  source(4);
  floodVteps(10, {"10.0.0.2"});
  L2Rib::Dest port;
  port.destTypeIs(L2Rib::DestType::destTypeIntf);
  port.intfIs(Wire::IntfId("Ethernet1"));
  EXPECT_DEATH(platform().floodSet(Bridging::VlanId(10), kZeroMac)->destSetIs(port, true),
               literal("dest.destType() == L2Rib::destTypeVxlan()"));
}

// A hitless restart: the lists of the previous life stay where L2Rib
// confirms them, and the rest goes.
class HitlessRestartTest : public SimFixture {};

TEST_F(HitlessRestartTest, ConfirmedEntriesStayAndStaleOnesGo) {
  vtiUp(kVxlan1);
  platform().l2RibFloodSet()->sourceIs(4);
  floodVteps(10, {"10.0.0.2", "10.0.0.3"});
  floodVteps(20, {"10.0.0.4"});
  ASSERT_EQ(bum().bumReplicationMode(), Mode::bumRepHeadEnd);

  platform().agentDown();
  // While the agent is away, L2Rib loses a VTEP and a whole list.
  platform()
      .floodSet(Bridging::VlanId(10), kZeroMac)
      ->destSetDel(L2Rib::vxlanDest(Wire::IpAddr::fromString("10.0.0.3")));
  platform().floodSetDel(Bridging::VlanId(20), kZeroMac);
  // The lists as the previous life left them: the restart starts from these.
  EXPECT_EQ(bumVteps(10), "10.0.0.2 10.0.0.3");
  EXPECT_EQ(bumVteps(20), "10.0.0.4");
  platform().agentUp();

  EXPECT_EQ(bum().bumReplicationMode(), Mode::bumRepHeadEnd);
  EXPECT_EQ(bumVteps(10), "10.0.0.2");
  EXPECT_EQ(bumVteps(20), "none");
  EXPECT_FALSE(central().inHitlessRestart());
  EXPECT_TRUE(central().hitlessRestartEntries().empty());
  EXPECT_TRUE(platform().vxlanBootStatus()->stageBumVtepListReady());
  // A VTI is up: the later stages belong to the VNI and MAC machines.
  EXPECT_FALSE(platform().vxlanBootStatus()->stageVlanVniMappingReady());
}

// The replication mode is decided once the machine is initialized, inside
// its start: a restart that keeps the feature's state (no change of state
// follows) still confirms the lists L2Rib has, and a group added while the
// agent was away reaches bumMcastGrp though the mode does not change.
TEST_F(HitlessRestartTest, TheDecisionAtTheStartConfirmsKeptListsAndFillsNewGroups) {
  vtiUp(kVxlan1);
  platform().l2RibFloodSet()->sourceIs(4);
  floodVteps(10, {"10.0.0.2"});
  ASSERT_EQ(bum().bumReplicationMode(), Mode::bumRepHeadEnd);
  platform().restartHitlessly(Sim::OwnState::kept);
  EXPECT_EQ(bum().bumReplicationMode(), Mode::bumRepHeadEnd);
  EXPECT_EQ(bumVteps(10), "10.0.0.2");

  platform().l2RibFloodSet()->sourceIs(0);
  platform().floodSetDel(Bridging::VlanId(10), kZeroMac);
  platform().vti(kVxlan1)->vlanToGroupIs(Bridging::VlanId(10), Wire::IpAddr::fromString("239.1.1.10"));
  platform().runUntilIdle();
  ASSERT_EQ(bum().bumReplicationMode(), Mode::bumRepMulticast);
  platform().agentDown();
  platform().vti(kVxlan1)->vlanToGroupIs(Bridging::VlanId(20), Wire::IpAddr::fromString("239.1.1.20"));
  platform().agentUp();
  EXPECT_EQ(bum().bumReplicationMode(), Mode::bumRepMulticast);
  EXPECT_EQ(bum().bumMcastGrp(Bridging::VlanId(20)), Wire::IpAddr::fromString("239.1.1.20"));
  EXPECT_EQ(bum().bumMcastGrp(Bridging::VlanId(10)), Wire::IpAddr::fromString("239.1.1.10"));
}

TEST_F(HitlessRestartTest, WithNoVtiUpEveryRecoveryStageIsReadyAtOnce) {
  platform().agentDown();
  platform().agentUp();
  Fab::VXLAN::VxlanBootStatus const& boot = *platform().vxlanBootStatus();
  EXPECT_TRUE(boot.stageBumVtepListReady());
  EXPECT_TRUE(boot.stageVlanVniMappingReady());
  EXPECT_TRUE(boot.stageRemoteMacsReady());
}

// Toggles are read once per process: each case runs in a process of its own,
// and reports what it saw as the bits of its exit code.
class ToggleDeathTest : public SimFixture {
 protected:
  ToggleDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  enum Seen { controllerMode = 1, ignored = 2, listsKept = 4, ignoredWithConfiguredLists = 8, ignoredWithoutVcc = 16 };
  // Controller flood sets without the configured lists, for a VTI in
  // controller client mode; then with them; then without the client mode.
  int whatControllerModeDoesWithCliLists() {
    Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
    vti->controllerClientModeIs(true);
    vtiUp(kVxlan1);
    floodVteps(10, {"10.0.0.2"});
    platform().l2RibFloodSet()->sourceIs(2);
    platform().runUntilIdle();
    int seen = 0;
    seen |= bum().bumReplicationMode() == Mode::bumRepController ? controllerMode : 0;
    seen |= central().ignoreCliFloodLists() ? ignored : 0;
    seen |= bum().bumVtepLists() > 0 ? listsKept : 0;
    platform().l2RibFloodSet()->sourceIs(6);
    seen |= central().ignoreCliFloodLists() ? ignoredWithConfiguredLists : 0;
    platform().l2RibFloodSet()->sourceIs(2);
    vti->controllerClientModeIs(false);
    seen |= central().ignoreCliFloodLists() ? ignoredWithoutVcc : 0;
    return seen;
  }
};

TEST_F(ToggleDeathTest, PerVniControlPlaneDecidesWhetherCliFloodListsCount) {
  ::setenv("FABVXLAN_TOGGLE_PerVniControlPlane", "off", 1);
  EXPECT_EXIT(std::exit(whatControllerModeDoesWithCliLists()), ::testing::ExitedWithCode(controllerMode | ignored), "");
  ::setenv("FABVXLAN_TOGGLE_PerVniControlPlane", "on", 1);
  EXPECT_EXIT(std::exit(whatControllerModeDoesWithCliLists()), ::testing::ExitedWithCode(controllerMode | listsKept),
              "");
  ::unsetenv("FABVXLAN_TOGGLE_PerVniControlPlane");
}

}  // namespace
}  // namespace FabTest

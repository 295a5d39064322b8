// VtiStatusDirSm: each attribute of each VTI handed to the platform's hooks.
// The platform here is the simulated one, whose machine records every hook
// call as a line of text.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/Log.h"
#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "sim/SimVtiStatusDirSm.h"

namespace FabTest {
namespace {

using Lines = std::vector<std::string>;
using Fab::VXLAN::VtiStatusDirSm;
using Sim::SimVtiStatusDirSm;

Wire::IntfId const kVxlan1("Vxlan1");
Wire::IntfId const kVxlan2("Vxlan2");

Wire::IpAddr ip(char const* text) {
  return Wire::IpAddr::fromString(text);
}

// Everything of a VTI that reaches the platform.
struct VtiConfig {
  int udpPort;
  bool vtepToVtepBridging;
  char const* prunedVtep;
  bool vtepSourcePruningAll;
  char const* localVtepAddr;
  char const* localVtepAddr6;
  char const* mlagVtepAddr;
  char const* mcastGrp;
  char const* vArpVtepAddr;
  char const* vtepAddrMask;
  char const* mlagSharedRouterMac;
  Interface::IntfOperStatus operStatus;
  bool vxlanNsSnooping;
};

VtiConfig const kFirst{
    .udpPort = 4789,
    .vtepToVtepBridging = true,
    .prunedVtep = "10.9.9.1",
    .vtepSourcePruningAll = true,
    .localVtepAddr = "10.0.0.1",
    .localVtepAddr6 = "2001:db8::1",
    .mlagVtepAddr = "10.0.0.100",
    .mcastGrp = "239.1.1.1",
    .vArpVtepAddr = "10.0.0.200",
    .vtepAddrMask = "255.255.255.0",
    .mlagSharedRouterMac = "0011.2233.4455",
    .operStatus = Interface::IntfOperStatus::intfOperUp,
    .vxlanNsSnooping = true,
};
// Every value differs from kFirst but bridging, which stays on for the pruning.
VtiConfig const kSecond{
    .udpPort = 4790,
    .vtepToVtepBridging = true,
    .prunedVtep = "10.9.9.2",
    .vtepSourcePruningAll = false,
    .localVtepAddr = "10.0.0.2",
    .localVtepAddr6 = "2001:db8::2",
    .mlagVtepAddr = "10.0.0.101",
    .mcastGrp = "239.1.1.2",
    .vArpVtepAddr = "10.0.0.201",
    .vtepAddrMask = "255.255.0.0",
    .mlagSharedRouterMac = "0011.2233.4466",
    .operStatus = Interface::IntfOperStatus::intfOperDown,
    .vxlanNsSnooping = false,
};

void configure(Vxlan::VtiStatus& vti, VtiConfig const& config) {
  vti.udpPortIs(Wire::UdpPort(config.udpPort));
  vti.vtepToVtepBridgingIs(config.vtepToVtepBridging);
  vti.vtepSetForSourcePruningIs(ip(config.prunedVtep), true);
  vti.vtepSourcePruningAllIs(config.vtepSourcePruningAll);
  vti.localVtepAddrIs(ip(config.localVtepAddr));
  vti.localVtepAddr6Is(Wire::Ip6Addr::fromString(config.localVtepAddr6));
  vti.mlagVtepAddrIs(ip(config.mlagVtepAddr));
  vti.mcastGrpDecapIs(ip(config.mcastGrp), true);
  vti.vArpVtepAddrIs(ip(config.vArpVtepAddr));
  vti.vtepAddrMaskIs(ip(config.vtepAddrMask));
  vti.mlagSharedRouterMacAddrIs(Wire::EthAddr::fromString(config.mlagSharedRouterMac));
  vti.operStatusIs(config.operStatus);
  vti.vxlanNsSnoopingIs(config.vxlanNsSnooping);
}

// The start of a VTI configured with kFirst, in the order the platform hears it.
Lines const kFirstStart = {
    "doInitialize Vxlan1",
    "doSetupVxlanDestUdpPort Vxlan1 4789",
    "doSetupVtepToVtepBridging Vxlan1 true",
    "doSetupVtepSourcePruningAll Vxlan1 true",
    "doSetupVtepForSourcePruning Vxlan1 10.9.9.1 true",
    "doSetupVxlanSrcAddr Vxlan1 10.0.0.1",
    "doSetupVxlanSrcAddrV6 Vxlan1 2001:db8::1",
    "doSetupMlagVtepAddr Vxlan1 10.0.0.100",
    "doSetupMcastGrpDecap Vxlan1 239.1.1.1",
    "doSetupVxlanVarpVtepAddr Vxlan1 10.0.0.200",
    "doSetupVxlanVtepAddrMask Vxlan1 255.255.255.0",
    "doSetupVxlanMlagSharedRouterMac Vxlan1 0011.2233.4455",
    "doUpdateOperStatus Vxlan1 intfOperUp",
    "doSetupVxlanNdMcastSnooping Vxlan1 true",
};

// The start of a VTI with nothing configured: no group, no pruning.
Lines emptyVtiStart(char const* vti) {
  Lines lines = {
      "doInitialize %",
      "doSetupVxlanDestUdpPort % 0",
      "doSetupVtepToVtepBridging % false",
      "doSetupVxlanSrcAddr % 0.0.0.0",
      "doSetupVxlanSrcAddrV6 % ::",
      "doSetupMlagVtepAddr % 0.0.0.0",
      "doSetupVxlanVarpVtepAddr % 0.0.0.0",
      "doSetupVxlanVtepAddrMask % 0.0.0.0",
      "doSetupVxlanMlagSharedRouterMac % 0000.0000.0000",
      "doUpdateOperStatus % intfOperDown",
      "doSetupVxlanNdMcastSnooping % false",
  };
  for (std::string& line : lines) {
    line.replace(line.find('%'), 1, vti);
  }
  return lines;
}

// The cleanup of a VTI configured with kFirst, and of one with nothing.
Lines const kFirstCleanup = {
    "doSetupMcastGrpDecap Vxlan1 239.1.1.1",
    "doSetupVtepToVtepBridging Vxlan1 false",
    "doSetupVtepSourcePruningAll Vxlan1 false",
    "doSetupVtepForSourcePruning Vxlan1 10.9.9.1 false",
    "doCleanup Vxlan1",
};
Lines const kEmptyVxlan2Cleanup = {
    "doSetupVtepToVtepBridging Vxlan2 false",
    "doSetupVtepSourcePruningAll Vxlan2 false",
    "doCleanup Vxlan2",
};

// The hooks that only traced, in order, while it lives: the machine's own
// defaults, which a platform did not override or could not reach yet.
class IgnoredHooks {
 public:
  IgnoredHooks() {
    Rxn::traceConfigIs("FabVxlanVtiStatusDirSm/8");
    Rxn::traceSinkIs([this](Rxn::String const& line) { lines_.push_back(line); });
  }
  ~IgnoredHooks() {
    Rxn::traceConfigIs("");
    Rxn::traceSinkIs(nullptr);
  }
  // Each ignored call as "<name> VtiStatusDirSm::VtiStatusSm::<hook> <arguments>".
  Lines take() {
    Lines ignored;
    std::string const suffix = " Ignoring notification";
    for (std::string const& line : lines_) {
      std::size_t const text = line.find(": ");
      if (line.size() > suffix.size() && line.ends_with(suffix) && text != std::string::npos) {
        ignored.push_back(line.substr(text + 2, line.size() - text - 2 - suffix.size()));
      }
    }
    lines_.clear();
    return ignored;
  }

 private:
  Lines lines_;
};

std::string hookName(std::string const& line) {
  std::size_t const from = line.find("::VtiStatusSm::") + 15;
  return line.substr(from, line.find(' ', from) - from);
}

class VtiProgrammingTest : public ::testing::Test {
 protected:
  // The platform agent's part: the machine over the directory, then its start.
  void build() { sm_ = Fab::smFactory<SimVtiStatusDirSm>("Test", dir_, hardware_); }
  void start() {
    build();
    sm_->handleInitialized();
  }
  Rxn::Ptr<Vxlan::VtiStatus> vti(Wire::IntfId const& intfId) { return dir_->vtiStatusIs(intfId); }
  // The hook calls since the last look.
  Lines calls() {
    Lines lines(hardware_.calls.begin(), hardware_.calls.end());
    hardware_.calls.clear();
    return lines;
  }

  Rxn::Ptr<Vxlan::VtiStatusDir> dir_ = Vxlan::vtiStatusDirFactory("vtiStatusDir");
  Sim::VtiHardware hardware_;
  Rxn::Ptr<SimVtiStatusDirSm> sm_;
};

TEST_F(VtiProgrammingTest, AVtiPresentAtConstructionReachesThePlatformAtHandleInitialized) {
  configure(*vti(kVxlan1), kFirst);
  IgnoredHooks ignored;

  // The start that runs inside the constructor reaches only the machine's
  // own defaults: the platform's hooks do not exist yet.
  build();
  EXPECT_EQ(calls(), Lines());
  Lines defaults;
  for (std::string const& line : ignored.take()) {
    EXPECT_EQ(line.rfind("Test VtiStatusDirSm::VtiStatusSm::", 0), 0U) << line;
    defaults.push_back(hookName(line));
  }
  Lines startHooks;
  for (std::string const& line : kFirstStart) {
    startHooks.push_back(line.substr(0, line.find(' ')));
  }
  EXPECT_EQ(defaults, startHooks);
  EXPECT_FALSE(sm_->vtiStatus(kVxlan1)->initialized());

  sm_->handleInitialized();
  EXPECT_EQ(calls(), kFirstStart);
  EXPECT_EQ(ignored.take(), Lines());
  EXPECT_TRUE(sm_->vtiStatus(kVxlan1)->initialized());
}

TEST_F(VtiProgrammingTest, AVtiThatJoinsLaterStartsAtCreation) {
  build();
  // Joining before the start, it reaches the platform at once, and the start
  // runs it again.
  vti(kVxlan1);
  EXPECT_EQ(calls(), emptyVtiStart("Vxlan1"));
  EXPECT_FALSE(sm_->vtiStatus(kVxlan1)->initialized());
  sm_->handleInitialized();
  EXPECT_EQ(calls(), emptyVtiStart("Vxlan1"));

  // Joining after the start, it is started once, and the others are left alone.
  vti(kVxlan2);
  EXPECT_EQ(calls(), emptyVtiStart("Vxlan2"));
  EXPECT_TRUE(sm_->vtiStatus(kVxlan2)->initialized());
  EXPECT_EQ(sm_->vtiStatuses(), 2U);
}

TEST_F(VtiProgrammingTest, EveryChangeReachesItsHookAtOnceWithoutWaitingForTheStart) {
  build();
  Rxn::Ptr<Vxlan::VtiStatus> const vxlan1 = vti(kVxlan1);
  calls();
  struct Change {
    char const* what;
    std::function<void()> make;
    Lines heard;
  };
  Change const changes[] = {
      {"udpPort", [&] { vxlan1->udpPortIs(Wire::UdpPort(4789)); }, {"doSetupVxlanDestUdpPort Vxlan1 4789"}},
      {"localVtepAddr", [&] { vxlan1->localVtepAddrIs(ip("10.0.0.1")); }, {"doSetupVxlanSrcAddr Vxlan1 10.0.0.1"}},
      {"localVtepAddr6",
       [&] { vxlan1->localVtepAddr6Is(Wire::Ip6Addr::fromString("2001:db8::1")); },
       {"doSetupVxlanSrcAddrV6 Vxlan1 2001:db8::1"}},
      {"mlagVtepAddr", [&] { vxlan1->mlagVtepAddrIs(ip("10.0.0.100")); }, {"doSetupMlagVtepAddr Vxlan1 10.0.0.100"}},
      {"a group added",
       [&] { vxlan1->mcastGrpDecapIs(ip("239.1.1.1"), true); },
       {"doSetupMcastGrpDecap Vxlan1 239.1.1.1"}},
      {"a group removed",
       [&] { vxlan1->mcastGrpDecapDel(ip("239.1.1.1")); },
       {"doSetupMcastGrpDecap Vxlan1 239.1.1.1"}},
      {"vArpVtepAddr",
       [&] { vxlan1->vArpVtepAddrIs(ip("10.0.0.200")); },
       {"doSetupVxlanVarpVtepAddr Vxlan1 10.0.0.200"}},
      {"vtepAddrMask",
       [&] { vxlan1->vtepAddrMaskIs(ip("255.255.255.0")); },
       {"doSetupVxlanVtepAddrMask Vxlan1 255.255.255.0"}},
      {"mlagSharedRouterMacAddr",
       [&] { vxlan1->mlagSharedRouterMacAddrIs(Wire::EthAddr::fromString("0011.2233.4455")); },
       {"doSetupVxlanMlagSharedRouterMac Vxlan1 0011.2233.4455"}},
      {"operStatus",
       [&] { vxlan1->operStatusIs(Interface::IntfOperStatus::intfOperUp); },
       {"doUpdateOperStatus Vxlan1 intfOperUp"}},
      {"vxlanNsSnooping", [&] { vxlan1->vxlanNsSnoopingIs(true); }, {"doSetupVxlanNdMcastSnooping Vxlan1 true"}},
      {"vtepToVtepBridging",
       [&] { vxlan1->vtepToVtepBridgingIs(true); },
       {"doSetupVtepToVtepBridging Vxlan1 true", "doSetupVtepSourcePruningAll Vxlan1 false"}},
      // What the platform does not program.
      {"ttl", [&] { vxlan1->ttlIs(64); }, {}},
      {"mcastRouting", [&] { vxlan1->mcastRoutingIs(true); }, {}},
      {"vxlanNaSnooping", [&] { vxlan1->vxlanNaSnoopingIs(true); }, {}},
      {"vlanToGroup", [&] { vxlan1->vlanToGroupIs(Bridging::VlanId(10), ip("239.2.2.2")); }, {}},
  };
  for (Change const& change : changes) {
    SCOPED_TRACE(change.what);
    change.make();
    EXPECT_EQ(calls(), change.heard);
    // The same value again changes nothing, and the platform hears nothing.
    change.make();
    EXPECT_EQ(calls(), Lines());
  }
}

TEST_F(VtiProgrammingTest, SourcePruningReachesThePlatformOnlyWhileBridgingIsOn) {
  start();
  Rxn::Ptr<Vxlan::VtiStatus> const vxlan1 = vti(kVxlan1);
  calls();

  vxlan1->vtepSetForSourcePruningIs(ip("10.9.9.1"), true);
  vxlan1->vtepSourcePruningAllIs(true);
  EXPECT_EQ(calls(), Lines());

  // Bridging on brings the whole pruning state along.
  vxlan1->vtepToVtepBridgingIs(true);
  EXPECT_EQ(calls(), (Lines{"doSetupVtepToVtepBridging Vxlan1 true", "doSetupVtepSourcePruningAll Vxlan1 true",
                            "doSetupVtepForSourcePruning Vxlan1 10.9.9.1 true"}));

  vxlan1->vtepSetForSourcePruningIs(ip("10.9.9.2"), true);
  vxlan1->vtepSetForSourcePruningDel(ip("10.9.9.1"));
  EXPECT_EQ(calls(), (Lines{"doSetupVtepForSourcePruning Vxlan1 10.9.9.2 true",
                            "doSetupVtepForSourcePruning Vxlan1 10.9.9.1 false"}));
  vxlan1->vtepSourcePruningAllIs(false);
  EXPECT_EQ(calls(),
            (Lines{"doSetupVtepSourcePruningAll Vxlan1 false", "doSetupVtepForSourcePruning Vxlan1 10.9.9.2 true"}));

  // Bridging off is one call: the platform drops the pruning with it.
  vxlan1->vtepToVtepBridgingIs(false);
  EXPECT_EQ(calls(), Lines{"doSetupVtepToVtepBridging Vxlan1 false"});
  vxlan1->vtepSetForSourcePruningDel(ip("10.9.9.2"));
  vxlan1->vtepSetForSourcePruningIs(ip("10.9.9.3"), true);
  vxlan1->vtepSourcePruningAllIs(true);
  EXPECT_EQ(calls(), Lines());
}

TEST_F(VtiProgrammingTest, AttachingToAnotherDirectoryReplaysKeptVtisAndCleansUpTheRest) {
  configure(*vti(kVxlan1), kFirst);
  vti(kVxlan2);
  start();
  Rxn::Ptr<Vxlan::VtiStatus> const oldVxlan1 = vti(kVxlan1);
  calls();

  Rxn::Ptr<Vxlan::VtiStatusDir> const other = Vxlan::vtiStatusDirFactory("other");
  Rxn::Ptr<Vxlan::VtiStatus> const newVxlan1 = other->vtiStatusIs(kVxlan1);
  configure(*newVxlan1, kSecond);
  sm_->vtiStatusDirIs(other);
  // Vxlan1 keeps its machine, which replays the new VtiStatus: no
  // doInitialize, the pruning state once more on its own, and operStatus
  // before the mask. Vxlan2 is not in the new directory.
  Lines expected = {
      "doSetupVxlanDestUdpPort Vxlan1 4790",         "doSetupVtepToVtepBridging Vxlan1 true",
      "doSetupVtepSourcePruningAll Vxlan1 false",    "doSetupVtepForSourcePruning Vxlan1 10.9.9.2 true",
      "doSetupVtepSourcePruningAll Vxlan1 false",    "doSetupVtepForSourcePruning Vxlan1 10.9.9.2 true",
      "doSetupVxlanSrcAddr Vxlan1 10.0.0.2",         "doSetupVxlanSrcAddrV6 Vxlan1 2001:db8::2",
      "doSetupMlagVtepAddr Vxlan1 10.0.0.101",       "doSetupMcastGrpDecap Vxlan1 239.1.1.2",
      "doSetupVxlanVarpVtepAddr Vxlan1 10.0.0.201",  "doUpdateOperStatus Vxlan1 intfOperDown",
      "doSetupVxlanVtepAddrMask Vxlan1 255.255.0.0", "doSetupVxlanMlagSharedRouterMac Vxlan1 0011.2233.4466",
      "doSetupVxlanNdMcastSnooping Vxlan1 false",
  };
  expected.insert(expected.end(), kEmptyVxlan2Cleanup.begin(), kEmptyVxlan2Cleanup.end());
  EXPECT_EQ(calls(), expected);

  // The same directory again replays nothing; only the new VtiStatus is heard.
  sm_->vtiStatusDirIs(other);
  oldVxlan1->udpPortIs(Wire::UdpPort(1));
  EXPECT_EQ(calls(), Lines());
  newVxlan1->udpPortIs(Wire::UdpPort(2));
  EXPECT_EQ(calls(), Lines{"doSetupVxlanDestUdpPort Vxlan1 2"});

  // Without a directory the VTIs stay as they are, until the next directory
  // is reconciled with them.
  sm_->vtiStatusDirDel();
  other->vtiStatusDel(kVxlan1);
  EXPECT_EQ(calls(), Lines());
  newVxlan1->udpPortIs(Wire::UdpPort(3));
  EXPECT_EQ(calls(), Lines{"doSetupVxlanDestUdpPort Vxlan1 3"});
  sm_->vtiStatusDirIs(dir_);
  Lines const reattached = calls();
  auto const heard = [&reattached](char const* line) { return std::count(reattached.begin(), reattached.end(), line); };
  EXPECT_EQ(heard("doSetupVxlanDestUdpPort Vxlan1 1"), 1);
  EXPECT_EQ(heard("doInitialize Vxlan1"), 0);
  EXPECT_EQ(heard("doInitialize Vxlan2"), 1);
}

TEST_F(VtiProgrammingTest, AVtiLeavingTheDirectoryIsUndoneEndingInDoCleanup) {
  configure(*vti(kVxlan1), kFirst);
  vti(kVxlan2);
  start();
  Rxn::Ptr<Vxlan::VtiStatus> const gone = vti(kVxlan1);
  calls();

  dir_->vtiStatusDel(kVxlan1);
  EXPECT_EQ(calls(), kFirstCleanup);
  EXPECT_EQ(sm_->vtiStatus(kVxlan1), nullptr);
  // What is left of the VtiStatus reaches no hook.
  gone->udpPortIs(Wire::UdpPort(1));
  gone->mcastGrpDecapIs(ip("239.9.9.9"), true);
  EXPECT_EQ(calls(), Lines());

  // With nothing configured, the bridging and pruning are undone all the same.
  dir_->vtiStatusDel(kVxlan2);
  EXPECT_EQ(calls(), kEmptyVxlan2Cleanup);
  EXPECT_EQ(sm_->vtiStatuses(), 0U);
}

TEST_F(VtiProgrammingTest, TheMachineGoingAwayCleansUpEveryVti) {
  configure(*vti(kVxlan1), kFirst);
  vti(kVxlan2);
  start();
  calls();

  sm_ = nullptr;
  Lines const heard = calls();
  Lines vxlan1First = kFirstCleanup;
  vxlan1First.insert(vxlan1First.end(), kEmptyVxlan2Cleanup.begin(), kEmptyVxlan2Cleanup.end());
  Lines vxlan2First = kEmptyVxlan2Cleanup;
  vxlan2First.insert(vxlan2First.end(), kFirstCleanup.begin(), kFirstCleanup.end());
  // One VTI after the other, each whole, in the order of the collection.
  EXPECT_TRUE(heard == vxlan1First || heard == vxlan2First) << ::testing::PrintToString(heard);
  EXPECT_TRUE(hardware_.vti.empty());

  // The directory lives on and no machine hears it.
  vti(kVxlan1)->udpPortIs(Wire::UdpPort(1));
  EXPECT_EQ(calls(), Lines());
}

// A platform hook may take the VTI out of the directory: the VTI is cleaned
// up there, and its start goes no further.
class RemovingVtiStatusDirSm : public SimVtiStatusDirSm {
 public:
  RemovingVtiStatusDirSm(Rxn::Ptr<Vxlan::VtiStatusDir> const& dir, Sim::VtiHardware& hardware)
      : SimVtiStatusDirSm("Test", dir, hardware), dir_(dir) {}
  void doSetupVxlanSrcAddr(Wire::IntfId vtiIntfId, Wire::IpAddr srcAddr) override {
    SimVtiStatusDirSm::doSetupVxlanSrcAddr(vtiIntfId, srcAddr);
    dir_->vtiStatusDel(vtiIntfId);
  }

 private:
  Rxn::Ptr<Vxlan::VtiStatusDir> dir_;
};

TEST_F(VtiProgrammingTest, AHookThatRemovesItsVtiEndsTheStartWithTheCleanup) {
  configure(*vti(kVxlan1), kFirst);
  auto const sm = Fab::smFactory<RemovingVtiStatusDirSm>(dir_, hardware_);
  sm->handleInitialized();

  Lines expected(kFirstStart.begin(), kFirstStart.begin() + 6);
  ASSERT_EQ(expected.back(), "doSetupVxlanSrcAddr Vxlan1 10.0.0.1");
  expected.insert(expected.end(), kFirstCleanup.begin(), kFirstCleanup.end());
  EXPECT_EQ(calls(), expected);
  EXPECT_EQ(sm->vtiStatuses(), 0U);
}

// A chip that refuses a UDP port: its hook throws, as a platform's driver may.
class RefusingVtiStatusDirSm : public SimVtiStatusDirSm {
 public:
  RefusingVtiStatusDirSm(Rxn::Ptr<Vxlan::VtiStatusDir> const& dir, Sim::VtiHardware& hardware)
      : SimVtiStatusDirSm("Test", dir, hardware) {}
  char const* fwkType() const override { return "Platform::ChipVtiStatusDirSm"; }
  void doSetupVxlanDestUdpPort(Wire::IntfId vtiIntfId, Wire::UdpPort udpPort) override {
    if (udpPort == Wire::UdpPort(1)) {
      Rxn::throwRangeException("the chip refuses udp port 1");
    }
    SimVtiStatusDirSm::doSetupVxlanDestUdpPort(vtiIntfId, udpPort);
  }
};

// The report of a hook that threw tells which of the platform's machines,
// and which of its reactors, to look at; the VTI goes on being programmed.
TEST_F(VtiProgrammingTest, AHookThatThrowsIsReportedWithItsReactorAndMachineAndTheVtiGoesOn) {
  Lines logged;
  Rxn::logSinkIs(
      [&](Rxn::LogHandle const& handle, Rxn::String const& text) { logged.push_back(Rxn::logLine(handle, text)); });
  configure(*vti(kVxlan1), kFirst);
  auto const sm = Fab::smFactory<RefusingVtiStatusDirSm>(dir_, hardware_);
  sm->handleInitialized();
  calls();

  vti(kVxlan1)->udpPortIs(Wire::UdpPort(1));
  vti(kVxlan1)->localVtepAddrIs(ip("10.0.0.9"));
  Rxn::logSinkIs(nullptr);

  EXPECT_EQ(logged, Lines{"%RXN-3-NOTIFICATION_EXCEPTION: Reactor Fab::VXLAN::VtiStatusDirSm::VtiStatusSm of "
                          "Platform::ChipVtiStatusDirSm: the chip refuses udp port 1"});
  EXPECT_EQ(calls(), Lines{"doSetupVxlanSrcAddr Vxlan1 10.0.0.9"});
}

TEST_F(VtiProgrammingTest, APlatformMayHandVtisToTheMachineByHand) {
  dir_ = nullptr;
  start();
  Rxn::Ptr<Vxlan::VtiStatus> const vxlan1 = Vxlan::vtiStatusFactory(kVxlan1);
  configure(*vxlan1, kFirst);

  ASSERT_NE(sm_->vtiStatusIs(vxlan1), nullptr);
  EXPECT_EQ(calls(), kFirstStart);
  EXPECT_EQ(sm_->vtiStatusIs(vxlan1), sm_->vtiStatus(kVxlan1));
  EXPECT_EQ(calls(), Lines());

  EXPECT_EQ(sm_->vtiStatusDel(kVxlan1), vxlan1);
  EXPECT_EQ(calls(), kFirstCleanup);
  EXPECT_EQ(sm_->vtiStatusDel(kVxlan1), nullptr);
  try {
    sm_->vtiStatusIs(nullptr);
    FAIL() << "a null VTI was taken";
  } catch (Rxn::RangeException const& e) {
    EXPECT_STREQ(e.what(),
                 "null _vtiStatus parameter to mutator for Fab::VXLAN::VtiStatusDirSm::vtiStatus not allowed");
  }
}

TEST(VtiStatusDirSmDefaults, EveryHookOnlyTracesThatItIgnoresTheNotification) {
  Rxn::Ptr<Vxlan::VtiStatusDir> const dir = Vxlan::vtiStatusDirFactory("vtiStatusDir");
  configure(*dir->vtiStatusIs(kVxlan1), kFirst);
  Rxn::Ptr<VtiStatusDirSm> const sm = Fab::VXLAN::vtiStatusDirSmFactory("Agent", dir);
  IgnoredHooks ignored;

  sm->handleInitialized();
  Lines const started = ignored.take();
  ASSERT_EQ(started.size(), kFirstStart.size());
  EXPECT_EQ(started[0], "Agent VtiStatusDirSm::VtiStatusSm::doInitialize IntfId: Vxlan1");
  EXPECT_EQ(started[5], "Agent VtiStatusDirSm::VtiStatusSm::doSetupVxlanSrcAddr IntfId: Vxlan1 srcAddr: 10.0.0.1");
  EXPECT_EQ(started[4],
            "Agent VtiStatusDirSm::VtiStatusSm::doSetupVtepForSourcePruning IntfId: Vxlan1 vtep: 10.9.9.1 add: 1");

  dir->vtiStatus(kVxlan1)->vtepSourcePruningAllIs(false);
  dir->vtiStatusDel(kVxlan1);
  Lines hooks;
  for (std::string const& line : ignored.take()) {
    hooks.push_back(hookName(line));
  }
  EXPECT_EQ(hooks, (Lines{"doSetupVtepSourcePruningAll", "doSetupVtepForSourcePruning", "doSetupMcastGrpDecap",
                          "doSetupVtepToVtepBridging", "doSetupVtepSourcePruningAll", "doSetupVtepForSourcePruning",
                          "doCleanup"}));
}

// --- The simulated chip ----------------------------------------------------------

TEST_F(VtiProgrammingTest, TheSimulatedChipHoldsWhatTheHooksProgrammedAndOutlivesTheAgent) {
  Rxn::Ptr<Vxlan::VtiStatus> const vxlan1 = vti(kVxlan1);
  configure(*vxlan1, kFirst);
  start();
  Sim::VtiProgram const& chip = hardware_.vti.at(kVxlan1);
  EXPECT_EQ(chip.udpPort, Wire::UdpPort(4789));
  EXPECT_TRUE(chip.vtepToVtepBridging);
  EXPECT_TRUE(chip.vtepSourcePruningAll);
  EXPECT_EQ(chip.prunedVteps, std::set<Wire::IpAddr>{ip("10.9.9.1")});
  EXPECT_EQ(chip.srcAddr, ip("10.0.0.1"));
  EXPECT_EQ(chip.srcAddrV6, Wire::Ip6Addr::fromString("2001:db8::1"));
  EXPECT_EQ(chip.mlagVtepAddr, ip("10.0.0.100"));
  EXPECT_EQ(chip.mcastGrpDecap, std::set<Wire::IpAddr>{ip("239.1.1.1")});
  EXPECT_EQ(chip.varpVtepAddr, ip("10.0.0.200"));
  EXPECT_EQ(chip.vtepAddrMask, ip("255.255.255.0"));
  EXPECT_EQ(chip.mlagSharedRouterMac, Wire::EthAddr::fromString("0011.2233.4455"));
  EXPECT_EQ(chip.operStatus, Interface::IntfOperStatus::intfOperUp);
  EXPECT_TRUE(chip.ndMcastSnooping);

  // One hook for a group added or removed: the chip reads the directory.
  vxlan1->mcastGrpDecapIs(ip("239.1.1.2"), true);
  vxlan1->mcastGrpDecapDel(ip("239.1.1.1"));
  EXPECT_EQ(chip.mcastGrpDecap, std::set<Wire::IpAddr>{ip("239.1.1.2")});

  // The agent goes down: the chip forgets the VTI, and the next life
  // programs it again.
  sm_ = nullptr;
  EXPECT_TRUE(hardware_.vti.empty());
  EXPECT_EQ(hardware_.calls.back(), "doCleanup Vxlan1");
  start();
  EXPECT_EQ(hardware_.vti.at(kVxlan1).mcastGrpDecap, std::set<Wire::IpAddr>{ip("239.1.1.2")});
}

TEST_F(VtiProgrammingTest, TheSimulatedCallLogKeepsTheLatestCallsWithinItsLimit) {
  hardware_.callLimit = 3;
  vti(kVxlan1);
  start();
  Lines const start = emptyVtiStart("Vxlan1");
  EXPECT_EQ(calls(), Lines(start.end() - 3, start.end()));
  EXPECT_EQ(hardware_.droppedCalls, start.size() - 3);
}

}  // namespace
}  // namespace FabTest

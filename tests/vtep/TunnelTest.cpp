// The tunnels of VtepSm: the road of a remote VTEP from VtepConfig into the
// tunnel layer and back into VtepStatus, generations, next hops in use and
// their make-before-break release, draining, and a platform short of ids.

#include <gtest/gtest.h>

#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

Sim::PlatformConfig platformWith(bool useUniqGenId = true, std::uint32_t nextHops = 128) {
  Sim::PlatformConfig config;
  // The test plays the remote MAC machine.
  config.remoteMacMachine = false;
  config.useUniqGenId = useUniqGenId;
  config.tunnelLayer.nextHops = nextHops;
  return config;
}

class TunnelTest : public SimFixture {
 protected:
  explicit TunnelTest(Sim::PlatformConfig const& config = platformWith()) : SimFixture(config) {}
  void featureUp() {
    platform().vti(kVxlan1)->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
    vtiUp(kVxlan1);
    platform().settle();
    ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  }
  Fab::VXLAN::VtepEventCounts& counts() { return *vtepSm().vtepEventCounts(); }
  bool inRemoteVtepList(char const* address) {
    return platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1)->remoteVtep(Wire::IpAddr::fromString(address));
  }
  Rxn::Ptr<Fab::VXLAN::VtepInfo> vtepInfo(char const* address) {
    Rxn::Ptr<Fab::VXLAN::VtepInfoDir> const dir = vtepSm().vtepInfoDir(kVxlan1);
    return dir ? dir->vtepInfo(vtep(address)) : nullptr;
  }
  Fab::TunnelKey keyOf(char const* address, std::uint64_t genId) {
    return Fab::TunnelKey(Wire::IpGenAddr(Wire::IpAddr()), Wire::IpGenAddr(Wire::IpAddr::fromString(address)),
                          Fab::VrfId(), genId);
  }
  bool hookMaps(std::uint32_t nextHop) {
    return hook().nextHopIdToTunnelIdMap().find(Fab::FabNextHopId(nextHop)) != nullptr;
  }
  bool keptActive(std::uint32_t nextHop) { return tunnelConfig().activeNextHopId(Fab::FabNextHopId(nextHop)); }
  // The VTEP leaves and comes back while the platform, answering late, still
  // shows the tunnel of its earlier life, and moves that tunnel's next hop.
  void leaveAndReturnWhileTheOldTunnelMoves() {
    platform().answersAre({0, true});
    remoteVtep("10.0.0.2", false);
    remoteVtep("10.0.0.2");
    ASSERT_TRUE(platform().tunnelLayer().switchNextHop(Wire::IpAddr::fromString("10.0.0.2")));
    platform().runUntilIdle();
  }
};

TEST_F(TunnelTest, AVtepWaitsForItsVtiIsRequestedPublishedAndGoesWithItsEntry) {
  remoteVtep("10.0.0.2");
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 0U);

  featureUp();
  std::uint64_t const gen = generation("10.0.0.2");
  EXPECT_NE(gen, 0U);
  EXPECT_TRUE(tunnelConfig().tunnelConfigEntry().find(keyOf("10.0.0.2", gen)));
  EXPECT_EQ(counts().vtepAddEvent(), 1U);
  EXPECT_EQ(platform().vtepHardware().vtepHandles.size(), 1U);
  Fab::VXLAN::HwVtepInfo const hw = published("10.0.0.2");
  EXPECT_EQ(hw.swTunnelGroupId(), vtep("10.0.0.2"));
  EXPECT_TRUE(hw.tunnelId().valid());
  ASSERT_TRUE(hw.nextHopId().valid());
  // Everything a reader may follow the published next hop into was written first.
  EXPECT_TRUE(inRemoteVtepList("10.0.0.2"));
  EXPECT_EQ(hook().nextHopIdToTunnelIdMap(hw.nextHopId()), hw.tunnelId());
  EXPECT_EQ(vtepSm().nextHopInfo(hw.nextHopId()).swTunnelGroupId(), vtep("10.0.0.2"));

  // Each tunnel set up takes a generation of its own.
  remoteVtep("10.0.0.3");
  EXPECT_GT(generation("10.0.0.3"), gen);

  remoteVtep("10.0.0.2", false);
  EXPECT_FALSE(!!published("10.0.0.2"));
  EXPECT_FALSE(inRemoteVtepList("10.0.0.2"));
  EXPECT_FALSE(hookMaps(hw.nextHopId().value()));
  EXPECT_EQ(generation("10.0.0.2"), 0U);
  EXPECT_FALSE(tunnelConfig().tunnelConfigEntry().find(keyOf("10.0.0.2", gen)));
  EXPECT_EQ(counts().vtepDeleteEvent(), 1U);
  EXPECT_EQ(platform().vtepHardware().vtepHandles.size(), 1U);

  // Back again: a new life, with a new generation.
  remoteVtep("10.0.0.2");
  EXPECT_GT(generation("10.0.0.2"), generation("10.0.0.3"));
  EXPECT_TRUE(published("10.0.0.2").nextHopId().valid());
  EXPECT_EQ(counts().vtepAddEvent(), 3U);

  // The VTI's VtepConfig going takes every tunnel of it.
  platform().vtepConfigDir()->vtepConfigDel(kVxlan1);
  platform().settle();
  EXPECT_EQ(tunnelConfig().tunnelConfigEntrys(), 0U);
  EXPECT_FALSE(vtepSm().vtepInfoDir(kVxlan1));
  EXPECT_EQ(platform().tunnelStatus()->tunnelStatusEntrys(), 0U);
}

TEST_F(TunnelTest, AStatusOfAnEarlierLifeOfTheTunnelIsNotTakenForTheNewOne) {
  featureUp();
  remoteVtep("10.0.0.2");
  leaveAndReturnWhileTheOldTunnelMoves();
  EXPECT_EQ(vtepInfo("10.0.0.2")->curNextHopId(), Fab::FabNextHopId());
  EXPECT_FALSE(!!published("10.0.0.2"));
  // The answer to the new request is the one published.
  platform().answersAre({0, false});
  platform().settle();
  Fab::TunnelKey const key = keyOf("10.0.0.2", generation("10.0.0.2"));
  EXPECT_EQ(published("10.0.0.2").nextHopId(), platform().tunnelStatus()->tunnelStatusEntry(key)->nextHopId());
}

class TunnelWithoutGenerationsTest : public TunnelTest {
 protected:
  TunnelWithoutGenerationsTest() : TunnelTest(platformWith(false)) {}
};

TEST_F(TunnelWithoutGenerationsTest, BothLivesShareTheKeyAndTheOldStatusIsTakenAtOnce) {
  featureUp();
  remoteVtep("10.0.0.2");
  EXPECT_TRUE(tunnelConfig().tunnelConfigEntry().find(keyOf("10.0.0.2", 0)));
  EXPECT_EQ(vtepSm().currentGenerations(), 0U);

  leaveAndReturnWhileTheOldTunnelMoves();
  Fab::FabNextHopId const moved = platform().tunnelStatus()->tunnelStatusEntry(keyOf("10.0.0.2", 0))->nextHopId();
  EXPECT_EQ(published("10.0.0.2").nextHopId(), moved);
  platform().answersAre({0, false});
  platform().settle();
  EXPECT_TRUE(published("10.0.0.2").nextHopId().valid());
}

TEST_F(TunnelTest, ANewNextHopIsMadeBeforeTheOldOneInUseIsBroken) {
  featureUp();
  remoteVtep("10.0.0.2");
  std::uint32_t const m = publishedNextHop("10.0.0.2");
  readerUses(m);
  EXPECT_TRUE(keptActive(m));

  ASSERT_TRUE(platform().tunnelLayer().switchNextHop(Wire::IpAddr::fromString("10.0.0.2")));
  platform().runUntilIdle();
  std::uint32_t const n = publishedNextHop("10.0.0.2");
  EXPECT_NE(n, m);
  // M stays while the reader lists it.
  EXPECT_TRUE(vtepInfo("10.0.0.2")->nextHopId(Fab::FabNextHopId(m)));
  EXPECT_TRUE(hookMaps(m));
  EXPECT_TRUE(keptActive(m));

  readerUses(n);
  readerUses(m, false);
  EXPECT_FALSE(vtepInfo("10.0.0.2")->nextHopId(Fab::FabNextHopId(m)));
  EXPECT_FALSE(hookMaps(m));
  EXPECT_FALSE(keptActive(m));
  EXPECT_FALSE(!!vtepSm().nextHopInfo(Fab::FabNextHopId(m)));

  // The current one given up first cannot go: it goes at the next switchover.
  readerUses(n, false);
  EXPECT_TRUE(hookMaps(n));
  platform().tunnelLayer().switchNextHop(Wire::IpAddr::fromString("10.0.0.2"));
  platform().runUntilIdle();
  EXPECT_FALSE(hookMaps(n));
  EXPECT_FALSE(vtepInfo("10.0.0.2")->nextHopId(Fab::FabNextHopId(n)));

  // An id that no reader ever listed is not released at a switchover: it
  // stays with the tunnel until the tunnel goes.
  std::uint32_t const unused = publishedNextHop("10.0.0.2");
  platform().tunnelLayer().switchNextHop(Wire::IpAddr::fromString("10.0.0.2"));
  platform().runUntilIdle();
  EXPECT_TRUE(vtepInfo("10.0.0.2")->nextHopId(Fab::FabNextHopId(unused)));
  EXPECT_EQ(vtepInfo("10.0.0.2")->nextHopIds(), 2U);
  remoteVtep("10.0.0.2", false);
  EXPECT_FALSE(hookMaps(unused));
  EXPECT_EQ(hook().nextHopIdToTunnelIdMap().size(), 0U);
}

TEST_F(TunnelTest, AVtepWhoseNextHopIsInUseDrainsAndMayComeBackAsItWas) {
  featureUp();
  remoteVtep("10.0.0.2");
  std::uint32_t const nextHop = publishedNextHop("10.0.0.2");
  std::uint64_t const gen = generation("10.0.0.2");
  readerUses(nextHop);

  remoteVtep("10.0.0.2", false);
  EXPECT_EQ(counts().vtepDeleteEvent(), 1U);
  EXPECT_EQ(publishedNextHop("10.0.0.2"), nextHop);
  EXPECT_TRUE(vtepInfo("10.0.0.2"));
  EXPECT_TRUE(tunnelConfig().tunnelConfigEntry().find(keyOf("10.0.0.2", gen)));

  // Listed again while draining: the same tunnel, no new generation, no add.
  remoteVtep("10.0.0.2");
  EXPECT_EQ(generation("10.0.0.2"), gen);
  EXPECT_EQ(counts().vtepAddEvent(), 1U);

  remoteVtep("10.0.0.2", false);
  readerUses(nextHop, false);
  EXPECT_FALSE(vtepInfo("10.0.0.2"));
  EXPECT_FALSE(!!published("10.0.0.2"));
  EXPECT_FALSE(vtepSm().vtepInfoDir(kVxlan1));
  platform().settle();
  EXPECT_EQ(platform().tunnelLayer().nextHopsInUse(), 0U);
}

// The reader gave up the current next hop, whose release waits for the next
// one; the layer then reports no answer and the same id again: the id is
// current again, and is not released under the reader.
TEST_F(TunnelTest, TheCurrentNextHopReportedAgainIsNotReleased) {
  featureUp();
  remoteVtep("10.0.0.2");
  platform().settle();
  std::uint32_t const n = publishedNextHop("10.0.0.2");
  readerUses(n);
  readerUses(n, false);
  Rxn::Ptr<Fab::FabTunnelStatusEntry> const entry =
      platform().tunnelStatus()->tunnelStatusEntry(keyOf("10.0.0.2", generation("10.0.0.2")));
  ASSERT_TRUE(entry);
  entry->nextHopIdIs(Fab::FabNextHopId());
  entry->nextHopIdIs(Fab::FabNextHopId(n));
  platform().runUntilIdle();
  EXPECT_TRUE(vtepInfo("10.0.0.2")->nextHopId(Fab::FabNextHopId(n)));
  EXPECT_TRUE(!!vtepSm().nextHopInfo(Fab::FabNextHopId(n)));
  readerUses(n);
  EXPECT_TRUE(keptActive(n));
}

class ShortOfNextHopsTest : public TunnelTest {
 protected:
  ShortOfNextHopsTest() : TunnelTest(platformWith(true, 1)) {}
};

TEST_F(ShortOfNextHopsTest, AnUnreachableAnswerIsPublishedAndLaterReplaced) {
  featureUp();
  remoteVtep("10.0.0.2");
  remoteVtep("10.0.0.3");
  platform().settle();
  Fab::VXLAN::HwVtepInfo const starved = published("10.0.0.3");
  // Answered, but with no next hop: published as unreachable.
  EXPECT_EQ(starved.nextHopId().value(), Sim::SimTunnelLayer::kUnreachable);
  EXPECT_FALSE(inRemoteVtepList("10.0.0.3"));
  EXPECT_FALSE(!!vtepSm().nextHopInfo(starved.nextHopId()));
  EXPECT_EQ(vtepInfo("10.0.0.3")->curNextHopId(), starved.nextHopId());

  remoteVtep("10.0.0.2", false);
  platform().settle();
  EXPECT_TRUE(published("10.0.0.3").nextHopId().valid());
  EXPECT_TRUE(inRemoteVtepList("10.0.0.3"));
}

}  // namespace
}  // namespace FabTest

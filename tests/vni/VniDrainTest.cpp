// The drain of a whole map, on the virtual clock of a platform whose chip
// writes take time: many turns, each within one quantum plus one VLAN, each
// resuming at the bookmark where the last one stopped.

#include <gtest/gtest.h>

#include "tests/vni/VniFixture.h"

namespace FabTest {
namespace {

class VniDrainTest : public VniFixture {
 protected:
  VniDrainTest() : VniFixture(platformWith(0.1, true)) {}
};

TEST_F(VniDrainTest, AFullMapDrainsOverManyTurnsEachWithinAQuantumResumingAtTheBookmark) {
  vlansActive(1, 4094);
  vtiUp(kVxlan1);
  platform().settle();
  for (int vlan = 1; vlan <= 4094; ++vlan) {
    maps(vlan, 10000 + vlan);
  }
  // The handlers only queue: nothing is sent in their stack.
  EXPECT_EQ(vniSm().updateLists(), 4094U);
  EXPECT_EQ(vniConfig().configEntrys(), 0U);

  double const quantum = vniSm().vniModifyBacklogQuantum();
  double const write = platform().config().vniProgramCost;
  // The first turn's first VLAN, asked for again after that turn, lies behind
  // the bookmark: the next turn must not go back to it.
  int const first = vniSm().dirtyVlan().lowerBound(vniSm().updateBookmark()).key().value();
  platform().activity().runTurn();
  maps(first, 20000 + first);
  ASSERT_TRUE(dirty(first));
  platform().activity().runTurn();
  EXPECT_EQ(configRow(first).vni().value(), 10000U + first);
  EXPECT_EQ(configRow(first).vlanVniMapConfigAction(), FabHelper::vlanVniMapDeletedMacFlushPending_);

  int turns = 2;
  double longest = 0.0;
  while (vniSm().dirtyVlans() > 0) {
    // Where this turn must start: the first dirty VLAN at or after the bookmark.
    auto const start = vniSm().dirtyVlan().lowerBound(vniSm().updateBookmark());
    Bridging::VlanId const next = start == vniSm().dirtyVlan().end() ? vniSm().dirtyVlan().begin().key() : start.key();
    std::size_t const before = vniConfig().configEntrys();
    double const began = platform().now();
    platform().activity().runTurn();
    ++turns;
    longest = std::max(longest, platform().now() - began);
    ASSERT_TRUE(!!configRow(next.value())) << "turn " << turns << " did not start at the bookmark";
    ASSERT_GT(vniConfig().configEntrys(), before);
  }
  EXPECT_GE(turns, 8);
  EXPECT_LE(longest, quantum + write + 1e-9);
  EXPECT_EQ(vniConfig().configEntrys(), 4094U);
  EXPECT_EQ(vniSm().updateLists(), 0U);
  EXPECT_EQ(shadowVni(first), 20000U + first);
  EXPECT_EQ(platform().vniInfo()->vlanVniMapShadow(kVxlan1)->vlanVniMaps(), 4094U);
}

}  // namespace
}  // namespace FabTest

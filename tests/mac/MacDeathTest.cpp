// What the writer of the host table may not do, and what the lists of
// VxlanMacAddrSm may never disagree on: each ends the process with its
// expression.

#include <gtest/gtest.h>

#include "tests/mac/MacFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::HostEntry;
using Fab::VXLAN::HostHwOperation;
using Fab::VXLAN::HostHwState;

class MacDeathTest : public MacFixture {
 protected:
  void writeRow(Bridging::EntryType entryType, HostHwState const& hw, HostHwOperation op) {
    dir().hostTable()->entryIs(key(10, 9), HostEntry(key(10, 9), kVxlan1, vtep("10.0.0.2"), entryType, 0.0, hw, op));
  }
};

TEST_F(MacDeathTest, TheWriterMustSayWhatARowAsksAndReportOnlyWhatTheChipHolds) {
  vtiUpMapping(10, 10);
  EXPECT_DEATH(writeRow(Bridging::EntryType::vxlanDynamicMac, {}, HostHwOperation(0)),
               literal("!\"hwOperation of a host entry\""));
  HostHwState const notInHw(Fab::FabNextHopId(1000), vtep("10.0.0.2"), false);
  EXPECT_DEATH(writeRow(Bridging::EntryType::vxlanDynamicMac, notInHw, HostHwOperation::hwOpProgrammed_),
               literal("entry.hwState().inHw()"));
  HostHwState const inHw(Fab::FabNextHopId(1000), vtep("10.0.0.2"), true);
  EXPECT_DEATH(writeRow(Bridging::EntryType::peerDynamicMac, inHw, HostHwOperation::hwOpProgrammed_),
               literal("!\"entry type of a remote host\""));
  // Unprogrammed in the chip, though the machine never gave it that next hop.
  HostHwState const unprogrammed(Fab::FabNextHopId(0xFFFFFFFE), vtep("10.0.0.2"), false);
  EXPECT_DEATH(writeRow(Bridging::EntryType::vxlanDynamicMac, unprogrammed, HostHwOperation::hwOpProgrammed_),
               literal("!!unprogrammedRemoteMacList(key)"));
}

TEST_F(MacDeathTest, TheCountsOfNextHopsMustAgreeWithTheStatusRows) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  platform().settle();
  std::uint32_t const nextHop = publishedNextHop("10.0.0.2");
  EXPECT_DEATH(
      {
        dir().nextHopIdRefcountTable()->incRefcount(nextHop);
        macSm().handleVerify();
      },
      literal("dir->nextHopIdRefcountTable()->refcount( nextHopId ).value() == uses"));
}

TEST_F(MacDeathTest, AGroupStatusNamesOnlyGroupsAndAVtepStatusOnlyVteps) {
  vtiUpMapping(10, 10);
  l2RibHost(10, 1, "10.0.0.2");
  platform().settle();
  EXPECT_DEATH(platform().vtepGroupStatusDir()->vtepGroupStatusIs(kVxlan1)->hwVtepGroupInfoIs(
                   Fab::VXLAN::HwVtepGroupInfo(vtep("10.0.0.2"), Fab::FabTunnelId(9), Fab::FabNextHopId(9))),
               literal("swTunnelGroupId.isMultiMemberGroup()"));
  Fab::SwTunnelGroupId const group(Fab::SwTunnelGroupType::multiMemberGroup_, 7);
  EXPECT_DEATH(platform().vtepStatusDir()->vtepStatus(kVxlan1)->hwVtepInfoIs(
                   Fab::VXLAN::HwVtepInfo(group, Fab::FabTunnelId(9), Fab::FabNextHopId(9))),
               literal("swTunnelGroupId.isSingleMemberGroup()"));
}

}  // namespace
}  // namespace FabTest

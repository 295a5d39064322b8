// The whole-stack checks of remote MACs: what the forwarding database says
// stands in the chip's MAC table towards the next hop its VTEP publishes,
// no host of the chip points at a next hop the tunnel layer freed, and a
// quiet platform has no host waiting for the quantum. A host kept through a
// hitless restart whose new VTEP is not answered yet is forwarded as the
// earlier life programmed it, and is checked once it is resolved.

#include "fabvxlan/mac/FabVxlanMacAddrSm.h"
#include "sim/StackCheck.h"

namespace Sim {

namespace {

std::string hostText(Bridging::MacVlanPair const& key) {
  return "host " + key.stringValue();
}

// The remote MAC machine runs and its hosts are written: a restarted agent
// rebuilds them once its stage is ready.
bool hostsWritten(Platform const& platform) {
  return platform.agentRunning() && platform.vxlanMacAddrSm() && platform.vxlanMacAddrSm()->initialized() &&
         platform.vxlanBootStatus()->stageRemoteMacsReady();
}

// A host that an earlier life of the agent programmed stands in the chip and
// the forwarding database through a hitless restart. The new life resolves
// it again from its row; until its VTEP is answered, and while the answers
// are held back, it has no status row, and the chip keeps forwarding it as
// it was, on a next hop that nothing of the new life holds: the tunnel layer
// may have freed it meanwhile.
bool keptWhileItsVtepIsPending(Checks const& checks, Bridging::MacVlanPair const& key) {
  Platform const& platform = checks.platform();
  return checks.owesAny() && !platform.rmacInfoDir()->hostStatusTable()->statusEntry(key) &&
         !!platform.vxlanMacAddrSm()->pendingResolveRemoteMacList(key);
}

void checkLearnedHost(Checks& checks, Vxlan::LearnedHost const& learned) {
  Platform& platform = checks.platform();
  Bridging::MacVlanPair const key(learned.key().mac(), learned.key().vlanId());
  Fab::VXLAN::StatusEntry const status = platform.rmacInfoDir()->hostStatusTable()->statusEntry(key);
  MacTable::Row const* const row = platform.macTable().rows.find(key);
  bool const inChip = row != nullptr;
  if (inChip && keptWhileItsVtepIsPending(checks, key)) {
    return;
  }
  checks.expect("mac-learned-host-in-chip", !!status && inChip && row->nextHopId == status.nextHopId(),
                [&] { return hostText(key) + " status " + status.stringValue(); });
  if (checks.owes(Platform::Answerer::tunnelLayer) || !status.swTunnelGroupId().isSingleMemberGroup()) {
    return;
  }
  Rxn::Ptr<Fab::VXLAN::VtepStatus> const vtepStatus = platform.vtepStatusDir()->vtepStatus(status.vtiIntfId());
  Fab::VXLAN::HwVtepInfo const published =
      vtepStatus ? vtepStatus->hwVtepInfo(status.swTunnelGroupId()) : Fab::VXLAN::HwVtepInfo();
  checks.expect(
      "mac-learned-host-on-published-next-hop", !published || published.nextHopId() == status.nextHopId(), [&] {
        return hostText(key) + " on " + status.nextHopId().stringValue() + ", published " + published.stringValue();
      });
}

}  // namespace

void checkMacAfterStep(Checks&) {}

void checkMacWhenQuiet(Checks& checks) {
  Platform& platform = checks.platform();
  if (!hostsWritten(platform)) {
    return;
  }
  Fab::VXLAN::VxlanMacAddrSm const& sm = *platform.vxlanMacAddrSm();
  checks.expect("mac-quantum-done-when-quiet", sm.updateLists() == 0,
                [&] { return std::to_string(sm.updateLists()) + " hosts wait"; });
  for (auto const& [key, learned] : platform.vxlanHwStatusDir()->fdbStatus()->learnedHost()) {
    checkLearnedHost(checks, learned);
  }
  for (auto const& [key, row] : platform.macTable().rows) {
    if (keptWhileItsVtepIsPending(checks, key)) {
      continue;
    }
    checks.expect("mac-chip-row-resolved", !!platform.rmacInfoDir()->hostStatusTable()->statusEntry(key),
                  [&] { return hostText(key) + " in the chip without a status row"; });
    checks.expect("mac-chip-next-hop-held",
                  !row.nextHopId.valid() || !platform.tunnelLayer().nextHopIdFree(row.nextHopId.value()),
                  [&] { return hostText(key) + " on freed next hop " + row.nextHopId.stringValue(); });
  }
}

}  // namespace Sim

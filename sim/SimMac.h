#pragma once
// The remote MAC side of the simulated platform: the chip's MAC table, with a
// capacity, and the party outside the library that writes the host table. It
// merges the layer-2 sources (L2Rib hosts and configured hosts) into host
// rows, in slices of its own time quantum as a burst of learning comes, keeps
// the per-VLAN indexes of the L2Rib and MLAG tables in step at once, programs
// what the status rows say into the chip an answer delay later and reports
// it in the row, answers every remote MAC event, and serves flush requests.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "fabvxlan/runtime/HashMap.h"
#include "fabvxlan/runtime/QueueSet.h"
#include "fabvxlan/state/FabIds.h"
#include "fabvxlan/state/FabVtep.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/RemoteMac.h"
#include "fabvxlan/state/imported/L2Rib.h"
#include "fabvxlan/state/imported/Mlag.h"
#include "fabvxlan/state/imported/Slab.h"
#include "fabvxlan/state/imported/Vxlan.h"
#include "sim/AnswerQueue.h"

namespace Sim {

// What the chip holds of remote MACs. It outlives an agent restart.
struct MacTable {
  struct Row {
    Wire::IntfId vti;
    Fab::SwTunnelGroupId swTunnelGroupId;
    Fab::FabNextHopId nextHopId;
    bool operator==(Row const&) const = default;
  };
  std::size_t capacity = std::size_t{1} << 21;
  Rxn::HashMap2018<Bridging::MacVlanPair, Row> rows{Rxn::MapName("Sim::MacTable::rows")};
  // Hosts the chip had no room for, since the start.
  std::uint64_t refusedFull = 0;
};

// The world's layer-2 sources of remote hosts, which outlive the agent.
struct HostSources {
  Rxn::Ptr<L2Rib::HostOutput> l2RibHosts;
  Rxn::Ptr<Slab::HostOutputReader> l2RibReader;
  Rxn::Ptr<Vxlan::VxlanConfigDir> vxlanConfigDir;
  Rxn::Ptr<Mlag::HostTable> mlagHosts;
  Rxn::Ptr<Mlag::Status> mlagStatus;
};

class HostWriter : public Rxn::PtrInterface {
 public:
  HostWriter(HostSources const& sources, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
             Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelGroupIdManager, MacTable& table, double delay);
  ~HostWriter() override;

  // The agent's directory (a new one after a restart) and its boot status:
  // the writer holds its rows back until the remote MACs' stage is ready,
  // then writes them all.
  void agentIs(Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> const& dir,
               Rxn::Ptr<Fab::VXLAN::VxlanBootStatus const> const& boot, Rxn::Ptr<Vxlan::FdbStatus> const& fdbStatus,
               Rxn::Ptr<Fab::VXLAN::VtepConfigDir> const& vtepConfigDir);
  AnswerQueue& answers() { return answers_; }
  // Whether a VTEP is in use on another VTI than this one. All tunnels of
  // the platform share one VRF, so a VTEP is reached through one VTI at a
  // time: the writer holds back a host whose VTEP another VTI uses.
  using VtepBusy = std::function<bool(Wire::IntfId const& vti, Fab::SwTunnelGroupId const& vtep)>;
  void vtepBusyIs(VtepBusy busy) { vtepBusy_ = std::move(busy); }
  // Seconds of wall time that one slice of writes may take.
  double quantum() const { return quantum_; }

 private:
  class RxnL2RibHosts;
  class RxnFdbConfig;
  class RxnMlagHosts;
  class RxnRemoteMacInfoDir;
  class RxnStatusTable;
  class RxnFlushReqTable;
  class RxnBootStatus;
  class RxnWriteTimer;

  // The row the sources ask for, or the empty row.
  Fab::VXLAN::HostEntry wanted(Bridging::MacVlanPair const& key) const;
  Wire::IntfId vtiMapping(Bridging::VlanId const& vlanId) const;
  bool vtiMaps(Wire::IntfId const& vti, Bridging::VlanId const& vlanId) const;
  bool writing() const;
  // A source changed the host of the key: it is written in the next slice.
  void sourceChanged(Bridging::MacVlanPair const& key);
  void writeSlice();
  // Rewrites (or withdraws) the host of the key from its sources.
  void rewrite(Bridging::MacVlanPair const& key);
  void writeAll();
  void forgetHostsThatDidNotComeBack();
  void forgetVtepsThatDidNotComeBack();
  void withdraw(Bridging::MacVlanPair const& key);
  bool vtepOnAnotherVti(Fab::VXLAN::HostEntry const& row) const;
  void rowUses(Fab::VXLAN::HostEntry const& row, int change);
  void l2RibIndexIs(Bridging::MacVlanPair const& key, bool present);
  void mlagIndexIs(Bridging::MacVlanPair const& key, bool present);
  void handleEvent(Fab::VXLAN::RemoteMacEvent const& event);
  void statusChanged(Bridging::MacVlanPair const& key);
  void programDue();
  void program(Bridging::MacVlanPair const& key);
  void serveFlushes();

  HostSources sources_;
  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir_;
  Rxn::Ptr<Fab::SwTunnelGroupIdManager> swTunnelGroupIdManager_;
  MacTable& table_;
  AnswerQueue answers_;
  Rxn::Ptr<RxnL2RibHosts> l2RibHosts_;
  Rxn::Ptr<RxnFdbConfig> fdbConfig_;
  Rxn::Ptr<RxnMlagHosts> mlagHosts_;
  Rxn::Ptr<RxnRemoteMacInfoDir> dir_;
  Rxn::Ptr<RxnStatusTable> statusTable_;
  Rxn::Ptr<RxnFlushReqTable> flushReqTable_;
  Rxn::Ptr<RxnBootStatus> boot_;
  Rxn::Ptr<RxnWriteTimer> writeTimer_;
  Rxn::Ptr<Vxlan::FdbStatus> fdbStatus_;
  Rxn::Ptr<Fab::VXLAN::VtepConfigDir> vtepConfigDir_;
  // The hosts whose sources changed, oldest first.
  Rxn::QueueSet<Bridging::MacVlanPair> toWrite_{Rxn::MapName("Sim::HostWriter::toWrite")};
  double quantum_ = 0.01;
  // Status rows changed since the last answer: the chip programs them together.
  std::vector<Bridging::MacVlanPair> toProgram_;
  bool flushPosted_ = false;
  VtepBusy vtepBusy_;
  // The host rows written, by VTEP and VTI.
  std::map<Fab::SwTunnelGroupId, std::map<Wire::IntfId, int>> rowsByVtep_;
};

}  // namespace Sim

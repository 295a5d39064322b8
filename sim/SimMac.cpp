#include "sim/SimMac.h"

#include <limits>

#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanSimMac");

namespace Sim {

using Fab::VXLAN::HostEntry;
using Fab::VXLAN::HostHwOperation;
using Fab::VXLAN::HostHwState;
using Fab::VXLAN::RemoteMacEvent;
using Fab::VXLAN::StatusEntry;

namespace {

Fab::FabNextHopId const kUnprogrammed(0xFFFFFFFE);

// The kind of a host that the L2Rib learned, by its source.
Bridging::EntryType l2RibEntryType(std::uint32_t source) {
  switch (source) {
    case 1:
      return Bridging::EntryType::evpnDynamicMac;
    case 2:
      return Bridging::EntryType::vxlanStaticMac;
    case 3:
      return Bridging::EntryType::controllerDynamicMac;
    default:
      return Bridging::EntryType::vxlanDynamicMac;
  }
}

Vxlan::MacVlanPair fdbKey(Bridging::MacVlanPair const& key) {
  return Vxlan::MacVlanPair(key.mac(), key.vlanId());
}

}  // namespace

// --- Reactors ----------------------------------------------------------------------------

class HostWriter::RxnL2RibHosts : public Rxn::Reactor<HostWriter, L2Rib::HostOutput const> {
 public:
  using Reactor::Reactor;
  void onHost(Bridging::MacVlanPair const& key) override {
    if (rxnMarkedForDeletion()) return;
    owner()->l2RibIndexIs(key, !!notifier()->host(key));
    owner()->sourceChanged(key);
  }
};

class HostWriter::RxnFdbConfig : public Rxn::Reactor<HostWriter, Vxlan::FdbConfig const> {
 public:
  using Reactor::Reactor;
  void onConfiguredHost(Vxlan::MacVlanPair const& key) override {
    if (rxnMarkedForDeletion()) return;
    owner()->sourceChanged(Bridging::MacVlanPair(key.mac(), key.vlanId()));
  }
};

class HostWriter::RxnMlagHosts : public Rxn::Reactor<HostWriter, Mlag::HostTable const> {
 public:
  using Reactor::Reactor;
  void onHostEntry(Mlag::HostEntryKey const& key) override {
    if (rxnMarkedForDeletion()) return;
    owner()->mlagIndexIs(Bridging::MacVlanPair(key.mac(), key.vlanId()), !!notifier()->hostEntry(key));
  }
};

class HostWriter::RxnRemoteMacInfoDir : public Rxn::Reactor<HostWriter, Fab::VXLAN::RemoteMacInfoDir> {
 public:
  using Reactor::Reactor;
  void onRemoteMacEvent() override {
    if (rxnMarkedForDeletion()) return;
    RemoteMacEvent const event = notifier()->remoteMacEvent();
    // Each event is answered as it was written, an answer later.
    owner()->answers_.post([writer = owner(), event] { writer->handleEvent(event); });
  }
};

class HostWriter::RxnStatusTable : public Rxn::Reactor<HostWriter, Fab::VXLAN::HostStatusTable const> {
 public:
  using Reactor::Reactor;
  void onStatusEntry(Bridging::MacVlanPair const& key) override {
    if (rxnMarkedForDeletion()) return;
    owner()->statusChanged(key);
  }
};

class HostWriter::RxnFlushReqTable : public Rxn::Reactor<HostWriter, Fab::VXLAN::RemoteMacFlushReqTable const> {
 public:
  using Reactor::Reactor;
  void onFlushReq(Fab::VXLAN::FlushReqKey const&) override {
    if (rxnMarkedForDeletion()) return;
    HostWriter* const writer = owner();
    if (!writer->flushPosted_ && notifier()->flushReqs() > 0) {
      writer->flushPosted_ = true;
      writer->answers_.post([writer] { writer->serveFlushes(); });
    }
  }
};

class HostWriter::RxnBootStatus : public Rxn::Reactor<HostWriter, Fab::VXLAN::VxlanBootStatus const> {
 public:
  using Reactor::Reactor;
  void onStageRemoteMacsReady() override {
    if (rxnMarkedForDeletion()) return;
    if (notifier()->stageRemoteMacsReady()) {
      owner()->writeAll();
    }
  }
};

class HostWriter::RxnWriteTimer : public Rxn::Reactor<HostWriter, Rxn::Clock const> {
 public:
  using Reactor::Reactor;
  void onTime() override {
    if (rxnMarkedForDeletion()) return;
    owner()->writeSlice();
  }
};

// --- The writer --------------------------------------------------------------------------

HostWriter::HostWriter(HostSources const& sources, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                       Rxn::Ptr<Fab::SwTunnelGroupIdManager> const& swTunnelGroupIdManager, MacTable& table,
                       double delay)
    : sources_(sources),
      vtiStatusDir_(vtiStatusDir),
      swTunnelGroupIdManager_(swTunnelGroupIdManager),
      table_(table),
      answers_(delay),
      l2RibHosts_(new RxnL2RibHosts(sources.l2RibHosts, this)),
      fdbConfig_(new RxnFdbConfig(sources.vxlanConfigDir->fdbConfig(), this)),
      mlagHosts_(new RxnMlagHosts(sources.mlagHosts, this)),
      writeTimer_(new RxnWriteTimer(Rxn::ActivityFacility::clock(), this)) {
  writeTimer_->hasNotificationActiveIs(true);
  l2RibHosts_->hasNotificationActiveIs(true);
  fdbConfig_->hasNotificationActiveIs(true);
  mlagHosts_->hasNotificationActiveIs(true);
}

HostWriter::~HostWriter() {
  writeTimer_->timeMinIs(std::numeric_limits<double>::infinity());
  for (Rxn::PtrInterface* reactor :
       std::initializer_list<Rxn::PtrInterface*>{l2RibHosts_.get(), fdbConfig_.get(), mlagHosts_.get(), dir_.get(),
                                                 statusTable_.get(), flushReqTable_.get(), boot_.get()}) {
    if (reactor != nullptr) {
      reactor->hasNotificationActiveIs(false);
    }
  }
}

void HostWriter::agentIs(Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> const& dir,
                         Rxn::Ptr<Fab::VXLAN::VxlanBootStatus const> const& boot,
                         Rxn::Ptr<Vxlan::FdbStatus> const& fdbStatus,
                         Rxn::Ptr<Fab::VXLAN::VtepConfigDir> const& vtepConfigDir) {
  fdbStatus_ = fdbStatus;
  vtepConfigDir_ = vtepConfigDir;
  answers_.clear();
  toWrite_.clear();
  toProgram_.clear();
  rowsByVtep_.clear();
  flushPosted_ = false;
  dir_ = new RxnRemoteMacInfoDir(dir, this);
  statusTable_ = new RxnStatusTable(dir->hostStatusTable(), this);
  flushReqTable_ = new RxnFlushReqTable(dir->remoteMacFlushReqTable(), this);
  boot_ = new RxnBootStatus(boot, this);
  // The indexes of the new directory start from the tables as they stand.
  for (auto const& [key, host] : sources_.l2RibHosts->host()) {
    l2RibIndexIs(key, true);
  }
  for (auto const& [key, mhost] : sources_.mlagHosts->hostEntry()) {
    mlagIndexIs(Bridging::MacVlanPair(key.mac(), key.vlanId()), true);
  }
  for (Rxn::PtrInterface* reactor :
       std::initializer_list<Rxn::PtrInterface*>{dir_.get(), statusTable_.get(), flushReqTable_.get(), boot_.get()}) {
    reactor->hasNotificationActiveIs(true);
  }
}

// Another VTI's hosts, written or resolved, or its tunnel, use the VTEP.
bool HostWriter::vtepOnAnotherVti(HostEntry const& row) const {
  if (auto const uses = rowsByVtep_.find(row.swTunnelGroupId()); uses != rowsByVtep_.end()) {
    for (auto const& [vti, count] : uses->second) {
      if (vti != row.vtiIntfId() && count > 0) return true;
    }
  }
  return vtepBusy_ && vtepBusy_(row.vtiIntfId(), row.swTunnelGroupId());
}

void HostWriter::rowUses(HostEntry const& row, int change) {
  if (!row) return;
  std::map<Wire::IntfId, int>& uses = rowsByVtep_[row.swTunnelGroupId()];
  if ((uses[row.vtiIntfId()] += change) == 0) uses.erase(row.vtiIntfId());
  if (uses.empty()) rowsByVtep_.erase(row.swTunnelGroupId());
}

bool HostWriter::writing() const {
  return dir_ && boot_ && boot_->notifier()->stageRemoteMacsReady();
}

Wire::IntfId HostWriter::vtiMapping(Bridging::VlanId const& vlanId) const {
  for (auto const& [vti, status] : vtiStatusDir_->vtiStatus()) {
    if (status->vlanToVniMap(vlanId).vni().valid()) {
      return vti;
    }
  }
  return Wire::IntfId();
}

// As the remote MAC machine sees it: a valid tunnel interface whose map in
// hardware has the VLAN. Rewriting a host that it cannot take would loop.
bool HostWriter::vtiMaps(Wire::IntfId const& vti, Bridging::VlanId const& vlanId) const {
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir const> const dir = dir_->notifier();
  Rxn::Ptr<Fab::VXLAN::FabVniInfo> const vniInfo = dir->vniInfo();
  Rxn::Ptr<Fab::VXLAN::VlanVniMapShadow> const shadow = vniInfo ? vniInfo->vlanVniMapShadow(vti) : nullptr;
  return dir->validTunnelIntf(vti) && shadow && !!shadow->vlanVniMap(vlanId);
}

// A configured host wins over the L2Rib's; an L2Rib host takes the VTI that
// maps its VLAN.
HostEntry HostWriter::wanted(Bridging::MacVlanPair const& key) const {
  Rxn::Ptr<Vxlan::FdbConfig> const fdbConfig = sources_.vxlanConfigDir->fdbConfig();
  Wire::IntfId vti;
  Wire::IpAddr vtep;
  Bridging::EntryType entryType = Bridging::EntryType::vxlanConfiguredMac;
  if (Vxlan::ConfiguredHost const configured = fdbConfig->configuredHost(fdbKey(key)); !!configured) {
    vti = configured.intf();
    vtep = configured.remoteVtepAddr();
  } else {
    L2Rib::HostAndSource const host = sources_.l2RibHosts->host(key);
    if (!host || host.dest().destType() != L2Rib::DestType::destTypeVxlan || host.dest().vxlan().isV6()) {
      return HostEntry();
    }
    vti = vtiMapping(key.vlanId());
    vtep = host.dest().vxlan().v4Addr();
    entryType = l2RibEntryType(host.source());
  }
  if (vti == Wire::IntfId() || vtep.isZero()) {
    return HostEntry();
  }
  Fab::SwTunnelGroupId const group = swTunnelGroupIdManager_->getSwTunnelGroupIdForTunnelIp(vtep);
  return HostEntry(key, vti, group, entryType, Rxn::System::currentTime(), HostHwState(),
                   HostHwOperation::hwOpResolve_);
}

// Until the stage is ready nothing is written: then every host is.
void HostWriter::sourceChanged(Bridging::MacVlanPair const& key) {
  if (!writing()) {
    return;
  }
  if (toWrite_.insertOrAssign(key, true).second && toWrite_.size() == 1) {
    writeTimer_->timeMinIs(Rxn::System::currentTime());
  }
}

// Work per slice is bounded by wall time: the rest waits for the next turn.
void HostWriter::writeSlice() {
  double const deadline = Rxn::System::currentTime() + quantum_;
  for (auto it = toWrite_.begin(); it != toWrite_.end();) {
    if (Rxn::System::currentTime() > deadline) {
      writeTimer_->timeMinIs(0.0);
      return;
    }
    Bridging::MacVlanPair const key = it.key();
    ++it;
    toWrite_.erase(key);
    rewrite(key);
  }
}

void HostWriter::rewrite(Bridging::MacVlanPair const& key) {
  if (!writing()) {
    return;
  }
  HostEntry row = wanted(key);
  if (!row || !vtiMaps(row.vtiIntfId(), key.vlanId()) || vtepOnAnotherVti(row)) {
    withdraw(key);
    return;
  }
  Rxn::Ptr<Fab::VXLAN::HostTable> const hostTable = dir_->notifier()->hostTable();
  HostEntry const present = hostTable->entry(key);
  rowUses(present, -1);
  rowUses(row, +1);
  row.hwStateIs(present.hwState());
  if (!!present) {
    row.learnTimeIs(present.learnTime());
  }
  if (row == present) {
    // The same row again: the machine must still look at it once more.
    hostTable->entryNotify(key);
    return;
  }
  hostTable->entryIs(key, row);
}

// The row goes through hwOpDelete, out of the chip, then away.
void HostWriter::withdraw(Bridging::MacVlanPair const& key) {
  Rxn::Ptr<Fab::VXLAN::HostTable> const hostTable = dir_->notifier()->hostTable();
  HostEntry row = hostTable->entry(key);
  // A chip row may be older than the agent's table.
  table_.rows.erase(key);
  if (!row) {
    return;
  }
  rowUses(row, -1);
  RXN_TRACE(8, "withdraw " << key);
  row.hwOperationIs(HostHwOperation::hwOpDelete_);
  hostTable->entryIs(key, row);
  hostTable->entryDel(key);
}

// Once the stage is ready: every host the sources have, and nothing else in
// the chip.
void HostWriter::writeAll() {
  RXN_TRACE(7, "the remote MACs' stage is ready: writing every host");
  toWrite_.clear();
  std::set<Bridging::MacVlanPair> keys;
  for (auto const& [key, host] : sources_.l2RibHosts->host()) {
    keys.insert(key);
  }
  for (auto const& [key, host] : sources_.vxlanConfigDir->fdbConfig()->configuredHost()) {
    keys.insert(Bridging::MacVlanPair(key.mac(), key.vlanId()));
  }
  for (auto const& [key, row] : dir_->notifier()->hostTable()->entry()) {
    keys.insert(key);
  }
  for (auto it = table_.rows.begin(); it != table_.rows.end();) {
    Bridging::MacVlanPair const key = it.key();
    ++it;
    if (!keys.contains(key)) table_.rows.erase(key);
  }
  for (Bridging::MacVlanPair const& key : keys) {
    rewrite(key);
  }
  forgetHostsThatDidNotComeBack();
  forgetVtepsThatDidNotComeBack();
}

// The requests of VTEPs that an earlier life listed and no host of the VTI
// names any more go, as the recovery's withdrawal of unrecoverable hosts
// would take them.
void HostWriter::forgetVtepsThatDidNotComeBack() {
  std::set<std::pair<Wire::IntfId, Fab::SwTunnelGroupId>> named;
  for (auto const& [key, row] : dir_->notifier()->hostTable()->entry()) {
    named.emplace(row.vtiIntfId(), row.swTunnelGroupId());
  }
  for (auto const& [vti, config] : vtepConfigDir_->vtepConfig()) {
    for (auto it = config->remoteVtepList().begin(); it != config->remoteVtepList().end();) {
      Fab::SwTunnelGroupId const id = it.key();
      ++it;
      if (!named.contains({vti, id})) {
        RXN_TRACE(7, "no host came back for " << id << " on " << vti);
        config->remoteVtepListDel(id);
      }
    }
  }
}

// Until the remote MACs recover after a hitless restart, the platform stands
// in for that recovery's last step: a host of the forwarding database that
// no source brought back leaves it.
void HostWriter::forgetHostsThatDidNotComeBack() {
  Rxn::Ptr<Fab::VXLAN::HostTable> const hostTable = dir_->notifier()->hostTable();
  std::vector<Vxlan::MacVlanPair> gone;
  for (auto const& [key, host] : fdbStatus_->learnedHost()) {
    if (!hostTable->entry(Bridging::MacVlanPair(key.mac(), key.vlanId()))) gone.push_back(key);
  }
  for (Vxlan::MacVlanPair const& key : gone) {
    fdbStatus_->learnedHostDel(key);
    fdbStatus_->multiVtepLearnedHostDel(key);
  }
}

void HostWriter::handleEvent(RemoteMacEvent const& event) {
  if (!dir_) {
    return;
  }
  Bridging::MacVlanPair const key(event.macAddr(), Bridging::VlanId(static_cast<std::uint16_t>(event.vlanId())));
  RXN_TRACE(8, "event " << event.oper() << " " << key);
  if (event.oper() == RemoteMacEvent::Oper::operDelete_) {
    withdraw(key);
    return;
  }
  rewrite(key);
}

void HostWriter::statusChanged(Bridging::MacVlanPair const& key) {
  // A host without a status row has nothing to forward to.
  if (!dir_->notifier()->hostStatusTable()->statusEntry(key)) {
    table_.rows.erase(key);
    return;
  }
  if (toProgram_.empty()) {
    answers_.post([this] { programDue(); });
  }
  toProgram_.push_back(key);
}

void HostWriter::programDue() {
  std::vector<Bridging::MacVlanPair> keys;
  keys.swap(toProgram_);
  for (Bridging::MacVlanPair const& key : keys) {
    program(key);
  }
}

// What the status row says goes into the chip; the row reports it.
void HostWriter::program(Bridging::MacVlanPair const& key) {
  Rxn::Ptr<Fab::VXLAN::HostTable> const hostTable = dir_->notifier()->hostTable();
  StatusEntry const status = dir_->notifier()->hostStatusTable()->statusEntry(key);
  HostEntry row = hostTable->entry(key);
  if (!status || !row || row.hwOperation() == HostHwOperation::hwOpDelete_) {
    return;
  }
  bool const inChip = table_.rows.contains(key);
  if (status.nextHopId() == kUnprogrammed) {
    table_.rows.erase(key);
    row.hwStateIs(HostHwState(kUnprogrammed, status.swTunnelGroupId(), false));
  } else if (!inChip && table_.rows.size() >= table_.capacity) {
    RXN_TRACE(7, "the MAC table is full: " << key << " stays out of the chip");
    ++table_.refusedFull;
    return;
  } else {
    table_.rows.insertOrAssign(key, MacTable::Row{status.vtiIntfId(), status.swTunnelGroupId(), status.nextHopId()});
    row.hwStateIs(HostHwState(status.nextHopId(), status.swTunnelGroupId(), true));
  }
  row.hwOperationIs(HostHwOperation::hwOpProgrammed_);
  hostTable->entryIs(key, row);
}

// Every row of a flushed VTI and VLAN goes, then the request.
void HostWriter::serveFlushes() {
  flushPosted_ = false;
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir const> const dir = dir_->notifier();
  Rxn::Ptr<Fab::VXLAN::RemoteMacFlushReqTable> const requests = dir->remoteMacFlushReqTable();
  std::vector<Fab::VXLAN::FlushReqKey> served;
  for (auto const& [request, member] : requests->flushReq()) {
    served.push_back(request);
  }
  for (Fab::VXLAN::FlushReqKey const& request : served) {
    std::vector<Bridging::MacVlanPair> keys;
    for (auto const& [key, row] : dir->hostTable()->entry()) {
      if (row.vtiIntfId() == request.vtiIntfId() &&
          (request.vlanId() == 0 || key.vlanId().value() == request.vlanId())) {
        keys.push_back(key);
      }
    }
    RXN_TRACE(7, "flush " << request << ": " << keys.size() << " hosts");
    for (Bridging::MacVlanPair const& key : keys) {
      withdraw(key);
    }
    requests->flushReqDel(request);
  }
}

void HostWriter::l2RibIndexIs(Bridging::MacVlanPair const& key, bool present) {
  if (!dir_) {
    return;
  }
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> const dir = dir_->notifier();
  std::uint32_t const vlan = key.vlanId().value();
  if (present) {
    dir->vlanBasedHostTableIndexIs(vlan)->macAddrListIs(key.mac(), true);
  } else if (Rxn::Ptr<Fab::VXLAN::VlanBasedHostTableIndex> const index = dir->vlanBasedHostTableIndex(vlan)) {
    index->macAddrListDel(key.mac());
    if (index->macAddrLists() == 0) {
      dir->vlanBasedHostTableIndexDel(vlan);
    }
  }
}

void HostWriter::mlagIndexIs(Bridging::MacVlanPair const& key, bool present) {
  if (!dir_) {
    return;
  }
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> const dir = dir_->notifier();
  std::uint32_t const vlan = key.vlanId().value();
  if (present) {
    dir->mlagHostTableIndexIs(vlan)->macAddrListIs(key.mac(), true);
  } else if (Rxn::Ptr<Fab::VXLAN::MlagHostTableIndex> const index = dir->mlagHostTableIndex(vlan)) {
    index->macAddrListDel(key.mac());
    if (index->macAddrLists() == 0) {
      dir->mlagHostTableIndexDel(vlan);
    }
  }
}

}  // namespace Sim

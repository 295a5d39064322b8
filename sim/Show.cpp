#include "sim/Show.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "sim/ShowSections.h"

namespace Sim {

namespace {

using Fab::VXLAN::FabVxlanInfo;

template <class Map>
std::vector<std::string> sortedNames(Map const& set) {
  std::vector<std::string> names;
  for (auto const& [key, member] : set) {
    names.push_back(Rxn::valueToString(key));
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string joined(std::vector<std::string> const& items, char const* separator = ", ") {
  std::string out;
  for (std::string const& item : items) {
    out += (out.empty() ? "" : separator) + item;
  }
  return out.empty() ? "-" : out;
}

std::string listType(Vxlan::BumVtepIpListType type) {
  switch (type) {
    case Vxlan::BumVtepIpListType::bumVtepIpSendToAll:
      return "sendToAll";
    case Vxlan::BumVtepIpListType::bumVtepIpSendToAny:
      return "sendToAny";
  }
  return Rxn::valueToString(type);
}

std::string idText(std::uint32_t id, bool valid) {
  return valid ? std::to_string(id) : "-";
}

// A VTEP published with no tunnel behind it is left from an earlier life.
std::string vtepState(bool listed, Rxn::Ptr<Fab::VXLAN::VtepInfo> const& info) {
  if (!info) return listed ? "Waiting" : "Stale";
  if (!listed) return "Draining";
  return info->curNextHopId() == Fab::FabNextHopId() ? "Requested" : "Published";
}

Snapshot::Vtep vtepRow(Platform& platform, Wire::IntfId const& vti, Fab::SwTunnelGroupId const& id) {
  Fab::VXLAN::VtepSm const& sm = *platform.vtepSm();
  Rxn::Ptr<Fab::VXLAN::VtepConfig> const config = platform.vtepConfigDir()->vtepConfig(vti);
  Rxn::Ptr<Fab::VXLAN::VtepInfoDir> const dir = sm.vtepInfoDir(vti);
  Rxn::Ptr<Fab::VXLAN::VtepInfo> const info = dir ? dir->vtepInfo(id) : nullptr;
  Snapshot::Vtep row;
  row.vti = vti.stringValue();
  row.vtep = id.stringValue();
  row.state = vtepState(config && config->remoteVtepList(id), info);
  Rxn::Ptr<Fab::VXLAN::VtepStatus> const status = platform.vtepStatusDir()->vtepStatus(vti);
  Fab::VXLAN::HwVtepInfo const hw = status ? status->hwVtepInfo(id) : Fab::VXLAN::HwVtepInfo();
  row.tunnelId = idText(hw.tunnelId().value(), hw.tunnelId().valid());
  row.nextHopId = !hw ? "-" : hw.nextHopId().stringValue();
  if (info) {
    for (auto const& [nhId, held] : info->nextHopId()) {
      bool const active = platform.vtepConfigDir()->activeNextHopIdList(nhId);
      row.held.push_back(nhId.stringValue() + (active ? "*" : ""));
    }
    std::sort(row.held.begin(), row.held.end());
  }
  Fab::VrfAndIpAddr const key(sm.vtiToVrf(vti), platform.swTunnelGroupIdManager()->getTunnelIpFromSwTunnelGroupId(id));
  std::uint64_t const generation = sm.currentGeneration(key);
  row.generation = generation != 0 ? std::to_string(generation) : "-";
  return row;
}

void takeVteps(Platform& platform, Snapshot& s) {
  Fab::VXLAN::VtepSm const& sm = *platform.vtepSm();
  std::set<std::pair<Wire::IntfId, Fab::SwTunnelGroupId>> vteps;
  for (auto const& [vti, config] : platform.vtepConfigDir()->vtepConfig()) {
    for (auto const& [id, listed] : config->remoteVtepList()) {
      vteps.emplace(vti, id);
    }
  }
  for (auto const& [vti, dir] : sm.vtepInfoDir()) {
    for (auto const& [id, info] : dir->vtepInfo()) {
      vteps.emplace(vti, id);
    }
  }
  for (auto const& [vti, status] : platform.vtepStatusDir()->vtepStatus()) {
    for (auto const& [id, info] : status->hwVtepInfo()) {
      vteps.emplace(vti, id);
    }
  }
  for (auto const& [vti, id] : vteps) {
    s.vteps.push_back(vtepRow(platform, vti, id));
  }
  s.activeNextHops = sortedNames(platform.vtepConfigDir()->activeNextHopIdList());
  Fab::FabTunnelConfig const& config = *platform.tunnelConfig();
  Fab::FabTunnelStatus const& status = *platform.tunnelStatus();
  SimTunnelLayer const& layer = platform.tunnelLayer();
  s.tunnelLayer = {config.init(),         status.init(),           config.cleanup(),
                   status.cleanup(),      layer.tunnelsInUse(),    layer.limits().tunnels,
                   layer.nextHopsInUse(), layer.limits().nextHops, layer.waitingForResources()};
  Fab::VXLAN::VtepEvent const& event = *platform.vtepEvent();
  s.learnEvent = {event.genId(), event.vtiIntfId().stringValue(), event.remoteVtepAddr().stringValue(),
                  event.vni().stringValue(), event.macAddr().stringValue()};
}

std::string vtiProgramLine(Wire::IntfId const& vti, VtiProgram const& p) {
  std::vector<std::string> groups;
  for (Wire::IpAddr const& group : p.mcastGrpDecap) {
    groups.push_back(group.stringValue());
  }
  std::vector<std::string> pruned;
  for (Wire::IpAddr const& vtep : p.prunedVteps) {
    pruned.push_back(vtep.stringValue());
  }
  return Rxn::format("%-6s  oper %-4s  src %-15s  varp %-15s  udp %-5u  decap %s  bridging %s  pruning %s",
                     vti.stringValue().c_str(), p.operStatus == Interface::IntfOperStatus::intfOperUp ? "up" : "down",
                     p.srcAddr.stringValue().c_str(), p.varpVtepAddr.stringValue().c_str(), p.udpPort.value(),
                     joined(groups, " ").c_str(), p.vtepToVtepBridging ? "on" : "off",
                     p.vtepSourcePruningAll ? "all" : joined(pruned, " ").c_str());
}

constexpr std::size_t kVniRowsShown = 12;
constexpr std::size_t kLogsShown = 5;

std::string vniText(Vxlan::VniExtOrNone const& vni) {
  return vni.valid() ? vni.stringValue() : "none";
}

std::string actionText(FabHelper::VlanVniMapConfigAction action) {
  switch (action) {
    case FabHelper::vlanVniMapAdded_:
      return "added";
    case FabHelper::vlanVniMapDeletedMacFlushPending_:
      return "flushing";
    case FabHelper::vlanVniMapDeleted_:
      return "deleted";
  }
  return Rxn::valueToString(action);
}

Snapshot::VniMap::Row vniRow(Platform& platform, Bridging::VlanId const& vlan) {
  Fab::VXLAN::VniSm const& sm = *platform.vniSm();
  FabHelper::FabHelperVniConfigEntry const config = sm.config()->configEntry(vlan);
  FabHelper::FabHelperVniStatusEntry const status = sm.status()->statusEntry(vlan);
  Snapshot::VniMap::Row row;
  row.vlan = vlan.value();
  row.vti = (!!config ? config.vtiIntfId() : status.vtiIntfId()).stringValue();
  row.config = !config ? "-" : vniText(config.vni()) + " " + actionText(config.vlanVniMapConfigAction());
  row.status = !status
                   ? "-"
                   : vniText(status.vni()) + " " +
                         (status.tableAddStatus() == FabTypes::success_ ? "success"
                          : status.tableAddStatus() == FabTypes::full_  ? "full"
                                                                        : Rxn::valueToString(status.tableAddStatus()));
  row.shadow = "-";
  for (auto const& [vti, shadow] : platform.vniInfo()->vlanVniMapShadow()) {
    if (Fab::VXLAN::VniEntry const entry = shadow->vlanVniMap(vlan); !!entry) {
      row.shadow = vniText(entry.vni());
      row.vti = vti.stringValue();
    }
  }
  Fab::VXLAN::ModifyVlanVniMapEntry const queued = sm.updateList(vlan);
  Fab::VXLAN::ModifyVlanVniMapEntry const waiting = sm.pendingRemoveList(vlan);
  row.queued = !!queued    ? "update " + vniText(queued.newVni())
               : !!waiting ? "after flush " + vniText(waiting.newVni())
                           : "-";
  if (row.vti.empty()) {
    row.vti = (!!queued ? queued.vtiIntfId() : waiting.vtiIntfId()).stringValue();
  }
  return row;
}

void takeVniMap(Platform& platform, Snapshot& s) {
  Fab::VXLAN::VniSm const& sm = *platform.vniSm();
  Snapshot::VniMap& m = s.vniMap;
  std::set<Bridging::VlanId> vlans;
  for (auto const& [vlan, row] : sm.config()->configEntry()) {
    vlans.insert(vlan);
  }
  for (auto const& [vlan, row] : sm.status()->statusEntry()) {
    vlans.insert(vlan);
    m.full += row.tableAddStatus() == FabTypes::full_ ? 1 : 0;
  }
  for (auto const& [vti, shadow] : platform.vniInfo()->vlanVniMapShadow()) {
    m.shadow += shadow->vlanVniMaps();
    for (auto const& [vlan, entry] : shadow->vlanVniMap()) {
      vlans.insert(vlan);
    }
  }
  for (auto const& [vlan, entry] : sm.updateList()) {
    vlans.insert(vlan);
  }
  for (auto const& [vlan, entry] : sm.pendingRemoveList()) {
    vlans.insert(vlan);
  }
  m.config = sm.config()->configEntrys();
  m.status = sm.status()->statusEntrys();
  m.updateList = sm.updateLists();
  m.pendingRemove = sm.pendingRemoveLists();
  m.chip = platform.vniTable().mappings.size();
  m.chipCapacity = platform.vniTable().capacity;
  m.recovered = platform.vxlanBootStatus()->recoveredVlanToVniMaps();
  for (Bridging::VlanId const& vlan : vlans) {
    if (m.rows.size() == kVniRowsShown) {
      m.moreRows = vlans.size() - kVniRowsShown;
      break;
    }
    m.rows.push_back(vniRow(platform, vlan));
  }
  for (auto const& [vti, hw] : platform.vxlanHwStatusDir()->vxlanHwStatus()) {
    for (auto const& [vlan, vni] : hw->pendingVlanToVniMap()) {
      m.unprogrammed.push_back(vti.stringValue() + " vlan " + vlan.stringValue() + " vni " + vniText(vni));
    }
  }
  std::sort(m.unprogrammed.begin(), m.unprogrammed.end());
}

}  // namespace

Snapshot takeSnapshot(Platform& platform, std::string const& label) {
  Snapshot s;
  s.label = label;
  s.time = platform.now();
  FabVxlanInfo const& info = *platform.vxlanInfo();
  s.states = {{"Feature", Rxn::valueToString(info.state())},
              {"VtepSm", Rxn::valueToString(info.vtepSmState())},
              {"VniSm", Rxn::valueToString(info.vniSmState())},
              {"VxlanMacAddrSm", Rxn::valueToString(info.vxlanMacSmState())}};
  if (platform.config().vtepGroupSupported) {
    s.states.emplace_back("VtepGroupSm", Rxn::valueToString(info.vtepGroupSmState()));
  }
  if (platform.central()) {
    for (auto const& [machine, state] : platform.central()->awaitedSubMachines()) {
      s.awaited.emplace_back(machine, Rxn::valueToString(state));
    }
  }
  s.standIns = platform.standInNames();
  s.controllerClientMode = info.controllerClientMode();
  s.datapathLearning = info.datapathLearning();
  s.activatedVti = sortedNames(info.activatedVti());
  s.hwStatusVti = sortedNames(platform.vxlanHwStatusDir()->vxlanHwStatus());

  Vxlan::BumStatus const& bum = *platform.bumStatus();
  s.bumReplicationMode = Rxn::valueToString(bum.bumReplicationMode());
  for (auto const& [vlan, group] : bum.bumMcastGrp()) {
    s.bumMcastGrp.emplace_back(vlan.value(), group.stringValue());
  }
  std::sort(s.bumMcastGrp.begin(), s.bumMcastGrp.end());
  for (auto const& [key, list] : bum.bumVtepList()) {
    s.bumVtepLists.push_back({key.mac().stringValue(), key.vlanId().value(), listType(list->bumVtepIpListType()), {}});
    for (auto const& [vtep, member] : list->remoteVtepAddr()) {
      s.bumVtepLists.back().vteps.push_back(vtep.stringValue());
    }
    std::sort(s.bumVtepLists.back().vteps.begin(), s.bumVtepLists.back().vteps.end());
  }
  std::sort(s.bumVtepLists.begin(), s.bumVtepLists.end(),
            [](auto const& a, auto const& b) { return std::tie(a.vlan, a.mac) < std::tie(b.vlan, b.mac); });

  Fab::VXLAN::VxlanBootStatus const& boot = *platform.vxlanBootStatus();
  s.bootStages = {{"BUM VTEP lists ready", boot.stageBumVtepListReady()},
                  {"VLAN-VNI mapping ready", boot.stageVlanVniMappingReady()},
                  {"Remote MACs ready", boot.stageRemoteMacsReady()},
                  {"Remote MACs re-evaluated", boot.stageReevaluateRmacsDone()}};
  s.vtepSubsystem = !!platform.vtepSm();
  if (s.vtepSubsystem) {
    takeVteps(platform, s);
  }
  for (auto const& [vti, program] : platform.vtiHardware().vti) {
    s.vtiPrograms.push_back(vtiProgramLine(vti, program));
  }
  s.vtiHookCalls = platform.vtiHardware().calls.size() + platform.vtiHardware().droppedCalls;
  s.vniSubsystem = !!platform.vniSm();
  if (s.vniSubsystem) {
    takeVniMap(platform, s);
  }
  s.macSubsystem = !!platform.vxlanMacAddrSm();
  if (s.macSubsystem) {
    takeRemoteMacs(platform, s.remoteMacs);
  }
  std::vector<std::string> const& logs = platform.logs();
  s.logs.assign(logs.size() > kLogsShown ? logs.end() - kLogsShown : logs.begin(), logs.end());
  for (auto const& [function, text] : platform.acsd()->verifyData()->cliVerifyOutput()) {
    s.verifyFailures.push_back(text);
  }
  return s;
}

void renderVteps(std::ostringstream& out, Snapshot const& s) {
  Snapshot::TunnelLayer const& t = s.tunnelLayer;
  out << Rxn::format("\nTunnel layer: init %u/%u, cleanup %u/%u, tunnels %zu of %zu, next hops %zu of %zu",
                     t.initConfig, t.initStatus, t.cleanupConfig, t.cleanupStatus, t.tunnels, t.tunnelLimit, t.nextHops,
                     t.nextHopLimit);
  out << (t.waiting > 0 ? Rxn::format(", %zu waiting for ids\n", t.waiting) : std::string("\n"));
  if (!s.vteps.empty()) {
    out << "\nVTI     VTEP             State      Tunnel  Next hop    Held (* the reader's)  Generation\n"
           "------  ---------------  ---------  ------  ----------  ---------------------  -------------\n";
    for (Snapshot::Vtep const& v : s.vteps) {
      out << Rxn::format("%-6s  %-15s  %-9s  %-6s  %-10s  %-21s  %s\n", v.vti.c_str(), v.vtep.c_str(), v.state.c_str(),
                         v.tunnelId.c_str(), v.nextHopId.c_str(), joined(v.held, " ").c_str(), v.generation.c_str());
    }
  }
  out << "Reader's active next hops: " << joined(s.activeNextHops, " ") << "\n";
  if (s.learnEvent.genId != 0) {
    out << Rxn::format("Learn events: %lu, the last from %s on %s, VNI %s, MAC %s\n",
                       static_cast<unsigned long>(s.learnEvent.genId), s.learnEvent.vtep.c_str(),
                       s.learnEvent.vti.c_str(), s.learnEvent.vni.c_str(), s.learnEvent.mac.c_str());
  }
}

void renderVniMap(std::ostringstream& out, Snapshot::VniMap const& m) {
  // An empty map says nothing.
  if (m.config + m.status + m.shadow + m.updateList + m.pendingRemove + m.chip + m.recovered == 0) {
    return;
  }
  out << Rxn::format(
      "\nVLAN-VNI map: config %zu, status %zu (full %zu), shadow %zu, update list %zu, pending remove %zu; chip %zu "
      "of %zu",
      m.config, m.status, m.full, m.shadow, m.updateList, m.pendingRemove, m.chip, m.chipCapacity);
  out << (m.recovered > 0 ? Rxn::format("; recovered %zu\n", m.recovered) : std::string("\n"));
  if (!m.rows.empty()) {
    out << "VLAN  VTI     Config            Status            Shadow    Queued\n"
           "----  ------  ----------------  ----------------  --------  ------------------\n";
    for (Snapshot::VniMap::Row const& r : m.rows) {
      out << Rxn::format("%-4d  %-6s  %-16s  %-16s  %-8s  %s\n", r.vlan, r.vti.c_str(), r.config.c_str(),
                         r.status.c_str(), r.shadow.c_str(), r.queued.c_str());
    }
    if (m.moreRows > 0) {
      out << Rxn::format("... and %zu more\n", m.moreRows);
    }
  }
  if (!m.unprogrammed.empty()) {
    out << "Unprogrammed (pendingVlanToVniMap): " << joined(m.unprogrammed) << "\n";
  }
}

std::string renderText(Snapshot const& s) {
  std::ostringstream out;
  out << "=== " << s.label << " (t=" << Rxn::format("%.3f", s.time) << ") ===\n";
  out << "VXLAN feature\n";
  for (auto const& [machine, state] : s.states) {
    bool const standIn = std::find(s.standIns.begin(), s.standIns.end(), machine) != s.standIns.end();
    out << Rxn::format("  %-22s %s\n", machine.c_str(), (state + (standIn ? " (stand-in)" : "")).c_str());
  }
  if (!s.awaited.empty()) {
    std::vector<std::string> awaited;
    for (auto const& [machine, state] : s.awaited) {
      awaited.push_back(machine + " " + state);
    }
    out << Rxn::format("  %-22s %s\n", "Waiting on", joined(awaited).c_str());
  }
  out << Rxn::format("  %-22s %s\n", "Controller client mode", s.controllerClientMode ? "yes" : "no");
  out << Rxn::format("  %-22s %s\n", "Data path learning", s.datapathLearning ? "yes" : "no");
  out << Rxn::format("  %-22s %s\n", "Activated VTIs", joined(s.activatedVti).c_str());
  out << Rxn::format("  %-22s %s\n", "Hardware status VTIs", joined(s.hwStatusVti).c_str());
  out << "\nBUM replication mode: " << s.bumReplicationMode << "\n";
  if (!s.bumMcastGrp.empty()) {
    out << "\nVLAN  Flood group\n----  ---------------\n";
    for (auto const& [vlan, group] : s.bumMcastGrp) {
      out << Rxn::format("%-4d  %s\n", vlan, group.c_str());
    }
  }
  if (!s.bumVtepLists.empty()) {
    out << "\nMAC             VLAN  Type       VTEPs\n"
           "--------------  ----  ---------  --------------------------------\n";
    for (auto const& list : s.bumVtepLists) {
      out << Rxn::format("%-14s  %-4d  %-9s  %s\n", list.mac.c_str(), list.vlan, list.type.c_str(),
                         joined(list.vteps).c_str());
    }
  }
  if (s.vtepSubsystem) {
    renderVteps(out, s);
  }
  if (!s.vtiPrograms.empty()) {
    out << "\nVTI programming (" << s.vtiHookCalls << " hook calls)\n";
    for (std::string const& line : s.vtiPrograms) {
      out << "  " << line << "\n";
    }
  }
  if (s.vniSubsystem) {
    renderVniMap(out, s.vniMap);
  }
  if (s.macSubsystem) {
    renderRemoteMacs(out, s.remoteMacs);
  }
  for (std::string const& line : s.logs) {
    out << "Log: " << line << "\n";
  }
  out << "\nHitless restart stages\n";
  for (auto const& [stage, ready] : s.bootStages) {
    out << Rxn::format("  %-24s %s\n", stage.c_str(), ready ? "ready" : "-");
  }
  for (std::string const& failure : s.verifyFailures) {
    out << "Verification failed: " << failure << "\n";
  }
  return out.str();
}

void writeStrings(JsonWriter& w, char const* key, std::vector<std::string> const& strings) {
  w.Key(key);
  w.StartArray();
  for (std::string const& string : strings)
    w.String(string.c_str());
  w.EndArray();
}

void writeTexts(JsonWriter& w, std::initializer_list<std::pair<char const*, std::string const*>> texts) {
  for (auto const& [key, text] : texts) {
    w.Key(key);
    w.String(text->c_str());
  }
}

void writeCounts(JsonWriter& w, std::initializer_list<std::pair<char const*, std::size_t>> counts) {
  for (auto const& [key, count] : counts) {
    w.Key(key);
    w.Uint64(count);
  }
}

void writeVteps(JsonWriter& w, Snapshot const& s) {
  w.Key("vteps");
  w.StartArray();
  for (Snapshot::Vtep const& v : s.vteps) {
    w.StartObject();
    writeTexts(w, {{"vti", &v.vti},
                   {"vtep", &v.vtep},
                   {"state", &v.state},
                   {"tunnelId", &v.tunnelId},
                   {"nextHopId", &v.nextHopId},
                   {"generation", &v.generation}});
    writeStrings(w, "held", v.held);
    w.EndObject();
  }
  w.EndArray();
  writeStrings(w, "activeNextHops", s.activeNextHops);
  Snapshot::TunnelLayer const& t = s.tunnelLayer;
  w.Key("tunnelLayer");
  w.StartObject();
  writeCounts(w, {{"initConfig", t.initConfig},
                  {"initStatus", t.initStatus},
                  {"cleanupConfig", t.cleanupConfig},
                  {"cleanupStatus", t.cleanupStatus},
                  {"tunnels", t.tunnels},
                  {"tunnelLimit", t.tunnelLimit},
                  {"nextHops", t.nextHops},
                  {"nextHopLimit", t.nextHopLimit},
                  {"waiting", t.waiting}});
  w.EndObject();
  w.Key("learnEvents");
  w.Uint64(s.learnEvent.genId);
}

void writeVniMap(JsonWriter& w, Snapshot::VniMap const& m) {
  w.Key("vniMap");
  w.StartObject();
  writeCounts(w, {{"config", m.config},
                  {"status", m.status},
                  {"full", m.full},
                  {"shadow", m.shadow},
                  {"updateList", m.updateList},
                  {"pendingRemove", m.pendingRemove},
                  {"chip", m.chip},
                  {"chipCapacity", m.chipCapacity},
                  {"recovered", m.recovered}});
  w.Key("rows");
  w.StartArray();
  for (Snapshot::VniMap::Row const& r : m.rows) {
    w.StartObject();
    w.Key("vlan");
    w.Int(r.vlan);
    writeTexts(
        w,
        {{"vti", &r.vti}, {"config", &r.config}, {"status", &r.status}, {"shadow", &r.shadow}, {"queued", &r.queued}});
    w.EndObject();
  }
  w.EndArray();
  writeStrings(w, "unprogrammed", m.unprogrammed);
  w.EndObject();
}

template <class Value, class WriteValue>
void writeNamed(JsonWriter& w, char const* key, std::vector<std::pair<std::string, Value>> const& named,
                WriteValue writeValue) {
  w.Key(key);
  w.StartObject();
  for (auto const& [name, value] : named) {
    w.Key(name.c_str());
    writeValue(value);
  }
  w.EndObject();
}

void writeBumVtepLists(JsonWriter& w, Snapshot const& s) {
  w.Key("bumVtepList");
  w.StartArray();
  for (auto const& list : s.bumVtepLists) {
    w.StartObject();
    writeTexts(w, {{"mac", &list.mac}});
    w.Key("vlan");
    w.Int(list.vlan);
    writeTexts(w, {{"type", &list.type}});
    writeStrings(w, "vteps", list.vteps);
    w.EndObject();
  }
  w.EndArray();
}

void writeSnapshot(JsonWriter& w, Snapshot const& s) {
  w.StartObject();
  writeTexts(w, {{"label", &s.label}});
  w.Key("time");
  w.Double(s.time);
  writeNamed(w, "states", s.states, [&w](std::string const& state) { w.String(state.c_str()); });
  writeNamed(w, "waitingOn", s.awaited, [&w](std::string const& state) { w.String(state.c_str()); });
  writeStrings(w, "standIns", s.standIns);
  w.Key("controllerClientMode");
  w.Bool(s.controllerClientMode);
  w.Key("datapathLearning");
  w.Bool(s.datapathLearning);
  writeStrings(w, "activatedVti", s.activatedVti);
  writeTexts(w, {{"bumReplicationMode", &s.bumReplicationMode}});
  w.Key("bumMcastGrp");
  w.StartObject();
  for (auto const& [vlan, group] : s.bumMcastGrp) {
    w.Key(std::to_string(vlan).c_str());
    w.String(group.c_str());
  }
  w.EndObject();
  writeBumVtepLists(w, s);
  if (s.vtepSubsystem) {
    writeVteps(w, s);
  }
  if (s.vniSubsystem) {
    writeVniMap(w, s.vniMap);
  }
  if (s.macSubsystem) {
    writeRemoteMacs(w, s.remoteMacs);
  }
  writeStrings(w, "vtiPrograms", s.vtiPrograms);
  writeStrings(w, "logs", s.logs);
  writeStrings(w, "verifyFailures", s.verifyFailures);
  writeNamed(w, "bootStages", s.bootStages, [&w](bool ready) { w.Bool(ready); });
  w.EndObject();
}

std::string renderJson(std::string const& scenario, std::vector<Snapshot> const& snapshots) {
  rapidjson::StringBuffer buffer;
  JsonWriter w(buffer);
  w.StartObject();
  w.Key("scenario");
  w.String(scenario.c_str());
  w.Key("snapshots");
  w.StartArray();
  for (Snapshot const& s : snapshots) {
    writeSnapshot(w, s);
  }
  w.EndArray();
  w.EndObject();
  return std::string(buffer.GetString()) + "\n";
}

}  // namespace Sim

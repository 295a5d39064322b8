// The show output's remote MAC section: the host table through its stages,
// the chip's MAC table, and the learn restriction counters.

#include "fabvxlan/mac/FabVxlanMacAddrSm.h"
#include "sim/ShowSections.h"

namespace Sim {

namespace {

constexpr std::size_t kMacRowsShown = 16;

using Fab::VXLAN::VxlanMacAddrSm;

std::string idText(std::uint32_t id, bool valid) {
  return valid ? std::to_string(id) : "-";
}

// Where a host stands on its road: in the forwarding database, resolved and
// programmed, resolved, without a real next hop, waiting for its VTEP, or
// for the quantum.
std::string hostState(VxlanMacAddrSm const& sm, Platform& platform, Bridging::MacVlanPair const& key) {
  Rxn::Ptr<Vxlan::FdbStatus> const fdb = platform.vxlanHwStatusDir()->fdbStatus();
  if (fdb && !!fdb->learnedHost(Vxlan::MacVlanPair(key.mac(), key.vlanId()))) return "Learned";
  if (sm.updateList(key)) return "Queued";
  if (!!sm.pendingResolveRemoteMacList(key)) return "Pending";
  if (!!sm.unprogrammedRemoteMacList(key)) return "Unprogrammed";
  if (!!platform.rmacInfoDir()->hostStatusTable()->statusEntry(key)) return "Resolved";
  return "Refused";
}

Snapshot::RemoteMacs::Row hostRow(VxlanMacAddrSm const& sm, Platform& platform, Fab::VXLAN::HostEntry const& entry) {
  Fab::VXLAN::StatusEntry const status = platform.rmacInfoDir()->hostStatusTable()->statusEntry(entry.key());
  Snapshot::RemoteMacs::Row row;
  row.vlan = entry.key().vlanId().value();
  row.mac = entry.key().mac().stringValue();
  row.vti = entry.vtiIntfId().stringValue();
  row.vtep = entry.swTunnelGroupId().stringValue();
  row.tunnelId = idText(status.tunnelId().value(), !!status && status.tunnelId().valid());
  row.nextHopId = idText(status.nextHopId().value(), !!status && status.nextHopId().valid());
  row.state = hostState(sm, platform, entry.key());
  return row;
}

std::string modeText(Vxlan::AllowLearnMode mode) {
  switch (mode) {
    case Vxlan::AllowLearnMode::learnFromAny:
      return "any";
    case Vxlan::AllowLearnMode::learnFromFloodList:
      return "flood list";
    case Vxlan::AllowLearnMode::learnFromList:
      return "list";
    default:
      return "none";
  }
}

}  // namespace

void takeRemoteMacs(Platform& platform, Snapshot::RemoteMacs& macs) {
  VxlanMacAddrSm const& sm = *platform.vxlanMacAddrSm();
  Rxn::Ptr<Fab::VXLAN::RemoteMacInfoDir> const dir = platform.rmacInfoDir();
  Rxn::Ptr<Vxlan::FdbStatus> const fdb = platform.vxlanHwStatusDir()->fdbStatus();
  macs.hosts = dir->hostTable()->entrys();
  macs.queued = sm.updateLists();
  macs.pending = sm.pendingResolveRemoteMacLists();
  macs.resolved = dir->hostStatusTable()->statusEntrys();
  macs.unprogrammed = sm.unprogrammedRemoteMacLists();
  macs.learned = fdb ? fdb->learnedHosts() : 0;
  macs.multiVtep = fdb ? fdb->multiVtepLearnedHosts() : 0;
  macs.chip = platform.macTable().rows.size();
  macs.chipCapacity = platform.macTable().capacity;
  macs.refusedFull = platform.macTable().refusedFull;
  std::set<Bridging::MacVlanPair> keys;
  for (auto const& [key, entry] : dir->hostTable()->entry()) {
    keys.insert(key);
    if (keys.size() > kMacRowsShown) keys.erase(std::prev(keys.end()));
  }
  for (Bridging::MacVlanPair const& key : keys) {
    macs.rows.push_back(hostRow(sm, platform, dir->hostTable()->entry(key)));
  }
  macs.moreRows = macs.hosts - macs.rows.size();
  Rxn::Ptr<Vxlan::LearnStatus> const learnStatus = platform.vxlanHwStatusDir()->learnStatus();
  std::set<Bridging::VlanId> vlans;
  for (auto const& [vlanId, status] : learnStatus->learnStatusList())
    vlans.insert(vlanId);
  for (Bridging::VlanId const& vlanId : vlans) {
    Vxlan::LearnRestrictStatus const& status = *learnStatus->learnStatusList(vlanId);
    Snapshot::RemoteMacs::LearnRestrict r;
    r.vlan = vlanId.value();
    r.mode = modeText(status.learnFrom());
    std::set<std::string> prefixes;
    for (auto const& [prefix, member] : status.prefixList()) {
      prefixes.insert(prefix.prefix().stringValue() + "=" + std::to_string(status.numMatches(prefix)));
    }
    r.prefixes.assign(prefixes.begin(), prefixes.end());
    r.matchAny = status.numMatchAny();
    r.matchList = status.numMatchList();
    r.rejectList = status.numRejectList();
    r.matchFloodList = status.numMatchFloodList();
    r.rejectFloodList = status.numRejectFloodList();
    // As the show output's times go: from the start of the run.
    r.lastClearTime =
        status.lastClearTime() == 0.0 ? 0.0 : status.lastClearTime() - (platform.activity().now() - platform.now());
    macs.learnRestricts.push_back(r);
  }
}

void renderRemoteMacs(std::ostringstream& out, Snapshot::RemoteMacs const& m) {
  out << Rxn::format(
      "\nRemote MACs: %zu hosts, %zu queued, %zu pending, %zu resolved (%zu unprogrammed), %zu learned (%zu "
      "multi-VTEP); "
      "chip %zu of %zu",
      m.hosts, m.queued, m.pending, m.resolved, m.unprogrammed, m.learned, m.multiVtep, m.chip, m.chipCapacity);
  if (m.refusedFull > 0) out << Rxn::format(", %zu refused full", m.refusedFull);
  out << "\n";
  if (!m.rows.empty()) {
    out << "VLAN  MAC                VTI     VTEP          Tunnel  Next hop  State\n"
           "----  -----------------  ------  ------------  ------  --------  ------------\n";
    for (auto const& r : m.rows) {
      out << Rxn::format("%-4d  %-17s  %-6s  %-12s  %-6s  %-8s  %s\n", r.vlan, r.mac.c_str(), r.vti.c_str(),
                         r.vtep.c_str(), r.tunnelId.c_str(), r.nextHopId.c_str(), r.state.c_str());
    }
    if (m.moreRows > 0) out << Rxn::format("... and %zu more\n", m.moreRows);
  }
  for (auto const& r : m.learnRestricts) {
    out << Rxn::format("Learn restriction VLAN %d: %s", r.vlan, r.mode.c_str());
    for (std::string const& prefix : r.prefixes)
      out << " " << prefix;
    out << Rxn::format("; any %u, list %u/%u rejected, flood list %u/%u rejected, cleared at %.3f\n", r.matchAny,
                       r.matchList, r.rejectList, r.matchFloodList, r.rejectFloodList, r.lastClearTime);
  }
}

void writeRemoteMacs(JsonWriter& w, Snapshot::RemoteMacs const& m) {
  w.Key("remoteMacs");
  w.StartObject();
  for (auto const& [key, count] :
       std::initializer_list<std::pair<char const*, std::size_t>>{{"hosts", m.hosts},
                                                                  {"queued", m.queued},
                                                                  {"pending", m.pending},
                                                                  {"resolved", m.resolved},
                                                                  {"unprogrammed", m.unprogrammed},
                                                                  {"learned", m.learned},
                                                                  {"multiVtep", m.multiVtep},
                                                                  {"chip", m.chip},
                                                                  {"chipCapacity", m.chipCapacity},
                                                                  {"refusedFull", m.refusedFull},
                                                                  {"moreRows", m.moreRows}}) {
    w.Key(key);
    w.Uint64(count);
  }
  w.Key("rows");
  w.StartArray();
  for (auto const& r : m.rows) {
    w.StartObject();
    w.Key("vlan");
    w.Int(r.vlan);
    for (auto const& [key, text] :
         std::initializer_list<std::pair<char const*, std::string const*>>{{"mac", &r.mac},
                                                                           {"vti", &r.vti},
                                                                           {"vtep", &r.vtep},
                                                                           {"tunnelId", &r.tunnelId},
                                                                           {"nextHopId", &r.nextHopId},
                                                                           {"state", &r.state}}) {
      w.Key(key);
      w.String(text->c_str());
    }
    w.EndObject();
  }
  w.EndArray();
  w.Key("learnRestrict");
  w.StartArray();
  for (auto const& r : m.learnRestricts) {
    w.StartObject();
    w.Key("vlan");
    w.Int(r.vlan);
    w.Key("mode");
    w.String(r.mode.c_str());
    w.Key("prefixes");
    w.StartArray();
    for (std::string const& prefix : r.prefixes)
      w.String(prefix.c_str());
    w.EndArray();
    for (auto const& [key, count] :
         std::initializer_list<std::pair<char const*, std::uint32_t>>{{"matchAny", r.matchAny},
                                                                      {"matchList", r.matchList},
                                                                      {"rejectList", r.rejectList},
                                                                      {"matchFloodList", r.matchFloodList},
                                                                      {"rejectFloodList", r.rejectFloodList}}) {
      w.Key(key);
      w.Uint(count);
    }
    w.Key("lastClearTime");
    w.Double(r.lastClearTime);
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
}

}  // namespace Sim

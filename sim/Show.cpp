#include "sim/Show.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <sstream>

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
  return s;
}

std::string renderText(Snapshot const& s) {
  std::ostringstream out;
  out << "=== " << s.label << " (t=" << Rxn::format("%.3f", s.time) << ") ===\n";
  out << "VXLAN feature\n";
  for (auto const& [machine, state] : s.states) {
    bool const standIn = std::find(s.standIns.begin(), s.standIns.end(), machine) != s.standIns.end();
    out << Rxn::format("  %-22s %s\n", machine.c_str(), (state + (standIn ? " (stand-in)" : "")).c_str());
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
  out << "\nHitless restart stages\n";
  for (auto const& [stage, ready] : s.bootStages) {
    out << Rxn::format("  %-24s %s\n", stage.c_str(), ready ? "ready" : "-");
  }
  return out.str();
}

std::string renderJson(std::string const& scenario, std::vector<Snapshot> const& snapshots) {
  rapidjson::StringBuffer buffer;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> w(buffer);
  w.StartObject();
  w.Key("scenario");
  w.String(scenario.c_str());
  w.Key("snapshots");
  w.StartArray();
  for (Snapshot const& s : snapshots) {
    w.StartObject();
    w.Key("label");
    w.String(s.label.c_str());
    w.Key("time");
    w.Double(s.time);
    w.Key("states");
    w.StartObject();
    for (auto const& [machine, state] : s.states) {
      w.Key(machine.c_str());
      w.String(state.c_str());
    }
    w.EndObject();
    w.Key("standIns");
    w.StartArray();
    for (std::string const& name : s.standIns)
      w.String(name.c_str());
    w.EndArray();
    w.Key("controllerClientMode");
    w.Bool(s.controllerClientMode);
    w.Key("datapathLearning");
    w.Bool(s.datapathLearning);
    w.Key("activatedVti");
    w.StartArray();
    for (std::string const& vti : s.activatedVti)
      w.String(vti.c_str());
    w.EndArray();
    w.Key("bumReplicationMode");
    w.String(s.bumReplicationMode.c_str());
    w.Key("bumMcastGrp");
    w.StartObject();
    for (auto const& [vlan, group] : s.bumMcastGrp) {
      w.Key(std::to_string(vlan).c_str());
      w.String(group.c_str());
    }
    w.EndObject();
    w.Key("bumVtepList");
    w.StartArray();
    for (auto const& list : s.bumVtepLists) {
      w.StartObject();
      w.Key("mac");
      w.String(list.mac.c_str());
      w.Key("vlan");
      w.Int(list.vlan);
      w.Key("type");
      w.String(list.type.c_str());
      w.Key("vteps");
      w.StartArray();
      for (std::string const& vtep : list.vteps)
        w.String(vtep.c_str());
      w.EndArray();
      w.EndObject();
    }
    w.EndArray();
    w.Key("bootStages");
    w.StartObject();
    for (auto const& [stage, ready] : s.bootStages) {
      w.Key(stage.c_str());
      w.Bool(ready);
    }
    w.EndObject();
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  return std::string(buffer.GetString()) + "\n";
}

}  // namespace Sim

// Events of the world around the feature: VTIs created, changed, brought up
// and down, one at a time or several in one turn; the bridging configuration;
// L2Rib flood sets and their source.

#include "sim/stress/Driver.h"

namespace Stress {

namespace {

using Steps = std::vector<std::string>;

bool up(Rxn::Ptr<Vxlan::VtiStatus> const& vti) {
  return vti && vti->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

// A few mappings, some VLANs possibly sharing a VNI.
std::string someMappings(Maker& maker) {
  std::string maps;
  for (std::size_t n = 1 + maker.below(3); n > 0; --n) {
    maps += (maps.empty() ? "" : ", ") + quoted(std::to_string(maker.vlan())) + ": " + std::to_string(maker.vni());
  }
  return "{" + maps + "}";
}

std::string vtiObject(std::string const& name, std::string const& fields) {
  return "{\"name\": " + quoted(name) + (fields.empty() ? "" : ", " + fields) + "}";
}

std::string vtiStep(std::string const& name, std::string const& fields) {
  return "{\"vti\": " + vtiObject(name, fields) + "}";
}

std::string operStatus(bool isUp) {
  return std::string("\"operStatus\": ") + (isUp ? "\"up\"" : "\"down\"");
}

char const* boolText(bool value) {
  return value ? "true" : "false";
}

// The settings that are one for the whole chip (the UDP port, data path
// learning, the controller client mode): the configuration gives every VTI
// the same, those of the VTIs there are.
std::string sharedSettings(Maker& maker) {
  for (std::string const& name : maker.existingVtis()) {
    Rxn::Ptr<Vxlan::VtiStatus> const vti = maker.platform().vtiStatusDir()->vtiStatus(Wire::IntfId(name));
    return "\"udpPort\": " + vti->udpPort().stringValue() +
           ", \"datapathLearning\": " + boolText(vti->datapathLearning()) +
           ", \"controllerClientMode\": " + boolText(vti->controllerClientMode());
  }
  return "\"udpPort\": 4789";
}

// One chip-wide setting changes on every VTI in one commit.
Steps sharedSettingChange(Maker& maker, std::vector<std::string> const& vtis) {
  std::string field;
  switch (maker.below(3)) {
    case 0:
      field = std::string("\"udpPort\": ") + (maker.chance(0.5) ? "4789" : "8472");
      break;
    case 1:
      field = std::string("\"datapathLearning\": ") + boolText(maker.chance(0.6));
      break;
    default:
      field = std::string("\"controllerClientMode\": ") + boolText(maker.chance(0.5));
      break;
  }
  std::string changes;
  for (std::string const& name : vtis) {
    changes += (changes.empty() ? "" : ", ") + vtiObject(name, field);
  }
  return {"{\"vtis\": [" + changes + "]}"};
}

// A new VTI as configuration makes it: an address, the shared settings, a
// few mappings, and perhaps a flood group.
std::string newVtiFields(Maker& maker, bool isUp) {
  std::string fields = "\"localVtepAddr\": " + quoted(maker.pick(maker.universe().localAddresses)) + ", " +
                       sharedSettings(maker) + ", \"vlanToVni\": " + someMappings(maker);
  if (maker.chance(0.3)) {
    fields += ", \"floodMcastGrp\": " + quoted(maker.pick(maker.universe().groups));
  }
  return fields + ", " + operStatus(isUp);
}

Steps vtiUp(Maker& maker) {
  std::vector<std::string> const down = maker.vtisWhere([](auto const& vti) { return !up(vti); });
  if (down.empty()) return {};
  std::string const name = maker.pick(down);
  bool const exists = !!maker.platform().vtiStatusDir()->vtiStatus(Wire::IntfId(name));
  return {vtiStep(name, exists ? operStatus(true) : newVtiFields(maker, true))};
}

Steps vtiDown(Maker& maker) {
  std::vector<std::string> const running = maker.vtisWhere([](auto const& vti) { return up(vti); });
  if (running.empty()) return {};
  return {vtiStep(maker.pick(running), operStatus(false))};
}

Steps vtiCreate(Maker& maker) {
  std::vector<std::string> const missing = maker.vtisWhere([](auto const& vti) { return !vti; });
  if (missing.empty()) return {};
  return {vtiStep(maker.pick(missing), newVtiFields(maker, maker.chance(0.5)))};
}

Steps vtiDelete(Maker& maker) {
  std::vector<std::string> const existing = maker.existingVtis();
  if (existing.empty()) return {};
  return {vtiStep(maker.pick(existing), "\"delete\": true")};
}

// One attribute of a VTI changes.
Steps vtiChange(Maker& maker) {
  std::vector<std::string> const existing = maker.existingVtis();
  if (existing.empty()) return {};
  Universe const& u = maker.universe();
  std::string field;
  switch (maker.below(6)) {
    case 0:
      field = "\"localVtepAddr\": " + quoted(maker.pick(u.localAddresses));
      break;
    case 1:
      field = "\"vArpVtepAddr\": " + quoted(maker.chance(0.5) ? "10.0.9.9" : "0.0.0.0");
      break;
    case 2:
    case 3:
      return sharedSettingChange(maker, existing);
    case 4:
      field = "\"floodMcastGrp\": " + quoted(maker.chance(0.6) ? maker.pick(u.groups) : "0.0.0.0");
      break;
    default:
      field = "\"vlanToGroup\": {" + quoted(std::to_string(maker.vlan())) + ": " +
              (maker.chance(0.6) ? quoted(maker.pick(u.groups)) : "null") + "}";
      break;
  }
  return {vtiStep(maker.pick(existing), field)};
}

// Several VTIs change in one turn: up or down, with mappings that may claim
// the same VLANs.
Steps vtisTogether(Maker& maker) {
  std::vector<std::string> names = maker.universe().vtis;
  std::string changes;
  for (std::size_t n = 2 + maker.below(2); n > 0 && !names.empty(); --n) {
    std::size_t const i = maker.below(names.size());
    bool const isUp = maker.chance(0.7);
    std::string fields = operStatus(isUp);
    if (!maker.platform().vtiStatusDir()->vtiStatus(Wire::IntfId(names[i]))) {
      fields = newVtiFields(maker, isUp);
    } else if (maker.chance(0.6)) {
      fields = "\"vlanToVni\": " + someMappings(maker) + ", " + fields;
    }
    changes += (changes.empty() ? "" : ", ") + vtiObject(names[i], fields);
    names.erase(names.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return {"{\"vtis\": [" + changes + "]}"};
}

Steps bridging(Maker& maker) {
  std::string const vlan = std::to_string(maker.vlan());
  std::size_t const what = maker.below(10);
  if (what < 2) {
    return {"{\"bridging\": {\"vlan\": " + vlan + ", \"delete\": true}}"};
  }
  char const* const state = what < 4 ? "suspended" : "active";
  return {"{\"bridging\": {\"vlan\": " + vlan + ", \"adminState\": " + quoted(state) + "}}"};
}

Steps floodSet(Maker& maker) {
  Universe const& u = maker.universe();
  std::string const where =
      "\"vlan\": " + std::to_string(maker.vlan()) + ", \"mac\": " + quoted(maker.pick(u.floodMacs));
  if (maker.chance(0.2)) {
    return {"{\"floodSet\": {" + where + ", \"delete\": true}}"};
  }
  std::string const list = maker.chance(0.7) ? "add" : "remove";
  return {"{\"floodSet\": {" + where + ", \"type\": " + quoted(maker.chance(0.8) ? "all" : "any") + ", " +
          quoted(list) + ": [" + quoted(maker.pick(u.vteps)) + "]}}"};
}

Steps l2ribSource(Maker& maker) {
  static std::vector<int> const sources = {0, 1, 4, 5};
  return {"{\"l2rib\": {\"source\": " + std::to_string(maker.pick(sources)) + "}}"};
}

}  // namespace

std::vector<EventKind> worldEvents() {
  return {{"vti-up", 6, vtiUp},         {"vti-down", 4, vtiDown},     {"vti-create", 2.5, vtiCreate},
          {"vti-delete", 1, vtiDelete}, {"vti-change", 4, vtiChange}, {"vtis-together", 2, vtisTogether},
          {"bridging", 3, bridging},    {"flood-set", 2.5, floodSet}, {"l2rib-source", 1, l2ribSource}};
}

}  // namespace Stress

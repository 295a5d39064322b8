#include "sim/Scenario.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

#include "sim/LearnFrames.h"

namespace Sim {

namespace {

using Json = rapidjson::Value;

// Where in the scenario a fault lies, for the one line that reports it.
class Context {
 public:
  explicit Context(std::string file) : file_(std::move(file)) {}
  void stepIs(std::size_t number) { step_ = number; }
  [[noreturn]] void fail(std::string const& what) const {
    std::string where = file_;
    if (step_ > 0) {
      where += ": step " + std::to_string(step_);
    }
    throw ScenarioError(where + ": " + what);
  }

 private:
  std::string file_;
  std::size_t step_ = 0;
};

void expectKeys(Context const& ctx, Json const& object, char const* what, std::vector<char const*> const& keys) {
  for (auto const& member : object.GetObject()) {
    bool known = false;
    for (char const* key : keys) {
      known = known || std::strcmp(member.name.GetString(), key) == 0;
    }
    if (!known) {
      std::string expected;
      for (char const* key : keys) {
        expected += (expected.empty() ? "" : ", ") + std::string(key);
      }
      ctx.fail(std::string("unknown key '") + member.name.GetString() + "' in " + what + " (expected " + expected +
               ")");
    }
  }
}

Json const& objectAt(Context const& ctx, Json const& value, char const* what) {
  if (!value.IsObject()) {
    ctx.fail(std::string(what) + " must be an object");
  }
  return value;
}

std::string stringAt(Context const& ctx, Json const& object, char const* key) {
  if (!object.HasMember(key)) {
    ctx.fail(std::string("missing '") + key + "'");
  }
  if (!object[key].IsString()) {
    ctx.fail(std::string("'") + key + "' must be a string");
  }
  return object[key].GetString();
}

bool boolAt(Context const& ctx, Json const& object, char const* key) {
  if (!object[key].IsBool()) {
    ctx.fail(std::string("'") + key + "' must be true or false");
  }
  return object[key].GetBool();
}

double numberAt(Context const& ctx, Json const& object, char const* key) {
  if (!object[key].IsNumber()) {
    ctx.fail(std::string("'") + key + "' must be a number");
  }
  return object[key].GetDouble();
}

// A value of the system from its text, with the system's own error text.
template <class T>
T valueOf(Context const& ctx, std::string const& text, char const* what) {
  try {
    return T::fromString(text);
  } catch (Rxn::RangeException const& e) {
    ctx.fail(std::string("bad ") + what + " '" + text + "': " + e.what());
  }
}

Bridging::VlanId vlanAt(Context const& ctx, Json const& object, char const* key) {
  if (!object.HasMember(key)) {
    ctx.fail(std::string("missing '") + key + "'");
  }
  Json const& value = object[key];
  std::string const text = value.IsString()  ? value.GetString()
                           : value.IsInt64() ? std::to_string(value.GetInt64())
                                             : "";
  if (text.empty()) {
    ctx.fail(std::string("'") + key + "' must be a VLAN number");
  }
  return valueOf<Bridging::VlanId>(ctx, text, "VLAN");
}

std::vector<Wire::IpAddr> addressesAt(Context const& ctx, Json const& object, char const* key) {
  std::vector<Wire::IpAddr> addresses;
  if (!object.HasMember(key)) {
    return addresses;
  }
  if (!object[key].IsArray()) {
    ctx.fail(std::string("'") + key + "' must be a list of addresses");
  }
  for (Json const& item : object[key].GetArray()) {
    if (!item.IsString()) {
      ctx.fail(std::string("'") + key + "' must be a list of addresses");
    }
    addresses.push_back(valueOf<Wire::IpAddr>(ctx, item.GetString(), "address"));
  }
  return addresses;
}

// What a step can do; each step does one of these.
constexpr char const* kActions[] = {"vti",  "floodSet",      "l2rib",      "bridging", "restart", "agent",
                                    "vtep", "activeNextHop", "switchover", "answers",  "learn",   "activeVxlanVlan"};

std::string actionList() {
  std::string list;
  for (char const* action : kActions) {
    list += (list.empty() ? "" : ", ") + std::string(action);
  }
  return list;
}

Wire::IntfId vtiAt(Context const& ctx, Json const& object, char const* key) {
  std::string const name = stringAt(ctx, object, key);
  Wire::IntfId const intf = valueOf<Wire::IntfId>(ctx, name, "interface");
  if (!Wire::VxlanTunnelIntfId::isVxlanTunnelIntfId(intf)) {
    ctx.fail("bad interface '" + name + "': a VTI is named Vxlan<number>");
  }
  return intf;
}

// VLANs as a scenario names them: one number, or a range "lo-hi".
std::vector<Bridging::VlanId> vlansOf(Context const& ctx, std::string const& text) {
  std::size_t const dash = text.find('-');
  Bridging::VlanId const first = valueOf<Bridging::VlanId>(ctx, text.substr(0, dash), "VLAN");
  Bridging::VlanId const last =
      dash == std::string::npos ? first : valueOf<Bridging::VlanId>(ctx, text.substr(dash + 1), "VLAN");
  if (last < first) {
    ctx.fail("bad VLAN range '" + text + "': the first is above the last");
  }
  std::vector<Bridging::VlanId> vlans;
  for (int vlan = first.value(); vlan <= last.value(); ++vlan) {
    vlans.emplace_back(vlan);
  }
  return vlans;
}

std::vector<Bridging::VlanId> vlansAt(Context const& ctx, Json const& object, char const* key) {
  if (!object.HasMember(key)) {
    ctx.fail(std::string("missing '") + key + "'");
  }
  Json const& value = object[key];
  if (value.IsInt64()) {
    return vlansOf(ctx, std::to_string(value.GetInt64()));
  }
  if (!value.IsString()) {
    ctx.fail(std::string("'") + key + "' must be a VLAN number or a range \"lo-hi\"");
  }
  return vlansOf(ctx, value.GetString());
}

std::string vlanText(std::vector<Bridging::VlanId> const& vlans) {
  std::string text = "vlan " + vlans.front().stringValue();
  return vlans.size() == 1 ? text : text + "-" + vlans.back().stringValue();
}

using VtiChanges = std::vector<std::function<void(Vxlan::VtiStatus&)>>;

// {"10": 10010, "20": null, "100-199": 10100}: a VLAN's VNI, none, or a range
// of VLANs mapped to consecutive VNIs.
void addVlanToVni(Context const& ctx, Json const& maps, VtiChanges& changes, std::string& what) {
  for (auto const& member : maps.GetObject()) {
    std::vector<Bridging::VlanId> const vlans = vlansOf(ctx, member.name.GetString());
    if (member.value.IsNull()) {
      changes.push_back([vlans](Vxlan::VtiStatus& vti) {
        for (Bridging::VlanId const& vlan : vlans) {
          vti.vlanToVniMapDel(vlan);
        }
      });
      what += " " + vlanText(vlans) + " no vni";
      continue;
    }
    if (!member.value.IsUint() || member.value.GetUint() + vlans.size() > 0xFFFFFF) {
      ctx.fail("a VNI in 'vlanToVni' must be a number below 16777216, or null");
    }
    std::uint32_t const first = member.value.GetUint();
    changes.push_back([vlans, first](Vxlan::VtiStatus& vti) {
      std::uint32_t vni = first;
      for (Bridging::VlanId const& vlan : vlans) {
        vti.vlanToVniMapIs(vlan, Vxlan::VniSourcePair(Vxlan::VniExtOrNone(vni++), "static"));
      }
    });
    what += " " + vlanText(vlans) + " vni " + std::to_string(first) + (vlans.size() > 1 ? "..." : "");
  }
}

Step vtiStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "vti",
             {"name", "delete", "operStatus", "floodMcastGrp", "vlanToGroup", "vlanToVni", "controllerClientMode",
              "datapathLearning", "localVtepAddr", "vArpVtepAddr", "udpPort"});
  Wire::IntfId const intf = vtiAt(ctx, spec, "name");
  std::string const name = intf.stringValue();
  Step step;
  if (spec.HasMember("delete") && boolAt(ctx, spec, "delete")) {
    step.what = "vti " + name + " deleted";
    step.action = [intf](Platform& platform) { platform.vtiDel(intf); };
    return step;
  }
  // Applied in this order, so that a VTI comes up with its maps in place.
  VtiChanges changes;
  std::string what = "vti " + name;
  if (spec.HasMember("controllerClientMode")) {
    bool const mode = boolAt(ctx, spec, "controllerClientMode");
    changes.push_back([mode](Vxlan::VtiStatus& vti) { vti.controllerClientModeIs(mode); });
    what += mode ? " controllerClientMode" : " no controllerClientMode";
  }
  if (spec.HasMember("datapathLearning")) {
    bool const learning = boolAt(ctx, spec, "datapathLearning");
    changes.push_back([learning](Vxlan::VtiStatus& vti) { vti.datapathLearningIs(learning); });
    what += learning ? " datapathLearning" : " no datapathLearning";
  }
  for (auto const& field : {std::pair{"localVtepAddr", &Vxlan::VtiStatus::localVtepAddrIs},
                            std::pair{"vArpVtepAddr", &Vxlan::VtiStatus::vArpVtepAddrIs}}) {
    char const* const key = field.first;
    auto const setter = field.second;
    if (spec.HasMember(key)) {
      Wire::IpAddr const address = valueOf<Wire::IpAddr>(ctx, stringAt(ctx, spec, key), "address");
      changes.push_back([address, setter](Vxlan::VtiStatus& vti) { (vti.*setter)(address); });
      what += std::string(" ") + key + " " + address.stringValue();
    }
  }
  if (spec.HasMember("udpPort")) {
    if (!spec["udpPort"].IsUint() || spec["udpPort"].GetUint() > 65535) {
      ctx.fail("'udpPort' must be a port number");
    }
    Wire::UdpPort const port(static_cast<std::uint16_t>(spec["udpPort"].GetUint()));
    changes.push_back([port](Vxlan::VtiStatus& vti) { vti.udpPortIs(port); });
    what += " udpPort " + port.stringValue();
  }
  if (spec.HasMember("floodMcastGrp")) {
    Wire::IpAddr const group = valueOf<Wire::IpAddr>(ctx, stringAt(ctx, spec, "floodMcastGrp"), "group");
    changes.push_back([group](Vxlan::VtiStatus& vti) { vti.floodMcastGrpIs(group); });
    what += " floodMcastGrp " + group.stringValue();
  }
  if (spec.HasMember("vlanToGroup")) {
    Json const& groups = objectAt(ctx, spec["vlanToGroup"], "'vlanToGroup'");
    for (auto const& member : groups.GetObject()) {
      Bridging::VlanId const vlan = valueOf<Bridging::VlanId>(ctx, member.name.GetString(), "VLAN");
      if (member.value.IsNull()) {
        changes.push_back([vlan](Vxlan::VtiStatus& vti) { vti.vlanToGroupDel(vlan); });
        what += " vlan " + vlan.stringValue() + " no group";
      } else if (member.value.IsString()) {
        Wire::IpAddr const group = valueOf<Wire::IpAddr>(ctx, member.value.GetString(), "group");
        changes.push_back([vlan, group](Vxlan::VtiStatus& vti) { vti.vlanToGroupIs(vlan, group); });
        what += " vlan " + vlan.stringValue() + " group " + group.stringValue();
      } else {
        ctx.fail("a group in 'vlanToGroup' must be an address or null");
      }
    }
  }
  if (spec.HasMember("vlanToVni")) {
    addVlanToVni(ctx, objectAt(ctx, spec["vlanToVni"], "'vlanToVni'"), changes, what);
  }
  if (spec.HasMember("operStatus")) {
    std::string const status = stringAt(ctx, spec, "operStatus");
    if (status != "up" && status != "down") {
      ctx.fail("bad operStatus '" + status + "': expected up or down");
    }
    Interface::IntfOperStatus const oper =
        status == "up" ? Interface::IntfOperStatus::intfOperUp : Interface::IntfOperStatus::intfOperDown;
    changes.push_back([oper](Vxlan::VtiStatus& vti) { vti.operStatusIs(oper); });
    what += " operStatus " + status;
  }
  step.what = what;
  step.action = [intf, changes](Platform& platform) {
    Rxn::Ptr<Vxlan::VtiStatus> const vti = platform.vti(intf);
    for (auto const& change : changes) {
      change(*vti);
    }
  };
  return step;
}

L2Rib::FloodSetType floodSetTypeOf(Context const& ctx, Json const& value) {
  if (value.IsString()) {
    std::string const text = value.GetString();
    if (text == "all") return L2Rib::FloodSetType::floodSetTypeAll;
    if (text == "any") return L2Rib::FloodSetType::floodSetTypeAny;
    ctx.fail("bad flood set type '" + text + "': expected all, any or a number");
  }
  if (!value.IsUint() || value.GetUint() > 255) {
    ctx.fail("bad flood set type: expected all, any or a number");
  }
  return static_cast<L2Rib::FloodSetType>(value.GetUint());
}

Step floodSetStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "floodSet", {"vlan", "mac", "type", "add", "remove", "delete"});
  Bridging::VlanId const vlan = vlanAt(ctx, spec, "vlan");
  Wire::EthAddr const mac = valueOf<Wire::EthAddr>(ctx, stringAt(ctx, spec, "mac"), "MAC");
  std::string const where = "flood set vlan " + vlan.stringValue() + " mac " + mac.stringValue();
  Step step;
  if (spec.HasMember("delete") && boolAt(ctx, spec, "delete")) {
    step.what = where + " deleted";
    step.action = [vlan, mac](Platform& platform) { platform.floodSetDel(vlan, mac); };
    return step;
  }
  bool const hasType = spec.HasMember("type");
  L2Rib::FloodSetType const type = hasType ? floodSetTypeOf(ctx, spec["type"]) : L2Rib::FloodSetType();
  std::vector<Wire::IpAddr> const add = addressesAt(ctx, spec, "add");
  std::vector<Wire::IpAddr> const remove = addressesAt(ctx, spec, "remove");
  step.what = where;
  if (hasType) step.what += " type " + Rxn::valueToString(type);
  for (Wire::IpAddr const& vtep : add)
    step.what += " +" + vtep.stringValue();
  for (Wire::IpAddr const& vtep : remove)
    step.what += " -" + vtep.stringValue();
  step.action = [vlan, mac, hasType, type, add, remove](Platform& platform) {
    Rxn::Ptr<L2Rib::FloodSet> const floodSet = platform.floodSet(vlan, mac);
    if (hasType) {
      floodSet->floodSetTypeIs(type);
    }
    for (Wire::IpAddr const& vtep : add) {
      floodSet->destSetIs(L2Rib::vxlanDest(vtep), true);
    }
    for (Wire::IpAddr const& vtep : remove) {
      floodSet->destSetDel(L2Rib::vxlanDest(vtep));
    }
  };
  return step;
}

Step l2ribStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "l2rib", {"source"});
  if (!spec.HasMember("source") || !spec["source"].IsUint()) {
    ctx.fail("'source' must be a number (bits 0-1: controller, bit 2: configured flood lists)");
  }
  std::uint32_t const source = spec["source"].GetUint();
  Step step;
  step.what = "l2rib source " + std::to_string(source);
  step.action = [source](Platform& platform) { platform.l2RibFloodSet()->sourceIs(source); };
  return step;
}

Step bridgingStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "bridging", {"vlan", "adminState", "delete"});
  std::vector<Bridging::VlanId> const vlans = vlansAt(ctx, spec, "vlan");
  Step step;
  if (spec.HasMember("delete") && boolAt(ctx, spec, "delete")) {
    step.what = vlanText(vlans) + " deleted";
    step.action = [vlans](Platform& platform) {
      for (Bridging::VlanId const& vlan : vlans) {
        platform.bridgingConfig()->vlanConfigDel(vlan);
      }
    };
    return step;
  }
  Bridging::VlanAdminState state = Bridging::VlanAdminState::active;
  if (spec.HasMember("adminState")) {
    std::string const text = stringAt(ctx, spec, "adminState");
    try {
      state = Rxn::strepToValue<Bridging::VlanAdminState>(Rxn::quoteStrep(text));
    } catch (Rxn::RangeException const&) {
      ctx.fail("bad adminState '" + text + "': expected active, suspended or shutdown");
    }
  }
  step.what = vlanText(vlans) + " " + Rxn::valueToString(state);
  step.action = [vlans, state](Platform& platform) {
    for (Bridging::VlanId const& vlan : vlans) {
      platform.bridgingConfig()->vlanConfigIs(vlan)->adminStateIs(state);
    }
  };
  return step;
}

Step restartStep(Context const& ctx, Json const& spec) {
  if (!spec.IsString() || std::strcmp(spec.GetString(), "hitless") != 0) {
    ctx.fail("'restart' takes \"hitless\"");
  }
  Step step;
  step.what = "hitless restart";
  step.action = [](Platform& platform) { platform.restartHitlessly(); };
  return step;
}

Step agentStep(Context const& ctx, Json const& spec) {
  std::string const text = spec.IsString() ? spec.GetString() : "";
  if (text != "down" && text != "up") {
    ctx.fail("'agent' takes \"down\" or \"up\" (the halves of a hitless restart)");
  }
  Step step;
  step.what = "agent " + text;
  step.action = [down = text == "down"](Platform& platform) {
    if (down) {
      platform.agentDown();
    } else {
      platform.agentUp();
    }
  };
  return step;
}

Step vtepStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "vtep", {"vti", "add", "remove"});
  Wire::IntfId const vti = vtiAt(ctx, spec, "vti");
  std::vector<Wire::IpAddr> const add = addressesAt(ctx, spec, "add");
  std::vector<Wire::IpAddr> const remove = addressesAt(ctx, spec, "remove");
  Step step;
  step.what = "remote VTEPs of " + vti.stringValue();
  for (Wire::IpAddr const& vtep : add)
    step.what += " +" + vtep.stringValue();
  for (Wire::IpAddr const& vtep : remove)
    step.what += " -" + vtep.stringValue();
  step.action = [vti, add, remove](Platform& platform) {
    for (Wire::IpAddr const& vtep : add) {
      platform.remoteVtepIs(vti, vtep, true);
    }
    for (Wire::IpAddr const& vtep : remove) {
      platform.remoteVtepIs(vti, vtep, false);
    }
  };
  return step;
}

std::vector<Fab::FabNextHopId> nextHopsAt(Context const& ctx, Json const& object, char const* key) {
  std::vector<Fab::FabNextHopId> ids;
  if (!object.HasMember(key)) {
    return ids;
  }
  if (!object[key].IsArray()) {
    ctx.fail(std::string("'") + key + "' must be a list of next hop ids");
  }
  for (Json const& item : object[key].GetArray()) {
    if (!item.IsUint()) {
      ctx.fail(std::string("'") + key + "' must be a list of next hop ids");
    }
    ids.emplace_back(item.GetUint());
  }
  return ids;
}

// Whether some VTI publishes this next hop for a tunnel: a reader lists only
// what it read.
bool published(Platform const& platform, Fab::FabNextHopId const& nhId) {
  for (auto const& [vti, status] : platform.vtepStatusDir()->vtepStatus()) {
    for (auto const& [id, info] : status->hwVtepInfo()) {
      if (info.nextHopId() == nhId) {
        return true;
      }
    }
  }
  return false;
}

Step activeNextHopStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "activeNextHop", {"add", "remove"});
  std::vector<Fab::FabNextHopId> const add = nextHopsAt(ctx, spec, "add");
  std::vector<Fab::FabNextHopId> const remove = nextHopsAt(ctx, spec, "remove");
  Step step;
  step.what = "the reader's next hops";
  for (Fab::FabNextHopId const& id : add)
    step.what += " +" + id.stringValue();
  for (Fab::FabNextHopId const& id : remove)
    step.what += " -" + id.stringValue();
  step.action = [add, remove](Platform& platform) {
    Fab::VXLAN::VtepConfigDir& dir = *platform.vtepConfigDir();
    for (Fab::FabNextHopId const& id : add) {
      if (!published(platform, id)) {
        throw ScenarioError("next hop " + id.stringValue() + " is not published in VtepStatus");
      }
      dir.activeNextHopIdListIs(id, true);
    }
    for (Fab::FabNextHopId const& id : remove) {
      dir.activeNextHopIdListDel(id);
    }
  };
  return step;
}

Step switchoverStep(Context const& ctx, Json const& spec) {
  if (!spec.IsString()) {
    ctx.fail("'switchover' takes the address of a remote VTEP");
  }
  Wire::IpAddr const vtep = valueOf<Wire::IpAddr>(ctx, spec.GetString(), "address");
  Step step;
  step.what = "the tunnel layer moves " + vtep.stringValue() + " to a new next hop";
  step.action = [vtep](Platform& platform) {
    if (!platform.tunnelLayer().switchNextHop(vtep)) {
      throw ScenarioError("no reachable tunnel to " + vtep.stringValue());
    }
  };
  return step;
}

Step answersStep(Context const& ctx, Json const& spec, PlatformConfig const& config) {
  expectKeys(ctx, spec, "answers", {"delay", "hold", "of"});
  double const delay = spec.HasMember("delay") ? numberAt(ctx, spec, "delay") : config.answerDelay;
  if (delay < 0) {
    ctx.fail("'delay' must not be negative");
  }
  bool const hold = spec.HasMember("hold") && boolAt(ctx, spec, "hold");
  Platform::Answerer answerer = Platform::Answerer::all;
  std::string who = "the platform";
  if (spec.HasMember("of")) {
    who = stringAt(ctx, spec, "of");
    if (who != "hook" && who != "tunnelLayer") {
      ctx.fail("bad 'of' '" + who + "': expected hook or tunnelLayer");
    }
    answerer = who == "hook" ? Platform::Answerer::hook : Platform::Answerer::tunnelLayer;
  }
  Step step;
  step.what = who + " answers " + (hold ? std::string("held back") : Rxn::format("after %gs", delay));
  step.action = [delay, hold, answerer](Platform& platform) { platform.answersAre(delay, hold, answerer); };
  return step;
}

Step learnStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "learn", {"vtep", "vni", "mac", "count"});
  LearnFrameSpec frame;
  frame.remoteVtep = valueOf<Wire::IpAddr>(ctx, stringAt(ctx, spec, "vtep"), "address");
  if (spec.HasMember("mac")) frame.innerSrcMac = valueOf<Wire::EthAddr>(ctx, stringAt(ctx, spec, "mac"), "MAC");
  if (spec.HasMember("vni")) {
    if (!spec["vni"].IsUint() || spec["vni"].GetUint() > 0xFFFFFF) {
      ctx.fail("'vni' must be a number below 16777216");
    }
    frame.vni = spec["vni"].GetUint();
  }
  unsigned count = 1;
  if (spec.HasMember("count")) {
    if (!spec["count"].IsUint() || spec["count"].GetUint() == 0) {
      ctx.fail("'count' must be a positive number");
    }
    count = spec["count"].GetUint();
  }
  Step step;
  step.what = "learn frame from " + frame.remoteVtep.stringValue() + " vni " + std::to_string(frame.vni) + " mac " +
              frame.innerSrcMac.stringValue();
  step.action = [bytes = buildLearnFrame(frame), count](Platform& platform) {
    for (unsigned i = 0; i < count; ++i) {
      platform.learnFrame(bytes);
    }
  };
  return step;
}

Step activeVxlanVlanStep(Context const& ctx, Json const& spec) {
  expectKeys(ctx, spec, "activeVxlanVlan", {"add", "remove"});
  std::vector<std::pair<Bridging::VlanId, bool>> changes;
  std::string what = "remote MACs";
  for (auto [key, active] : {std::pair{"add", true}, std::pair{"remove", false}}) {
    if (!spec.HasMember(key)) {
      continue;
    }
    if (!spec[key].IsArray()) {
      ctx.fail(std::string("'") + key + "' must be a list of VLANs");
    }
    for (Json const& item : spec[key].GetArray()) {
      std::string const text = item.IsString()  ? item.GetString()
                               : item.IsInt64() ? std::to_string(item.GetInt64())
                                                : "";
      if (text.empty()) {
        ctx.fail(std::string("'") + key + "' must be a list of VLANs");
      }
      for (Bridging::VlanId const& vlan : vlansOf(ctx, text)) {
        changes.emplace_back(vlan, active);
      }
      what += std::string(active ? " on " : " off ") + "vlan " + text;
    }
  }
  Step step;
  step.what = what;
  step.action = [changes](Platform& platform) {
    for (auto const& [vlan, active] : changes) {
      platform.activeVxlanVlanIs(vlan, active);
    }
  };
  return step;
}

Step parseStep(Context const& ctx, Json const& spec, double previousAt, PlatformConfig const& config) {
  objectAt(ctx, spec, "a step");
  std::vector<char const*> keys = {"at", "show"};
  keys.insert(keys.end(), std::begin(kActions), std::end(kActions));
  expectKeys(ctx, spec, "a step", keys);
  Step step;
  int actions = 0;
  for (char const* key : kActions) {
    if (!spec.HasMember(key)) {
      continue;
    }
    ++actions;
    std::string const name = key;
    Json const& body = spec[key];
    if (name == "restart" || name == "agent" || name == "switchover") {
      step = name == "restart" ? restartStep(ctx, body)
             : name == "agent" ? agentStep(ctx, body)
                               : switchoverStep(ctx, body);
      continue;
    }
    objectAt(ctx, body, ("'" + name + "'").c_str());
    step = name == "vti"             ? vtiStep(ctx, body)
           : name == "floodSet"      ? floodSetStep(ctx, body)
           : name == "l2rib"         ? l2ribStep(ctx, body)
           : name == "bridging"      ? bridgingStep(ctx, body)
           : name == "vtep"          ? vtepStep(ctx, body)
           : name == "activeNextHop" ? activeNextHopStep(ctx, body)
           : name == "answers"       ? answersStep(ctx, body, config)
           : name == "learn"         ? learnStep(ctx, body)
                                     : activeVxlanVlanStep(ctx, body);
  }
  if (actions > 1) {
    ctx.fail("a step does one thing: " + actionList());
  }
  step.at = previousAt;
  if (spec.HasMember("at")) {
    step.at = numberAt(ctx, spec, "at");
    if (step.at < previousAt) {
      ctx.fail("'at' goes back in time, to " + Rxn::format("%g", step.at) + " after " + Rxn::format("%g", previousAt));
    }
  }
  if (spec.HasMember("show")) {
    Json const& show = spec["show"];
    if (!show.IsBool() && !show.IsString()) {
      ctx.fail("'show' takes true, false or a label");
    }
    step.show = show.IsString() || show.GetBool();
    step.label = show.IsString() ? show.GetString() : step.what;
  }
  if (actions == 0 && !step.show) {
    ctx.fail("a step needs " + actionList() + " or show");
  }
  return step;
}

std::uint32_t countAt(Context const& ctx, Json const& object, char const* key) {
  if (!object[key].IsUint() || object[key].GetUint() > 1000000) {
    ctx.fail(std::string("'") + key + "' must be a number from 0 to 1000000");
  }
  return object[key].GetUint();
}

PlatformConfig platformOf(Context const& ctx, Json const& spec) {
  objectAt(ctx, spec, "'platform'");
  expectKeys(ctx, spec, "'platform'",
             {"answerDelay", "vtepGroupSupported", "hitlessRestart", "useUniqGenId", "maxRemoteVteps", "maxTunnels",
              "maxNextHops", "vniTableSize", "vniSynchronous"});
  PlatformConfig config;
  if (spec.HasMember("answerDelay")) {
    config.answerDelay = numberAt(ctx, spec, "answerDelay");
    if (config.answerDelay < 0) {
      ctx.fail("'answerDelay' must not be negative");
    }
  }
  if (spec.HasMember("vtepGroupSupported")) config.vtepGroupSupported = boolAt(ctx, spec, "vtepGroupSupported");
  if (spec.HasMember("hitlessRestart")) config.hitlessRestartSupported = boolAt(ctx, spec, "hitlessRestart");
  if (spec.HasMember("useUniqGenId")) config.useUniqGenId = boolAt(ctx, spec, "useUniqGenId");
  if (spec.HasMember("maxRemoteVteps")) config.maxRemoteVteps = countAt(ctx, spec, "maxRemoteVteps");
  if (spec.HasMember("maxTunnels")) config.tunnelLayer.tunnels = countAt(ctx, spec, "maxTunnels");
  if (spec.HasMember("maxNextHops")) config.tunnelLayer.nextHops = countAt(ctx, spec, "maxNextHops");
  if (spec.HasMember("vniTableSize")) config.vniTableSize = countAt(ctx, spec, "vniTableSize");
  if (spec.HasMember("vniSynchronous")) config.vniSynchronous = boolAt(ctx, spec, "vniSynchronous");
  return config;
}

std::string lineAndColumn(std::string const& text, std::size_t offset) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

Scenario parseScenario(std::string const& jsonText, std::string const& name) {
  Context ctx(name);
  rapidjson::Document document;
  document.Parse(jsonText.c_str(), jsonText.size());
  if (document.HasParseError()) {
    ctx.fail(std::string("bad JSON at ") + lineAndColumn(jsonText, document.GetErrorOffset()) + ": " +
             rapidjson::GetParseError_En(document.GetParseError()));
  }
  objectAt(ctx, document, "a scenario");
  expectKeys(ctx, document, "the scenario", {"description", "platform", "toggles", "steps"});
  Scenario scenario;
  scenario.name = name;
  if (document.HasMember("description")) scenario.description = stringAt(ctx, document, "description");
  if (document.HasMember("platform")) scenario.platform = platformOf(ctx, document["platform"]);
  if (document.HasMember("toggles")) {
    for (auto const& toggle : objectAt(ctx, document["toggles"], "'toggles'").GetObject()) {
      if (!toggle.value.IsBool()) {
        ctx.fail(std::string("toggle '") + toggle.name.GetString() + "' must be true or false");
      }
      scenario.toggles.emplace_back(toggle.name.GetString(), toggle.value.GetBool());
    }
  }
  if (!document.HasMember("steps") || !document["steps"].IsArray()) {
    ctx.fail("'steps' must be a list of steps");
  }
  double at = 0.0;
  std::size_t number = 0;
  for (Json const& spec : document["steps"].GetArray()) {
    ctx.stepIs(++number);
    scenario.steps.push_back(parseStep(ctx, spec, at, scenario.platform));
    at = scenario.steps.back().at;
  }
  return scenario;
}

Scenario loadScenario(std::string const& path) {
  std::ifstream in(path);
  if (!in) {
    throw ScenarioError(path + ": cannot be read: " + std::strerror(errno));
  }
  std::ostringstream text;
  text << in.rdbuf();
  return parseScenario(text.str(), path);
}

}  // namespace Sim

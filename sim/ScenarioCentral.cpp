// The scenario steps of the world around the feature: VTIs, L2Rib flood
// sets and source, the bridging configuration.

#include <functional>

#include "sim/ScenarioReader.h"

namespace Sim {

namespace {

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

// One VTI's change: created, changed or deleted.
struct VtiChange {
  std::string what;
  std::function<void(Platform&)> apply;
};

VtiChange vtiChangeOf(Context const& ctx, Json const& spec) {
  objectAt(ctx, spec, "a VTI change");
  expectKeys(ctx, spec, "vti",
             {"name", "delete", "operStatus", "floodMcastGrp", "vlanToGroup", "vlanToVni", "controllerClientMode",
              "datapathLearning", "localVtepAddr", "vArpVtepAddr", "udpPort"});
  Wire::IntfId const intf = vtiAt(ctx, spec, "name");
  std::string const name = intf.stringValue();
  if (spec.HasMember("delete") && boolAt(ctx, spec, "delete")) {
    return {"vti " + name + " deleted", [intf](Platform& platform) { platform.vtiDel(intf); }};
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
  return {what, [intf, changes](Platform& platform) {
            Rxn::Ptr<Vxlan::VtiStatus> const vti = platform.vti(intf);
            for (auto const& change : changes) {
              change(*vti);
            }
          }};
}

Step vtiStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  VtiChange change = vtiChangeOf(ctx, spec);
  Step step;
  step.what = change.what;
  step.action = std::move(change.apply);
  return step;
}

// Several VTIs change within one turn of the loop, as when a configuration
// session commits them together.
Step vtisStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  if (!spec.IsArray() || spec.Empty()) {
    ctx.fail("'vtis' must be a list of VTI changes");
  }
  std::vector<VtiChange> changes;
  Step step;
  for (Json const& item : spec.GetArray()) {
    changes.push_back(vtiChangeOf(ctx, item));
    step.what += (step.what.empty() ? "" : "; ") + changes.back().what;
  }
  step.action = [changes](Platform& platform) {
    for (VtiChange const& change : changes) {
      change.apply(platform);
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

Step floodSetStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
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

Step l2ribStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
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

Step bridgingStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
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

}  // namespace

std::vector<StepKind> centralStepKinds() {
  return {{"vti", true, vtiStep},
          {"vtis", false, vtisStep},
          {"floodSet", true, floodSetStep},
          {"l2rib", true, l2ribStep},
          {"bridging", true, bridgingStep}};
}

}  // namespace Sim

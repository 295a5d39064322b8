#include "sim/ScenarioReader.h"

#include <cstring>

namespace Sim {

void Context::fail(std::string const& what) const {
  std::string where = file_;
  if (step_ > 0) {
    where += ": step " + std::to_string(step_);
  }
  throw ScenarioError(where + ": " + what);
}

void refuseWhileRemoteMacMachineRuns(Context const& ctx, PlatformConfig const& config, char const* step) {
  if (config.remoteMacMachine) {
    ctx.fail(std::string("'") + step +
             "' writes what the remote MAC machine owns: give hosts, or a platform with \"remoteMacMachine\": false");
  }
}

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

std::uint32_t countAt(Context const& ctx, Json const& object, char const* key) {
  if (!object[key].IsUint() || object[key].GetUint() > 1000000) {
    ctx.fail(std::string("'") + key + "' must be a number from 0 to 1000000");
  }
  return object[key].GetUint();
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

std::vector<Wire::IpAddr> addressesAt(Context const& ctx, Json const& object, char const* key) {
  return listAt<Wire::IpAddr>(ctx, object, key, "addresses", [&ctx](Json const& item, Wire::IpAddr& address) {
    if (item.IsString()) {
      address = valueOf<Wire::IpAddr>(ctx, item.GetString(), "address");
    }
    return item.IsString();
  });
}

Wire::IntfId vtiAt(Context const& ctx, Json const& object, char const* key) {
  std::string const name = stringAt(ctx, object, key);
  Wire::IntfId const intf = valueOf<Wire::IntfId>(ctx, name, "interface");
  if (!Wire::VxlanTunnelIntfId::isVxlanTunnelIntfId(intf)) {
    ctx.fail("bad interface '" + name + "': a VTI is named Vxlan<number>");
  }
  return intf;
}

}  // namespace Sim

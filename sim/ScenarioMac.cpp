// The scenario steps of the remote MAC subsystem: hosts that the layer-2
// sources learn, move and forget (by pattern, up to a million in a step),
// the learn restriction per VLAN and its counters, and a corrupted row of
// the L2Rib's shared-memory table.

#include "sim/ScenarioReader.h"

namespace Sim {

namespace {

// The MAC `index` places after `first`.
Wire::EthAddr macPlus(Wire::EthAddr const& first, std::uint32_t index) {
  std::uint64_t value = 0;
  for (std::uint8_t byte : first.bytes())
    value = (value << 8) | byte;
  value += index;
  std::array<std::uint8_t, 6> bytes{};
  for (int i = 5; i >= 0; --i, value >>= 8)
    bytes[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value);
  return Wire::EthAddr(bytes);
}

Wire::EthAddr macAt(Context const& ctx, Json const& spec, char const* key) {
  return valueOf<Wire::EthAddr>(ctx, stringAt(ctx, spec, key), "MAC");
}

// "source": where the hosts come from.
enum class HostSource { l2Rib, configured };

Step hostsStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  expectKeys(ctx, spec, "hosts", {"vlan", "mac", "count", "vteps", "source", "vti", "l2RibSource", "remove"});
  Bridging::VlanId const vlan = vlanAt(ctx, spec, "vlan");
  Wire::EthAddr const first = macAt(ctx, spec, "mac");
  std::uint32_t const count = spec.HasMember("count") ? countAt(ctx, spec, "count") : 1;
  bool const remove = spec.HasMember("remove") && boolAt(ctx, spec, "remove");
  std::vector<Wire::IpAddr> const vteps = addressesAt(ctx, spec, "vteps");
  if (!remove && vteps.empty()) {
    ctx.fail("'vteps' must name at least one VTEP");
  }
  std::string const sourceName = spec.HasMember("source") ? stringAt(ctx, spec, "source") : "l2rib";
  if (sourceName != "l2rib" && sourceName != "configured") {
    ctx.fail("'source' must be l2rib or configured");
  }
  HostSource const source = sourceName == "l2rib" ? HostSource::l2Rib : HostSource::configured;
  Wire::IntfId const vti = source == HostSource::configured ? vtiAt(ctx, spec, "vti") : Wire::IntfId();
  std::uint32_t const l2RibSource = spec.HasMember("l2RibSource") ? countAt(ctx, spec, "l2RibSource") : 0;
  Step step;
  step.what = Rxn::format("%s %u %s hosts from %s in vlan %u", remove ? "forget" : "learn", count, sourceName.c_str(),
                          first.stringValue().c_str(), vlan.value());
  for (Wire::IpAddr const& vtep : vteps)
    step.what += " " + vtep.stringValue();
  step.action = [=](Platform& platform) {
    HostSources const& sources = platform.hostSources();
    Rxn::Ptr<Vxlan::FdbConfig> const fdbConfig = sources.vxlanConfigDir->fdbConfig();
    for (std::uint32_t i = 0; i < count; ++i) {
      Bridging::MacVlanPair const key(macPlus(first, i), vlan);
      Vxlan::MacVlanPair const fdbKey(key.mac(), vlan);
      if (remove) {
        sources.l2RibHosts->hostDel(key);
        fdbConfig->configuredHostDel(fdbKey);
        continue;
      }
      Wire::IpAddr const vtep = vteps[i % vteps.size()];
      if (source == HostSource::l2Rib) {
        sources.l2RibHosts->hostIs(L2Rib::HostAndSource(key, L2Rib::vxlanDest(vtep), l2RibSource));
      } else {
        fdbConfig->configuredHostIs(Vxlan::ConfiguredHost(fdbKey, vti, vtep));
      }
    }
  };
  return step;
}

Vxlan::AllowLearnMode learnModeAt(Context const& ctx, Json const& spec) {
  std::string const mode = stringAt(ctx, spec, "mode");
  if (mode == "any") return Vxlan::AllowLearnMode::learnFromAny;
  if (mode == "floodList") return Vxlan::AllowLearnMode::learnFromFloodList;
  if (mode == "list") return Vxlan::AllowLearnMode::learnFromList;
  if (mode == "none") return Vxlan::AllowLearnMode::learnFromDefault;
  ctx.fail("'mode' must be any, floodList, list or none");
}

std::vector<Vxlan::VtepPrefix> prefixesAt(Context const& ctx, Json const& spec) {
  std::vector<std::string> const texts =
      listAt<std::string>(ctx, spec, "prefixes", "prefixes", [](Json const& item, std::string& text) {
        if (item.IsString()) text = item.GetString();
        return item.IsString();
      });
  std::vector<Vxlan::VtepPrefix> prefixes;
  for (std::string const& text : texts) {
    prefixes.emplace_back(valueOf<Wire::IpGenPrefix>(ctx, text, "prefix"));
  }
  return prefixes;
}

// The operator's wish for a VLAN; mode none takes the restriction away.
Step learnRestrictStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  expectKeys(ctx, spec, "learnRestrict", {"vti", "vlan", "mode", "prefixes"});
  Wire::IntfId const vti = vtiAt(ctx, spec, "vti");
  Bridging::VlanId const vlan = vlanAt(ctx, spec, "vlan");
  Vxlan::AllowLearnMode const mode = learnModeAt(ctx, spec);
  std::vector<Vxlan::VtepPrefix> const prefixes = prefixesAt(ctx, spec);
  Step step;
  step.what = Rxn::format("learn restriction of vlan %u on %s: %s", vlan.value(), vti.stringValue().c_str(),
                          stringAt(ctx, spec, "mode").c_str());
  for (Vxlan::VtepPrefix const& prefix : prefixes)
    step.what += " " + prefix.stringValue();
  step.action = [=](Platform& platform) {
    Rxn::Ptr<Vxlan::VxlanStatus> const status = platform.vxlanStatusDir()->vxlanStatusIs(vti);
    if (mode == Vxlan::AllowLearnMode::learnFromDefault) {
      status->vlanToLearnRestrictDel(vlan);
      return;
    }
    // New prefixes and the mode first: the way from one rule to the next
    // never passes through an empty list, which would deny every host.
    Rxn::Ptr<Vxlan::LearnRestrict> const restrict = status->vlanToLearnRestrictIs(vlan);
    for (Vxlan::VtepPrefix const& prefix : prefixes)
      restrict->prefixListIs(prefix, true);
    restrict->learnFromIs(mode);
    for (auto it = restrict->prefixList().begin(); it != restrict->prefixList().end();) {
      Vxlan::VtepPrefix const prefix = it.key();
      ++it;
      if (std::find(prefixes.begin(), prefixes.end(), prefix) == prefixes.end()) restrict->prefixListDel(prefix);
    }
  };
  return step;
}

Step clearCountersStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  expectKeys(ctx, spec, "clearCounters", {"vti", "vlan"});
  Wire::IntfId const vti = vtiAt(ctx, spec, "vti");
  Bridging::VlanId const vlan = vlanAt(ctx, spec, "vlan");
  Step step;
  step.what = Rxn::format("clear the learn counters of vlan %u on %s", vlan.value(), vti.stringValue().c_str());
  step.action = [=](Platform& platform) {
    platform.vxlanStatusDir()->vxlanStatusIs(vti)->vlanToClearCounterRequestTimeIs(vlan, platform.activity().now());
  };
  return step;
}

Step corruptRowStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  expectKeys(ctx, spec, "corruptL2RibRow", {"vlan", "mac", "corrupt"});
  Bridging::MacVlanPair const key(macAt(ctx, spec, "mac"), vlanAt(ctx, spec, "vlan"));
  bool const corrupt = !spec.HasMember("corrupt") || boolAt(ctx, spec, "corrupt");
  Step step;
  step.what = std::string(corrupt ? "corrupt" : "repair") + " the L2Rib row of " + key.stringValue();
  step.action = [=](Platform& platform) { platform.hostSources().l2RibReader->rowCorruptedIs(key, corrupt); };
  return step;
}

}  // namespace

std::vector<StepKind> macStepKinds() {
  return {{"hosts", true, hostsStep},
          {"learnRestrict", true, learnRestrictStep},
          {"clearCounters", true, clearCountersStep},
          {"corruptL2RibRow", true, corruptRowStep}};
}

}  // namespace Sim

// The scenario steps of the VLAN to VNI subsystem: the VLANs that remote MACs
// use, as the remote MAC machine publishes them.

#include "sim/ScenarioReader.h"

namespace Sim {

namespace {

Step activeVxlanVlanStep(Context const& ctx, Json const& spec, PlatformConfig const& config) {
  refuseWhileRemoteMacMachineRuns(ctx, config, "activeVxlanVlan");
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

}  // namespace

std::vector<StepKind> vniStepKinds() {
  return {{"activeVxlanVlan", true, activeVxlanVlanStep}};
}

}  // namespace Sim

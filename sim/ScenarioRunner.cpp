#include "sim/ScenarioRunner.h"

#include <cstdlib>

namespace Sim {

std::vector<Snapshot> runScenario(Scenario const& scenario, std::function<void(Snapshot const&)> const& onSnapshot) {
  // Toggles are read once per process, at first use: set them before anything runs.
  for (auto const& [name, on] : scenario.toggles) {
    ::setenv(("FABVXLAN_TOGGLE_" + name).c_str(), on ? "on" : "off", 1);
  }
  std::vector<Snapshot> snapshots;
  auto show = [&](Platform& platform, std::string const& label) {
    snapshots.push_back(takeSnapshot(platform, label));
    if (onSnapshot) {
      onSnapshot(snapshots.back());
    }
  };
  Platform platform(scenario.platform);
  std::size_t number = 0;
  for (Step const& step : scenario.steps) {
    ++number;
    if (step.at > platform.now()) {
      platform.runFor(step.at - platform.now());
    }
    try {
      // What the step sets going runs at its time; work that takes time on
      // the platform goes on in later steps.
      if (step.action) {
        step.action(platform);
        platform.runFor(0);
      }
    } catch (std::exception const& e) {
      throw ScenarioError(scenario.name + ": step " + std::to_string(number) + ": " + step.what + ": " + e.what());
    }
    if (step.show) {
      show(platform, step.label);
    }
  }
  platform.settle();
  show(platform, "end of scenario");
  return snapshots;
}

}  // namespace Sim

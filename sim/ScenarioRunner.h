#pragma once
// Runs a scenario on a fresh simulated platform.

#include <functional>
#include <memory>
#include <vector>

#include "sim/Scenario.h"
#include "sim/Show.h"
#include "sim/StackCheck.h"

namespace Sim {

// Plays steps on a platform of its own, one at a time, for a scenario file
// or for a driver that makes its steps as it goes. With checks on, the whole
// stack is checked after every step.
class ScenarioPlayer {
 public:
  // Sets the toggles (read once per process: before anything runs) and
  // builds the platform.
  ScenarioPlayer(std::string name, PlatformConfig const& platform,
                 std::vector<std::pair<std::string, bool>> const& toggles, bool checks);
  explicit ScenarioPlayer(Scenario const& scenario)
      : ScenarioPlayer(scenario.name, scenario.platform, scenario.toggles, scenario.checks) {}

  Platform& platform() { return *platform_; }
  StackCheck* checks() { return checks_.get(); }
  std::size_t stepsPlayed() const { return played_; }

  // Runs the loop to the step's time and applies it. A step that cannot be
  // applied throws ScenarioError; a check that fails, CheckFailure; both name
  // the scenario, the step and the fault.
  void play(Step const& step);
  // Lets every pending answer come, and checks once more.
  void finish();

 private:
  void check(Step const& step, bool quiet);

  std::string name_;
  std::unique_ptr<Platform> platform_;
  std::unique_ptr<StackCheck> checks_;
  std::size_t played_ = 0;
};

// Applies the toggles, builds the platform and runs each step at its time;
// at the end lets every pending answer come. Each snapshot (the steps that
// show, and the end) is handed to onSnapshot as it is taken, and returned.
std::vector<Snapshot> runScenario(Scenario const& scenario,
                                  std::function<void(Snapshot const&)> const& onSnapshot = {});

}  // namespace Sim

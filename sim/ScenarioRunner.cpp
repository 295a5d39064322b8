#include "sim/ScenarioRunner.h"

#include <cstdlib>

namespace Sim {

ScenarioPlayer::ScenarioPlayer(std::string name, PlatformConfig const& platform,
                               std::vector<std::pair<std::string, bool>> const& toggles, bool checks)
    : name_(std::move(name)) {
  for (auto const& [toggle, on] : toggles) {
    ::setenv(("FABVXLAN_TOGGLE_" + toggle).c_str(), on ? "on" : "off", 1);
  }
  platform_ = std::make_unique<Platform>(platform);
  if (checks) {
    checks_ = std::make_unique<StackCheck>(*platform_);
  }
}

void ScenarioPlayer::play(Step const& step) {
  ++played_;
  if (step.at > platform_->now()) {
    platform_->runFor(step.at - platform_->now());
  }
  try {
    // What the step sets going runs at its time; work that takes time on
    // the platform goes on in later steps.
    if (step.action) {
      step.action(*platform_);
      platform_->runFor(0);
    }
  } catch (CheckFailure const&) {
    throw;
  } catch (std::exception const& e) {
    throw ScenarioError(name_ + ": step " + std::to_string(played_) + ": " + step.what + ": " + e.what());
  }
  check(step, step.settles);
}

void ScenarioPlayer::finish() {
  platform_->settle();
  Step end;
  end.what = "end of scenario";
  check(end, true);
}

void ScenarioPlayer::check(Step const& step, bool quiet) {
  if (!checks_) {
    return;
  }
  try {
    checks_->afterStep();
    if (quiet) {
      checks_->whenQuiet();
    }
  } catch (CheckFailure const& e) {
    throw CheckFailure(e.check(), name_ + ": step " + std::to_string(played_) + ": " + step.what + ": " + e.what());
  }
}

std::vector<Snapshot> runScenario(Scenario const& scenario, std::function<void(Snapshot const&)> const& onSnapshot) {
  std::vector<Snapshot> snapshots;
  ScenarioPlayer player(scenario);
  auto show = [&](std::string const& label) {
    snapshots.push_back(takeSnapshot(player.platform(), label));
    if (onSnapshot) {
      onSnapshot(snapshots.back());
    }
  };
  for (Step const& step : scenario.steps) {
    player.play(step);
    if (step.show) {
      show(step.label);
    }
  }
  player.finish();
  show("end of scenario");
  return snapshots;
}

}  // namespace Sim

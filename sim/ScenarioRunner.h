#pragma once
// Runs a scenario on a fresh simulated platform.

#include <functional>
#include <vector>

#include "sim/Scenario.h"
#include "sim/Show.h"

namespace Sim {

// Applies the toggles, builds the platform and runs each step at its time;
// at the end lets every pending answer come. Each snapshot (the steps that
// show, and the end) is handed to onSnapshot as it is taken, and returned.
std::vector<Snapshot> runScenario(Scenario const& scenario,
                                  std::function<void(Snapshot const&)> const& onSnapshot = {});

}  // namespace Sim

#pragma once
// Runs the driver, and replays of its steps, in child processes, so that an
// assertion that ends the process is a failure the driver can report, shrink
// and write as a scenario file.

#include <cstdint>
#include <string>
#include <vector>

#include "sim/stress/Driver.h"

namespace Stress {

// How a run or a replay ended. `signature` names the failure alone (the
// assertion's expression, the check's name), so that two runs that fail the
// same way compare equal; `message` is the whole last word of the child.
struct Outcome {
  bool failed = false;
  std::string signature;
  std::string message;
  // The steps played, each a JSON object with its time.
  std::vector<std::string> steps;
};

// Runs the driver in a child; its statistics go to this process's stdout.
Outcome runIsolated(RunConfig const& config);
// Plays the steps on a fresh platform of the seed's setup, in a child.
Outcome replayIsolated(std::uint64_t seed, std::vector<std::string> const& steps);
// Replays a scenario file in a child, as fabvxlan-sim does.
Outcome replayFileIsolated(std::string const& path);

// The shortest sequence found, within the time given, whose replay fails
// with the same signature.
std::vector<std::string> shrink(std::uint64_t seed, std::vector<std::string> steps, std::string const& signature,
                                double seconds);

}  // namespace Stress

#pragma once
// Scenarios of the simulated platform agent: timed steps in a JSON file.
//
// {
//   "description": "what the scenario shows",
//   "platform": { "answerDelay": 0.5, "vtepGroupSupported": false, "hitlessRestart": true },
//   "toggles": { "PerVniControlPlane": false },
//   "steps": [
//     { "at": 0, "vti": { "name": "Vxlan1", "operStatus": "up", "floodMcastGrp": "239.1.1.1",
//                         "vlanToGroup": { "10": "239.1.1.10", "20": null },
//                         "controllerClientMode": false } },
//     { "at": 1, "l2rib": { "source": 4 } },
//     { "at": 2, "floodSet": { "vlan": 10, "mac": "0000.0000.0000", "type": "all",
//                              "add": [ "10.0.0.2" ], "remove": [ "10.0.0.3" ] } },
//     { "at": 3, "floodSet": { "vlan": 10, "mac": "0000.0000.0000", "delete": true } },
//     { "at": 4, "bridging": { "vlan": 10, "adminState": "active" } },
//     { "at": 5, "restart": "hitless" },
//     { "at": 7, "agent": "down" }, ..., { "at": 8, "agent": "up" },
//     { "at": 9, "settle": true },
//     { "at": 6, "vti": { "name": "Vxlan1", "delete": true }, "show": "after the VTI left" }
//   ]
// }
//
// "at" is the simulated time of a step, in seconds from the start; steps run
// in order and time never goes back. Each step does one thing; "show" (true or
// a label) prints the published state after it. The whole file is checked
// before anything runs, so a bad scenario applies nothing.

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "sim/SimPlatform.h"

namespace Sim {

// A scenario that cannot run: the text names the file, the step and the fault.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Step {
  double at = 0.0;
  std::string what;  // a short description, for the output
  std::function<void(Platform&)> action;
  bool show = false;
  std::string label;
  // The step waits until the platform is quiet.
  bool settles = false;
};

struct Scenario {
  std::string name;
  std::string description;
  PlatformConfig platform;
  std::vector<std::pair<std::string, bool>> toggles;
  // Whether the whole stack is checked after every step (see StackCheck.h).
  bool checks = false;
  std::vector<Step> steps;
};

// Parses and checks a scenario; `name` (a file name) goes into error texts.
Scenario parseScenario(std::string const& jsonText, std::string const& name);
Scenario loadScenario(std::string const& path);
// Reads one step as a scenario holds it, for a driver that makes its steps
// as it goes; `previousAt` is the time of the step before.
Step parseStep(std::string const& stepJson, PlatformConfig const& platform, double previousAt);
// The scenario built into the simulator, from examples/default.json.
Scenario defaultScenario();

}  // namespace Sim

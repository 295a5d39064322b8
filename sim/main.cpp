// fabvxlan-sim: the simulated platform agent. Runs a scenario (or the
// built-in one) and prints the published state as show tables or JSON.

#include <cstdio>
#include <cstring>
#include <string>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/RingLog.h"
#include "fabvxlan/runtime/Trace.h"
#include "sim/ScenarioRunner.h"

namespace {

constexpr char kRingFile[] = "FabVxlan.rl";
// Each level's ring: room for the decisions of a long scenario.
constexpr char kRingSize[] = "256K";

// Asked for, the usage goes to standard output and the command succeeds;
// after a bad argument, to standard error with status 2.
int usage(char const* problem) {
  if (problem != nullptr) {
    std::fprintf(stderr, "fabvxlan-sim: %s\n", problem);
  }
  std::fprintf(problem != nullptr ? stderr : stdout,
               "usage: fabvxlan-sim [--json] [--ring DIR] [scenario.json]\n"
               "       fabvxlan-sim --list-trace-modules\n"
               "Runs a scenario on the simulated platform, or the built-in one without a file.\n"
               "--ring DIR writes the ring trace to DIR/%s, for fabvxlan-ringdump.\n"
               "--list-trace-modules prints the module names that FABVXLAN_TRACE selects from.\n",
               kRingFile);
  return problem == nullptr ? 0 : 2;
}

// The machines' decisions go to the ring file from the first step on.
bool startRingTrace(std::string const& directory) {
  try {
    RingLog::defaultRingLogHandle = RingLog::initialize_handle(kRingFile, kRingSize, directory, false);
    return true;
  } catch (Rxn::ErrnoException const& e) {
    std::fprintf(stderr, "fabvxlan-sim: %s\n", e.what());
    return false;
  }
}

int listTraceModules() {
  for (Rxn::String const& module : Rxn::traceModules()) {
    std::printf("%s\n", module.c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  bool json = false;
  std::string path;
  std::string ringDirectory;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else if (std::strcmp(argv[i], "--ring") == 0) {
      if (i + 1 == argc) {
        return usage("--ring needs a directory");
      }
      ringDirectory = argv[++i];
    } else if (std::strcmp(argv[i], "--list-trace-modules") == 0) {
      return listTraceModules();
    } else if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      return usage(nullptr);
    } else if (argv[i][0] == '-' || !path.empty()) {
      return usage((std::string("unexpected argument '") + argv[i] + "'").c_str());
    } else {
      path = argv[i];
    }
  }
  try {
    Sim::Scenario const scenario = path.empty() ? Sim::defaultScenario() : Sim::loadScenario(path);
    if (!ringDirectory.empty() && !startRingTrace(ringDirectory)) {
      return 1;
    }
    if (json) {
      std::fputs(Sim::renderJson(scenario.name, Sim::runScenario(scenario)).c_str(), stdout);
      return 0;
    }
    std::printf("Scenario: %s\n%s\n", scenario.name.c_str(), scenario.description.c_str());
    Sim::runScenario(scenario,
                     [](Sim::Snapshot const& snapshot) { std::printf("\n%s", Sim::renderText(snapshot).c_str()); });
    return 0;
  } catch (Sim::ScenarioError const& e) {
    std::fprintf(stderr, "fabvxlan-sim: %s\n", e.what());
    return 1;
  } catch (Sim::CheckFailure const& e) {
    std::fprintf(stderr, "fabvxlan-sim: check failed: %s\n", e.what());
    return 3;
  }
}

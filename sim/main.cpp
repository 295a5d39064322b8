// fabvxlan-sim: the simulated platform agent. Runs a scenario (or the
// built-in one) and prints the published state as show tables or JSON.

#include <cstdio>
#include <cstring>
#include <string>

#include "fabvxlan/runtime/Trace.h"
#include "sim/ScenarioRunner.h"

namespace {

// Asked for, the usage goes to standard output and the command succeeds;
// after a bad argument, to standard error with status 2.
int usage(char const* problem) {
  if (problem != nullptr) {
    std::fprintf(stderr, "fabvxlan-sim: %s\n", problem);
  }
  std::fprintf(problem != nullptr ? stderr : stdout,
               "usage: fabvxlan-sim [--json] [scenario.json]\n"
               "       fabvxlan-sim --list-trace-modules\n"
               "Runs a scenario on the simulated platform, or the built-in one without a file.\n"
               "--list-trace-modules prints the module names that FABVXLAN_TRACE selects from.\n");
  return problem == nullptr ? 0 : 2;
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
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
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

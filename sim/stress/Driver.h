#pragma once
// The randomized whole-stack driver: from a seed, it makes legal sequences
// of events across everything the simulated platform has (VTIs, mappings,
// remote VTEPs and next hops, flood sets, the platform's answers, restarts)
// and checks the whole stack after every step (StackCheck).
//
// Every event is a scenario step, made as JSON and played through the
// scenario reader, so that a failing run is written as a scenario file that
// fabvxlan-sim replays to the same failure in another process.
//
// Each subsystem adds its events in a file of its own (EventsWorld.cpp,
// EventsVni.cpp, EventsVtep.cpp, EventsAgent.cpp): a generator returns the
// steps of one event, or nothing when the world offers no legal one.

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "sim/ScenarioRunner.h"

namespace Stress {

// The universe the driver draws from: small, so that events collide.
struct Universe {
  std::vector<std::string> vtis = {"Vxlan1", "Vxlan2", "Vxlan3"};
  int firstVlan = 10;
  int vlans = 8;
  std::vector<std::uint32_t> vnis = {10010, 10011, 10012, 10013, 10014, 10015, 20010, 20011};
  std::vector<std::string> vteps = {"10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5", "10.0.0.6", "10.0.0.7"};
  std::vector<std::string> groups = {"239.1.1.1", "239.1.1.2", "239.1.1.3"};
  std::vector<std::string> localAddresses = {"10.0.0.1", "10.0.1.1"};
  std::vector<std::string> floodMacs = {"0000.0000.0000", "0000.0000.0001"};
};

// What a generator sees: the platform as it stands, the universe, and the
// random source. It reads the platform to keep its events legal, and writes
// its steps as JSON objects without "at".
class Maker {
 public:
  Maker(Sim::Platform& platform, Universe const& universe, std::mt19937_64& random)
      : platform_(platform), universe_(universe), random_(random) {}

  Sim::Platform& platform() const { return platform_; }
  Universe const& universe() const { return universe_; }

  // A number in [0, n).
  std::size_t below(std::size_t n) {
    return n == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, n - 1)(random_);
  }
  bool chance(double p) { return std::bernoulli_distribution(p)(random_); }
  template <class T>
  T const& pick(std::vector<T> const& items) {
    return items[below(items.size())];
  }
  int vlan() { return universe_.firstVlan + static_cast<int>(below(static_cast<std::size_t>(universe_.vlans))); }
  std::uint32_t vni() { return pick(universe_.vnis); }

  // The VTIs of the universe for which the test holds; the test is handed
  // the VTI's status, or null if it does not exist.
  template <class Test>
  std::vector<std::string> vtisWhere(Test&& test) const {
    std::vector<std::string> names;
    for (std::string const& name : universe_.vtis) {
      if (test(platform_.vtiStatusDir()->vtiStatus(Wire::IntfId(name)))) {
        names.push_back(name);
      }
    }
    return names;
  }
  std::vector<std::string> existingVtis() const {
    return vtisWhere([](auto const& vti) { return !!vti; });
  }
  // Whether the agent runs with the feature up: the remote MAC machine works
  // only then.
  bool featureUp() const;

 private:
  Sim::Platform& platform_;
  Universe const& universe_;
  std::mt19937_64& random_;
};

// A JSON string of the text.
std::string quoted(std::string const& text);

// One kind of event: its name (counted and printed), its weight, and its
// generator, which returns its steps (JSON objects, without "at") or none.
struct EventKind {
  char const* name;
  double weight;
  std::function<std::vector<std::string>(Maker&)> make;
};

std::vector<EventKind> worldEvents();
std::vector<EventKind> vniEvents();
std::vector<EventKind> vtepEvents();
std::vector<EventKind> macEvents();
std::vector<EventKind> agentEvents();

// The steps that bring the world to rest: the remote MAC machine lets go of
// everything, every VTI goes down, the platform answers all, and it settles.
std::vector<std::string> stepsToRest(Maker& maker);

struct RunConfig {
  std::uint64_t seed = 1;
  std::uint64_t events = 3000;
  // Where each step is written before it is played, one JSON object a line
  // (-1: nowhere).
  int stepLog = -1;
  bool quiet = false;
};

// The platform and toggles that a seed draws.
struct Setup {
  Sim::PlatformConfig platform;
  std::vector<std::pair<std::string, bool>> toggles;
  std::string platformJson;
  std::string togglesJson;
};
Setup setupOf(std::uint64_t seed);

struct RunResult {
  std::uint64_t events = 0;
  std::uint64_t steps = 0;
  double seconds = 0.0;
  std::map<std::string, std::uint64_t> eventCounts;
  std::map<std::string, std::uint64_t> checkCounts;
};

// Runs the events in this process. A failing check throws Sim::CheckFailure,
// an illegal step Sim::ScenarioError, and an assertion ends the process.
RunResult run(RunConfig const& config);

// Events per second, and how often each kind of event and each check came.
void printStatistics(RunConfig const& config, RunResult const& result);

// A JSON document of the steps, as a scenario file.
std::string scenarioText(std::uint64_t seed, std::string const& failure, std::vector<std::string> const& steps);

}  // namespace Stress

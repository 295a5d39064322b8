#pragma once
// What the readers of scenario steps share: where a fault lies, the typed
// reads of JSON members with the system's own error texts, and the table of
// step kinds. Each subsystem reads its own steps in a file of its own
// (ScenarioCentral.cpp, ScenarioVtep.cpp, ...); Scenario.cpp assembles them.

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "fabvxlan/runtime/Exception.h"
#include "sim/Scenario.h"

namespace Sim {

using Json = rapidjson::Value;

// Where in the scenario a fault lies, for the one line that reports it.
class Context {
 public:
  explicit Context(std::string file) : file_(std::move(file)) {}
  void stepIs(std::size_t number) { step_ = number; }
  [[noreturn]] void fail(std::string const& what) const;

 private:
  std::string file_;
  std::size_t step_ = 0;
};

// One kind of step: its key in a step object, and its reader. An object body
// is checked to be an object before the reader sees it.
struct StepKind {
  char const* key;
  bool objectBody;
  Step (*read)(Context const& ctx, Json const& body, PlatformConfig const& config);
};

// The step kinds of each part of the platform, in the order the error texts
// list them.
std::vector<StepKind> centralStepKinds();
std::vector<StepKind> agentStepKinds();
std::vector<StepKind> vtepStepKinds();
std::vector<StepKind> vniStepKinds();
std::vector<StepKind> macStepKinds();

void expectKeys(Context const& ctx, Json const& object, char const* what, std::vector<char const*> const& keys);
// A step that writes what the remote MAC machine owns needs a platform
// without one ("remoteMacMachine": false).
void refuseWhileRemoteMacMachineRuns(Context const& ctx, PlatformConfig const& config, char const* step);
Json const& objectAt(Context const& ctx, Json const& value, char const* what);
std::string stringAt(Context const& ctx, Json const& object, char const* key);
bool boolAt(Context const& ctx, Json const& object, char const* key);
double numberAt(Context const& ctx, Json const& object, char const* key);
// A count from 0 to 1000000.
std::uint32_t countAt(Context const& ctx, Json const& object, char const* key);

// A value of the system from its text, with the system's own error text.
template <class T>
T valueOf(Context const& ctx, std::string const& text, char const* what) {
  try {
    return T::fromString(text);
  } catch (Rxn::RangeException const& e) {
    ctx.fail(std::string("bad ") + what + " '" + text + "': " + e.what());
  }
}

Bridging::VlanId vlanAt(Context const& ctx, Json const& object, char const* key);
// VLANs as a scenario names them: one number, or a range "lo-hi".
std::vector<Bridging::VlanId> vlansOf(Context const& ctx, std::string const& text);
std::vector<Bridging::VlanId> vlansAt(Context const& ctx, Json const& object, char const* key);
std::string vlanText(std::vector<Bridging::VlanId> const& vlans);
// A list under `key` (none if absent), each item read by `read`, which
// returns false for an item of the wrong kind; `what` names the items.
template <class T, class Read>
std::vector<T> listAt(Context const& ctx, Json const& object, char const* key, char const* what, Read&& read) {
  std::vector<T> items;
  if (!object.HasMember(key)) {
    return items;
  }
  bool good = object[key].IsArray();
  for (std::size_t i = 0; good && i < object[key].Size(); ++i) {
    items.emplace_back();
    good = read(object[key][static_cast<rapidjson::SizeType>(i)], items.back());
  }
  if (!good) {
    ctx.fail(std::string("'") + key + "' must be a list of " + what);
  }
  return items;
}
std::vector<Wire::IpAddr> addressesAt(Context const& ctx, Json const& object, char const* key);
Wire::IntfId vtiAt(Context const& ctx, Json const& object, char const* key);

}  // namespace Sim

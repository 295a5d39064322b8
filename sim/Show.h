#pragma once
// What the simulated platform shows of the published state, in the manner
// of a switch's show commands, or as JSON.

#include <string>
#include <utility>
#include <vector>

#include "sim/SimPlatform.h"

namespace Sim {

struct Snapshot {
  struct BumVtepList {
    std::string mac;
    int vlan = 0;
    std::string type;
    std::vector<std::string> vteps;
  };

  std::string label;
  double time = 0.0;
  std::vector<std::pair<std::string, std::string>> states;  // machine, state
  std::vector<std::string> standIns;
  bool controllerClientMode = false;
  bool datapathLearning = false;
  std::vector<std::string> activatedVti;
  std::vector<std::string> hwStatusVti;
  std::string bumReplicationMode;
  std::vector<std::pair<int, std::string>> bumMcastGrp;  // VLAN, group
  std::vector<BumVtepList> bumVtepLists;
  std::vector<std::pair<std::string, bool>> bootStages;
};

// The published state now, sorted for reading.
Snapshot takeSnapshot(Platform& platform, std::string const& label);
std::string renderText(Snapshot const& snapshot);
std::string renderJson(std::string const& scenario, std::vector<Snapshot> const& snapshots);

}  // namespace Sim

#pragma once
// What the simulated platform shows of the published state, in the manner
// of a switch's show commands, or as JSON.

#include <cstdint>
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

  // One remote VTEP of a VTI, as VtepSm holds and publishes it.
  struct Vtep {
    std::string vti;
    std::string vtep;
    std::string state;  // Waiting, Requested, Published, Draining, Stale
    std::string tunnelId;
    std::string nextHopId;
    std::vector<std::string> held;  // every next hop id not released; * marks the reader's
    std::string generation;
  };
  struct TunnelLayer {
    std::uint32_t initConfig = 0, initStatus = 0, cleanupConfig = 0, cleanupStatus = 0;
    std::size_t tunnels = 0, tunnelLimit = 0, nextHops = 0, nextHopLimit = 0, waiting = 0;
  };
  // The VLAN to VNI map through its stages: config, the platform's answer,
  // the shadow, the queues, and the chip.
  struct VniMap {
    struct Row {
      int vlan = 0;
      std::string vti, config, status, shadow, queued;
    };
    std::size_t config = 0, status = 0, full = 0, shadow = 0, updateList = 0, pendingRemove = 0, chip = 0,
                chipCapacity = 0, recovered = 0;
    std::vector<Row> rows;  // the first ones, by VLAN
    std::size_t moreRows = 0;
    std::vector<std::string> unprogrammed;  // pendingVlanToVniMap
  };
  // The remote MACs: totals first, then the first hosts by VLAN and MAC,
  // and the learn restriction of each VLAN that has one.
  struct RemoteMacs {
    struct Row {
      int vlan = 0;
      std::string mac, vti, vtep, tunnelId, nextHopId, state;
    };
    struct LearnRestrict {
      int vlan = 0;
      std::string mode;
      std::vector<std::string> prefixes;  // prefix=matches
      std::uint32_t matchAny = 0, matchList = 0, rejectList = 0, matchFloodList = 0, rejectFloodList = 0;
      double lastClearTime = 0.0;
    };
    std::size_t hosts = 0, queued = 0, pending = 0, resolved = 0, unprogrammed = 0, learned = 0, multiVtep = 0,
                chip = 0, chipCapacity = 0, refusedFull = 0;
    std::vector<Row> rows;
    std::size_t moreRows = 0;
    std::vector<LearnRestrict> learnRestricts;
  };
  struct LearnEvent {
    std::uint64_t genId = 0;
    std::string vti, vtep, vni, mac;
  };

  std::string label;
  double time = 0.0;
  std::vector<std::pair<std::string, std::string>> states;  // machine, state
  // The sub-machines that the feature waits on while initializing_ or cleaning_.
  std::vector<std::pair<std::string, std::string>> awaited;  // machine, state
  std::vector<std::string> standIns;
  bool controllerClientMode = false;
  bool datapathLearning = false;
  std::vector<std::string> activatedVti;
  std::vector<std::string> hwStatusVti;
  std::string bumReplicationMode;
  std::vector<std::pair<int, std::string>> bumMcastGrp;  // VLAN, group
  std::vector<BumVtepList> bumVtepLists;
  std::vector<std::pair<std::string, bool>> bootStages;
  bool vtepSubsystem = false;
  std::vector<Vtep> vteps;
  std::vector<std::string> activeNextHops;
  TunnelLayer tunnelLayer;
  LearnEvent learnEvent;
  // What the chip holds of each VTI, one line each, and the hook calls so far.
  std::vector<std::string> vtiPrograms;
  std::size_t vtiHookCalls = 0;
  bool vniSubsystem = false;
  VniMap vniMap;
  bool macSubsystem = false;
  RemoteMacs remoteMacs;
  std::vector<std::string> logs;  // the last named log messages
  std::vector<std::string> verifyFailures;
};

// The published state now, sorted for reading.
Snapshot takeSnapshot(Platform& platform, std::string const& label);
std::string renderText(Snapshot const& snapshot);
std::string renderJson(std::string const& scenario, std::vector<Snapshot> const& snapshots);

}  // namespace Sim

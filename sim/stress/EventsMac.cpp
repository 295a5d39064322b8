// Events of the remote MAC subsystem, as the layer-2 sources and the
// operator make them: hosts learned, moved and forgotten in bursts, from the
// L2Rib or configured on a VTI; learn restrictions changing under them and
// their counters cleared; a row of the L2Rib's shared memory corrupted and
// repaired. The VTEPs and next hops the hosts need follow from them.

#include "sim/stress/Driver.h"

namespace Stress {

namespace {

using Steps = std::vector<std::string>;

constexpr int kHostsPerVlan = 24;

std::string hostMac(int index) {
  return Rxn::format("02:00:00:00:00:%02x", index + 1);
}

std::string vtepList(Maker& maker, std::size_t count) {
  std::string list;
  for (std::size_t i = 0; i < count; ++i) {
    list += (list.empty() ? "" : ", ") + quoted(maker.pick(maker.universe().vteps));
  }
  return "[" + list + "]";
}

// A burst of hosts in a VLAN, behind one or two VTEPs; learned again behind
// others, they move.
std::string hostsStep(Maker& maker, std::string const& extra) {
  int const first = static_cast<int>(maker.below(kHostsPerVlan));
  int const count = 1 + static_cast<int>(maker.below(6));
  return "{\"hosts\": {\"vlan\": " + std::to_string(maker.vlan()) + ", \"mac\": " + quoted(hostMac(first)) +
         ", \"count\": " + std::to_string(std::min(count, kHostsPerVlan - first)) + extra + "}}";
}

Steps hostsLearn(Maker& maker) {
  return {hostsStep(maker, ", \"vteps\": " + vtepList(maker, 1 + maker.below(2)) +
                               ", \"l2RibSource\": " + std::to_string(maker.below(4)))};
}

Steps hostsConfigured(Maker& maker) {
  return {hostsStep(maker, ", \"vteps\": " + vtepList(maker, 1) +
                               ", \"source\": \"configured\", \"vti\": " + quoted(maker.pick(maker.universe().vtis)))};
}

Steps hostsForget(Maker& maker) {
  return {hostsStep(maker, ", \"remove\": true")};
}

Steps learnRestrict(Maker& maker) {
  static std::vector<std::string> const modes = {"any", "floodList", "list", "list", "none", "none"};
  static std::vector<std::string> const prefixes = {"10.0.0.0/30", "10.0.0.4/31", "10.0.0.2/32",
                                                    "10.0.0.0/24", "0.0.0.0/0",   "2001:db8::/32"};
  std::string list;
  for (std::size_t n = maker.below(3); n > 0; --n) {
    list += (list.empty() ? "" : ", ") + quoted(maker.pick(prefixes));
  }
  return {"{\"learnRestrict\": {\"vti\": " + quoted(maker.pick(maker.universe().vtis)) +
          ", \"vlan\": " + std::to_string(maker.vlan()) + ", \"mode\": " + quoted(maker.pick(modes)) +
          ", \"prefixes\": [" + list + "]}}"};
}

Steps clearCounters(Maker& maker) {
  return {"{\"clearCounters\": {\"vti\": " + quoted(maker.pick(maker.universe().vtis)) +
          ", \"vlan\": " + std::to_string(maker.vlan()) + "}}"};
}

Steps corruptRow(Maker& maker) {
  return {"{\"corruptL2RibRow\": {\"vlan\": " + std::to_string(maker.vlan()) +
          ", \"mac\": " + quoted(hostMac(static_cast<int>(maker.below(kHostsPerVlan)))) +
          ", \"corrupt\": " + (maker.chance(0.5) ? "true" : "false") + "}}"};
}

}  // namespace

std::vector<EventKind> macEvents() {
  return {{"hosts-learn", 10, hostsLearn},        {"hosts-configured", 2, hostsConfigured},
          {"hosts-forget", 5, hostsForget},       {"learn-restrict", 2, learnRestrict},
          {"clear-counters", 0.6, clearCounters}, {"corrupt-l2rib-row", 0.6, corruptRow}};
}

}  // namespace Stress

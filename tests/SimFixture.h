#pragma once
// The whole stack on the simulated platform, built in one call, for the
// tests of every subsystem. Time is simulated: tests run it on by hand.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sim/SimPlatform.h"

namespace FabTest {

inline Wire::IntfId const kVxlan1("Vxlan1");
inline Wire::IntfId const kVxlan2("Vxlan2");
inline Wire::EthAddr const kZeroMac;

class SimFixture : public ::testing::Test {
 protected:
  explicit SimFixture(Sim::PlatformConfig const& config = {}) : platform_(config) {}

  Sim::Platform& platform() { return platform_; }
  Fab::VXLAN::FabVxlanInfo& info() { return *platform_.vxlanInfo(); }
  Vxlan::BumStatus& bum() { return *platform_.bumStatus(); }
  Fab::VXLAN::VxlanCentralSm& central() { return *platform_.central(); }

  void vtiUp(Wire::IntfId const& vti, bool up = true) {
    platform_.vti(vti)->operStatusIs(up ? Interface::IntfOperStatus::intfOperUp
                                        : Interface::IntfOperStatus::intfOperDown);
    platform_.runUntilIdle();
  }
  void floodVteps(int vlan, std::initializer_list<char const*> vteps, Wire::EthAddr const& mac = kZeroMac) {
    Rxn::Ptr<L2Rib::FloodSet> const set = platform_.floodSet(Bridging::VlanId(vlan), mac);
    for (char const* vtep : vteps) {
      set->destSetIs(L2Rib::vxlanDest(Wire::IpAddr::fromString(vtep)), true);
    }
    platform_.runUntilIdle();
  }
  // The VTEPs of a BUM list, sorted, or "none".
  std::string bumVteps(int vlan, Wire::EthAddr const& mac = kZeroMac) {
    Rxn::Ptr<Vxlan::BumVtepList> const list = bum().bumVtepList(Vxlan::MacVlanPair(mac, Bridging::VlanId(vlan)));
    if (!list) {
      return "none";
    }
    std::vector<Wire::IpAddr> vteps;
    for (auto const& [vtep, member] : list->remoteVtepAddr()) {
      vteps.push_back(vtep);
    }
    std::sort(vteps.begin(), vteps.end());
    std::string text;
    for (Wire::IpAddr const& vtep : vteps) {
      text += (text.empty() ? "" : " ") + vtep.stringValue();
    }
    return text;
  }

 private:
  Sim::Platform platform_;
};

// Escapes a quoted assertion text for a death test's regular expression.
std::string literal(std::string const& text);

}  // namespace FabTest

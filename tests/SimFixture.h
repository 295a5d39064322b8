#pragma once
// The whole stack on the simulated platform, built in one call, for the
// tests of every subsystem. Time is simulated: tests run it on by hand.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "sim/SimPlatform.h"
#include "sim/StackCheck.h"

namespace FabTest {

inline Wire::IntfId const kVxlan1("Vxlan1");
inline Wire::IntfId const kVxlan2("Vxlan2");
inline Wire::EthAddr const kZeroMac;

class SimFixture : public ::testing::Test {
 protected:
  explicit SimFixture(Sim::PlatformConfig const& config = {}) : platform_(config) {}
  // A platform on which the test plays the remote MAC machine: it lists the
  // VTEPs and VLANs that hosts need by hand.
  static Sim::PlatformConfig playingRemoteMacs() {
    Sim::PlatformConfig config;
    config.remoteMacMachine = false;
    return config;
  }

  Sim::Platform& platform() { return platform_; }
  Fab::VXLAN::FabVxlanInfo& info() { return *platform_.vxlanInfo(); }
  Vxlan::BumStatus& bum() { return *platform_.bumStatus(); }
  Fab::VXLAN::VxlanCentralSm& central() { return *platform_.central(); }
  Fab::VXLAN::VtepSm& vtepSm() { return *platform_.vtepSm(); }
  Sim::SimFabHelperVtep& hook() { return *platform_.fabHelperVtep(); }
  Fab::FabTunnelConfig& tunnelConfig() { return *platform_.tunnelConfig(); }

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
  Fab::SwTunnelGroupId vtep(char const* address) const { return platform_.vtepId(Wire::IpAddr::fromString(address)); }
  // The remote MAC machine's part: a VTEP that hosts of the VTI need, or no longer.
  void remoteVtep(char const* address, bool needed = true, Wire::IntfId const& vti = kVxlan1) {
    platform_.remoteVtepIs(vti, Wire::IpAddr::fromString(address), needed);
    platform_.runUntilIdle();
  }
  // The reader's part: a next hop that its entries use, or no longer.
  void readerUses(std::uint32_t nextHop, bool uses = true) {
    Fab::VXLAN::VtepConfigDir& dir = *platform_.vtepConfigDir();
    if (uses) {
      dir.activeNextHopIdListIs(Fab::FabNextHopId(nextHop), true);
    } else {
      dir.activeNextHopIdListDel(Fab::FabNextHopId(nextHop));
    }
    platform_.runUntilIdle();
  }
  // What VtepStatus publishes for a VTEP; the empty record if nothing.
  Fab::VXLAN::HwVtepInfo published(char const* address, Wire::IntfId const& vti = kVxlan1) {
    Rxn::Ptr<Fab::VXLAN::VtepStatus> const status = platform_.vtepStatusDir()->vtepStatus(vti);
    return status ? status->hwVtepInfo(vtep(address)) : Fab::VXLAN::HwVtepInfo();
  }
  std::uint32_t publishedNextHop(char const* address) { return published(address).nextHopId().value(); }
  std::uint64_t generation(char const* address) {
    return vtepSm().currentGeneration(Fab::VrfAndIpAddr(Fab::VrfId(), Wire::IpAddr::fromString(address)));
  }

  // The harness of a hitless restart: the world is set up, checked, the agent
  // restarts and everything settles, and the same checks hold again.
  void verifyAcrossRestart(std::function<void()> const& setup, std::function<void()> const& verify) {
    setup();
    platform_.settle();
    {
      SCOPED_TRACE("before the restart");
      verify();
    }
    platform_.restartHitlessly();
    platform_.settle();
    SCOPED_TRACE("after the restart");
    verify();
  }

  // The whole-stack checks of the simulated platform hold now; settled, the
  // checks of a quiet platform too. Returns the failure, or "".
  std::string stackFailure(bool settled = true) {
    Sim::StackCheck check(platform_);
    try {
      check.afterStep();
      if (settled) {
        check.whenQuiet();
      }
    } catch (Sim::CheckFailure const& e) {
      return e.what();
    }
    return "";
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

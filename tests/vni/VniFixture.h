#pragma once
// The whole stack with VLANs to map: a fixture for the tests of VniSm.

#include <string>

#include "tests/SimFixture.h"

namespace FabTest {

class VniFixture : public SimFixture {
 protected:
  static Sim::PlatformConfig platformWith(double answerDelay, bool synchronous = false, std::size_t tableSize = 4094) {
    Sim::PlatformConfig config;
    // The test plays the remote MAC machine.
    config.remoteMacMachine = false;
    config.answerDelay = answerDelay;
    config.vniSynchronous = synchronous;
    config.vniTableSize = tableSize;
    return config;
  }
  explicit VniFixture(Sim::PlatformConfig const& config = platformWith(0.1)) : SimFixture(config) {}

  Fab::VXLAN::VniSm& vniSm() { return *platform().vniSm(); }
  FabHelper::FabHelperVniConfig& vniConfig() { return *platform().fabHelperVni()->config(); }
  FabHelper::FabHelperVniStatus& vniStatus() { return *platform().fabHelperVni()->status(); }

  void vlansActive(int first, int last, Bridging::VlanAdminState state = Bridging::VlanAdminState::active) {
    for (int vlan = first; vlan <= last; ++vlan) {
      platform().bridgingConfig()->vlanConfigIs(Bridging::VlanId(vlan))->adminStateIs(state);
    }
    platform().runUntilIdle();
  }
  // The VTI's wanted mapping of a VLAN; 0 for none.
  void maps(int vlan, std::uint32_t vni, Wire::IntfId const& vti = kVxlan1) {
    platform().vlanVniIs(vti, Bridging::VlanId(vlan), vni != 0 ? Vxlan::VniExtOrNone(vni) : Vxlan::VniExtOrNone());
  }
  void remoteMacsOn(int vlan, bool on = true) {
    platform().activeVxlanVlanIs(Bridging::VlanId(vlan), on);
    platform().runUntilIdle();
  }
  // What the shadow holds for a VLAN: its VNI, or 0.
  std::uint32_t shadowVni(int vlan, Wire::IntfId const& vti = kVxlan1) {
    Rxn::Ptr<Fab::VXLAN::VlanVniMapShadow> const shadow = platform().vniInfo()->vlanVniMapShadow(vti);
    Fab::VXLAN::VniEntry const entry = shadow ? shadow->vlanVniMap(Bridging::VlanId(vlan)) : Fab::VXLAN::VniEntry();
    return !entry ? 0 : entry.vni().value();
  }
  FabHelper::FabHelperVniConfigEntry configRow(int vlan) { return vniConfig().configEntry(Bridging::VlanId(vlan)); }
  FabHelper::FabHelperVniStatusEntry statusRow(int vlan) { return vniStatus().statusEntry(Bridging::VlanId(vlan)); }
  Fab::VXLAN::ModifyVlanVniMapEntry queued(int vlan) { return vniSm().updateList(Bridging::VlanId(vlan)); }
  Fab::VXLAN::ModifyVlanVniMapEntry waiting(int vlan) { return vniSm().pendingRemoveList(Bridging::VlanId(vlan)); }
  bool dirty(int vlan) { return vniSm().dirtyVlan(Bridging::VlanId(vlan)); }
  void holdVniAnswers(bool held) {
    platform().answersAre({platform().config().answerDelay, held}, Sim::Platform::Answerer::hook);
  }
};

// A chip whose table holds two mappings.
class SmallTableFixture : public VniFixture {
 protected:
  SmallTableFixture() : VniFixture(platformWith(0.1, false, 2)) {}
  // VLANs 10 and 11 fill the table; VLAN 12 comes after and is answered full.
  void tableFilledThenVlan12() {
    vlansActive(10, 12);
    maps(10, 10010);
    maps(11, 10011);
    vtiUp(kVxlan1);
    platform().settle();
    maps(12, 10012);
    platform().settle();
  }
  Vxlan::VxlanHwStatus const& hwStatus() { return *platform().vxlanHwStatusDir()->vxlanHwStatus(kVxlan1); }
};

}  // namespace FabTest

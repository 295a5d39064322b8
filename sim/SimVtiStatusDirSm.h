#pragma once
// The VTI side of the simulated platform: what the chip holds of each VXLAN
// tunnel interface, and the platform's VtiStatusDirSm that programs it and
// keeps the hook calls it got, for the show output.
//
// To wire it into the platform agent, keep a VtiHardware in the platform (so
// that it outlives an agent restart, as VtepHardware does), and when the
// machines are built:
//
//   vtiStatusDirSm_ = Fab::smFactory<Sim::SimVtiStatusDirSm>("Sim", vtiStatusDir_, vtiHardware_);
//   vtiStatusDirSm_->handleInitialized();
//
// handleInitialized() may come at once: the machine waits for nothing else.
// Dropping the pointer when the agent goes down cleans every VTI up; the
// machine of the next life programs them again.

#include <cstddef>
#include <deque>
#include <map>
#include <set>
#include <string>

#include "fabvxlan/vti/FabVtiStatusDirSm.h"

namespace Sim {

// What the chip holds of one VTI.
struct VtiProgram {
  Wire::UdpPort udpPort;
  bool vtepToVtepBridging = false;
  Wire::IpAddr srcAddr;
  Wire::Ip6Addr srcAddrV6;
  Wire::IpAddr mlagVtepAddr;
  std::set<Wire::IpAddr> mcastGrpDecap;
  Wire::IpAddr varpVtepAddr;
  Wire::IpAddr vtepAddrMask;
  Wire::EthAddr mlagSharedRouterMac;
  Interface::IntfOperStatus operStatus = Interface::IntfOperStatus::intfOperDown;
  bool ndMcastSnooping = false;
  bool vtepSourcePruningAll = false;
  std::set<Wire::IpAddr> prunedVteps;
};

// What the chip holds of the VTIs, and the latest hook calls that set it. It
// outlives an agent restart.
struct VtiHardware {
  static constexpr std::size_t kDefaultCallLimit = 256;

  // Keeps the line of one hook call; beyond the limit the oldest goes.
  void callIs(std::string line);

  // A VTI is here from its doInitialize to its doCleanup.
  std::map<Wire::IntfId, VtiProgram> vti;
  // Oldest first, one line per call: "doSetupVxlanSrcAddr Vxlan1 10.0.0.1".
  std::deque<std::string> calls;
  std::size_t callLimit = kDefaultCallLimit;
  // How many calls went beyond the limit, for the show to say so.
  std::size_t droppedCalls = 0;
};

class SimVtiStatusDirSm : public Fab::VXLAN::VtiStatusDirSm {
 public:
  SimVtiStatusDirSm(Rxn::String name, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, VtiHardware& hardware);

  void doSetupVxlanDestUdpPort(Wire::IntfId vtiIntfId, Wire::UdpPort udpPort) override;
  void doSetupVtepToVtepBridging(Wire::IntfId vtiIntfId, bool vtepToVtepBridging) override;
  void doSetupVxlanSrcAddr(Wire::IntfId vtiIntfId, Wire::IpAddr srcAddr) override;
  void doSetupVxlanSrcAddrV6(Wire::IntfId vtiIntfId, Wire::Ip6Addr const& srcAddr) override;
  void doSetupMlagVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr mlagVtepIp) override;
  void doSetupMcastGrpDecap(Wire::IntfId vtiIntfId, Wire::IpAddr mcastGrp) override;
  void doSetupVxlanVarpVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr varpVtepAddr) override;
  void doSetupVxlanVtepAddrMask(Wire::IntfId vtiIntfId, Wire::IpAddr vtepAddrMask) override;
  void doSetupVxlanMlagSharedRouterMac(Wire::IntfId vtiIntfId, Wire::EthAddr const& macAddr) override;
  void doUpdateOperStatus(Wire::IntfId vtiIntfId, Interface::IntfOperStatus operStatus) override;
  void doSetupVxlanNdMcastSnooping(Wire::IntfId vtiIntfId, bool enable) override;
  void doSetupVtepForSourcePruning(Wire::IntfId vtiIntfId, Wire::IpAddr vtep, bool add) override;
  void doSetupVtepSourcePruningAll(Wire::IntfId vtiIntfId, bool vtepSourcePruningAll) override;
  void doCleanup(Wire::IntfId vtiIntfId) override;
  void doInitialize(Wire::IntfId vtiIntfId) override;

  VtiHardware& hardware() const { return hardware_; }

 private:
  // Keeps the call's line and returns the VTI's program to change.
  template <class... Args>
  VtiProgram& record(char const* hook, Wire::IntfId const& vti, Args const&... args);
  // Whether the VTI, as the directory has it now, decapsulates the group.
  bool decapsulates(Wire::IntfId const& vti, Wire::IpAddr const& mcastGrp) const;

  VtiHardware& hardware_;
};

}  // namespace Sim

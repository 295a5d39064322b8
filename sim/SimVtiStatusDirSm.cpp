#include "sim/SimVtiStatusDirSm.h"

#include <ios>
#include <sstream>
#include <utility>

namespace Sim {

void VtiHardware::callIs(std::string line) {
  calls.push_back(std::move(line));
  while (calls.size() > callLimit) {
    calls.pop_front();
    ++droppedCalls;
  }
}

SimVtiStatusDirSm::SimVtiStatusDirSm(Rxn::String name, Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                                     VtiHardware& hardware)
    : VtiStatusDirSm(std::move(name), vtiStatusDir), hardware_(hardware) {}

template <class... Args>
VtiProgram& SimVtiStatusDirSm::record(char const* hook, Wire::IntfId const& vti, Args const&... args) {
  std::ostringstream line;
  line << std::boolalpha << hook << ' ' << vti;
  ((line << ' ' << args), ...);
  hardware_.callIs(line.str());
  return hardware_.vti[vti];
}

bool SimVtiStatusDirSm::decapsulates(Wire::IntfId const& vti, Wire::IpAddr const& mcastGrp) const {
  Rxn::Ptr<Vxlan::VtiStatusDir const> const dir = vtiStatusDir();
  Rxn::Ptr<Vxlan::VtiStatus> const status = dir ? dir->vtiStatus(vti) : nullptr;
  return status && status->mcastGrpDecap(mcastGrp);
}

void SimVtiStatusDirSm::doSetupVxlanDestUdpPort(Wire::IntfId vtiIntfId, Wire::UdpPort udpPort) {
  record("doSetupVxlanDestUdpPort", vtiIntfId, udpPort).udpPort = udpPort;
}

void SimVtiStatusDirSm::doSetupVtepToVtepBridging(Wire::IntfId vtiIntfId, bool vtepToVtepBridging) {
  record("doSetupVtepToVtepBridging", vtiIntfId, vtepToVtepBridging).vtepToVtepBridging = vtepToVtepBridging;
}

void SimVtiStatusDirSm::doSetupVxlanSrcAddr(Wire::IntfId vtiIntfId, Wire::IpAddr srcAddr) {
  record("doSetupVxlanSrcAddr", vtiIntfId, srcAddr).srcAddr = srcAddr;
}

void SimVtiStatusDirSm::doSetupVxlanSrcAddrV6(Wire::IntfId vtiIntfId, Wire::Ip6Addr const& srcAddr) {
  record("doSetupVxlanSrcAddrV6", vtiIntfId, srcAddr).srcAddrV6 = srcAddr;
}

void SimVtiStatusDirSm::doSetupMlagVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr mlagVtepIp) {
  record("doSetupMlagVtepAddr", vtiIntfId, mlagVtepIp).mlagVtepAddr = mlagVtepIp;
}

// One call for a group added or removed: the directory tells which.
void SimVtiStatusDirSm::doSetupMcastGrpDecap(Wire::IntfId vtiIntfId, Wire::IpAddr mcastGrp) {
  std::set<Wire::IpAddr>& groups = record("doSetupMcastGrpDecap", vtiIntfId, mcastGrp).mcastGrpDecap;
  if (decapsulates(vtiIntfId, mcastGrp)) {
    groups.insert(mcastGrp);
  } else {
    groups.erase(mcastGrp);
  }
}

void SimVtiStatusDirSm::doSetupVxlanVarpVtepAddr(Wire::IntfId vtiIntfId, Wire::IpAddr varpVtepAddr) {
  record("doSetupVxlanVarpVtepAddr", vtiIntfId, varpVtepAddr).varpVtepAddr = varpVtepAddr;
}

void SimVtiStatusDirSm::doSetupVxlanVtepAddrMask(Wire::IntfId vtiIntfId, Wire::IpAddr vtepAddrMask) {
  record("doSetupVxlanVtepAddrMask", vtiIntfId, vtepAddrMask).vtepAddrMask = vtepAddrMask;
}

void SimVtiStatusDirSm::doSetupVxlanMlagSharedRouterMac(Wire::IntfId vtiIntfId, Wire::EthAddr const& macAddr) {
  record("doSetupVxlanMlagSharedRouterMac", vtiIntfId, macAddr).mlagSharedRouterMac = macAddr;
}

void SimVtiStatusDirSm::doUpdateOperStatus(Wire::IntfId vtiIntfId, Interface::IntfOperStatus operStatus) {
  record("doUpdateOperStatus", vtiIntfId, operStatus).operStatus = operStatus;
}

void SimVtiStatusDirSm::doSetupVxlanNdMcastSnooping(Wire::IntfId vtiIntfId, bool enable) {
  record("doSetupVxlanNdMcastSnooping", vtiIntfId, enable).ndMcastSnooping = enable;
}

void SimVtiStatusDirSm::doSetupVtepForSourcePruning(Wire::IntfId vtiIntfId, Wire::IpAddr vtep, bool add) {
  std::set<Wire::IpAddr>& pruned = record("doSetupVtepForSourcePruning", vtiIntfId, vtep, add).prunedVteps;
  if (add) {
    pruned.insert(vtep);
  } else {
    pruned.erase(vtep);
  }
}

void SimVtiStatusDirSm::doSetupVtepSourcePruningAll(Wire::IntfId vtiIntfId, bool vtepSourcePruningAll) {
  record("doSetupVtepSourcePruningAll", vtiIntfId, vtepSourcePruningAll).vtepSourcePruningAll = vtepSourcePruningAll;
}

void SimVtiStatusDirSm::doCleanup(Wire::IntfId vtiIntfId) {
  record("doCleanup", vtiIntfId);
  hardware_.vti.erase(vtiIntfId);
}

// The VTI is programmed afresh: whatever the chip held of it goes.
void SimVtiStatusDirSm::doInitialize(Wire::IntfId vtiIntfId) {
  record("doInitialize", vtiIntfId) = VtiProgram();
}

}  // namespace Sim

#pragma once
// Fab::VXLAN::VtepEventSm: reads the learn frames of the data path on a raw
// packet socket (protocol 0x1034), checks each, and publishes the remote VTEP,
// VNI and MAC of a good one in VtepEvent. Exists while a VTI is up.

#include <functional>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "fabvxlan/state/FabVtep.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/RemoteMac.h"
#include "fabvxlan/state/imported/Vxlan.h"
#include "fabvxlan/vtep/FabHelperVtep.h"
#include "fabvxlan/vtep/LearnFrame.h"

namespace Fab::VXLAN {

// Opens the socket on which learn frames arrive: by default the raw packet
// socket of protocol 0x1034. A platform that brings the frames to the CPU by
// another path, or a simulator without the privilege of raw sockets,
// installs its own; it returns a descriptor that the machine then owns, or a
// negative value with errno set. An empty opener restores the default.
using LearnSocketOpener = std::function<int()>;
void learnSocketOpenerIs(LearnSocketOpener opener);

class VtepEventSm : public Fab::FabBaseSm {
 public:
  static constexpr int uninitSocket = -1;

  class RxnFileDescriptor : public Rxn::Reactor<VtepEventSm, Rxn::FileDescriptor const> {
   public:
    using Reactor::Reactor;
    void onReadableCount() override {
      if (rxnMarkedForDeletion()) return;
      owner()->handleFileDescriptor();
    }
  };

  VtepEventSm(Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepEvent> const& vtepEvent,
              Rxn::Ptr<FabVxlanInfo const> const& vxlanInfo, Rxn::Ptr<Fab::FabCommonSmData> const& acsd,
              Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
              Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir);
  ~VtepEventSm() override;
  char const* fwkType() const override { return "Fab::VXLAN::VtepEventSm"; }

  void handleInitialized() override;
  void handleSocket();
  void handleFileDescriptor();
  std::uint32_t getNrRemoteVteps() const;
  void doCleanup();

  int vtepSock() const { return vtepSock_; }
  void vtepSockIs(int socket);
  double maxProcessTime() const { return maxProcessTime_; }
  Rxn::Ptr<VtepEvent> const& vtepEvent() const { return vtepEvent_; }

 private:
  // Reads and checks frames until the socket is empty or, after a published
  // event, the time of the run is up.
  void readFrames(LearnBuffer& buffer);
  bool remoteVtepLimitReached() const;
  LearnContext learnContext() const;
  void publish(LearnFrame const& frame);

  Rxn::Ptr<Vxlan::VtiStatusDir const> vtiStatusDir_;
  Rxn::Ptr<VtepEvent> vtepEvent_;
  Rxn::Ptr<FabVxlanInfo const> vxlanInfo_;
  Rxn::Ptr<FabHelper::FabHelperVtep> fabVtepHelper_;
  Rxn::Ptr<VtepConfigDir const> vtepConfigDir_;
  int vtepSock_ = uninitSocket;
  double maxProcessTime_ = 0.01;
  Rxn::Ptr<Rxn::FileDescriptor> fileDescriptor_;
  Rxn::Ptr<RxnFileDescriptor> rxnFileDescriptor_;
};

Rxn::Ptr<VtepEventSm> vtepEventSmFactory(Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                                         Rxn::Ptr<VtepEvent> const& vtepEvent,
                                         Rxn::Ptr<FabVxlanInfo const> const& vxlanInfo,
                                         Rxn::Ptr<Fab::FabCommonSmData> const& acsd,
                                         Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
                                         Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir);

}  // namespace Fab::VXLAN

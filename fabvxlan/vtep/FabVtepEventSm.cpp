#include "fabvxlan/vtep/FabVtepEventSm.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/RingLog.h"
#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanVtepEventSm");

namespace Fab::VXLAN {

namespace {
// Learn events belong to this VTI alone.
Wire::IntfId const kLearnVti("Vxlan1");

LearnSocketOpener& learnSocketOpener() {
  static LearnSocketOpener opener;
  return opener;
}

int openLearnSocket() {
  if (LearnSocketOpener const& opener = learnSocketOpener()) {
    return opener();
  }
  return ::socket(AF_PACKET, SOCK_RAW, htons(kLearnTagProtocol));
}
}  // namespace

void learnSocketOpenerIs(LearnSocketOpener opener) {
  learnSocketOpener() = std::move(opener);
}

VtepEventSm::VtepEventSm(Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir, Rxn::Ptr<VtepEvent> const& vtepEvent,
                         Rxn::Ptr<FabVxlanInfo const> const& vxlanInfo, Rxn::Ptr<Fab::FabCommonSmData> const& acsd,
                         Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
                         Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir)
    : FabBaseSm(acsd),
      vtiStatusDir_(vtiStatusDir),
      vtepEvent_(vtepEvent),
      vxlanInfo_(vxlanInfo),
      fabVtepHelper_(fabVtepHelper),
      vtepConfigDir_(vtepConfigDir) {
  handleInitialized();
}

VtepEventSm::~VtepEventSm() {
  doCleanup();
}

Rxn::Ptr<VtepEventSm> vtepEventSmFactory(Rxn::Ptr<Vxlan::VtiStatusDir const> const& vtiStatusDir,
                                         Rxn::Ptr<VtepEvent> const& vtepEvent,
                                         Rxn::Ptr<FabVxlanInfo const> const& vxlanInfo,
                                         Rxn::Ptr<Fab::FabCommonSmData> const& acsd,
                                         Rxn::Ptr<FabHelper::FabHelperVtep> const& fabVtepHelper,
                                         Rxn::Ptr<VtepConfigDir const> const& vtepConfigDir) {
  return Fab::smFactory<VtepEventSm>(vtiStatusDir, vtepEvent, vxlanInfo, acsd, fabVtepHelper, vtepConfigDir);
}

void VtepEventSm::handleInitialized() {
  initializedIs(true);
  int const socket = openLearnSocket();
  if (socket < 0) {
    throw Rxn::ErrnoException(errno, "creating VTEP_LEARN socket");
  }
  RXN_TRACE(7, " vtep socket: " << socket);
  vtepSockIs(socket);
}

void VtepEventSm::vtepSockIs(int socket) {
  if (socket == vtepSock_) {
    return;
  }
  vtepSock_ = socket;
  handleSocket();
}

void VtepEventSm::handleSocket() {
  if (vtepSock_ < 0) {
    return;
  }
  Rxn::Ptr<Rxn::FileDescriptor> fd(new Rxn::FileDescriptor("VxlanVtepLearn"));
  if (fileDescriptor_) {
    RXN_TRACE(7, " closing fd " << fileDescriptor_->descriptor());
    fileDescriptor_->descriptorIs(-1);
  }
  fd->descriptorIs(vtepSock_);
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  fileDescriptor_ = fd;
  rxnFileDescriptor_ = new RxnFileDescriptor(fd, this);
  rxnFileDescriptor_->hasNotificationActiveIs(true);
}

void VtepEventSm::doCleanup() {
  if (fileDescriptor_) {
    RXN_TRACE(7, " closing fd " << fileDescriptor_->descriptor());
    rxnFileDescriptor_ = nullptr;
    fileDescriptor_->descriptorIs(-1);
    fileDescriptor_ = nullptr;
  }
  vtepSock_ = uninitSocket;
}

std::uint32_t VtepEventSm::getNrRemoteVteps() const {
  std::size_t count = 0;
  for (auto const& [vti, config] : vtepConfigDir_->vtepConfig()) {
    count += config->remoteVtepLists();
  }
  RXN_TRACE(8, " current remote vtep count " << count);
  return static_cast<std::uint32_t>(count);
}

void VtepEventSm::handleFileDescriptor() {
  if (!initialized() || vtepSock_ == uninitSocket) {
    return;
  }
  // One buffer for the whole run: a short frame is checked against what the
  // frame before it left.
  LearnBuffer buffer{};
  readFrames(buffer);
}

void VtepEventSm::readFrames(LearnBuffer& buffer) {
  double const deadline = Rxn::System::currentTime() + maxProcessTime_;
  for (;;) {
    ssize_t const n = ::read(vtepSock_, buffer.data(), buffer.size());
    if (n < 0) {
      // Kept before the trace, which may make calls of its own.
      int const error = errno;
      if (error != EAGAIN) {
        RXN_TRACE(1, " Error: read " << error << " " << std::strerror(error));
        RXN_RING(1, " Error: read %d %s", error, std::strerror(error));
      }
      return;
    }
    RXN_TRACE(8, " read " << n << " bytes ");
    if (!vxlanInfo_->datapathLearning()) {
      RXN_TRACE(6, " ignore learn events in controller client mode");
      continue;
    }
    if (remoteVtepLimitReached()) {
      RXN_TRACE(1, " max remote vtep limit reached,"
                       << " ignoring learn event ");
      continue;
    }
    LearnFrame const frame = checkLearnFrame(buffer, static_cast<std::size_t>(n), learnContext());
    if (!frame.accepted) {
      RXN_TRACE(1, frame.rejection);
      RXN_RING(1, "%s", frame.rejection);
      continue;
    }
    publish(frame);
    if (Rxn::System::currentTime() > deadline) {
      return;
    }
  }
}

// The count may run ten per cent over the platform's maximum.
bool VtepEventSm::remoteVtepLimitReached() const {
  std::uint32_t const maximum = fabVtepHelper_->getMaxRemoteVteps();
  std::uint32_t const limit = maximum + maximum / 10;
  return limit <= getNrRemoteVteps();
}

LearnContext VtepEventSm::learnContext() const {
  LearnContext context;
  context.virtualMac = acsd()->virtualMacWithMask().addr();
  if (Rxn::Ptr<Vxlan::VtiStatus> const vti = vtiStatusDir_->vtiStatus(kLearnVti)) {
    context.vtiConfigured = true;
    context.localVtepAddr = vti->localVtepAddr();
    context.vArpVtepAddr = vti->vArpVtepAddr();
  }
  return context;
}

void VtepEventSm::publish(LearnFrame const& frame) {
  vtepEvent_->vtiIntfIdIs(kLearnVti);
  vtepEvent_->macAddrIs(frame.macAddr);
  vtepEvent_->vniIs(frame.vni);
  vtepEvent_->remoteVtepAddrIs(frame.remoteVtepAddr);
  std::uint64_t const genId = vtepEvent_->genIdInc(1);
  RXN_TRACE(7, " Learned vtep " << frame.remoteVtepAddr << ", mac addr " << frame.macAddr << ", vni " << frame.vni
                                << ", vti " << kLearnVti << ", genId " << genId);
  RXN_RING(7, " Learned vtep %s, mac addr %s, vni %u, vti %s, genId %lu", RingLog::Ip4{frame.remoteVtepAddr.value()},
           RingLog::Mac{frame.macAddr.bytes()}, frame.vni.value(), kLearnVti.stringValue(), genId);
}

}  // namespace Fab::VXLAN

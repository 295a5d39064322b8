// Learn frames: the checks of one frame with their rejection texts, and
// VtepEventSm on its real raw packet socket, fed by a veth pair in a network
// namespace of the test's own, as the data path would feed it.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "fabvxlan/state/FabCommonSmData.h"
#include "fabvxlan/state/FabVtep.h"
#include "fabvxlan/state/FabVxlanInfo.h"
#include "fabvxlan/state/RemoteMac.h"
#include "fabvxlan/vtep/FabVtepEventSm.h"
#include "fabvxlan/vtep/LearnFrame.h"
#include "sim/LearnFrames.h"

namespace FabTest {
namespace {

using Fab::VXLAN::checkLearnFrame;
using Fab::VXLAN::LearnBuffer;
using Fab::VXLAN::LearnContext;
using Fab::VXLAN::LearnFrame;
using Sim::LearnFrameSpec;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

Wire::IpAddr ip(char const* text) {
  return Wire::IpAddr::fromString(text);
}
Wire::EthAddr mac(char const* text) {
  return Wire::EthAddr::fromString(text);
}

Wire::IntfId const kVxlan1("Vxlan1");
Wire::IpAddr const kLocalVtep = ip("10.0.0.1");
Wire::IpAddr const kVarpVtep = ip("10.0.0.254");
Wire::EthAddr const kVirtualMac = mac("001c.7300.0099");

// What a reader of VtepEvent takes at a change of genId.
struct Learned {
  Wire::IntfId vti;
  Wire::IpAddr remoteVtep;
  std::uint32_t vni = 0;
  Wire::EthAddr mac;
  bool operator==(Learned const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Learned const& learned) {
  return out << "{" << learned.vti.stringValue() << " vtep " << learned.remoteVtep.stringValue() << " vni "
             << learned.vni << " mac " << learned.mac.stringValue() << "}";
}

Learned learnedFrom(LearnFrameSpec const& spec) {
  return {kVxlan1, spec.remoteVtep, spec.vni, spec.innerSrcMac};
}

LearnFrameSpec frameFrom(char const* remoteVtep, std::uint32_t vni, char const* innerSrcMac) {
  LearnFrameSpec spec;
  spec.remoteVtep = ip(remoteVtep);
  spec.vni = vni;
  spec.innerSrcMac = mac(innerSrcMac);
  return spec;
}

// ---------------------------------------------------------------------------
// The checks of one frame.

LearnContext agentContext() {
  LearnContext context;
  context.virtualMac = kVirtualMac;
  context.vtiConfigured = true;
  context.localVtepAddr = kLocalVtep;
  context.vArpVtepAddr = kVarpVtep;
  return context;
}

LearnFrame check(std::vector<std::uint8_t> const& frame, LearnContext const& context = agentContext()) {
  LearnBuffer buffer{};
  std::copy(frame.begin(), frame.end(), buffer.begin());
  return checkLearnFrame(buffer, frame.size(), context);
}

TEST(LearnFrameChecks, EachFaultIsNamedByTheFirstCheckItFails) {
  auto spoiled = [](auto&& spoil) {
    LearnFrameSpec spec;
    spoil(spec);
    return Sim::buildLearnFrame(spec);
  };
  LearnContext noVti = agentContext();
  noVti.vtiConfigured = false;
  struct Case {
    char const* what;
    std::vector<std::uint8_t> frame;
    LearnContext context;
    char const* rejection;
  };
  std::vector<Case> const cases = {
      {"an ordinary VLAN tag", spoiled([](auto& s) { s.tagProtocol = 0x8100; }), agentContext(),
       " Error: bad vlan proto type 33024 != 4148"},
      {"IPv6 inside", spoiled([](auto& s) { s.ethertype = 0x86dd; }), agentContext(),
       " Error: bad eth type 34525 != 2048"},
      {"TCP", spoiled([](auto& s) { s.ipProtocol = 6; }), agentContext(), " Error: bad IP proto 6 != 17"},
      {"IP length H + 29", spoiled([](auto& s) { s.ipTotalLength = 49; }), agentContext(),
       " Error: bad IP len 49 IP header len 20"},
      {"IP length H + 29 with options", spoiled([](auto& s) {
         s.ipHeaderBytes = 24;
         s.ipTotalLength = 53;
       }),
       agentContext(), " Error: bad IP len 53 IP header len 24"},
      {"H + 47 bytes", spoiled([](auto& s) { s.length = 67; }), agentContext(), " Error: short message len 67"},
      {"H + 47 bytes with options", spoiled([](auto& s) {
         s.ipHeaderBytes = 24;
         s.length = 71;
       }),
       agentContext(), " Error: short message len 71"},
      {"zero source", spoiled([](auto& s) { s.remoteVtep = ip("0.0.0.0"); }), agentContext(),
       " Error: bad remote vtep address 0.0.0.0"},
      {"lowest multicast source", spoiled([](auto& s) { s.remoteVtep = ip("224.0.0.0"); }), agentContext(),
       " Error: remote vtep address is mcast 224.0.0.0"},
      {"highest multicast source", spoiled([](auto& s) { s.remoteVtep = ip("239.255.255.255"); }), agentContext(),
       " Error: remote vtep address is mcast 239.255.255.255"},
      {"multicast inner MAC", spoiled([](auto& s) { s.innerSrcMac = mac("0100.5e01.0203"); }), agentContext(),
       " Error: non-unicast mac addr 0100.5e01.0203"},
      {"the virtual MAC", spoiled([](auto& s) { s.innerSrcMac = kVirtualMac; }), agentContext(),
       "Not learning virtual mac addr 001c.7300.0099"},
      {"no Vxlan1", spoiled([](auto&) {}), noVti, " Error: VTI not configured Vxlan1"},
      {"the local VTEP", spoiled([](auto& s) { s.remoteVtep = kLocalVtep; }), agentContext(),
       " Error: remote vtep address matches local addr 10.0.0.1"},
      {"the virtual-ARP VTEP", spoiled([](auto& s) { s.remoteVtep = kVarpVtep; }), agentContext(),
       " Error: remote vtep address matches VarpVtep addr 10.0.0.254"},
      // Two faults at once: the earlier check speaks.
      {"IPv6 inside, and TCP", spoiled([](auto& s) {
         s.ethertype = 0x86dd;
         s.ipProtocol = 6;
       }),
       agentContext(), " Error: bad eth type 34525 != 2048"},
      {"short, from a zero source", spoiled([](auto& s) {
         s.length = 60;
         s.remoteVtep = ip("0.0.0.0");
       }),
       agentContext(), " Error: short message len 60"},
      {"multicast source, broadcast MAC", spoiled([](auto& s) {
         s.remoteVtep = ip("239.1.1.1");
         s.innerSrcMac = mac("ffff.ffff.ffff");
       }),
       agentContext(), " Error: remote vtep address is mcast 239.1.1.1"},
      {"the virtual MAC, no Vxlan1", spoiled([](auto& s) { s.innerSrcMac = kVirtualMac; }), noVti,
       "Not learning virtual mac addr 001c.7300.0099"},
      {"the local VTEP, no Vxlan1", spoiled([](auto& s) { s.remoteVtep = kLocalVtep; }), noVti,
       " Error: VTI not configured Vxlan1"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    LearnFrame const frame = check(c.frame, c.context);
    EXPECT_FALSE(frame.accepted);
    EXPECT_EQ(frame.rejection, c.rejection);
  }
}

TEST(LearnFrameChecks, FieldsAreReadBehindAnIpHeaderOfAnyLength) {
  // H + 48 bytes is the least a good frame is: the inner ethertype must have
  // arrived, though nothing reads it.
  for (std::size_t h : {20U, 24U, 60U}) {
    SCOPED_TRACE("IP header of " + std::to_string(h) + " bytes");
    LearnFrameSpec spec = frameFrom("192.0.2.7", 0xabcdef, "0200.0000.0001");
    spec.ipHeaderBytes = h;
    std::vector<std::uint8_t> frame = Sim::buildLearnFrame(spec);
    ASSERT_EQ(frame.size(), h + 48);
    // The VXLAN reserved byte shares the VNI's word and is shifted away.
    frame[18 + h + 15] = 0xa5;
    LearnFrame const learned = check(frame);
    EXPECT_TRUE(learned.accepted);
    EXPECT_EQ(learned.rejection, "");
    EXPECT_EQ(learned.remoteVtepAddr, spec.remoteVtep);
    EXPECT_EQ(learned.vni.value(), 0xabcdefU);
    EXPECT_EQ(learned.macAddr, spec.innerSrcMac);
  }

  // VNI 0 is a VNI; an all-zero inner MAC is unicast, and with no virtual MAC
  // there is none to refuse.
  LearnContext noVirtualMac = agentContext();
  noVirtualMac.virtualMac = Wire::EthAddr();
  LearnFrame const zeros = check(Sim::buildLearnFrame(frameFrom("10.0.0.9", 0, "0000.0000.0000")), noVirtualMac);
  EXPECT_TRUE(zeros.accepted) << zeros.rejection;
  EXPECT_EQ(zeros.vni.value(), 0U);
  EXPECT_EQ(zeros.macAddr, Wire::EthAddr());
}

TEST(LearnFrameChecks, AShortFrameIsCheckedAgainstWhatTheFrameBeforeItLeftInTheBuffer) {
  std::vector<std::uint8_t> const earlier = Sim::buildLearnFrame(LearnFrameSpec());
  // The next read brings only the outer Ethernet header and the tag.
  std::vector<std::uint8_t> const stub(earlier.begin(), earlier.begin() + 16);

  LearnBuffer buffer{};
  std::copy(earlier.begin(), earlier.end(), buffer.begin());
  ASSERT_TRUE(checkLearnFrame(buffer, earlier.size(), agentContext()).accepted);
  std::copy(stub.begin(), stub.end(), buffer.begin());
  // The ethertype and the IP header the checks read are the earlier frame's,
  // so only the length gives the stub away.
  EXPECT_EQ(checkLearnFrame(buffer, stub.size(), agentContext()).rejection, " Error: short message len 16");
  // Alone in a clear buffer, the same stub fails at its missing ethertype.
  EXPECT_EQ(check(stub).rejection, " Error: bad eth type 0 != 2048");
}

// ---------------------------------------------------------------------------
// VtepEventSm on a veth pair.

std::string errnoText(char const* what, int error) {
  return std::string(what) + ": " + std::strerror(error);
}

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// A route-netlink request of RTM_NEWLINK, attribute by attribute.
class LinkRequest {
 public:
  LinkRequest() {
    append(nlmsghdr{}, NLMSG_HDRLEN);
    ifinfomsg info{};
    info.ifi_family = AF_UNSPEC;
    append(info, NLMSG_ALIGN(sizeof info));
  }
  void put(std::uint16_t type, std::string const& text) { putBytes(type, text.c_str(), text.size() + 1); }
  std::size_t open(std::uint16_t type) {
    std::size_t const at = bytes_.size();
    putBytes(type, nullptr, 0);
    return at;
  }
  void close(std::size_t at) {
    rtattr* const attr = reinterpret_cast<rtattr*>(bytes_.data() + at);
    attr->rta_len = static_cast<std::uint16_t>(bytes_.size() - at);
  }
  void putPeerInfo() {
    ifinfomsg info{};
    info.ifi_family = AF_UNSPEC;
    append(info, NLMSG_ALIGN(sizeof info));
  }
  std::vector<std::uint8_t>& finish() {
    nlmsghdr* const header = reinterpret_cast<nlmsghdr*>(bytes_.data());
    header->nlmsg_len = static_cast<std::uint32_t>(bytes_.size());
    header->nlmsg_type = RTM_NEWLINK;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK;
    header->nlmsg_seq = 1;
    return bytes_;
  }

 private:
  template <class T>
  void append(T const& value, std::size_t alignedSize) {
    std::size_t const at = bytes_.size();
    bytes_.resize(at + alignedSize, 0);
    std::memcpy(bytes_.data() + at, &value, sizeof value);
  }
  void putBytes(std::uint16_t type, void const* data, std::size_t size) {
    std::size_t const at = bytes_.size();
    bytes_.resize(at + RTA_ALIGN(RTA_LENGTH(size)), 0);
    rtattr* const attr = reinterpret_cast<rtattr*>(bytes_.data() + at);
    attr->rta_type = type;
    attr->rta_len = static_cast<std::uint16_t>(RTA_LENGTH(size));
    if (size > 0) std::memcpy(RTA_DATA(attr), data, size);
  }
  std::vector<std::uint8_t> bytes_;
};

// Adds the veth pair `name`/`peer`; returns 0 or the kernel's errno.
int addVethPair(std::string const& name, std::string const& peer) {
  Descriptor const netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (netlink.get() < 0) return errno;
  LinkRequest request;
  request.put(IFLA_IFNAME, name);
  std::size_t const linkInfo = request.open(IFLA_LINKINFO);
  request.put(IFLA_INFO_KIND, "veth");
  std::size_t const infoData = request.open(IFLA_INFO_DATA);
  std::size_t const peerInfo = request.open(VETH_INFO_PEER);
  request.putPeerInfo();
  request.put(IFLA_IFNAME, peer);
  request.close(peerInfo);
  request.close(infoData);
  request.close(linkInfo);
  std::vector<std::uint8_t> const& message = request.finish();
  if (::send(netlink.get(), message.data(), message.size(), 0) < 0) return errno;
  alignas(nlmsghdr) std::uint8_t answer[4096];
  ssize_t const n = ::recv(netlink.get(), answer, sizeof answer, 0);
  if (n < 0) return errno;
  nlmsghdr const* const header = reinterpret_cast<nlmsghdr const*>(answer);
  if (n < static_cast<ssize_t>(NLMSG_LENGTH(sizeof(nlmsgerr))) || header->nlmsg_type != NLMSG_ERROR) return EPROTO;
  return -static_cast<nlmsgerr const*>(NLMSG_DATA(header))->error;
}

int bringUp(std::string const& name) {
  Descriptor const control(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (control.get() < 0) return errno;
  ifreq request{};
  std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
  if (::ioctl(control.get(), SIOCGIFFLAGS, &request) < 0) return errno;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  if (::ioctl(control.get(), SIOCSIFFLAGS, &request) < 0) return errno;
  return 0;
}

char const kWireEnd[] = "learn0";  // where the data path sends
char const kCpuEnd[] = "learn1";   // where the frames come in

int packetSocket(std::uint16_t protocol, char const* boundTo) {
  int const fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(protocol));
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "packet socket");
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(protocol);
  address.sll_ifindex = static_cast<int>(::if_nametoindex(boundTo));
  if (address.sll_ifindex == 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    int const error = errno;
    ::close(fd);
    throw std::system_error(error, std::generic_category(), std::string("binding a packet socket to ") + boundTo);
  }
  return fd;
}

// A link that was just brought up drops what is sent on it until the
// kernel's link watch has seen its carrier and given it its queue, a moment
// later and on another thread. Frames of a protocol of their own (the local
// experimental ethertype) go out until one comes through.
void awaitCarrier() {
  constexpr std::uint16_t kWarmUpEthertype = 0x88b5;
  Descriptor const sender(packetSocket(0, kWireEnd));
  Descriptor const receiver(packetSocket(kWarmUpEthertype, kCpuEnd));
  std::vector<std::uint8_t> frame(60, 0);
  std::fill_n(frame.begin(), 6, 0xff);
  std::fill_n(frame.begin() + 6, 6, 0x02);
  frame[12] = kWarmUpEthertype >> 8;
  frame[13] = kWarmUpEthertype & 0xff;
  for (int attempt = 0; attempt < 500; ++attempt) {
    if (::send(sender.get(), frame.data(), frame.size(), 0) < 0) {
      throw std::system_error(errno, std::generic_category(), std::string("sending on ") + kWireEnd);
    }
    pollfd ready{receiver.get(), POLLIN, 0};
    if (::poll(&ready, 1, 10) == 1) return;
  }
  throw std::runtime_error(std::string("nothing sent on ") + kWireEnd + " comes in on " + kCpuEnd);
}

// Runs `body` in a network namespace of its own holding the veth pair
// kWireEnd/kCpuEnd, both up. Returns why no such namespace could be made, or
// "" once the body has run.
//
// unshare(CLONE_NEWNET) moves only the calling thread, so the body runs on a
// thread of its own: the test runner's thread never leaves the namespace it
// started in (no setns() back that a failed assertion could skip, nothing
// leaks into later tests of the same process), the activity loop is the
// thread's own anyway, and the namespace with its veth pair goes away with the
// thread and its last socket.
std::string inOwnNetworkNamespace(std::function<void()> const& body) {
  std::string why;
  std::thread thread([&] {
    if (::unshare(CLONE_NEWNET) != 0) {
      why = errnoText("unshare(CLONE_NEWNET)", errno);
      return;
    }
    if (int const error = addVethPair(kWireEnd, kCpuEnd)) {
      why = errnoText("creating a veth pair with RTM_NEWLINK", error);
      return;
    }
    for (char const* end : {kWireEnd, kCpuEnd}) {
      if (int const error = bringUp(end)) {
        why = errnoText((std::string("bringing up ") + end).c_str(), error);
        return;
      }
    }
    if (Descriptor const raw(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)); raw.get() < 0) {
      why = errnoText("opening a packet socket", errno);
      return;
    }
    try {
      awaitCarrier();
      body();
    } catch (std::exception const& e) {
      ADD_FAILURE() << "exception: " << e.what();
    }
  });
  thread.join();
  return why;
}

// The platform hook, as far as learning asks it.
class LimitHook : public FabHelper::FabHelperVtep {
 public:
  LimitHook() : FabHelperVtep("fabHelperVtep") {}
  std::uint32_t getMaxRemoteVteps() override { return maxRemoteVteps; }
  std::uint32_t maxRemoteVteps = 100;
};

// A reader of VtepEvent outside the library: takes the four values at each
// change of genId.
class EventReader : public Fab::VXLAN::VtepEvent::NotifieeConst {
 public:
  explicit EventReader(Rxn::Ptr<Fab::VXLAN::VtepEvent const> const& event) {
    notifierIs(event);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onGenId() override {
    auto const event = notifier();
    seen.push_back({event->vtiIntfId(), event->remoteVtepAddr(), event->vni().value(), event->macAddr()});
  }
  std::vector<Learned> seen;
};

// The agent's side: the entities VtepEventSm reads and writes, the machine on
// its default socket, and the two ends of the wire. Made inside the namespace.
class LearnBench {
 public:
  LearnBench()
      : sender_(packetSocket(0, kWireEnd)),
        // The kernel hands a frame to the unbound sockets of its protocol
        // before the ones bound to the interface it came in on (older kernels:
        // to the later-made socket first). The probe, bound and made before
        // the machine's socket, thus gets each frame last: once it holds a
        // frame, so does the learn socket.
        probe_(packetSocket(Fab::VXLAN::kLearnTagProtocol, kCpuEnd)) {
    vtiStatusDir->vtiStatusIs(kVxlan1)->localVtepAddrIs(kLocalVtep);
    vtiStatusDir->vtiStatus(kVxlan1)->vArpVtepAddrIs(kVarpVtep);
    acsd->virtualMacWithMaskIs(Wire::EthAddrWithMask(kVirtualMac, mac("ffff.ffff.ffff")));
    Fab::VXLAN::learnSocketOpenerIs(nullptr);
    sm = Fab::VXLAN::vtepEventSmFactory(vtiStatusDir, vtepEvent, vxlanInfo, acsd, hook, vtepConfigDir);
  }

  // Sends a frame on the wire end. One with the learn tag is waited for
  // until the learn socket holds it.
  void send(std::vector<std::uint8_t> const& frame) {
    if (::send(sender_.get(), frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size())) {
      throw std::system_error(errno, std::generic_category(), std::string("sending on ") + kWireEnd);
    }
    if (frame.size() < 14 || frame[12] != 0x10 || frame[13] != 0x34) return;
    pollfd ready{probe_.get(), POLLIN, 0};
    if (::poll(&ready, 1, 10000) != 1) {
      throw std::runtime_error(std::string("a frame sent never came in on ") + kCpuEnd);
    }
    std::vector<std::uint8_t> got(256);
    ssize_t const n = ::recv(probe_.get(), got.data(), got.size(), 0);
    got.resize(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    if (got != frame) throw std::runtime_error(std::string("another frame than the one sent came in on ") + kCpuEnd);
  }
  void send(LearnFrameSpec const& spec) { send(Sim::buildLearnFrame(spec)); }

  // Runs the loop until it is idle; what a reader saw meanwhile.
  std::vector<Learned> run() {
    // runUntilIdle(), bounded: a frame left unread on the socket would keep
    // the loop busy for ever.
    for (int turns = 0; activity.runTurn(0.0) > 0;) {
      if (++turns == 1000) throw std::runtime_error("the loop never goes idle: the learn socket stays readable");
    }
    return std::exchange(reader->seen, {});
  }

  bool learnSocketEmpty() const {
    std::uint8_t byte;
    return ::recv(sm->vtepSock(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
  }
  // The frame at the head of the learn socket, left there.
  std::vector<std::uint8_t> learnSocketHead() const {
    std::vector<std::uint8_t> head(256);
    ssize_t const n = ::recv(sm->vtepSock(), head.data(), head.size(), MSG_PEEK | MSG_DONTWAIT);
    head.resize(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    return head;
  }

  void remoteVtepsAre(std::size_t onVxlan1, std::size_t onVxlan2) {
    auto const list = [this](char const* vti, std::size_t count) {
      Rxn::Ptr<Fab::VXLAN::VtepConfig> const config = vtepConfigDir->vtepConfigIs(Wire::IntfId(vti));
      config->remoteVtepListDelAll();
      for (std::size_t i = 1; i <= count; ++i) {
        config->remoteVtepListIs(Fab::SwTunnelGroupId(Fab::SwTunnelGroupType::singleMemberGroup_, i), true);
      }
    };
    list("Vxlan1", onVxlan1);
    list("Vxlan2", onVxlan2);
  }

  Rxn::Activity activity{Rxn::Activity::TimeMode::simulated};
  Rxn::Ptr<Vxlan::VtiStatusDir> vtiStatusDir = Vxlan::vtiStatusDirFactory("vtiStatusDir");
  Rxn::Ptr<Fab::VXLAN::VtepEvent> vtepEvent = Fab::VXLAN::vtepEventFactory("vtepEvent");
  Rxn::Ptr<Fab::VXLAN::FabVxlanInfo> vxlanInfo = Fab::VXLAN::fabVxlanInfoFactory("vxlanInfo");
  Rxn::Ptr<Fab::FabCommonSmData> acsd = Fab::fabCommonSmDataFactory("acsd");
  Rxn::Ptr<LimitHook> hook = new LimitHook();
  Rxn::Ptr<Fab::VXLAN::VtepConfigDir> vtepConfigDir = Fab::VXLAN::vtepConfigDirFactory("vtepConfigDir");
  Rxn::Ptr<EventReader> reader = new EventReader(vtepEvent);
  Rxn::Ptr<Fab::VXLAN::VtepEventSm> sm;

 private:
  Descriptor sender_;
  Descriptor probe_;
};

TEST(LearnFramesOnVeth, GoodFramesAreLearnedAndBadOnesLeaveVtepEventAlone) {
  std::string const why = inOwnNetworkNamespace([] {
    LearnBench bench;

    // A good frame is H + 48 bytes, the least it may be.
    LearnFrameSpec const good = frameFrom("10.0.0.9", 10010, "0000.1111.2222");
    bench.send(good);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(good)));
    EXPECT_EQ(bench.vtepEvent->genId(), 1U);
    EXPECT_EQ(bench.vtepEvent->vtiIntfId(), kVxlan1);

    // Options in the IP header move every later field.
    LearnFrameSpec withOptions = frameFrom("10.0.1.24", 24, "0000.2424.2424");
    withOptions.ipHeaderBytes = 24;
    bench.send(withOptions);
    // A longer copy of the frame's head is as good; the tail isn't read.
    LearnFrameSpec longer = frameFrom("10.0.1.100", 100, "0000.1010.1010");
    longer.length = 100;
    bench.send(longer);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(withOptions), learnedFrom(longer)));
    EXPECT_EQ(bench.vtepEvent->genId(), 3U);

    // Each bad frame alone: nothing moves. Their VNIs tell them apart.
    auto bad = [](std::uint32_t vni, auto&& spoil) {
      LearnFrameSpec spec = frameFrom("10.0.2.1", vni, "0000.3333.4444");
      spoil(spec);
      return spec;
    };
    struct Case {
      char const* what;
      LearnFrameSpec spec;
    };
    std::vector<Case> const rejected = {
        {"H + 47 bytes", bad(1, [](auto& s) { s.length = 67; })},
        {"H + 47 bytes behind options", bad(2,
                                            [](auto& s) {
                                              s.ipHeaderBytes = 24;
                                              s.length = 71;
                                            })},
        {"IPv6 inside", bad(3, [](auto& s) { s.ethertype = 0x86dd; })},
        {"TCP", bad(4, [](auto& s) { s.ipProtocol = 6; })},
        {"IP length H + 29", bad(5, [](auto& s) { s.ipTotalLength = 49; })},
        {"zero source", bad(6, [](auto& s) { s.remoteVtep = ip("0.0.0.0"); })},
        {"multicast source", bad(7, [](auto& s) { s.remoteVtep = ip("239.1.1.1"); })},
        {"multicast inner MAC", bad(8, [](auto& s) { s.innerSrcMac = mac("0100.5e01.0203"); })},
        {"broadcast inner MAC", bad(9, [](auto& s) { s.innerSrcMac = mac("ffff.ffff.ffff"); })},
        {"the virtual MAC", bad(10, [](auto& s) { s.innerSrcMac = kVirtualMac; })},
        {"from the local VTEP", bad(11, [](auto& s) { s.remoteVtep = kLocalVtep; })},
        {"from the virtual-ARP VTEP", bad(12, [](auto& s) { s.remoteVtep = kVarpVtep; })},
    };
    for (Case const& c : rejected) {
      SCOPED_TRACE(c.what);
      bench.send(c.spec);
      EXPECT_THAT(bench.run(), IsEmpty());
      EXPECT_EQ(bench.vtepEvent->genId(), 3U);
      EXPECT_TRUE(bench.learnSocketEmpty());
    }
    EXPECT_EQ(bench.vtepEvent->remoteVtepAddr(), longer.remoteVtep);

    // All of them in one run, then a good one: the bad ones don't stop the
    // loop, and the reader sees only the good one.
    for (Case const& c : rejected) {
      bench.send(c.spec);
    }
    bench.send(good);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(good)));
    EXPECT_EQ(bench.vtepEvent->genId(), 4U);

    // The socket's protocol is the learn tag, so a frame with an ordinary
    // VLAN tag there never reaches the machine: sent before a good frame, it
    // isn't queued ahead of it.
    LearnFrameSpec const vlanTagged = bad(13, [](auto& s) { s.tagProtocol = 0x8100; });
    LearnFrameSpec const after = frameFrom("10.0.3.1", 31, "0000.3131.3131");
    bench.send(vlanTagged);
    bench.send(after);
    EXPECT_EQ(bench.learnSocketHead(), Sim::buildLearnFrame(after));
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(after)));

    // The checks read the agent's state at each frame: a VTEP address that
    // moved away, a virtual MAC that changed, a VTI that went.
    LearnFrameSpec const fromOldLocal = frameFrom("10.0.0.1", 41, "0000.4141.4141");
    LearnFrameSpec const oldVirtualMac = frameFrom("10.0.4.2", 42, "001c.7300.0099");
    bench.vtiStatusDir->vtiStatus(kVxlan1)->localVtepAddrIs(ip("10.0.0.2"));
    bench.acsd->virtualMacWithMaskIs(Wire::EthAddrWithMask(mac("001c.7300.0001"), mac("ffff.ffff.ffff")));
    bench.send(fromOldLocal);
    bench.send(oldVirtualMac);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(fromOldLocal), learnedFrom(oldVirtualMac)));
    bench.vtiStatusDir->vtiStatusDel(kVxlan1);
    bench.send(good);
    EXPECT_THAT(bench.run(), IsEmpty());
    EXPECT_EQ(bench.vtepEvent->genId(), 7U);
  });
  if (!why.empty()) GTEST_SKIP() << "no network namespace with a veth pair: " << why;
}

TEST(LearnFramesOnVeth, TheRemoteVtepCountMayRunTenPerCentOverThePlatformMaximum) {
  std::string const why = inOwnNetworkNamespace([] {
    LearnBench bench;
    LearnFrameSpec const frame = frameFrom("10.0.0.9", 10010, "0000.1111.2222");

    // Below ten the tenth adds nothing: M = 9 lets in 9, counted over every
    // VTI's list.
    bench.hook->maxRemoteVteps = 9;
    bench.remoteVtepsAre(5, 4);
    bench.send(frame);
    EXPECT_THAT(bench.run(), IsEmpty());
    EXPECT_TRUE(bench.learnSocketEmpty());
    bench.remoteVtepsAre(5, 3);
    bench.send(frame);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(frame)));

    // M = 10 lets in 11: learning goes on at 10 and stops at 11.
    bench.hook->maxRemoteVteps = 10;
    bench.remoteVtepsAre(10, 0);
    bench.send(frame);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(frame)));
    bench.remoteVtepsAre(6, 5);
    bench.send(frame);
    EXPECT_THAT(bench.run(), IsEmpty());

    // With M = 0 nothing is learned, even with no remote VTEP at all.
    bench.hook->maxRemoteVteps = 0;
    bench.remoteVtepsAre(0, 0);
    bench.send(frame);
    EXPECT_THAT(bench.run(), IsEmpty());
    EXPECT_EQ(bench.vtepEvent->genId(), 2U);
  });
  if (!why.empty()) GTEST_SKIP() << "no network namespace with a veth pair: " << why;
}

TEST(LearnFramesOnVeth, WithoutDatapathLearningFramesAreDrainedUnlearned) {
  std::string const why = inOwnNetworkNamespace([] {
    LearnBench bench;
    LearnFrameSpec const first = frameFrom("10.0.0.9", 1, "0000.0000.0001");
    bench.send(first);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(first)));

    bench.vxlanInfo->datapathLearningIs(false);
    for (std::uint32_t vni = 2; vni <= 4; ++vni) {
      bench.send(frameFrom("10.0.5.1", vni, "0000.0000.0005"));
    }
    EXPECT_THAT(bench.run(), IsEmpty());
    EXPECT_TRUE(bench.learnSocketEmpty());
    EXPECT_EQ(bench.vtepEvent->genId(), 1U);
    EXPECT_EQ(bench.vtepEvent->vni().value(), 1U);

    // Back on, the next frame is the one learned, none of the drained ones.
    bench.vxlanInfo->datapathLearningIs(true);
    LearnFrameSpec const next = frameFrom("10.0.6.1", 6, "0000.0000.0006");
    bench.send(next);
    EXPECT_THAT(bench.run(), ElementsAre(learnedFrom(next)));
    EXPECT_EQ(bench.vtepEvent->genId(), 2U);
  });
  if (!why.empty()) GTEST_SKIP() << "no network namespace with a veth pair: " << why;
}

}  // namespace
}  // namespace FabTest

#include "fabvxlan/vtep/LearnFrame.h"

#include <algorithm>

#include "fabvxlan/runtime/Trace.h"

RXN_TRACE_MODULE("FabVxlanVtepEventSm");

namespace Fab::VXLAN {

namespace {

std::uint16_t u16At(LearnBuffer const& buffer, std::size_t offset) {
  return static_cast<std::uint16_t>((buffer[offset] << 8) | buffer[offset + 1]);
}

std::uint32_t u32At(LearnBuffer const& buffer, std::size_t offset) {
  return (std::uint32_t{buffer[offset]} << 24) | (std::uint32_t{buffer[offset + 1]} << 16) |
         (std::uint32_t{buffer[offset + 2]} << 8) | buffer[offset + 3];
}

LearnFrame rejected(std::string text) {
  LearnFrame frame;
  frame.rejection = std::move(text);
  return frame;
}

constexpr std::size_t kTagProtocolAt = 12;
constexpr std::size_t kEthertypeAt = 16;
constexpr std::size_t kIpHeaderAt = 18;
constexpr std::size_t kVniAfterIp = 30;       // 30 + H
constexpr std::size_t kInnerMacAfterIp = 40;  // 40 + H
constexpr std::size_t kMinimumAfterIp = 48;   // H + 48
constexpr std::size_t kMinimumIpLength = 30;  // H + 30

}  // namespace

LearnFrame checkLearnFrame(LearnBuffer const& buffer, std::size_t length, LearnContext const& context) {
  std::uint16_t const tagProtocol = u16At(buffer, kTagProtocolAt);
  if (tagProtocol != kLearnTagProtocol) {
    return rejected(" Error: bad vlan proto type " + std::to_string(tagProtocol) +
                    " != " + std::to_string(kLearnTagProtocol));
  }
  std::uint16_t const ethertype = u16At(buffer, kEthertypeAt);
  if (ethertype != kIpv4Ethertype) {
    return rejected(" Error: bad eth type " + std::to_string(ethertype) + " != " + std::to_string(kIpv4Ethertype));
  }
  Wire::IpHdr const ip(buffer.data() + kIpHeaderAt);
  std::size_t const h = ip.headerBytes();
  if (ip.protocol() != kUdpProtocol) {
    return rejected(" Error: bad IP proto " + std::to_string(ip.protocol()) + " != " + std::to_string(kUdpProtocol));
  }
  if (ip.totalLength() < h + kMinimumIpLength) {
    return rejected(" Error: bad IP len " + std::to_string(ip.totalLength()) + " IP header len " + std::to_string(h));
  }
  if (length < h + kMinimumAfterIp) {
    return rejected(" Error: short message len " + std::to_string(length));
  }
  LearnFrame frame;
  frame.vni = Vxlan::VniExt(u32At(buffer, h + kVniAfterIp) >> 8);
  RXN_TRACE(8, " extracted vni:" << frame.vni);
  frame.remoteVtepAddr = ip.src();
  if (frame.remoteVtepAddr.isZero()) {
    return rejected(" Error: bad remote vtep address " + frame.remoteVtepAddr.stringValue());
  }
  if (frame.remoteVtepAddr.isMulticast()) {
    return rejected(" Error: remote vtep address is mcast " + frame.remoteVtepAddr.stringValue());
  }
  std::array<std::uint8_t, 6> mac{};
  std::copy_n(buffer.begin() + static_cast<std::ptrdiff_t>(h + kInnerMacAfterIp), mac.size(), mac.begin());
  frame.macAddr = Wire::EthAddr(mac);
  RXN_TRACE(8, " vtep:" << frame.remoteVtepAddr << " mac:" << frame.macAddr);
  if (!frame.macAddr.isUnicast()) {
    return rejected(" Error: non-unicast mac addr " + frame.macAddr.stringValue());
  }
  if (!context.virtualMac.isZero() && context.virtualMac == frame.macAddr) {
    return rejected("Not learning virtual mac addr " + frame.macAddr.stringValue());
  }
  if (!context.vtiConfigured) {
    return rejected(" Error: VTI not configured Vxlan1");
  }
  if (frame.remoteVtepAddr == context.localVtepAddr) {
    return rejected(" Error: remote vtep address matches local addr " + frame.remoteVtepAddr.stringValue());
  }
  if (frame.remoteVtepAddr == context.vArpVtepAddr) {
    return rejected(" Error: remote vtep address matches VarpVtep addr " + frame.remoteVtepAddr.stringValue());
  }
  frame.accepted = true;
  return frame;
}

}  // namespace Fab::VXLAN

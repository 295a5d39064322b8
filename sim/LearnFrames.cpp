#include "sim/LearnFrames.h"

#include <algorithm>

namespace Sim {

namespace {

void put16(std::vector<std::uint8_t>& frame, std::size_t at, std::uint16_t value) {
  frame[at] = static_cast<std::uint8_t>(value >> 8);
  frame[at + 1] = static_cast<std::uint8_t>(value);
}

void put32(std::vector<std::uint8_t>& frame, std::size_t at, std::uint32_t value) {
  put16(frame, at, static_cast<std::uint16_t>(value >> 16));
  put16(frame, at + 2, static_cast<std::uint16_t>(value));
}

constexpr std::size_t kIpAt = 18;
constexpr std::uint16_t kVxlanUdpPort = 4789;

}  // namespace

std::vector<std::uint8_t> buildLearnFrame(LearnFrameSpec const& spec) {
  std::size_t const h = spec.ipHeaderBytes;
  std::vector<std::uint8_t> frame(kIpAt + h + 48 - 18, 0);
  // Outer Ethernet: destination, source, the tag, the ethertype.
  std::fill_n(frame.begin(), 6, 0x00);
  std::fill_n(frame.begin() + 6, 6, 0x02);
  put16(frame, 12, spec.tagProtocol);
  put16(frame, 14, 1);
  put16(frame, 16, spec.ethertype);
  // Outer IPv4.
  std::size_t const ipLength = frame.size() - kIpAt;
  frame[kIpAt] = static_cast<std::uint8_t>(0x40 | (h / 4));
  put16(frame, kIpAt + 2, spec.ipTotalLength != 0 ? spec.ipTotalLength : static_cast<std::uint16_t>(ipLength));
  frame[kIpAt + 8] = 64;
  frame[kIpAt + 9] = spec.ipProtocol;
  put32(frame, kIpAt + 12, spec.remoteVtep.value());
  put32(frame, kIpAt + 16, Wire::IpAddr::fromString("10.0.0.1").value());
  // UDP, then VXLAN with the I flag and the VNI.
  std::size_t const udp = kIpAt + h;
  put16(frame, udp, 49152);
  put16(frame, udp + 2, kVxlanUdpPort);
  put16(frame, udp + 4, static_cast<std::uint16_t>(ipLength - h));
  frame[udp + 8] = 0x08;
  put32(frame, udp + 12, spec.vni << 8);
  // The inner frame's head: destination, source, ethertype.
  std::fill_n(frame.begin() + static_cast<std::ptrdiff_t>(udp + 16), 6, 0xff);
  auto const& mac = spec.innerSrcMac.bytes();
  std::copy(mac.begin(), mac.end(), frame.begin() + static_cast<std::ptrdiff_t>(udp + 22));
  put16(frame, udp + 28, 0x0806);
  if (spec.length != 0) {
    frame.resize(spec.length);
  }
  return frame;
}

}  // namespace Sim

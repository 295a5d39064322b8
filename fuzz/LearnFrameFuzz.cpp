// libFuzzer target of the learn-frame checks. Any bytes may come in on the
// learn socket, at any length up to the buffer's, over whatever an earlier
// frame left in the buffer; the checks must never read past the buffer and
// must tell the truth about what they accepted.
//
// Input: one flag byte and one length byte make the context and the read
// length; the rest fills the buffer (zero past the input's end), so bytes
// beyond the length stand for what the earlier frame left.
//   flags bit 0: Vxlan1 is configured
//   flags bit 1: the local VTEP address is the frame's source
//   flags bit 2: the virtual-ARP VTEP address is the frame's source
//   flags bit 3: the virtual MAC is the frame's inner source MAC
//   flags bit 4: there is a virtual MAC (another one, when bit 3 is clear)
//   length: the byte modulo 129

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fabvxlan/vtep/LearnFrame.h"

namespace {

using Fab::VXLAN::checkLearnFrame;
using Fab::VXLAN::kLearnBufferBytes;
using Fab::VXLAN::LearnBuffer;
using Fab::VXLAN::LearnContext;
using Fab::VXLAN::LearnFrame;

constexpr std::size_t kHeaderBytes = 2;
Wire::IpAddr const kLocalVtep(0xc0000201);  // 192.0.2.1
Wire::IpAddr const kVarpVtep(0xc00002fe);   // 192.0.2.254
Wire::EthAddr const kVirtualMac({0x00, 0x1c, 0x73, 0x00, 0x00, 0x99});

void require(bool holds, char const* property, LearnFrame const& frame) {
  if (!holds) {
    std::fprintf(stderr, "learn frame property broken: %s (accepted %d, rejection '%s')\n", property,
                 static_cast<int>(frame.accepted), frame.rejection.c_str());
    std::abort();
  }
}

std::uint32_t u32At(LearnBuffer const& buffer, std::size_t at) {
  return (std::uint32_t{buffer[at]} << 24) | (std::uint32_t{buffer[at + 1]} << 16) |
         (std::uint32_t{buffer[at + 2]} << 8) | buffer[at + 3];
}

std::uint16_t u16At(LearnBuffer const& buffer, std::size_t at) {
  return static_cast<std::uint16_t>((buffer[at] << 8) | buffer[at + 1]);
}

bool startsWith(std::string const& text, char const* prefix) {
  return text.rfind(prefix, 0) == 0;
}

bool sameResult(LearnFrame const& a, LearnFrame const& b) {
  return a.accepted == b.accepted && a.rejection == b.rejection && a.remoteVtepAddr == b.remoteVtepAddr &&
         a.vni == b.vni && a.macAddr == b.macAddr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size < kHeaderBytes) {
    return 0;
  }
  std::uint8_t const flags = data[0];
  std::size_t const length = data[1] % (kLearnBufferBytes + 1);
  LearnBuffer buffer{};
  std::copy_n(data + kHeaderBytes, std::min(size - kHeaderBytes, buffer.size()), buffer.begin());

  std::size_t const h = static_cast<std::size_t>(buffer[18] & 0x0F) * 4;
  Wire::IpAddr const source(u32At(buffer, 30));
  std::array<std::uint8_t, 6> innerBytes{};
  std::copy_n(buffer.begin() + static_cast<std::ptrdiff_t>(40 + h), innerBytes.size(), innerBytes.begin());
  Wire::EthAddr const innerMac(innerBytes);

  LearnContext context;
  context.vtiConfigured = (flags & 0x01) != 0;
  context.localVtepAddr = (flags & 0x02) != 0 ? source : kLocalVtep;
  context.vArpVtepAddr = (flags & 0x04) != 0 ? source : kVarpVtep;
  if ((flags & 0x08) != 0) {
    context.virtualMac = innerMac;
  } else if ((flags & 0x10) != 0) {
    context.virtualMac = kVirtualMac;
  }

  LearnFrame const frame = checkLearnFrame(buffer, length, context);

  require(frame.accepted == frame.rejection.empty(), "a rejection text exactly when not accepted", frame);
  if (frame.accepted) {
    require(length >= h + 48, "an accepted frame holds H + 48 bytes", frame);
    require(u16At(buffer, 12) == Fab::VXLAN::kLearnTagProtocol, "accepted behind the learn tag", frame);
    require(u16At(buffer, 16) == Fab::VXLAN::kIpv4Ethertype, "accepted as IPv4", frame);
    require(buffer[27] == Fab::VXLAN::kUdpProtocol, "accepted as UDP", frame);
    require(u16At(buffer, 20) >= h + 30, "accepted with an IP length of H + 30 or more", frame);
    require(frame.remoteVtepAddr == source, "the remote VTEP is the IP source", frame);
    require(!frame.remoteVtepAddr.isZero() && !frame.remoteVtepAddr.isMulticast(), "a unicast remote VTEP", frame);
    require(frame.vni.value() == u32At(buffer, 30 + h) >> 8, "the VNI is the 24 bits at 30 + H", frame);
    require(frame.macAddr == innerMac && frame.macAddr.isUnicast(), "the unicast inner source MAC", frame);
    require(context.virtualMac.isZero() || frame.macAddr != context.virtualMac, "never the virtual MAC", frame);
    require(context.vtiConfigured, "only with Vxlan1 configured", frame);
    require(frame.remoteVtepAddr != context.localVtepAddr && frame.remoteVtepAddr != context.vArpVtepAddr,
            "never from this switch's own VTEP addresses", frame);
  } else {
    require(startsWith(frame.rejection, " Error: ") || startsWith(frame.rejection, "Not learning virtual mac addr "),
            "a rejection is an error or the virtual MAC", frame);
    if (startsWith(frame.rejection, " Error: short message len ")) {
      require(frame.rejection == " Error: short message len " + std::to_string(length) && length < h + 48,
              "a short frame is named with its own length", frame);
    }
  }

  // The outer MACs, the tag control, the UDP header, the VXLAN flags, the
  // inner destination MAC and everything from the inner ethertype on are
  // never read: spoiling them changes nothing.
  LearnBuffer spoiled = buffer;
  auto spoil = [&spoiled](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < std::min(to, spoiled.size()); ++i) {
      spoiled[i] = static_cast<std::uint8_t>(~spoiled[i]);
    }
  };
  spoil(0, 12);
  spoil(14, 16);
  spoil(std::max<std::size_t>(34, 18 + h), 30 + h);
  spoil(34 + h, 40 + h);
  spoil(46 + h, spoiled.size());
  require(sameResult(checkLearnFrame(spoiled, length, context), frame), "unread bytes change nothing", frame);
  return 0;
}

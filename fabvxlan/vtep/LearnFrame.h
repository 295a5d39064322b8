#pragma once
// The checks of one learn frame: the head of a VXLAN frame from a remote
// VTEP that the hardware copied to the CPU, behind a tag of protocol 0x1034.
//
// Offsets are from the start of the buffer; H is the outer IPv4 header's
// length. The tag protocol at 12 (0x1034), the ethertype at 16 (0x0800), the
// IPv4 header at 18 with its total length at 20 (at least H + 30), protocol
// at 27 (UDP) and source address at 30 (the remote VTEP); the VNI in the 32-bit
// word at 30 + H, shifted right by 8; the inner source MAC at 40 + H. A valid
// frame is at least H + 48 bytes long.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fabvxlan/state/imported/Vxlan.h"
#include "fabvxlan/state/imported/Wire.h"

namespace Fab::VXLAN {

// One read: the buffer is never cleared, so a short frame's tail is what an
// earlier frame left there, exactly as the checks below may read it.
constexpr std::size_t kLearnBufferBytes = 128;
using LearnBuffer = std::array<std::uint8_t, kLearnBufferBytes>;

constexpr std::uint16_t kLearnTagProtocol = 0x1034;
constexpr std::uint16_t kIpv4Ethertype = 0x0800;
constexpr std::uint8_t kUdpProtocol = 17;

// What the frame is checked against besides itself.
struct LearnContext {
  Wire::EthAddr virtualMac;  // all zero: no virtual MAC
  bool vtiConfigured = false;
  Wire::IpAddr localVtepAddr;
  Wire::IpAddr vArpVtepAddr;
};

struct LearnFrame {
  bool accepted = false;
  // Why a frame was rejected, as the trace and the ring log tell it.
  std::string rejection;
  Wire::IpAddr remoteVtepAddr;
  Vxlan::VniExt vni;
  Wire::EthAddr macAddr;
};

// Runs the checks of a frame of `length` bytes in `buffer`, in their order.
LearnFrame checkLearnFrame(LearnBuffer const& buffer, std::size_t length, LearnContext const& context);

}  // namespace Fab::VXLAN

#pragma once
// Learn frames as the data path copies them to the CPU: the outer Ethernet
// header with the 0x1034 tag, the outer IPv4 and UDP headers, the VXLAN header
// and the head of the inner frame. Every field can be spoiled, for the tests
// of the checks.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fabvxlan/state/imported/Wire.h"

namespace Sim {

struct LearnFrameSpec {
  Wire::IpAddr remoteVtep = Wire::IpAddr::fromString("10.0.0.9");
  std::uint32_t vni = 10010;
  Wire::EthAddr innerSrcMac = Wire::EthAddr::fromString("0000.1111.2222");
  std::uint16_t tagProtocol = 0x1034;
  std::uint16_t ethertype = 0x0800;
  std::uint8_t ipProtocol = 17;
  // A multiple of 4, 20 to 60: more than 20 carries IP options.
  std::size_t ipHeaderBytes = 20;
  // The IP total length; 0 means that of the frame as built.
  std::uint16_t ipTotalLength = 0;
  // The bytes sent; 0 means the whole frame, H + 48 bytes.
  std::size_t length = 0;
};

std::vector<std::uint8_t> buildLearnFrame(LearnFrameSpec const& spec);

}  // namespace Sim

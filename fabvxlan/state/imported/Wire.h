#pragma once
// Wire value types: interface ids and addresses.

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>

#include "fabvxlan/runtime/Value.h"

namespace Wire {

// An interface name as a compact id. Equal names share one id; order and
// hash follow the name, so collections keyed by interface reproduce.
class IntfId : public Rxn::ValueOps<IntfId> {
 public:
  IntfId() = default;
  // Any non-empty name without white space; "Vxlan1", "Ethernet3/1".
  explicit IntfId(Rxn::String const& name);
  static IntfId fromString(Rxn::String const& text) { return IntfId(text); }
  static char const* rxnTypeName() { return "Wire::IntfId"; }

  Rxn::String const& stringValue() const;
  std::uint64_t hash() const;
  bool operator==(IntfId const& other) const { return index_ == other.index_; }
  bool operator<(IntfId const& other) const { return index_ != other.index_ && stringValue() < other.stringValue(); }

 private:
  std::uint32_t index_ = 0;  // into the table of names; 0 is the empty name
};

class VxlanTunnelIntfId {
 public:
  // VXLAN tunnel interfaces are named Vxlan<n>.
  static bool isVxlanTunnelIntfId(IntfId const& id);
};

// A MAC address, printed "0011.2233.4455".
class EthAddr : public Rxn::ValueOps<EthAddr> {
 public:
  EthAddr() = default;
  explicit EthAddr(std::array<std::uint8_t, 6> const& bytes) : bytes_(bytes) {}
  // "0011.2233.4455" or "00:11:22:33:44:55".
  static EthAddr fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Wire::EthAddr"; }

  std::array<std::uint8_t, 6> const& bytes() const { return bytes_; }
  bool isUnicast() const { return (bytes_[0] & 1U) == 0; }
  bool isZero() const { return *this == EthAddr(); }
  Rxn::String stringValue() const;
  // The address as a 48-bit number. Inline: every lookup of a remote MAC
  // hashes one.
  std::uint64_t hash() const {
    return std::uint64_t{bytes_[0]} << 40 | std::uint64_t{bytes_[1]} << 32 | std::uint64_t{bytes_[2]} << 24 |
           std::uint64_t{bytes_[3]} << 16 | std::uint64_t{bytes_[4]} << 8 | bytes_[5];
  }
  // As numbers, in the order of the bytes: every lookup compares keys, and
  // the defaulted comparison of a byte array is a call to memcmp.
  bool operator==(EthAddr const& other) const { return hash() == other.hash(); }
  std::strong_ordering operator<=>(EthAddr const& other) const { return hash() <=> other.hash(); }

 private:
  std::array<std::uint8_t, 6> bytes_{};
};

// An IPv4 address, printed "10.0.0.1". The zero address means none.
class IpAddr : public Rxn::ValueOps<IpAddr> {
 public:
  IpAddr() = default;
  // The address as a number in host order: 10.0.0.1 is 0x0a000001.
  explicit IpAddr(std::uint32_t value) : value_(value) {}
  static IpAddr fromString(Rxn::String const& text);
  static IpAddr fromNbo(std::uint32_t networkOrder);
  static char const* rxnTypeName() { return "Wire::IpAddr"; }

  std::uint32_t value() const { return value_; }
  std::uint32_t valueNbo() const;
  bool isMulticast() const { return (value_ >> 28) == 0xE; }
  bool isZero() const { return value_ == 0; }
  Rxn::String stringValue() const;
  std::uint64_t hash() const { return value_; }
  auto operator<=>(IpAddr const& other) const = default;

 private:
  std::uint32_t value_ = 0;
};

// An IPv6 address, printed as inet_ntop does ("2001:db8::1").
class Ip6Addr : public Rxn::ValueOps<Ip6Addr> {
 public:
  Ip6Addr() = default;
  explicit Ip6Addr(std::array<std::uint8_t, 16> const& bytes) : bytes_(bytes) {}
  static Ip6Addr fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Wire::Ip6Addr"; }

  std::array<std::uint8_t, 16> const& bytes() const { return bytes_; }
  Rxn::String stringValue() const;
  std::uint64_t hash() const;
  auto operator<=>(Ip6Addr const& other) const = default;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

// An IPv6 prefix, "2001:db8::/32".
class Ip6Prefix : public Rxn::ValueOps<Ip6Prefix> {
 public:
  Ip6Prefix() = default;
  Ip6Prefix(Ip6Addr const& addr, std::uint8_t length);
  static Ip6Prefix fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Wire::Ip6Prefix"; }

  Ip6Addr const& addr() const { return addr_; }
  std::uint8_t length() const { return length_; }
  bool contains(Ip6Addr const& addr) const;
  Rxn::String stringValue() const { return addr_.stringValue() + "/" + std::to_string(length_); }
  std::uint64_t hash() const { return addr_.hash() ^ length_; }
  auto operator<=>(Ip6Prefix const& other) const = default;

 private:
  Ip6Addr addr_;
  std::uint8_t length_ = 0;
};

// An IPv4 or IPv6 address; printed as the address it holds.
class IpGenAddr : public Rxn::ValueOps<IpGenAddr> {
 public:
  IpGenAddr() = default;
  explicit IpGenAddr(IpAddr const& v4) : v4_(v4) {}
  explicit IpGenAddr(Ip6Addr const& v6) : v6_(v6), isV6_(true) {}
  static IpGenAddr fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Wire::IpGenAddr"; }

  bool isV6() const { return isV6_; }
  IpAddr const& v4Addr() const { return v4_; }
  Ip6Addr const& v6Addr() const { return v6_; }
  Rxn::String stringValue() const { return isV6_ ? v6_.stringValue() : v4_.stringValue(); }
  std::uint64_t hash() const { return isV6_ ? v6_.hash() : v4_.hash(); }
  auto operator<=>(IpGenAddr const& other) const = default;

 private:
  IpAddr v4_;
  Ip6Addr v6_;
  bool isV6_ = false;
};

// An IPv4 prefix, "10.0.0.0/8".
class IpPrefix : public Rxn::ValueOps<IpPrefix> {
 public:
  IpPrefix() = default;
  IpPrefix(IpAddr const& addr, std::uint8_t length);
  static IpPrefix fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Wire::IpPrefix"; }

  IpAddr const& addr() const { return addr_; }
  std::uint8_t length() const { return length_; }
  bool contains(IpAddr const& addr) const;
  Rxn::String stringValue() const { return addr_.stringValue() + "/" + std::to_string(length_); }
  std::uint64_t hash() const { return (addr_.hash() << 8) | length_; }
  auto operator<=>(IpPrefix const& other) const = default;

 private:
  IpAddr addr_;
  std::uint8_t length_ = 0;
};

// An IPv4 or IPv6 prefix.
class IpGenPrefix : public Rxn::ValueOps<IpGenPrefix> {
 public:
  IpGenPrefix() = default;
  IpGenPrefix(IpGenAddr const& addr, std::uint8_t length);
  static IpGenPrefix fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Wire::IpGenPrefix"; }

  bool isV6() const { return addr_.isV6(); }
  IpGenAddr const& addr() const { return addr_; }
  std::uint8_t length() const { return length_; }
  IpPrefix v4Prefix() const { return IpPrefix(addr_.v4Addr(), length_); }
  Ip6Prefix v6Prefix() const { return Ip6Prefix(addr_.v6Addr(), length_); }
  Rxn::String stringValue() const { return addr_.stringValue() + "/" + std::to_string(length_); }
  std::uint64_t hash() const { return (addr_.hash() << 8) ^ length_; }
  auto operator<=>(IpGenPrefix const& other) const = default;

 private:
  IpGenAddr addr_;
  std::uint8_t length_ = 0;
};

// The total length of an IPv4 packet, in bytes.
using IpTotalLen = std::uint16_t;

// A view of an IPv4 header in a frame, fields in network byte order.
class IpHdr {
 public:
  explicit IpHdr(std::uint8_t const* bytes) : bytes_(bytes) {}
  std::size_t headerBytes() const { return static_cast<std::size_t>(bytes_[0] & 0x0F) * 4; }
  IpTotalLen totalLength() const { return static_cast<IpTotalLen>((bytes_[2] << 8) | bytes_[3]); }
  std::uint8_t protocol() const { return bytes_[9]; }
  IpAddr src() const {
    return IpAddr((std::uint32_t{bytes_[12]} << 24) | (std::uint32_t{bytes_[13]} << 16) |
                  (std::uint32_t{bytes_[14]} << 8) | bytes_[15]);
  }

 private:
  std::uint8_t const* bytes_;
};

}  // namespace Wire

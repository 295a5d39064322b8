#pragma once
// Wire value types: interface ids and addresses.

#include <array>
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
  std::uint64_t hash() const;
  auto operator<=>(EthAddr const& other) const = default;

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

}  // namespace Wire

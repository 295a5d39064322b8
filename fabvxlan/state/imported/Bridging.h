#pragma once
// Bridging value types.

#include <cstdint>

#include "fabvxlan/runtime/Value.h"

namespace Bridging {

// A VLAN number, 1 to 4094.
class VlanId : public Rxn::ValueOps<VlanId> {
 public:
  VlanId() = default;
  explicit VlanId(std::uint32_t value);
  static VlanId fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Bridging::VlanId"; }

  std::uint16_t value() const { return value_; }
  Rxn::String stringValue() const { return std::to_string(value_); }
  std::uint64_t hash() const { return value_; }
  auto operator<=>(VlanId const& other) const = default;

 private:
  std::uint16_t value_ = 1;
};

}  // namespace Bridging

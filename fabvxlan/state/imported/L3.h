#pragma once
// L3 value types.

#include "fabvxlan/runtime/Value.h"

namespace L3 {

// A VRF name, at most maxLength bytes; "default" is the default VRF.
class VrfName : public Rxn::ValueOps<VrfName> {
 public:
  static constexpr std::size_t maxLength = 100;

  VrfName() = default;
  explicit VrfName(Rxn::String const& name) : name_(name) {
    if (name.size() > maxLength) {
      Rxn::throwRangeException("VrfName::bytes > VrfName::maxLength not allowed");
    }
  }
  static VrfName fromString(Rxn::String const& text) { return VrfName(text); }
  static char const* rxnTypeName() { return "L3::VrfName"; }

  Rxn::String const& stringValue() const { return name_; }
  std::uint64_t hash() const { return std::hash<std::string>{}(name_); }
  auto operator<=>(VrfName const& other) const = default;

 private:
  Rxn::String name_;
};

}  // namespace L3

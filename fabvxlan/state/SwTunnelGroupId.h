#pragma once
// Fab::SwTunnelGroupId: the name of a software tunnel group, one VTEP or a
// group of VTEPs (an L2 ECMP destination).

#include <cstdint>

#include "fabvxlan/runtime/Value.h"
#include "fabvxlan/state/imported/Wire.h"

namespace Fab {

enum class SwTunnelGroupType : std::uint8_t { singleMemberGroup_ = 0, multiMemberGroup_ = 1 };

// A single VTEP is named by its IPv4 address ("10.0.0.2"), a group by its
// number ("group-7"); the empty id ("none") names nothing.
class SwTunnelGroupId : public Rxn::ValueOps<SwTunnelGroupId> {
 public:
  SwTunnelGroupId() = default;
  SwTunnelGroupId(SwTunnelGroupType type, std::uint64_t value) : type_(type), value_(value) {}
  static SwTunnelGroupId fromString(Rxn::String const& text);
  static char const* rxnTypeName() { return "Fab::SwTunnelGroupId"; }

  SwTunnelGroupType type() const { return type_; }
  std::uint64_t value() const { return value_; }
  bool isSingleMemberGroup() const { return type_ == SwTunnelGroupType::singleMemberGroup_ && value_ != 0; }
  bool isMultiMemberGroup() const { return type_ == SwTunnelGroupType::multiMemberGroup_ && value_ != 0; }
  Rxn::String stringValue() const;
  std::uint64_t hash() const { return (static_cast<std::uint64_t>(type_) << 40) ^ value_; }
  auto operator<=>(SwTunnelGroupId const& other) const = default;

 private:
  SwTunnelGroupType type_ = SwTunnelGroupType::singleMemberGroup_;
  std::uint64_t value_ = 0;
};

SwTunnelGroupId convertToSwTunnelGroupId(SwTunnelGroupType type, unsigned long const& value);

}  // namespace Fab

#include "fabvxlan/state/SwTunnelGroupId.h"

namespace Fab {

namespace {
constexpr char kGroupPrefix[] = "group-";
}  // namespace

SwTunnelGroupId convertToSwTunnelGroupId(SwTunnelGroupType type, unsigned long const& value) {
  return SwTunnelGroupId(type, value);
}

SwTunnelGroupId SwTunnelGroupId::fromString(Rxn::String const& text) {
  if (text == "none") {
    return SwTunnelGroupId();
  }
  if (text.rfind(kGroupPrefix, 0) == 0) {
    std::int64_t const number = Rxn::parseInteger(text.substr(sizeof kGroupPrefix - 1), rxnTypeName());
    if (number <= 0) {
      Rxn::throwRangeException("bad Fab::SwTunnelGroupId '" + text + "': groups are numbered from 1");
    }
    return SwTunnelGroupId(SwTunnelGroupType::multiMemberGroup_, static_cast<std::uint64_t>(number));
  }
  return SwTunnelGroupId(SwTunnelGroupType::singleMemberGroup_, Wire::IpAddr::fromString(text).value());
}

Rxn::String SwTunnelGroupId::stringValue() const {
  if (value_ == 0) {
    return "none";
  }
  if (type_ == SwTunnelGroupType::multiMemberGroup_) {
    return kGroupPrefix + std::to_string(value_);
  }
  return Wire::IpAddr(static_cast<std::uint32_t>(value_)).stringValue();
}

}  // namespace Fab

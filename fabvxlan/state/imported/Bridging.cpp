#include "fabvxlan/state/imported/Bridging.h"

#include <cctype>

namespace Bridging {

VlanId::VlanId(std::uint32_t value) {
  if (value < 1 || value > 4094) {
    Rxn::throwRangeException("VlanId::value < 1 or > 4094 not allowed");
  }
  value_ = static_cast<std::uint16_t>(value);
}

VlanId VlanId::fromString(Rxn::String const& text) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != Rxn::String::npos) {
    Rxn::throwRangeException("bad VLAN '" + text + "': expected a number from 1 to 4094");
  }
  return VlanId(static_cast<std::uint32_t>(std::stoul(text)));
}

}  // namespace Bridging

#pragma once
// Text values of the runtime: Rxn::String, Rxn::Name, printf-style formatting
// and the display text of any value type.

#include <cstdarg>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace Rxn {

using String = std::string;
// Entity names are plain text; a distinct alias keeps declarations telling.
using Name = std::string;

// printf semantics, into a String.
String format(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
String vformat(char const* fmt, va_list args);
// A C++ type's name as the source writes it ("Fab::VXLAN::VniSm::RxnUpdateClock").
String demangledTypeName(std::type_info const& type);

// The display text of a value: what operator<< prints and trace text shows.
template <class T>
String valueToString(T const& value) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_convertible_v<T const&, String const&>) {
    return value;
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(value);
  } else {
    std::ostringstream out;
    out << value;
    return out.str();
  }
}

}  // namespace Rxn

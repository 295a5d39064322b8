#include "fabvxlan/runtime/String.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace Rxn {

String vformat(char const* fmt, va_list args) {
  va_list sizing;
  va_copy(sizing, args);
  int const needed = std::vsnprintf(nullptr, 0, fmt, sizing);
  va_end(sizing);
  if (needed <= 0) {
    return String();
  }
  String out(static_cast<std::size_t>(needed), '\0');
  std::vsnprintf(out.data(), out.size() + 1, fmt, args);
  return out;
}

String format(char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  String out = vformat(fmt, args);
  va_end(args);
  return out;
}

String demangledTypeName(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> const name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                         &std::free);
  return status == 0 && name ? String(name.get()) : String(type.name());
}

}  // namespace Rxn

#include "fabvxlan/runtime/String.h"

#include <cstdio>
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

}  // namespace Rxn

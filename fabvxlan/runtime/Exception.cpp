#include "fabvxlan/runtime/Exception.h"

#include <cstring>

namespace Rxn {

ErrnoException::ErrnoException(int errnoValue, String const& text)
    : std::runtime_error(text + ": " + std::strerror(errnoValue)), errno_(errnoValue) {}

void throwRangeException(String const& text) {
  throw RangeException(text);
}

}  // namespace Rxn

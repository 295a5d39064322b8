#pragma once
// Exceptions thrown into the caller of a runtime operation. A broken invariant
// is not an exception: it is an assertion and ends the process.

#include <stdexcept>

#include "fabvxlan/runtime/String.h"

namespace Rxn {

// A value out of its range, or a null pointer handed to a mutator that needs one.
class RangeException : public std::range_error {
 public:
  explicit RangeException(String const& text) : std::range_error(text) {}
};

// An operation that the object at hand does not implement.
class NoImplementationException : public std::logic_error {
 public:
  explicit NoImplementationException(String const& text) : std::logic_error(text) {}
};

// A failed system call: the errno and what was being done.
class ErrnoException : public std::runtime_error {
 public:
  ErrnoException(int errnoValue, String const& text);
  int errnoValue() const { return errno_; }

 private:
  int errno_;
};

[[noreturn]] void throwRangeException(String const& text);

}  // namespace Rxn

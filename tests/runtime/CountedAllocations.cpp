// The global operator new of the runtime tests, counting; malloc beneath, so
// that the sanitizers still see every allocation and its release.

#include "tests/runtime/CountedAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

namespace RxnTest {

std::size_t allocationsSoFar() {
  return allocations.load(std::memory_order_relaxed);
}

}  // namespace RxnTest

void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

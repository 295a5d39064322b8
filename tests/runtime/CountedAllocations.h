#pragma once
// The number of allocations made through operator new since the start of the
// test program: CountedAllocations.cpp replaces the global operator new.

#include <cstddef>

namespace RxnTest {

std::size_t allocationsSoFar();

}  // namespace RxnTest

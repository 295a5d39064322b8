#pragma once
// Observers defined in their own translation unit, so that the compiler can
// neither inline nor devirtualize the calls the benchmarks measure.

#include <cstdint>

#include "bench/BenchState.h"

namespace RxnBench {

// The baseline: a plain observer interface with one virtual call.
class Observer {
 public:
  virtual ~Observer() = default;
  virtual void onChange() = 0;
};
Observer* makeCountingObserver(std::uint64_t* count);

// A reactor of Counter that counts its notifications.
Rxn::Ptr<Counter::NotifieeConst> makeCountingReactor(Rxn::Ptr<Counter const> const& counter, std::uint64_t* count);

}  // namespace RxnBench

// The absl::flat_hash_map baselines, and the heap each table takes. Built
// when libabsl-dev is installed (make bench installs it).

#include <absl/container/flat_hash_map.h>
#include <absl/hash/hash.h>

#include "bench/MapBench.h"

namespace Bridging {

// absl's own way of hashing a record: its fields.
template <typename H>
H AbslHashValue(H h, MacVlanPair const& key) {
  return H::combine(std::move(h), key.mac().bytes(), key.vlanId().value());
}

}  // namespace Bridging

namespace RxnBench {
namespace {

using AbslMap = absl::flat_hash_map<Key, HostRow>;

void BM_AbslMapInsertRandom(benchmark::State& state) {
  insertRandom<AbslMap>(state);
}
BENCHMARK(BM_AbslMapInsertRandom)->Apply(atBothSizes);

void BM_AbslMapEraseRandom(benchmark::State& state) {
  eraseRandom<AbslMap>(state);
}
BENCHMARK(BM_AbslMapEraseRandom)->Apply(atBothSizes);

void BM_AbslMapLookupHit(benchmark::State& state) {
  lookupHit<AbslMap>(state);
}
BENCHMARK(BM_AbslMapLookupHit)->Apply(atBothSizes);

// The same walks and copy, for the growth of their cost from 2^16 to 2^20
// keys: the cache slows them as it slows any table.
void BM_AbslMapFillInOtherMapsOrder(benchmark::State& state) {
  fillInOtherMapsOrder<AbslMap>(state);
}
BENCHMARK(BM_AbslMapFillInOtherMapsOrder)->Apply(atBothSizes);

void BM_AbslMapCopy(benchmark::State& state) {
  copy<AbslMap>(state);
}
BENCHMARK(BM_AbslMapCopy)->Apply(atBothSizes);

void BM_AbslMapDrainInWalkOrder(benchmark::State& state) {
  drainInWalkOrder<AbslMap>(state);
}
BENCHMARK(BM_AbslMapDrainInWalkOrder)->Apply(atBothSizes);

// At 3 * 2^18 keys absl sits just below a growth, at 2^20 just after one.
void BM_MapMemory(benchmark::State& state) {
  std::vector<Key> const& keys = randomKeys(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    state.counters["bytes_per_entry"] = heapBytesPerEntry<RxnMap>(keys);
    state.counters["absl_bytes_per_entry"] = heapBytesPerEntry<AbslMap>(keys);
  }
}
BENCHMARK(BM_MapMemory)->Arg(786432)->Arg(1048576)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace RxnBench

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

// With the walks and the copy too: the growth of their cost from 2^16 to
// 2^20 keys is what ours is held to.
bool const abslRegistered = registerTimings<AbslMap>("BM_AbslMap", true);

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

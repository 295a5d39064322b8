// Rxn::HashMap2018 at 2^16 and 2^20 keys, and std::unordered_map beside it.
// The absl::flat_hash_map baselines and the memory comparison are in
// AbslMapBench.cpp.

#include "bench/MapBench.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <unordered_map>
#include <unordered_set>

template <>
struct std::hash<Bridging::MacVlanPair> {
  std::size_t operator()(Bridging::MacVlanPair const& key) const { return key.hash(); }
};

namespace RxnBench {

namespace {

std::vector<Key> makeKeys(std::size_t count) {
  std::mt19937_64 random(20180);
  std::unordered_set<std::uint64_t> seen;
  std::vector<Key> keys;
  keys.reserve(count);
  while (keys.size() < count) {
    std::uint64_t const bits = random();
    std::uint64_t const mac = bits & 0xfeffffffffffULL;  // unicast
    std::int64_t const vlan = 1 + static_cast<std::int64_t>((bits >> 48) % 4094);
    if (!seen.insert(mac << 12 | static_cast<std::uint64_t>(vlan)).second) continue;
    std::array<std::uint8_t, 6> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>(mac >> (8 * (5 - i)));
    }
    keys.emplace_back(Wire::EthAddr(bytes), Bridging::VlanId(vlan));
  }
  return keys;
}

}  // namespace

std::vector<Key> const& randomKeys(std::size_t count) {
  static std::map<std::size_t, std::vector<Key>> cache;
  auto [it, fresh] = cache.try_emplace(count);
  if (fresh) {
    it->second = makeKeys(count);
  }
  return it->second;
}

std::vector<Key> const& shuffledKeys(std::size_t count) {
  static std::map<std::size_t, std::vector<Key>> cache;
  auto [it, fresh] = cache.try_emplace(count);
  if (fresh) {
    it->second = randomKeys(count);
    std::shuffle(it->second.begin(), it->second.end(), std::mt19937_64(4094));
  }
  return it->second;
}

namespace {

bool const oursRegistered = registerTimings<RxnMap>("BM_Map", true);

// The slowest single operation: each of N random inserts, then each of N
// erases in walk order, timed alone. The time is the thread's CPU time: on
// a shared machine a preemption by another process may fall inside any
// operation, and it is not the operation's cost. (Page faults, which are,
// count as the thread's time.)
double threadMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

void BM_MapWorstOp(benchmark::State& state) {
  std::vector<Key> const& keys = randomKeys(static_cast<std::size_t>(state.range(0)));
  double worst = 0;
  auto const timed = [&worst](auto&& op) {
    double const start = threadMicroseconds();
    op();
    worst = std::max(worst, threadMicroseconds() - start);
  };
  for (auto _ : state) {
    auto const start = std::chrono::steady_clock::now();
    RxnMap table;
    for (Key const& key : keys) {
      timed([&] { table.insertOrAssign(key, rowOf(key)); });
    }
    for (auto it = table.begin(); it != table.end();) {
      Key const key = it.key();
      ++it;
      timed([&] { table.erase(key); });
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  state.counters["worst_op_us"] = worst;
}
BENCHMARK(BM_MapWorstOp)->Apply(atBothSizes)->Iterations(1);

using StdMap = std::unordered_map<Key, HostRow>;

bool const stdRegistered = registerTimings<StdMap>("BM_StdUnorderedMap", false);

}  // namespace
}  // namespace RxnBench

#pragma once
// The keyed collections at the scale of the remote-MAC road: tables keyed by
// Bridging::MacVlanPair holding an 88-byte record (the size of a host row),
// with no entity and no reactor. The same timing runs over Rxn::HashMap2018
// and over its baselines, so that every ratio comes from one run.
//
// Each benchmark times N operations (manual time: the setup and the teardown
// of the tables are left out); bench/ratios.py divides by N.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "fabvxlan/runtime/HashMap.h"
#include "fabvxlan/state/imported/Bridging.h"

namespace RxnBench {

struct HostRow {
  std::array<std::uint64_t, 11> words{};
  bool operator==(HostRow const&) const = default;
};
static_assert(sizeof(HostRow) == 88, "a host row is 88 bytes");

using Key = Bridging::MacVlanPair;
using RxnMap = Rxn::HashMap2018<Key, HostRow>;

// N distinct keys in a random order, the same in every run.
std::vector<Key> const& randomKeys(std::size_t count);
// The same keys in another random order.
std::vector<Key> const& shuffledKeys(std::size_t count);

// The sizes at which every collection benchmark runs: 2^16 and 2^20 keys.
inline void atBothSizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(65536)->Arg(1048576)->UseManualTime()->Unit(benchmark::kMillisecond);
}

inline void put(RxnMap& map, Key const& key, HostRow const& row) {
  map.insertOrAssign(key, row);
}
inline HostRow const* lookUp(RxnMap const& map, Key const& key) {
  return map.find(key);
}
inline void remove(RxnMap& map, Key const& key) {
  map.erase(key);
}

template <class Table>
void put(Table& table, Key const& key, HostRow const& row) {
  table.try_emplace(key, row);
}
template <class Table>
HostRow const* lookUp(Table const& table, Key const& key) {
  auto const it = table.find(key);
  return it != table.end() ? &it->second : nullptr;
}
template <class Table>
void remove(Table& table, Key const& key) {
  table.erase(key);
}

inline HostRow rowOf(Key const& key) {
  HostRow row;
  row.words[0] = key.hash();
  return row;
}

template <class Table>
void fill(Table& table, std::vector<Key> const& keys) {
  for (Key const& key : keys) {
    put(table, key, rowOf(key));
  }
}

// Times `work` on each iteration; `setUp` and the table's end are not timed.
template <class Table, class SetUp, class Work>
void timeEach(benchmark::State& state, SetUp&& setUp, Work&& work) {
  for (auto _ : state) {
    Table table;
    setUp(table);
    auto const start = std::chrono::steady_clock::now();
    work(table);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    benchmark::DoNotOptimize(table);
  }
}

template <class Table>
void insertRandom(benchmark::State& state) {
  std::vector<Key> const& keys = randomKeys(static_cast<std::size_t>(state.range(0)));
  timeEach<Table>(
      state, [](Table&) {}, [&keys](Table& table) { fill(table, keys); });
}

template <class Table>
void eraseRandom(benchmark::State& state) {
  std::size_t const count = static_cast<std::size_t>(state.range(0));
  std::vector<Key> const& keys = shuffledKeys(count);
  timeEach<Table>(
      state, [count](Table& table) { fill(table, randomKeys(count)); },
      [&keys](Table& table) {
        for (Key const& key : keys) {
          remove(table, key);
        }
      });
}

// One table filled while walking another with the same keys: the copy of a
// table by hand, the replay of one collection into another.
template <class Table>
void fillInOtherMapsOrder(benchmark::State& state) {
  Table source;
  fill(source, randomKeys(static_cast<std::size_t>(state.range(0))));
  timeEach<Table>(
      state, [](Table&) {},
      [&source](Table& table) {
        for (auto const& [key, row] : source) {
          put(table, key, row);
        }
      });
}

template <class Table>
void copy(benchmark::State& state) {
  Table source;
  fill(source, randomKeys(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    auto const start = std::chrono::steady_clock::now();
    Table const copy(source);
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    benchmark::DoNotOptimize(copy);
  }
}

// A drain: walk the table and erase each key as it is handled.
template <class Table>
void drainInWalkOrder(benchmark::State& state) {
  std::size_t const count = static_cast<std::size_t>(state.range(0));
  timeEach<Table>(
      state, [count](Table& table) { fill(table, randomKeys(count)); },
      [](Table& table) {
        for (auto it = table.begin(); it != table.end();) {
          Key const key = it->first;
          ++it;
          remove(table, key);
        }
      });
}

template <class Table>
void lookupHit(benchmark::State& state) {
  std::size_t const count = static_cast<std::size_t>(state.range(0));
  std::vector<Key> const& keys = shuffledKeys(count);
  Table table;
  fill(table, randomKeys(count));
  std::uint64_t sum = 0;
  for (auto _ : state) {
    auto const start = std::chrono::steady_clock::now();
    for (Key const& key : keys) {
      sum += lookUp(table, key)->words[0];
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  benchmark::DoNotOptimize(sum);
}

// Registers the timings of a table as <prefix><Operation>/N at both sizes:
// insert, erase and lookup, and with `walks` the fill in another map's
// order, the copy and the drain in walk order.
template <class Table>
bool registerTimings(std::string const& prefix, bool walks) {
  auto const add = [&prefix](char const* operation, void (*timing)(benchmark::State&)) {
    benchmark::RegisterBenchmark((prefix + operation).c_str(), timing)->Apply(atBothSizes);
  };
  add("InsertRandom", insertRandom<Table>);
  add("EraseRandom", eraseRandom<Table>);
  add("LookupHit", lookupHit<Table>);
  if (walks) {
    add("FillInOtherMapsOrder", fillInOtherMapsOrder<Table>);
    add("Copy", copy<Table>);
    add("DrainInWalkOrder", drainInWalkOrder<Table>);
  }
  return true;
}

// Heap bytes in use after filling a table with N keys, less before, per key.
template <class Table>
double heapBytesPerEntry(std::vector<Key> const& keys) {
  auto const inUse = [] {
    struct mallinfo2 const info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
  };
  double const before = inUse();
  Table table;
  fill(table, keys);
  double const after = inUse();
  benchmark::DoNotOptimize(table);
  return (after - before) / static_cast<double>(keys.size());
}

}  // namespace RxnBench

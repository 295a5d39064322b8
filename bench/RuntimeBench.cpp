// Benchmarks of the runtime's hot paths, with their baselines, in one binary
// so that the ratios come from one run.

#include <benchmark/benchmark.h>

#include <boost/signals2/signal.hpp>
#include <limits>
#include <unordered_map>
#include <vector>

#include "bench/Observers.h"
#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"

namespace RxnBench {
namespace {

constexpr std::uint32_t kTableSize = 1024;

void BM_DirectVirtualCall(benchmark::State& state) {
  std::uint64_t count = 0;
  std::unique_ptr<Observer> observer(makeCountingObserver(&count));
  Observer* volatile target = observer.get();
  for (auto _ : state) {
    target->onChange();
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_DirectVirtualCall);

void BM_ScalarAttrNotify(benchmark::State& state) {
  Rxn::Ptr<Counter> counter = counterFactory("counter");
  std::uint64_t count = 0;
  std::vector<Rxn::Ptr<Counter::NotifieeConst>> reactors;
  for (int64_t i = 0; i < state.range(0); ++i) {
    reactors.push_back(makeCountingReactor(counter, &count));
  }
  std::uint64_t value = 0;
  for (auto _ : state) {
    counter->valueIs(++value);
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_ScalarAttrNotify)->Arg(1)->Arg(4);

void BM_ScalarAttrNoChange(benchmark::State& state) {
  Rxn::Ptr<Counter> counter = counterFactory("counter");
  std::uint64_t count = 0;
  Rxn::Ptr<Counter::NotifieeConst> reactor = makeCountingReactor(counter, &count);
  counter->valueIs(7);
  for (auto _ : state) {
    counter->valueIs(7);
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_ScalarAttrNoChange);

void BM_KeyedInsertDeleteNotify(benchmark::State& state) {
  Rxn::Ptr<Counter> counter = counterFactory("counter");
  for (std::uint32_t k = 0; k < kTableSize; ++k) {
    counter->entriesIs(k, k);
  }
  std::uint64_t count = 0;
  Rxn::Ptr<Counter::NotifieeConst> reactor = makeCountingReactor(counter, &count);
  std::uint32_t key = kTableSize;
  for (auto _ : state) {
    counter->entriesIs(key, 1);
    counter->entriesDel(key);
    key = key + 1 < 2 * kTableSize ? key + 1 : kTableSize;
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_KeyedInsertDeleteNotify)->Arg(1);

void BM_StdUnorderedMapInsertErase(benchmark::State& state) {
  std::unordered_map<std::uint32_t, std::uint64_t> table;
  for (std::uint32_t k = 0; k < kTableSize; ++k) {
    table.emplace(k, k);
  }
  std::uint32_t key = kTableSize;
  for (auto _ : state) {
    table.emplace(key, 1);
    table.erase(key);
    key = key + 1 < 2 * kTableSize ? key + 1 : kTableSize;
  }
  benchmark::DoNotOptimize(table.size());
}
BENCHMARK(BM_StdUnorderedMapInsertErase);

void BM_BoostSignals2Emit(benchmark::State& state) {
  boost::signals2::signal<void()> signal;
  std::uint64_t count = 0;
  std::unique_ptr<Observer> observer(makeCountingObserver(&count));
  for (int64_t i = 0; i < state.range(0); ++i) {
    signal.connect([&observer] { observer->onChange(); });
  }
  for (auto _ : state) {
    signal();
  }
  benchmark::DoNotOptimize(count);
}
BENCHMARK(BM_BoostSignals2Emit)->Arg(1);

// A machine with one reactor per member of a source collection.
class FollowerSm : public Fab::FabBaseSm {
 public:
  class RxnMember : public Rxn::Reactor<FollowerSm, Member const> {
   public:
    using Reactor::Reactor;
  };
  class RxnSource : public Rxn::Reactor<FollowerSm, Source const> {
   public:
    using Reactor::Reactor;
    void onMember(std::uint32_t const& key) override {
      if (rxnMarkedForDeletion()) return;
      owner()->member_.follow(owner(), notifier()->member(), key);
    }
  };
  FollowerSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<Source const> const& source)
      : FabBaseSm(acsd),
        source_(reactors(), new RxnSource(source, this)),
        member_(reactors(), "FollowerSm", "member") {}

 private:
  Rxn::ReactorPtr<RxnSource> source_;
  Rxn::ReactorCollection<std::uint32_t, RxnMember> member_;
};

void BM_ReactorCollectionAddRemove(benchmark::State& state) {
  Rxn::Ptr<Source> source = sourceFactory("source");
  auto sm = Fab::smFactory<FollowerSm>(Fab::fabCommonSmDataFactory("acsd"), source);
  for (auto _ : state) {
    source->memberIs(1);
    source->memberDel(1);
  }
  state.counters["reactor_bytes"] = sizeof(FollowerSm::RxnMember);
  state.counters["entity_bytes"] = sizeof(Rxn::Entity);
  state.counters["counter_entity_bytes"] = sizeof(Counter);
}
BENCHMARK(BM_ReactorCollectionAddRemove);

class Rearming : public Rxn::Clock::NotifieeConst {
 public:
  Rearming() {
    notifierIs(Rxn::ActivityFacility::clock());
    hasNotificationActiveIs(true);
  }
  void onTime() override { timeMinIs(0); }
};

void BM_ClockRearmZero(benchmark::State& state) {
  Rxn::Activity activity;
  Rxn::Ptr<Rearming> reactor(new Rearming);
  reactor->timeMinIs(0);
  for (auto _ : state) {
    activity.runTurn();
  }
}
BENCHMARK(BM_ClockRearmZero);

void BM_HashMapIterate(benchmark::State& state) {
  Rxn::HashMap2018<std::uint32_t, std::uint64_t> map;
  for (std::uint32_t k = 0; k < 100000; ++k) {
    map.insertOrAssign(k, k);
  }
  auto it = map.begin();
  std::uint64_t sum = 0;
  for (auto _ : state) {
    if (it == map.end()) {
      it = map.begin();
    }
    sum += it.value();
    ++it;
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_HashMapIterate);

}  // namespace
}  // namespace RxnBench

BENCHMARK_MAIN();

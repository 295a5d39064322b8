#include "bench/Observers.h"

namespace RxnBench {

namespace {

class CountingObserver : public Observer {
 public:
  explicit CountingObserver(std::uint64_t* count) : count_(count) {}
  void onChange() override { ++*count_; }

 private:
  std::uint64_t* count_;
};

class CountingReactor : public Counter::NotifieeConst {
 public:
  CountingReactor(Rxn::Ptr<Counter const> const& counter, std::uint64_t* count) : count_(count) {
    notifierIs(counter);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onValue() override {
    if (rxnMarkedForDeletion()) return;
    ++*count_;
  }
  void onEntries(std::uint32_t const&) override {
    if (rxnMarkedForDeletion()) return;
    ++*count_;
  }

 private:
  std::uint64_t* count_;
};

}  // namespace

Observer* makeCountingObserver(std::uint64_t* count) {
  return new CountingObserver(count);
}

Rxn::Ptr<Counter::NotifieeConst> makeCountingReactor(Rxn::Ptr<Counter const> const& counter, std::uint64_t* count) {
  return new CountingReactor(counter, count);
}

}  // namespace RxnBench

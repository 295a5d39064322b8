#include "fabvxlan/state/FabBaseSm.h"

#include <assert.h>

#include <cstdio>
#include <cstdlib>
#include <limits>

namespace Fab {

namespace {

[[noreturn]] void abortWithAssertion(char const* file, unsigned line, char const* function) {
  __assert_fail("0", file, line, function);
}

}  // namespace

void FabBaseSm::fabAssert(Rxn::String error) const {
  fabAssertFailure(error);
}

void FabBaseHelper::fabAssert(Rxn::String error) const {
  fabAssertFailure(error);
}

void fabAssertFailure(Rxn::String const& error) {
  if (std::getenv("FAB_NOOP_AGENT") != nullptr) {
    return;
  }
  std::fprintf(stderr, "%s\n", error.c_str());
  std::fflush(stderr);
  abortWithAssertion(__FILE__, __LINE__, "void Fab::FabBaseHelper::fabAssert(Rxn::String) const");
}

void reportVerifyFailure(Rxn::Ptr<VerifyData const> const& verifyData, Rxn::String const& text, char const* file,
                         unsigned line, char const* function) {
  if (std::getenv("SIMULATION_VMID") != nullptr) {
    if (verifyData) {
      const_cast<VerifyData*>(verifyData.get())->verifyOutputIs(VerifyOutput(text, line, file, function, 3));
    }
    abortWithAssertion(file, line, function);
  }
  if (verifyData) {
    verifyData->updateCliVerifyOutput(function, text);
  }
}

void requestVerify(Rxn::Ptr<VerifyData const> const& verifyData) {
  if (verifyData && verifyData->verifyRequired()) {
    const_cast<VerifyData*>(verifyData.get())->doRequestVerify();
  }
}

void VerifyData::doRequestVerify() {
  reverifyInc(1);
}

class VerifyHarness::RxnRunClock : public Rxn::Reactor<VerifyHarness, Rxn::Clock const> {
 public:
  RxnRunClock(Rxn::Ptr<Rxn::Clock const> const& clock, VerifyHarness* owner, Rxn::Ptr<VerifyData> verifyData)
      : Reactor(clock, owner), verifyData_(std::move(verifyData)) {}
  void onTime() override {
    if (rxnMarkedForDeletion()) return;
    verifyData_->verifyInc(1);
  }

 private:
  Rxn::Ptr<VerifyData> verifyData_;
};

class VerifyHarness::RxnReverify : public Rxn::Reactor<VerifyHarness, VerifyData> {
 public:
  using Reactor::Reactor;
  void onReverify() override {
    if (rxnMarkedForDeletion()) return;
    owner()->runClock_->timeMinIs(0);
  }
};

VerifyHarness::VerifyHarness(Rxn::Ptr<VerifyData> const& verifyData)
    : reverify_(new RxnReverify(verifyData, this)),
      runClock_(new RxnRunClock(Rxn::ActivityFacility::clock(), this, verifyData)) {
  reverify_->hasNotificationActiveIs(true);
  runClock_->hasNotificationActiveIs(true);
}

VerifyHarness::~VerifyHarness() {
  runClock_->timeMinIs(std::numeric_limits<double>::infinity());
}

void VerifyData::updateCliVerifyOutput(Rxn::String function, Rxn::String text) const {
  const_cast<VerifyData*>(this)->cliVerifyOutputIs(function, text);
}

}  // namespace Fab

// The frame of every state machine: fabAssert, verification, factory steps.

#include <gtest/gtest.h>

#include <cstdlib>

#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"

namespace {

// A platform hook with one operation a platform must implement.
class ChipHelper : public Fab::FabBaseHelper {
 public:
  using FabBaseHelper::FabBaseHelper;
  virtual int doProgramChip() {
    fabAssert("Call to unimplemented FabHelper::ChipHelper::doProgramChip");
    return 0;
  }
};

class ScopedEnv {
 public:
  ScopedEnv(char const* name, char const* value) : name_(name) { ::setenv(name, value, 1); }
  ~ScopedEnv() { ::unsetenv(name_); }

 private:
  char const* name_;
};

TEST(FrameDeathTest, AnUnimplementedHookEndsTheProcessUnlessTheAgentIsANoop) {
  Rxn::Ptr<ChipHelper> helper(new ChipHelper("chip"));
  EXPECT_DEATH(helper->doProgramChip(),
               "Call to unimplemented FabHelper::ChipHelper::doProgramChip\n.*"
               "void Fab::FabBaseHelper::fabAssert\\(Rxn::String\\) const: Assertion `0' failed");
  // A state machine's fabAssert ends the same way.
  Rxn::Ptr<Fab::FabBaseSm> sm = Fab::smFactory<Fab::FabBaseSm>(Fab::fabCommonSmDataFactory("acsd"));
  EXPECT_DEATH(sm->fabAssert("machine gave up"),
               "machine gave up\n.*void Fab::FabBaseHelper::fabAssert\\(Rxn::String\\) const: Assertion `0' failed");

  ScopedEnv noop("FAB_NOOP_AGENT", "1");
  EXPECT_EQ(helper->doProgramChip(), 0);
  sm->fabAssert("quiet under a no-op agent");
}

}  // namespace

namespace FabTest {

// A machine that checks a private count against a published one.
class CounterSm : public Fab::FabBaseSm {
 public:
  class RxnVerifyData : public Rxn::Reactor<CounterSm, Fab::VerifyData const> {
   public:
    using Reactor::Reactor;
    void onVerify() override {
      if (rxnMarkedForDeletion()) return;
      owner()->handleVerify();
    }

   protected:
    void rxnReplay() override { owner()->handleVerify(); }
  };

  explicit CounterSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd)
      : FabBaseSm(acsd), verifyData_(reactors(), new RxnVerifyData(acsd->verifyData(), this)) {}

  void handleVerify() {
    ++verifications;
    if (!initialized()) return;
    if (privateCount != publishedCount) {
      FAB_VERIFY_FAILURE(verifyData_->notifier(),
                         Rxn::format("count %d differs from published %d", privateCount, publishedCount));
    }
  }
  void verifyDataIs(Rxn::Ptr<Fab::VerifyData const> const& verifyData) { verifyData_->notifierIs(verifyData); }
  // One step of work, and a verification run if the harness wants one.
  void step() {
    ++privateCount;
    Fab::requestVerify(verifyData_->notifier());
  }

  int verifications = 0;
  int privateCount = 0;
  int publishedCount = 0;

 private:
  Rxn::ReactorPtr<RxnVerifyData> verifyData_;
};

}  // namespace FabTest

namespace {

using FabTest::CounterSm;

class FrameTest : public ::testing::Test {
 protected:
  FrameTest() : acsd_(Fab::fabCommonSmDataFactory("acsd")) {
    verifyData_ = acsd_->verifyDataIs("verifyData");
    sm_ = Fab::smFactory<CounterSm>(acsd_);
  }
  Rxn::Activity activity_{Rxn::Activity::TimeMode::simulated};
  Rxn::Ptr<Fab::FabCommonSmData> acsd_;
  Rxn::Ptr<Fab::VerifyData> verifyData_;
  Rxn::Ptr<CounterSm> sm_;
};

TEST_F(FrameTest, VerificationChecksOnlyAnInitializedMachineAndReportsMismatches) {
  sm_->privateCount = 1;
  verifyData_->verifyInc(1);
  EXPECT_EQ(sm_->verifications, 1);
  EXPECT_TRUE(verifyData_->cliVerifyOutput().empty());

  sm_->handleInitialized();
  EXPECT_TRUE(sm_->initialized());
  verifyData_->verifyInc(1);
  ASSERT_EQ(verifyData_->cliVerifyOutput().size(), 1U);
  auto const& [function, text] = *verifyData_->cliVerifyOutput().begin();
  EXPECT_EQ(function, "void FabTest::CounterSm::handleVerify()");
  EXPECT_EQ(text, "count 1 differs from published 0");

  // Steps ask for a run only while the harness requires verification, and
  // the harness runs it at the next turn, once for a burst of steps.
  Rxn::Ptr<Fab::VerifyHarness> harness(new Fab::VerifyHarness(verifyData_));
  int const before = sm_->verifications;
  sm_->step();
  activity_.runUntilIdle();
  EXPECT_EQ(sm_->verifications, before);
  verifyData_->verifyRequiredIs(true);
  sm_->step();
  sm_->step();
  EXPECT_EQ(sm_->verifications, before);
  activity_.runUntilIdle();
  EXPECT_EQ(sm_->verifications, before + 1);

  // A new verification channel: the machine checks itself at once.
  Rxn::Ptr<Fab::VerifyData> other = acsd_->verifyDataIs("otherVerifyData");
  sm_->verifyDataIs(other);
  EXPECT_EQ(sm_->verifications, before + 2);
  EXPECT_EQ(other->cliVerifyOutput().size(), 1U);
}

TEST_F(FrameTest, UnderSimulationAVerificationFailureIsStoredAndFatal) {
  // Shows the stored record on stderr, where the death test can see it.
  class OutputPrinter : public Fab::VerifyData::NotifieeConst {
   public:
    void onVerifyOutput() override {
      Fab::VerifyOutput const out = notifier()->verifyOutput();
      std::fprintf(stderr, "stored: %s line %u code %u in %s\n", out.message().c_str(), out.line(), out.code(),
                   out.function().c_str());
    }
  };
  Rxn::Ptr<OutputPrinter> printer(new OutputPrinter);
  printer->notifierIs(verifyData_);
  printer->isRegisteredNotifieeIs(true);
  printer->hasNotificationActiveIs(true);
  sm_->handleInitialized();
  sm_->privateCount = 2;
  ScopedEnv simulation("SIMULATION_VMID", "7");
  EXPECT_DEATH(
      verifyData_->verifyInc(1),
      "stored: count 2 differs from published 0 line [0-9]+ code 3 in void FabTest::CounterSm::handleVerify\\(\\)\n"
      ".*Assertion `0' failed");
}

}  // namespace

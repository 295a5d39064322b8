// Reactors of a state machine: start, replay on attach, keyed collections,
// the zombie step, and deletion inside a handler.

#include <gtest/gtest.h>

#include <algorithm>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/Log.h"
#include "tests/runtime/WatcherSm.h"

namespace RxnTest {
namespace {

using Lines = std::vector<std::string>;

Lines sorted(Lines lines) {
  std::sort(lines.begin(), lines.end());
  return lines;
}

class ReactorTest : public ::testing::Test {
 protected:
  ReactorTest() : acsd_(Fab::fabCommonSmDataFactory("acsd")), panel_(panelFactory("panel")) {
    panel_->sensorIs(1)->modeIs(Mode::on);
    panel_->sensorIs(2)->levelIs(-5);
    sm_ = Fab::smFactory<WatcherSm>(acsd_, panel_);
  }
  Lines take() { return std::exchange(*sm_->journal, {}); }

  Rxn::Ptr<Fab::FabCommonSmData> acsd_;
  Rxn::Ptr<Panel> panel_;
  Rxn::Ptr<WatcherSm> sm_;
};

TEST_F(ReactorTest, HandlersWaitForHandleInitializedThenReplayOnAttach) {
  // The constructor made a reactor per sensor and ran no attribute handler.
  EXPECT_EQ(sm_->sensors(), 2U);
  panel_->sensor(1)->levelIs(9);
  panel_->alarmsIs(1);
  EXPECT_EQ(take(), Lines{});

  sm_->handleInitialized();
  EXPECT_EQ(sorted(take()), (Lines{"level 1 9", "level 2 -5", "mode 1 on", "mode 2 off"}));

  // The present notifier again: nothing runs.
  sm_->panelIs(panel_);
  EXPECT_EQ(take(), Lines{});

  // Another panel: its scalars replay, and the sensors reconcile.
  Rxn::Ptr<Panel> other = panelFactory("other");
  other->alarmsIs(3);
  other->sensorIs(2);
  other->sensorIs(3)->modeIs(Mode::standby);
  sm_->panelIs(other);
  EXPECT_EQ(sorted(take()), (Lines{"alarms 3", "cleanup 1", "level 2 0", "level 3 0", "mode 2 off", "mode 3 standby"}));
  EXPECT_EQ(sm_->sensors(), 2U);
  EXPECT_EQ(sm_->sensor(1), nullptr);
}

TEST_F(ReactorTest, AKeyedCollectionFollowsItsSource) {
  sm_->handleInitialized();
  take();

  panel_->sensorIs(5);
  EXPECT_EQ(take(), (Lines{"mode 5 off", "level 5 0"}));
  panel_->sensor(5)->modeIs(Mode::on);
  panel_->sensor(5)->limitIs(2, 40);
  EXPECT_EQ(take(), (Lines{"mode 5 on", "limit 5 2"}));

  Rxn::Ptr<Sensor const> gone = panel_->sensor(5);
  panel_->sensorDel(5);
  EXPECT_EQ(take(), Lines{"cleanup 5"});
  EXPECT_EQ(sm_->sensor(5), nullptr);
  // The key-less notification makes the collection reconcile with its source.
  sm_->sensorIs(gone);
  take();
  const_cast<Panel*>(panel_.get())->sensorNotify();
  EXPECT_EQ(take(), Lines{"cleanup 5"});
  EXPECT_EQ(sm_->sensor(5), nullptr);
  // A retired reactor hears nothing more of its old notifier.
  const_cast<Sensor*>(gone.get())->modeIs(Mode::off);
  EXPECT_EQ(take(), Lines{});

  // Another object under a present key: the reactor moves over and replays.
  Rxn::Ptr<Sensor> replacement = sensorFactory(2);
  replacement->modeIs(Mode::standby);
  auto* reactor = sm_->sensor(2);
  EXPECT_EQ(sm_->sensorIs(replacement), reactor);
  EXPECT_EQ(take(), (Lines{"mode 2 standby", "level 2 0"}));
  EXPECT_EQ(sm_->sensorIs(replacement), reactor);
  EXPECT_EQ(take(), Lines{});

  try {
    sm_->sensorIs(nullptr);
    FAIL() << "a null member must be refused";
  } catch (Rxn::RangeException const& e) {
    EXPECT_STREQ(e.what(), "null _sensor parameter to mutator for RxnTest::WatcherSm::sensor not allowed");
  }
  EXPECT_EQ(sm_->sensorDel(42), nullptr);
  EXPECT_EQ(sm_->sensorDel(2), replacement);
  EXPECT_EQ(take(), Lines{"cleanup 2"});
}

TEST_F(ReactorTest, AReplayStopsWhenItsReactorIsRetiredHalfWay) {
  sm_->handleInitialized();
  take();
  // Moving sensor 1's reactor to another object replays mode, then level;
  // the mode handler retires the reactor, so level is not replayed.
  sm_->onModeHook = [this](WatcherSm::RxnSensor* reactor) {
    if (reactor->fwkKey() == 1) sm_->sensorDel(1);
  };
  Rxn::Ptr<Sensor> moved = sensorFactory(1);
  EXPECT_EQ(sm_->sensorIs(moved), nullptr);
  EXPECT_EQ(take(), (Lines{"mode 1 off", "cleanup 1"}));
  EXPECT_EQ(sm_->sensor(1), nullptr);

  // A new reactor whose start removes its own member from the source is
  // retired again at once, not left watching a deleted member.
  sm_->onModeHook = [this](WatcherSm::RxnSensor* reactor) {
    if (reactor->fwkKey() == 8) panel_->sensorDel(8);
  };
  panel_->sensorIs(8);
  EXPECT_EQ(take(), (Lines{"mode 8 off", "level 8 0", "cleanup 8"}));
  EXPECT_EQ(sm_->sensor(8), nullptr);
}

TEST_F(ReactorTest, AReactorDeletedByItsOwnHandlerFinishesAndHearsNoMore) {
  sm_->handleInitialized();
  take();
  // Sensor 1 exists only through its reactor: deleting the reactor inside
  // its handler also destroys the notifier that is still notifying.
  Rxn::Ptr<Sensor> lonely = sensorFactory(9);
  sm_->sensorIs(lonely);
  take();
  Sensor* raw = lonely.get();
  lonely = nullptr;

  sm_->onModeHook = [this](WatcherSm::RxnSensor* reactor) {
    std::uint32_t const id = reactor->fwkKey();
    if (id != 9) return;
    sm_->sensorDel(id);
    // A nested notification for the deleted reactor is dropped.
    const_cast<Sensor*>(reactor->notifier().get())->levelIs(77);
    sm_->note("handler finished " + std::to_string(id));
  };
  raw->modeIs(Mode::on);
  EXPECT_EQ(take(), (Lines{"mode 9 on", "cleanup 9", "handler finished 9"}));
  EXPECT_EQ(sm_->sensor(9), nullptr);

  // The others are untouched.
  panel_->sensor(2)->modeIs(Mode::on);
  EXPECT_EQ(take(), Lines{"mode 2 on"});
}

TEST_F(ReactorTest, ZombieReactorsAreSilentUntilRevived) {
  sm_->handleInitialized();
  take();

  sm_->rxnDoZombieReactors(true);
  EXPECT_TRUE(sm_->rxnMarkedForDeletion());
  EXPECT_EQ(sorted(take()), (Lines{"cleanup 1", "cleanup 2"}));
  panel_->sensor(1)->modeIs(Mode::standby);
  panel_->alarmsIs(4);
  EXPECT_EQ(take(), Lines{});

  // A member that appears while the machine is marked gets a marked reactor.
  sm_->sensorIs(sensorFactory(6));
  EXPECT_EQ(take(), (Lines{"mode 6 off", "level 6 0", "cleanup 6"}));

  // Twice is once.
  sm_->rxnDoZombieReactors(true);
  EXPECT_EQ(take(), Lines{});

  sm_->rxnDoZombieReactors(false);
  EXPECT_EQ(sorted(take()), (Lines{"revive 1", "revive 2", "revive 6"}));
  panel_->sensor(1)->modeIs(Mode::on);
  EXPECT_EQ(take(), Lines{"mode 1 on"});
}

TEST_F(ReactorTest, TheMachineIsSilentUntilActivatedAndDetachesWhenDropped) {
  Rxn::Ptr<WatcherSm> idle(new WatcherSm(acsd_, panel_));
  idle->handleInitialized();
  idle->journal->clear();
  panel_->sensor(1)->modeIs(Mode::standby);
  EXPECT_EQ(*idle->journal, Lines{});
  idle->hasNotificationActiveIs(true);
  panel_->sensor(1)->modeIs(Mode::on);
  EXPECT_EQ(*idle->journal, Lines{"mode 1 on"});

  // Dropping the last reference runs every removal hook, then detaches.
  auto const journal = idle->journal;
  journal->clear();
  idle = nullptr;
  EXPECT_EQ(sorted(*journal), (Lines{"cleanup 1", "cleanup 2"}));
  panel_->sensor(1)->modeIs(Mode::standby);
  EXPECT_EQ(sorted(*journal), (Lines{"cleanup 1", "cleanup 2"}));
  // Only the fixture's machine still watches the sensor.
  EXPECT_EQ(panel_->sensor(1)->notifieeList()->size(), 1U);
}

// A machine made on the stack, once counted and let go, would be freed by
// its last reference and again at the end of its scope: it is refused at the
// first, with the remedy.
TEST_F(ReactorTest, AMachineNotMadeWithNewIsRefusedWhenItsLastReferenceGoes) {
  EXPECT_DEATH(
      {
        WatcherSm onTheStack(acsd_, panel_);
        Rxn::Ptr<WatcherSm> held(&onTheStack);
        held = nullptr;
      },
      "Rxn: a .* lost its last counted reference but was not made with new: .*hold it in an Rxn::Ptr");
  // The same machine made with new goes quietly.
  Rxn::Ptr<WatcherSm> held(new WatcherSm(acsd_, panel_));
  held = nullptr;
}

// Watches the sensor of the machine's reactor that owns it, as the flood
// sets of a VLAN are watched under the VLAN's reactor.
class NestedSensorReactor : public Rxn::Reactor<WatcherSm::RxnSensor, Sensor const> {
 public:
  using Reactor::Reactor;
  void onLevel() override { throw Rxn::RangeException("level out of reach"); }
};

TEST_F(ReactorTest, AnExceptionInAReactorIsReportedWithTheReactorAndTheMachineAtTheTop) {
  Lines logged;
  Rxn::logSinkIs(
      [&](Rxn::LogHandle const& handle, Rxn::String const& text) { logged.push_back(Rxn::logLine(handle, text)); });
  sm_->handleInitialized();
  take();

  sm_->onModeHook = [](WatcherSm::RxnSensor*) { throw Rxn::RangeException("mode out of reach"); };
  panel_->sensor(1)->modeIs(Mode::standby);
  Rxn::Ptr<NestedSensorReactor> nested(new NestedSensorReactor(panel_->sensor(1), sm_->sensor(1)));
  nested->hasNotificationActiveIs(true);
  panel_->sensor(1)->levelIs(3);
  Rxn::logSinkIs(nullptr);

  EXPECT_EQ(logged,
            (Lines{"%RXN-3-NOTIFICATION_EXCEPTION: Reactor RxnTest::WatcherSm::RxnSensor of RxnTest::WatcherSm: "
                   "mode out of reach",
                   "%RXN-3-NOTIFICATION_EXCEPTION: Reactor RxnTest::(anonymous namespace)::NestedSensorReactor "
                   "of RxnTest::WatcherSm: level out of reach"}));
  // The handler noted the mode before its hook threw, and the machine's own
  // reactor still heard the level beside the nested one that threw.
  EXPECT_EQ(take(), (Lines{"mode 1 standby", "level 1 3"}));
}

}  // namespace
}  // namespace RxnTest

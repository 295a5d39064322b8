// Delivery: synchronous, re-entrant, change-only; failures stay contained.

#include <gtest/gtest.h>

#include <thread>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/Log.h"
#include "tests/runtime/Recorder.h"

namespace RxnTest {
namespace {

using Lines = std::vector<std::string>;

// Mutates its own notifier from inside its handlers.
class Meddler : public SensorRecorder {
 public:
  using SensorRecorder::SensorRecorder;
  void onMode() override {
    heard.push_back("mode " + Rxn::valueToString(notifier()->mode()));
    auto* sensor = const_cast<Sensor*>(notifier().get());
    if (sensor->mode() == Mode::on) {
      sensor->levelIs(100);           // another attribute: delivered at once
      sensor->modeIs(Mode::standby);  // the same attribute: a nested delivery
      // Re-read after the mutators: the nested run already moved the state.
      heard.push_back("after nested, mode " + Rxn::valueToString(sensor->mode()));
    }
  }
  void onLevel() override { heard.push_back("level " + std::to_string(notifier()->level())); }
};

TEST(Delivery, HandlersRunInsideTheMutatorAndMayReenter) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<Meddler> meddler(new Meddler(sensor));
  Rxn::Ptr<SensorRecorder> bystander(new SensorRecorder(sensor));

  sensor->modeIs(Mode::on);
  EXPECT_EQ(meddler->take(), (Lines{"mode on", "level 100", "mode standby", "after nested, mode standby"}));
  // The bystander heard each change once; per key, it may read only the last value.
  Lines heard = bystander->take();
  EXPECT_EQ(std::count(heard.begin(), heard.end(), "mode"), 2);
  EXPECT_EQ(std::count(heard.begin(), heard.end(), "level"), 1);
  EXPECT_EQ(sensor->mode(), Mode::standby);
}

// Attaches a newcomer and detaches the bystander while being notified.
class Rearranger : public SensorRecorder {
 public:
  using SensorRecorder::SensorRecorder;
  void onLevel() override {
    heard.push_back("level");
    if (victim) victim->isRegisteredNotifieeIs(false);
    newcomer = new SensorRecorder(notifier());
  }
  Rxn::Ptr<SensorRecorder> victim;
  Rxn::Ptr<SensorRecorder> newcomer;
};

TEST(Delivery, ReactorsMayComeAndGoDuringAVisit) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<Rearranger> rearranger(new Rearranger(sensor));
  Rxn::Ptr<SensorRecorder> victim(new SensorRecorder(sensor));
  rearranger->victim = victim;

  sensor->levelIs(1);
  EXPECT_EQ(rearranger->take(), Lines{"level"});
  EXPECT_EQ(victim->take(), Lines{});
  EXPECT_EQ(sensor->notifieeList()->size(), 2U);

  rearranger->victim = nullptr;
  Rxn::Ptr<SensorRecorder> first = rearranger->newcomer;
  sensor->levelIs(2);
  EXPECT_EQ(first->take(), Lines{"level"});
}

class Thrower : public SensorRecorder {
 public:
  using SensorRecorder::SensorRecorder;
  void onMode() override { throw Rxn::RangeException("mode out of reach"); }
};

TEST(Delivery, AnExceptionInOneHandlerIsReportedAndTheOthersStillHear) {
  std::vector<std::string> logged;
  Rxn::logSinkIs(
      [&](Rxn::LogHandle const& handle, Rxn::String const& text) { logged.push_back(Rxn::logLine(handle, text)); });
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<Thrower> thrower(new Thrower(sensor));
  Rxn::Ptr<SensorRecorder> recorder(new SensorRecorder(sensor));
  sensor->modeIs(Mode::on);
  Rxn::logSinkIs(nullptr);

  EXPECT_EQ(recorder->take(), Lines{"mode"});
  ASSERT_EQ(logged.size(), 1U);
  // A notifiee that no machine owns is named alone.
  EXPECT_EQ(logged[0],
            "%RXN-3-NOTIFICATION_EXCEPTION: Reactor RxnTest::(anonymous namespace)::Thrower of no machine: mode out of "
            "reach");
}

}  // namespace
}  // namespace RxnTest

namespace RxnTest {
namespace {

TEST(Delivery, DeleteAllDetachesEveryReactorAndADirectoryNotifiesPerMember) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<SensorRecorder> first(new SensorRecorder(sensor));
  Rxn::Ptr<SensorRecorder> second(new SensorRecorder(sensor));
  sensor->notifieeList()->deleteAll();
  sensor->modeIs(Mode::on);
  EXPECT_EQ(first->take(), Lines{});
  EXPECT_FALSE(second->isRegisteredNotifiee());
  EXPECT_EQ(second->notifier(), sensor);

  class DirRecorder : public Rxn::Entity::NotifieeConst {
   public:
    void onEntity(Rxn::String const& name) override { heard.push_back(name); }
    Lines heard;
  };
  Rxn::Ptr<Rxn::Dir> dir(new Rxn::Dir("sensors"));
  Rxn::Ptr<DirRecorder> recorder(new DirRecorder);
  recorder->notifierIs(dir);
  recorder->isRegisteredNotifieeIs(true);
  recorder->hasNotificationActiveIs(true);
  dir->entityIs(sensor);
  dir->entityIs(sensor);
  EXPECT_EQ(dir->entity("1"), sensor);
  EXPECT_EQ(sensor->fullName(), "/sensors/1");
  dir->entityDel("1");
  dir->entityDel("1");
  EXPECT_EQ(dir->entity("1"), nullptr);
  EXPECT_EQ(recorder->heard, (Lines{"1", "1"}));
  EXPECT_THROW(dir->entityIs(nullptr), Rxn::RangeException);
}

TEST(Delivery, CountsStayExactWhenThreadsShareObjects) {
  Rxn::VFPtrInterface::threadSafePointers_ = true;
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&sensor] {
      for (int i = 0; i < 20000; ++i) {
        Rxn::Ptr<Sensor> copy = sensor;
        Rxn::Ptr<Sensor const> reader = copy;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(sensor->references(), 1U);
  Rxn::VFPtrInterface::threadSafePointers_ = false;
}

}  // namespace
}  // namespace RxnTest

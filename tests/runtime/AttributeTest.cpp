// The uniform members of declared attributes and the notifications they raise.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/runtime/Recorder.h"
#include "tests/runtime/RxnTestState.h"

namespace RxnTest {
namespace {

using Lines = std::vector<std::string>;

TEST(Attribute, ScalarsNotifyOnlyOnChange) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(7);
  Rxn::Ptr<SensorRecorder> recorder(new SensorRecorder(sensor));
  EXPECT_EQ(sensor->mode(), Mode::off);
  EXPECT_EQ(sensor->id(), 7U);
  EXPECT_EQ(sensor->name(), "7");

  sensor->modeIs(Mode::off);
  EXPECT_EQ(recorder->take(), Lines{});
  sensor->modeIs(Mode::on);
  sensor->modeIs(Mode::on);
  EXPECT_EQ(recorder->take(), Lines{"mode"});

  EXPECT_EQ(sensor->countInc(5), 5U);
  EXPECT_EQ(sensor->countInc(2), 7U);
  EXPECT_EQ(sensor->countInc(0), 7U);
  EXPECT_EQ(recorder->take(), (Lines{"count", "count"}));

  Rxn::Ptr<Display> display = displayFactory("front");
  sensor->peerIs(display);
  sensor->peerIs(display);
  sensor->peerIs(nullptr);
  EXPECT_EQ(recorder->take(), (Lines{"peer", "peer"}));

  // A silenced reactor hears nothing; re-activated, it hears again.
  recorder->hasNotificationActiveIs(false);
  sensor->levelIs(3);
  recorder->hasNotificationActiveIs(true);
  sensor->levelIs(4);
  EXPECT_EQ(recorder->take(), Lines{"level"});
}

TEST(Attribute, KeyedValuesNotifyPerKeyAndLookupsNeverInsert) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<SensorRecorder> recorder(new SensorRecorder(sensor));

  EXPECT_EQ(sensor->limit(9), 0);
  EXPECT_EQ(sensor->limit().size(), 0U);
  sensor->limitIs(1, 10);
  sensor->limitIs(2, 20);
  sensor->limitIs(3, 30);
  sensor->limitIs(2, 20);
  EXPECT_EQ(sensor->limit(2), 20);
  sensor->limitDel(4);
  EXPECT_EQ(recorder->take(), (Lines{"limit 1", "limit 2", "limit 3"}));

  sensor->limitDelAll();
  Lines heard = recorder->take();
  std::sort(heard.begin(), heard.end());
  EXPECT_EQ(heard, (Lines{"limit 1", "limit 2", "limit 3"}));
  EXPECT_TRUE(sensor->limit().empty());

  // The key-less notify says that any key may have changed.
  sensor->limitNotify();
  EXPECT_EQ(recorder->take(), Lines{"limit *"});
}

// Another machine's handler: when one of the first limits of the sensor it
// watches goes, it takes the same key out of `table` and puts a fresh key
// in, which takes the room the old one had.
class Replacer : public Sensor::NotifieeConst {
 public:
  static constexpr std::uint32_t kFresh = 1000000;
  Replacer(Rxn::Ptr<Sensor const> const& watched, Rxn::Ptr<Sensor> const& table) : table_(table) {
    notifierIs(watched);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onLimit(std::uint32_t const& key) override {
    std::uint32_t const gone = key;
    if (gone >= kFresh || notifier()->limit().contains(gone)) return;
    table_->limitDel(gone);
    table_->limitIs(gone + kFresh, 0);
  }

 private:
  Rxn::Ptr<Sensor> table_;
};

// What a recorder heard of the first keys, sorted.
Lines firstKeysHeard(Lines const& heard) {
  Lines first;
  std::copy_if(heard.begin(), heard.end(), std::back_inserter(first),
               [](std::string const& line) { return std::stoul(line.substr(6)) < Replacer::kFresh; });
  std::sort(first.begin(), first.end());
  return first;
}

// The pattern of a drain: delete each key of a collection with the
// reference the walk hands out, while handlers change the collection.
TEST(Attribute, AMutatorTakesItsKeySafelyFromTheCollectionItChangesOrFromAnother) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<Sensor> other = sensorFactory(2);
  Lines expected;
  for (std::uint32_t key = 0; key < 3500; key += 7) {
    sensor->limitIs(key, 1);
    other->limitIs(key, 1);
    expected.push_back("limit " + std::to_string(key));
  }
  std::sort(expected.begin(), expected.end());

  // A reference into the map it deletes from, which a first handler refills.
  Rxn::Ptr<Replacer> refill(new Replacer(sensor, sensor));
  Rxn::Ptr<SensorRecorder> recorder(new SensorRecorder(sensor));
  for (auto const& [key, limit] : sensor->limit()) {
    if (key < Replacer::kFresh) sensor->limitDel(key);
  }
  EXPECT_EQ(firstKeysHeard(recorder->take()), expected);
  refill->notifierIs(nullptr);

  // A reference into another map, which the first handler to hear the
  // change takes the key out of.
  Rxn::Ptr<Replacer> echo(new Replacer(other, sensor));
  Rxn::Ptr<SensorRecorder> otherRecorder(new SensorRecorder(other));
  sensor->limitDelAll();
  for (std::uint32_t key = 0; key < 3500; key += 7) {
    sensor->limitIs(key, 1);
  }
  for (auto const& [key, limit] : sensor->limit()) {
    if (key < Replacer::kFresh) other->limitDel(key);
  }
  EXPECT_EQ(firstKeysHeard(otherRecorder->take()), expected);
  EXPECT_EQ(other->limits(), 0U);
}

TEST(Attribute, ValuesWithTheKeyInsideAndKeySets) {
  Rxn::Ptr<Sensor> sensor = sensorFactory(1);
  Rxn::Ptr<SensorRecorder> recorder(new SensorRecorder(sensor));

  EXPECT_TRUE(!sensor->reading(5));
  sensor->readingIs(Reading(5, -40, "cold"));
  sensor->readingIs(Reading(5, -40, "cold"));
  sensor->readingIs(Reading(5, -39, "cold"));
  EXPECT_EQ(sensor->reading(5).level(), -39);
  EXPECT_EQ(sensor->readingDel(5), Reading(5, -39, "cold"));
  EXPECT_TRUE(!sensor->readingDel(5));
  EXPECT_EQ(recorder->take(), (Lines{"reading 5", "reading 5", "reading 5"}));

  // A collection keyed by another field of the value.
  sensor->readingByLevelIs(Reading(6, -40, "deep"));
  EXPECT_EQ(sensor->readingByLevel(-40).channel(), 6U);
  EXPECT_EQ(sensor->readingByLevels(), 1U);
  EXPECT_EQ(recorder->take(), Lines{"readingByLevel -40"});

  sensor->tagIs("hot", true);
  EXPECT_TRUE(sensor->tag("hot"));
  EXPECT_FALSE(sensor->tag("cold"));
  sensor->tagIs("hot", false);
  EXPECT_FALSE(sensor->tag("hot"));
  EXPECT_EQ(recorder->take(), (Lines{"tag hot", "tag hot"}));
}

class PanelRecorder : public Panel::NotifieeConst {
 public:
  void onSensor(std::uint32_t const& id) override { heard.push_back("sensor " + std::to_string(id)); }
  void onMain() override { heard.push_back("main"); }
  Lines heard;
};

TEST(Attribute, OwnedChildrenKnowTheirParent) {
  Rxn::Ptr<Panel> panel = panelFactory("panel");
  Rxn::Ptr<PanelRecorder> recorder(new PanelRecorder);
  recorder->notifierIs(panel);
  recorder->isRegisteredNotifieeIs(true);
  recorder->hasNotificationActiveIs(true);

  Rxn::Ptr<Sensor> sensor = panel->sensorIs(4);
  EXPECT_EQ(panel->sensorIs(4), sensor);
  EXPECT_EQ(panel->sensor(4), sensor);
  EXPECT_EQ(panel->sensor(5), nullptr);
  EXPECT_EQ(sensor->parent(), panel.get());
  EXPECT_STREQ(sensor->parentAttrName(), "sensor");
  EXPECT_EQ(sensor->fullName(), "/panel/4");

  Rxn::Ptr<Display> display = panel->mainIs("lcd");
  EXPECT_EQ(panel->mainIs("lcd"), display);
  EXPECT_EQ(display->fullName(), "/panel/lcd");

  panel->sensorDel(4);
  panel->sensorDel(4);
  panel->mainDel();
  EXPECT_EQ(sensor->parent(), nullptr);
  EXPECT_EQ(panel->main(), nullptr);
  EXPECT_EQ(recorder->heard, (Lines{"sensor 4", "main", "sensor 4", "main"}));

  // Children that outlive their place, or their parent, let go of it.
  Rxn::Ptr<Display> first = panel->mainIs("first");
  Rxn::Ptr<Display> second = panel->mainIs("second");
  EXPECT_EQ(first->fullName(), "/first");
  EXPECT_EQ(second->fullName(), "/panel/second");
  Rxn::Ptr<Sensor> survivor = panel->sensorIs(6);
  recorder = nullptr;
  panel = nullptr;
  EXPECT_EQ(survivor->fullName(), "/6");
  EXPECT_EQ(second->parent(), nullptr);
}

class DeviceRecorder : public Device::NotifieeConst {
 public:
  void onPower() override { heard.push_back("power"); }
  Lines heard;
};

class RouterRecorder : public Router::NotifieeConst {
 public:
  void onPower() override { heard.push_back("power"); }
  void onRoutes() override { heard.push_back("routes"); }
  Lines heard;
};

TEST(Attribute, AReactorOfABaseClassWatchesADerivedEntity) {
  Rxn::Ptr<Router> router = routerFactory("r1");
  EXPECT_EQ(router->name(), "r1");
  Rxn::Ptr<DeviceRecorder> asDevice(new DeviceRecorder);
  Rxn::Ptr<RouterRecorder> asRouter(new RouterRecorder);
  for (Rxn::PtrInterface::NotifieeConst* n :
       std::initializer_list<Rxn::PtrInterface::NotifieeConst*>{asDevice.get(), asRouter.get()}) {
    n->notifierIs(router);
    n->isRegisteredNotifieeIs(true);
    n->hasNotificationActiveIs(true);
  }
  router->powerIs(true);
  router->routesIs(12);
  // The device reactor has no onRoutes: it must not be reached for it.
  EXPECT_EQ(asDevice->heard, Lines{"power"});
  EXPECT_EQ(asRouter->heard, (Lines{"power", "routes"}));
}

TEST(Attribute, AMachinesOwnStateHasTheSameMembersAndNoParent) {
  PanelMemory memory;
  EXPECT_EQ(memory.visits(), 1u);
  EXPECT_EQ(memory.visitsInc(2), 3u);
  memory.seenIs(7, 70);
  memory.seenIs(8, 80);
  memory.seenDel(7);
  EXPECT_EQ(memory.seens(), 1u);
  EXPECT_EQ(memory.seen(7), 0u);

  Rxn::Ptr<Sensor> sensor = memory.lastSensorIs(4);
  EXPECT_EQ(memory.lastSensorIs(4), sensor);
  EXPECT_EQ(sensor->parent(), nullptr);
  EXPECT_EQ(sensor->fullName(), "/4");
  memory.lastSensorDelAll();
  EXPECT_EQ(memory.lastSensors(), 0u);
}

}  // namespace
}  // namespace RxnTest

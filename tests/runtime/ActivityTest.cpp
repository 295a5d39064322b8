// The activity loop: clock reactors, turns, simulated time and descriptors.

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Exception.h"
#include "tests/runtime/Recorder.h"

namespace {

using Lines = std::vector<std::string>;
constexpr double kNever = std::numeric_limits<double>::infinity();

// A clock reactor that notes its firings in a shared journal, and may re-arm.
class Alarm : public Rxn::Clock::NotifieeConst {
 public:
  Alarm(std::string name, Lines& journal) : name_(std::move(name)), journal_(journal) {
    notifierIs(Rxn::ActivityFacility::clock());
    hasNotificationActiveIs(true);
  }
  void onTime() override {
    journal_.push_back(name_ + "@" +
                       std::to_string(std::lround(Rxn::System::currentTime() - Rxn::Activity::kSimulatedStart)));
    if (rearm) rearm(this);
  }
  std::function<void(Alarm*)> rearm;

 private:
  std::string name_;
  Lines& journal_;
};

// A machine built before its loop would bind a clock that nobody runs, and
// its timers would never fire: the runtime refuses it instead.
TEST(Clock, AReactorMadeBeforeAnyActivityIsRefusedWithTheRemedyInTheText) {
  Lines journal;
  try {
    Rxn::Ptr<Alarm> const early(new Alarm("early", journal));
    FAIL() << "a clock reactor was made with no activity";
  } catch (std::logic_error const& e) {
    EXPECT_NE(std::string(e.what()).find("create the Rxn::Activity before the first machine"), std::string::npos)
        << e.what();
  }
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  Rxn::Ptr<Alarm> const late(new Alarm("late", journal));
  late->timeMinIs(0);
  activity.runTurn();
  EXPECT_EQ(journal, Lines{"late@0"});
}

TEST(Clock, ANextTurnArmingFiresAfterTheHandlerChainUnwinds) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  Lines journal;
  Rxn::Ptr<Alarm> first(new Alarm("first", journal));
  Rxn::Ptr<Alarm> second(new Alarm("second", journal));

  // A reactor on a sensor arms both clocks from inside its handler.
  class Arming : public RxnTest::SensorRecorder {
   public:
    using SensorRecorder::SensorRecorder;
    void onMode() override {
      second->timeMinIs(0);
      first->timeMinIs(0);
      journal->push_back("handler done");
    }
    Alarm* first;
    Alarm* second;
    Lines* journal;
  };
  Rxn::Ptr<RxnTest::Sensor> sensor = RxnTest::sensorFactory(1);
  Rxn::Ptr<Arming> arming(new Arming(sensor));
  arming->first = first.get();
  arming->second = second.get();
  arming->journal = &journal;
  sensor->modeIs(RxnTest::Mode::on);
  EXPECT_EQ(journal, Lines{"handler done"});

  // Next turn, in arming order; a re-arm from onTime waits for the turn after.
  second->rearm = [](Alarm* self) {
    self->rearm = nullptr;
    self->timeMinIs(0);
  };
  EXPECT_EQ(activity.runTurn(), 2U);
  EXPECT_EQ(journal, (Lines{"handler done", "second@0", "first@0"}));
  EXPECT_EQ(activity.runTurn(), 1U);
  EXPECT_EQ(activity.runTurn(), 0U);
  EXPECT_EQ(journal.back(), "second@0");

  // Each firing consumes its arming; +infinity disarms.
  EXPECT_EQ(first->timeMin(), kNever);
  first->timeMinIs(0);
  first->timeMinIs(kNever);
  activity.runUntilIdle();
  EXPECT_EQ(journal.size(), 4U);
}

TEST(Clock, TimesFireInTimeOrderAndSimulatedTimeJumpsBetweenThem) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  double const start = activity.now();
  Lines journal;
  Rxn::Ptr<Alarm> a(new Alarm("a", journal));
  Rxn::Ptr<Alarm> b(new Alarm("b", journal));
  Rxn::Ptr<Alarm> c(new Alarm("c", journal));
  Rxn::Ptr<Alarm> moved(new Alarm("moved", journal));
  a->timeMinIs(start + 3);
  b->timeMinIs(start + 1);
  c->timeMinIs(start + 2);
  moved->timeMinIs(start + 10);
  moved->timeMinIs(start + 2);  // re-arming replaces the earlier time
  // A periodic reactor re-arms itself one second on.
  a->rearm = [](Alarm* self) {
    if (Rxn::System::currentTime() < Rxn::Activity::kSimulatedStart + 5)
      self->timeMinIs(Rxn::System::currentTime() + 1);
  };

  activity.runFor(1.5);
  EXPECT_EQ(journal, Lines{"b@1"});
  EXPECT_DOUBLE_EQ(activity.now(), start + 1.5);
  activity.runFor(10);
  EXPECT_EQ(journal, (Lines{"b@1", "c@2", "moved@2", "a@3", "a@4", "a@5"}));
  EXPECT_DOUBLE_EQ(activity.now(), start + 11.5);

  // A reactor that goes away while armed never fires; one that is silent
  // when its time comes loses that firing.
  b->timeMinIs(activity.now() + 1);
  b = nullptr;
  c->timeMinIs(activity.now() + 1);
  c->hasNotificationActiveIs(false);
  activity.runFor(2);
  c->hasNotificationActiveIs(true);
  activity.runFor(2);
  EXPECT_EQ(journal.size(), 6U);
  EXPECT_EQ(activity.clock()->armed(), 0U);
}

TEST(Clock, AlwaysBusyNextTurnWorkDoesNotStarveATimer) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  Lines journal;
  Rxn::Ptr<Alarm> busy(new Alarm("busy", journal));
  Rxn::Ptr<Alarm> timer(new Alarm("timer", journal));
  busy->rearm = [](Alarm* self) { self->timeMinIs(0); };
  busy->timeMinIs(0);
  timer->timeMinIs(activity.now() + 1);
  activity.runTurn();
  activity.advanceTime(1);
  activity.runTurn();
  EXPECT_EQ(journal, (Lines{"busy@0", "busy@1", "timer@1"}));
}

TEST(Clock, RealTimeDeferralAndPastTimesFireAtTheNextTurn) {
  Rxn::Activity activity;
  Lines journal;
  Rxn::Ptr<Alarm> soon(new Alarm("soon", journal));
  Rxn::Ptr<Alarm> late(new Alarm("late", journal));
  soon->timeMinIs(0);
  late->timeMinIs(Rxn::System::currentTime() - 1);
  activity.runUntilIdle();
  EXPECT_EQ(journal.size(), 2U);
  EXPECT_EQ(journal[0].substr(0, 5), "soon@");
}

// A reactor on a descriptor that reads what is there, if told to.
class Reader : public Rxn::FileDescriptor::NotifieeConst {
 public:
  explicit Reader(Rxn::Ptr<Rxn::FileDescriptor> const& fd) {
    notifierIs(fd);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onReadableCount() override {
    ++heard;
    char buffer[16];
    if (drain) {
      while (::read(notifier()->descriptor(), buffer, sizeof buffer) > 0) {
      }
    }
    if (onRead) onRead();
  }
  int heard = 0;
  bool drain = true;
  std::function<void()> onRead;
};

TEST(FileDescriptor, ReadabilityIsLevelTriggeredUntilDrained) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  int pipeA[2];
  int pipeB[2];
  ASSERT_EQ(::pipe(pipeA), 0);
  ASSERT_EQ(::pipe(pipeB), 0);
  Rxn::Ptr<Rxn::FileDescriptor> a(new Rxn::FileDescriptor("a"));
  Rxn::Ptr<Rxn::FileDescriptor> b(new Rxn::FileDescriptor("b"));
  a->descriptorIs(pipeA[0]);
  a->nonBlockingIs(true);
  a->notifyOnReadableIs(true);
  b->descriptorIs(pipeB[0]);
  b->notifyOnReadableIs(true);
  Rxn::Ptr<Reader> readerA(new Reader(a));
  Rxn::Ptr<Reader> readerB(new Reader(b));

  EXPECT_EQ(activity.runTurn(), 0U);
  ASSERT_EQ(::write(pipeA[1], "x", 1), 1);
  activity.runUntilIdle();
  EXPECT_EQ(readerA->heard, 1);
  EXPECT_EQ(a->readableCount(), 1U);

  // Not drained: it fires again every turn.
  readerA->drain = false;
  ASSERT_EQ(::write(pipeA[1], "y", 1), 1);
  activity.runTurn();
  activity.runTurn();
  EXPECT_EQ(readerA->heard, 3);

  // Both readable in one turn, and whichever handler runs first drops the
  // other descriptor: the second is not delivered.
  readerA->drain = true;
  ASSERT_EQ(::write(pipeA[1], "v", 1), 1);
  ASSERT_EQ(::write(pipeB[1], "z", 1), 1);
  Rxn::Ptr<Rxn::FileDescriptor> keepA = a;
  readerA->onRead = [&] {
    readerB->notifierIs(nullptr);
    b = nullptr;
  };
  readerB->onRead = [&] {
    readerA->notifierIs(nullptr);
    a = nullptr;
  };
  int const heardBefore = readerA->heard;
  activity.runTurn();
  EXPECT_EQ((readerA->heard - heardBefore) + readerB->heard, 1);
  readerA->onRead = nullptr;
  readerB->onRead = nullptr;
  a = keepA;
  if (!readerA->notifier()) {
    readerA->notifierIs(a);
    readerA->isRegisteredNotifieeIs(true);
  }

  // A failed system call names the descriptor and the errno.
  Rxn::Ptr<Rxn::FileDescriptor> closed(new Rxn::FileDescriptor("closed"));
  closed->descriptorIs(1000);
  try {
    closed->nonBlockingIs(true);
    FAIL() << "fcntl on a closed descriptor must fail";
  } catch (Rxn::ErrnoException const& e) {
    EXPECT_EQ(e.errnoValue(), EBADF);
    EXPECT_STREQ(e.what(), "fcntl O_NONBLOCK on closed: Bad file descriptor");
  }

  // Not watched any more: readable but silent.
  a->notifyOnReadableIs(false);
  ASSERT_EQ(::write(pipeA[1], "w", 1), 1);
  EXPECT_EQ(activity.runTurn(), 0U);
  ::close(pipeA[1]);
  ::close(pipeB[1]);
}

// An agent with a loop of its own polls the activity's descriptor beside its
// own and runs a turn when it is readable. Nothing here waits: every time is
// due already or far away.
TEST(OutsideLoop, TheDescriptorIsReadableExactlyWhenTheActivityHasWork) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::real);
  auto readable = [fd = activity.descriptor()] {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
  };
  EXPECT_FALSE(readable());

  // A timer armed after the descriptor was taken, as a handler the agent
  // called itself would arm it: a next-turn firing, then a time gone by.
  Lines journal;
  Rxn::Ptr<Alarm> const alarm(new Alarm("alarm", journal));
  alarm->timeMinIs(0);
  EXPECT_TRUE(readable());
  EXPECT_EQ(activity.runReady(), 1U);
  EXPECT_EQ(journal.size(), 1U);
  EXPECT_FALSE(readable());
  alarm->timeMinIs(Rxn::System::wallClockTime() - 1);
  EXPECT_TRUE(readable());
  activity.runReady();
  EXPECT_EQ(journal.size(), 2U);
  alarm->timeMinIs(Rxn::System::wallClockTime() + 3600);
  EXPECT_FALSE(readable());

  // Work that re-arms itself every turn leaves the descriptor readable after
  // each turn, so that the agent's own events come in between.
  alarm->rearm = [](Alarm* a) { a->timeMinIs(0); };
  alarm->timeMinIs(0);
  EXPECT_EQ(activity.runReady(), 1U);
  EXPECT_TRUE(readable());
  alarm->rearm = nullptr;
  activity.runReady();
  EXPECT_FALSE(readable());

  // A watched descriptor of the library's own.
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  Rxn::Ptr<Rxn::FileDescriptor> const fd(new Rxn::FileDescriptor("learn"));
  fd->descriptorIs(pipe[0]);
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  Rxn::Ptr<Reader> const reader(new Reader(fd));
  EXPECT_FALSE(readable());
  ASSERT_EQ(::write(pipe[1], "x", 1), 1);
  EXPECT_TRUE(readable());
  activity.runReady();
  EXPECT_EQ(reader->heard, 1);
  EXPECT_FALSE(readable());
  ::close(pipe[1]);

  Rxn::Activity simulated(Rxn::Activity::TimeMode::simulated);
  EXPECT_THROW(simulated.descriptor(), Rxn::RangeException);
}

}  // namespace

#pragma once
// The activity loop: one thread, serial handlers, deferral only through clocks.
//
// An Rxn::Activity owns a Clock and the readiness of file descriptors. Each
// turn of the loop (runTurn) delivers, in this order:
//   1. readable descriptors (epoll, level-triggered): onReadableCount();
//   2. the clock reactors armed with timeMinIs(0) before the turn began, in
//      arming order: an in-process ready queue, no system call;
//   3. the clock reactors whose time has come, earliest first.
// A reactor armed during a turn fires in a later turn, never inside the
// handler chain that armed it.
//
// Time is real (CLOCK_REALTIME) or simulated. Simulated time stands still
// while handlers run; runFor() moves it from one armed time to the next, so
// tests and scenarios run timers and quanta deterministically, without sleep.

#include <sys/epoll.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "fabvxlan/runtime/Entity.h"
#include "fabvxlan/runtime/HashMap.h"

namespace Rxn {

class Activity;

class System {
 public:
  // Seconds, as a double: the simulated time of the running activity, or the
  // wall clock.
  static double currentTime();
  static double wallClockTime();
};

// The clock of an activity. Reactors of the clock arm themselves with
// timeMinIs(t): 0 fires at the next turn, a time fires when it comes, and
// +infinity disarms. Every firing consumes its arming.
class Clock : public Entity {
 public:
  class NotifieeConst : public Entity::NotifieeConst {
   public:
    static constexpr std::uint8_t kDepth = Entity::NotifieeConst::kDepth + 1;
    NotifieeConst() { notifyDepthIs(kDepth); }
    ~NotifieeConst() override;
    Ptr<Clock const> notifier() const { return ptrCast<Clock const>(notifierBase()); }
    void notifierIs(Ptr<PtrInterface const> const& notifier) override;
    // A clock delivers through its arming queues: its reactors stay out of its
    // notifiee list, so that thousands of them come and go in constant time.
    void isRegisteredNotifieeIs(bool) override {}

    double timeMin() const { return timeMin_; }
    void timeMinIs(double const& time);
    virtual void onTime() {}

   private:
    friend class Clock;
    double timeMin_ = std::numeric_limits<double>::infinity();
    std::uint64_t seq_ = 0;
    std::int32_t heapIndex_ = -1;
    // Links of the ready queue (timeMinIs(0)).
    bool queued_ = false;
    NotifieeConst* readyPrev_ = nullptr;
    NotifieeConst* readyNext_ = nullptr;
  };

  explicit Clock(Activity* activity);
  ~Clock() override;
  char const* fwkType() const override { return "Rxn::Clock"; }

  double now() const;
  std::size_t armed() const;
  // The earliest armed time; 0 when a next-turn firing waits; +infinity if none.
  double nextTime() const;
  // Fires what the turn owes: the ready queue as it stood, then due times.
  std::size_t fireTurn();

 private:
  using Reactor = NotifieeConst;
  void arm(Reactor* reactor, double time);
  void disarm(Reactor* reactor);
  void readyAppend(Reactor* reactor);
  void readyUnlink(Reactor* reactor);
  void heapPush(Reactor* reactor);
  void heapRemove(Reactor* reactor);
  void heapSiftUp(std::size_t index);
  void heapSiftDown(std::size_t index);
  bool heapBefore(Reactor const* a, Reactor const* b) const;
  void heapPlace(std::size_t index, Reactor* reactor);
  void fire(Reactor* reactor);

  friend class Activity;
  Activity* activity_;
  std::uint64_t nextSeq_ = 1;
  // The ready queue, in arming order; the turn boundary is a sequence number.
  Reactor* readyHead_ = nullptr;
  Reactor* readyTail_ = nullptr;
  std::size_t readyCount_ = 0;
  // Reactors armed with a time, earliest (then first armed) on top.
  std::vector<Reactor*> heap_;
};

// A descriptor whose readability the loop watches. The entity owns the
// descriptor: it closes it when given another one and when it goes away.
class FileDescriptor : public Entity {
 public:
  friend class Activity;
  class NotifieeConst : public Entity::NotifieeConst {
   public:
    static constexpr std::uint8_t kDepth = Entity::NotifieeConst::kDepth + 1;
    NotifieeConst() { notifyDepthIs(kDepth); }
    Ptr<FileDescriptor const> notifier() const { return ptrCast<FileDescriptor const>(notifierBase()); }
    virtual void onReadableCount() {}
  };

  explicit FileDescriptor(Name const& name);
  ~FileDescriptor() override;
  char const* fwkType() const override { return "Rxn::FileDescriptor"; }

  int descriptor() const { return descriptor_; }
  void descriptorIs(int descriptor);
  bool nonBlocking() const { return nonBlocking_; }
  void nonBlockingIs(bool nonBlocking);
  bool notifyOnReadable() const { return notifyOnReadable_; }
  void notifyOnReadableIs(bool notify);
  // Counts the turns in which the descriptor was readable.
  std::uint64_t readableCount() const { return readableCount_; }
  void readableCountInc();

 private:
  void watch(bool on);

  Activity* activity_;
  int descriptor_ = -1;
  bool nonBlocking_ = false;
  bool notifyOnReadable_ = false;
  bool watched_ = false;
  std::uint64_t watchId_ = 0;
  std::uint64_t readableCount_ = 0;
};

class Activity {
 public:
  enum class TimeMode { real, simulated };
  static constexpr double kSimulatedStart = 1000000.0;

  // Becomes the current activity of the thread until it is destroyed.
  explicit Activity(TimeMode mode = TimeMode::real, double simulatedStart = kSimulatedStart);
  ~Activity();
  Activity(Activity const&) = delete;
  Activity& operator=(Activity const&) = delete;

  // The activity of this thread; throws std::logic_error if there is none.
  static Activity& current();

  Ptr<Clock> const& clock() const { return clock_; }
  TimeMode timeMode() const { return mode_; }
  double now() const;

  // One turn. Waits at most maxWait seconds for something to do (never, in
  // simulated time). Returns the number of deliveries made.
  std::size_t runTurn(double maxWait = 0.0);
  // Turns until a turn finds nothing to do at the present time.
  void runUntilIdle();
  // Runs for a span of time; simulated time jumps from one armed time to the
  // next. In simulated time, work that itself takes time (advanceTime) ends
  // the span at the end of the turn that passed it.
  void runFor(double seconds);
  // Runs until stop() or until nothing is armed or watched; in simulated
  // time, until no timer is armed.
  void run();
  void stop() { stopped_ = true; }

  // Sets simulated time forward without running anything.
  void advanceTime(double seconds);

  // For an agent that runs a loop of its own (epoll, asio, libevent): a
  // descriptor that is readable whenever this activity has work, a watched
  // descriptor readable or a clock reactor due. The agent polls it for
  // reading among its own and calls runReady() when it is readable; the
  // activity keeps it armed for the next clock time, also after a handler
  // that the agent called itself armed a timer. Real time only; the
  // activity owns the descriptor.
  int descriptor();
  // Runs one turn without waiting and arms the descriptor for what remains:
  // work that re-arms itself every turn (a drain by quanta) leaves the
  // descriptor readable, so that the agent's own events take their turns in
  // between. Returns the number of deliveries made.
  std::size_t runReady();

 private:
  friend class FileDescriptor;
  friend class Clock;
  // A clock reactor was armed for `time`: an outside loop's descriptor must
  // wake up by then.
  void clockArmed(double time) {
    if (timer_ >= 0 && time < timerDue_) {
      armTimer(time);
    }
  }
  void armTimer(double time);
  void epollOpen();
  // Every descriptor made in this activity, so that one that outlives it
  // learns that it is gone.
  void descriptorBorn(FileDescriptor* fd) { descriptors_.insertOrAssign(fd, true); }
  void descriptorGone(FileDescriptor* fd) { descriptors_.erase(fd); }
  std::uint64_t watch(FileDescriptor* fd, int descriptor);
  void unwatch(std::uint64_t id, int descriptor);
  std::size_t pollDescriptors(double maxWait);
  bool pollDueWhileBusy() const;

  TimeMode mode_;
  double simulatedNow_;
  Activity* previous_;
  Ptr<Clock> clock_;
  int epoll_ = -1;
  int timer_ = -1;              // a timerfd in the epoll set, made by descriptor()
  double timerDue_ = kNoTimer;  // when it fires; kNoTimer when disarmed
  static constexpr double kNoTimer = std::numeric_limits<double>::infinity();
  std::uint64_t nextWatchId_ = 1;
  HashMap2018<std::uint64_t, FileDescriptor*> watched_{MapName("Rxn::Activity::watched")};
  HashMap2018<FileDescriptor*, bool> descriptors_{MapName("Rxn::Activity::descriptors")};
  double lastPoll_ = 0.0;
  bool stopped_ = false;
};

class ActivityFacility {
 public:
  // The shared clock of the running activity. Throws std::logic_error when
  // the thread has none: the activity comes before the first machine.
  static Ptr<Clock> clock() { return Activity::current().clock(); }
};

}  // namespace Rxn

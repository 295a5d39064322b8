#include "fabvxlan/runtime/Activity.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <stdexcept>

#include "fabvxlan/runtime/Exception.h"

namespace Rxn {

namespace {

thread_local Activity* tCurrent = nullptr;

// While the ready queue keeps the loop busy, descriptors are still polled at
// least this often, so that deferral costs no system call per turn.
constexpr double kBusyPollInterval = 0.001;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

double System::wallClockTime() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double System::currentTime() {
  return tCurrent != nullptr ? tCurrent->now() : wallClockTime();
}

// --- Clock reactors ---------------------------------------------------------

Clock::NotifieeConst::~NotifieeConst() {
  if (Clock const* clock = static_cast<Clock const*>(notifierBase().get())) {
    const_cast<Clock*>(clock)->disarm(this);
  }
}

void Clock::NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  if (notifier.get() == notifierBase().get()) {
    return;
  }
  if (Clock const* old = static_cast<Clock const*>(notifierBase().get())) {
    const_cast<Clock*>(old)->disarm(this);
  }
  Entity::NotifieeConst::notifierIs(notifier);
}

void Clock::NotifieeConst::timeMinIs(double const& time) {
  Clock const* clock = static_cast<Clock const*>(notifierBase().get());
  if (clock == nullptr) {
    throwRangeException("timeMinIs on a clock reactor that watches no clock");
  }
  const_cast<Clock*>(clock)->arm(this, time);
}

// --- Clock ------------------------------------------------------------------

Clock::Clock(Activity* activity) : Entity("clock"), activity_(activity) {}

Clock::~Clock() = default;

double Clock::now() const {
  return activity_ != nullptr ? activity_->now() : System::wallClockTime();
}

std::size_t Clock::armed() const {
  return readyCount_ + heap_.size();
}

double Clock::nextTime() const {
  if (readyHead_ != nullptr) {
    return 0.0;
  }
  return heap_.empty() ? kInfinity : heap_.front()->timeMin_;
}

void Clock::arm(Reactor* reactor, double time) {
  disarm(reactor);
  reactor->timeMin_ = time;
  if (time == kInfinity) {
    return;
  }
  reactor->seq_ = nextSeq_++;
  if (time <= 0.0) {
    readyAppend(reactor);
  } else {
    heapPush(reactor);
  }
  if (activity_ != nullptr) {
    activity_->clockArmed(time);
  }
}

void Clock::disarm(Reactor* reactor) {
  if (reactor->queued_) {
    readyUnlink(reactor);
  } else if (reactor->heapIndex_ >= 0) {
    heapRemove(reactor);
  }
  reactor->timeMin_ = kInfinity;
}

std::size_t Clock::fireTurn() {
  // What is armed from here on belongs to the next turn.
  std::uint64_t const turnSeq = nextSeq_;
  std::size_t fired = 0;
  while (readyHead_ != nullptr && readyHead_->seq_ < turnSeq) {
    Reactor* reactor = readyHead_;
    readyUnlink(reactor);
    fire(reactor);
    ++fired;
  }
  if (heap_.empty()) {
    return fired;
  }
  double const present = now();
  while (!heap_.empty() && heap_.front()->timeMin_ <= present && heap_.front()->seq_ < turnSeq) {
    Reactor* reactor = heap_.front();
    heapRemove(reactor);
    fire(reactor);
    ++fired;
  }
  return fired;
}

void Clock::fire(Reactor* reactor) {
  reactor->timeMin_ = kInfinity;
  if (!reactor->hasNotificationActive() || reactor->rxnMarkedForDeletion()) {
    return;
  }
  reactor->referencesInc();
  try {
    reactor->onTime();
  } catch (...) {
    reactor->onNotificationException();
  }
  reactor->referencesDec();
}

void Clock::readyAppend(Reactor* reactor) {
  reactor->queued_ = true;
  reactor->readyPrev_ = readyTail_;
  reactor->readyNext_ = nullptr;
  (readyTail_ != nullptr ? readyTail_->readyNext_ : readyHead_) = reactor;
  readyTail_ = reactor;
  ++readyCount_;
}

void Clock::readyUnlink(Reactor* reactor) {
  (reactor->readyPrev_ != nullptr ? reactor->readyPrev_->readyNext_ : readyHead_) = reactor->readyNext_;
  (reactor->readyNext_ != nullptr ? reactor->readyNext_->readyPrev_ : readyTail_) = reactor->readyPrev_;
  reactor->readyPrev_ = reactor->readyNext_ = nullptr;
  reactor->queued_ = false;
  --readyCount_;
}

bool Clock::heapBefore(Reactor const* a, Reactor const* b) const {
  return a->timeMin_ < b->timeMin_ || (a->timeMin_ == b->timeMin_ && a->seq_ < b->seq_);
}

void Clock::heapPlace(std::size_t index, Reactor* reactor) {
  heap_[index] = reactor;
  reactor->heapIndex_ = static_cast<std::int32_t>(index);
}

void Clock::heapPush(Reactor* reactor) {
  heap_.push_back(reactor);
  reactor->heapIndex_ = static_cast<std::int32_t>(heap_.size() - 1);
  heapSiftUp(heap_.size() - 1);
}

void Clock::heapRemove(Reactor* reactor) {
  std::size_t const index = static_cast<std::size_t>(reactor->heapIndex_);
  Reactor* last = heap_.back();
  heap_.pop_back();
  reactor->heapIndex_ = -1;
  if (last != reactor) {
    heapPlace(index, last);
    heapSiftUp(index);
    heapSiftDown(static_cast<std::size_t>(last->heapIndex_));
  }
}

void Clock::heapSiftUp(std::size_t index) {
  Reactor* reactor = heap_[index];
  while (index > 0) {
    std::size_t const parent = (index - 1) / 2;
    if (!heapBefore(reactor, heap_[parent])) {
      break;
    }
    heapPlace(index, heap_[parent]);
    index = parent;
  }
  heapPlace(index, reactor);
}

void Clock::heapSiftDown(std::size_t index) {
  Reactor* reactor = heap_[index];
  for (;;) {
    std::size_t child = 2 * index + 1;
    if (child >= heap_.size()) {
      break;
    }
    if (child + 1 < heap_.size() && heapBefore(heap_[child + 1], heap_[child])) {
      ++child;
    }
    if (!heapBefore(heap_[child], reactor)) {
      break;
    }
    heapPlace(index, heap_[child]);
    index = child;
  }
  heapPlace(index, reactor);
}

// --- File descriptors -------------------------------------------------------

FileDescriptor::FileDescriptor(Name const& name) : Entity(name), activity_(&Activity::current()) {
  activity_->descriptorBorn(this);
}

FileDescriptor::~FileDescriptor() {
  watch(false);
  if (activity_ != nullptr) {
    activity_->descriptorGone(this);
  }
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

void FileDescriptor::descriptorIs(int descriptor) {
  if (descriptor == descriptor_) {
    return;
  }
  watch(false);
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
  descriptor_ = descriptor;
  if (nonBlocking_) {
    nonBlocking_ = false;
    nonBlockingIs(true);
  }
  watch(notifyOnReadable_);
}

void FileDescriptor::nonBlockingIs(bool nonBlocking) {
  if (descriptor_ >= 0 && nonBlocking != nonBlocking_) {
    int const flags = ::fcntl(descriptor_, F_GETFL);
    if (flags < 0 || ::fcntl(descriptor_, F_SETFL, nonBlocking ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) < 0) {
      throw ErrnoException(errno, "fcntl O_NONBLOCK on " + name());
    }
  }
  nonBlocking_ = nonBlocking;
}

void FileDescriptor::notifyOnReadableIs(bool notify) {
  notifyOnReadable_ = notify;
  watch(notify);
}

void FileDescriptor::readableCountInc() {
  ++readableCount_;
  rxnVisitNotifiees<NotifieeConst>(NotifieeConst::kDepth, [](NotifieeConst* n) { n->onReadableCount(); });
}

void FileDescriptor::watch(bool on) {
  if (on == watched_ || activity_ == nullptr) {
    return;
  }
  if (on) {
    if (descriptor_ < 0) {
      return;
    }
    watchId_ = activity_->watch(this, descriptor_);
  } else {
    activity_->unwatch(watchId_, descriptor_);
  }
  watched_ = on;
}

// --- Activity ---------------------------------------------------------------

Activity::Activity(TimeMode mode, double simulatedStart)
    : mode_(mode), simulatedNow_(simulatedStart), previous_(tCurrent), clock_(new Clock(this)) {
  tCurrent = this;
}

Activity::~Activity() {
  clock_->activity_ = nullptr;
  for (auto const& [fd, born] : descriptors_) {
    fd->activity_ = nullptr;
    fd->watched_ = false;
  }
  if (timer_ >= 0) {
    ::close(timer_);
  }
  if (epoll_ >= 0) {
    ::close(epoll_);
  }
  tCurrent = previous_;
}

// A clock or a descriptor bound to an activity that nobody runs would never
// fire: refuse instead.
Activity& Activity::current() {
  if (tCurrent == nullptr) {
    throw std::logic_error(
        "no Rxn::Activity on this thread: create the Rxn::Activity before the first machine, clock reactor or "
        "file descriptor");
  }
  return *tCurrent;
}

double Activity::now() const {
  return mode_ == TimeMode::simulated ? simulatedNow_ : System::wallClockTime();
}

void Activity::advanceTime(double seconds) {
  if (mode_ != TimeMode::simulated) {
    throwRangeException("advanceTime needs an activity in simulated time");
  }
  simulatedNow_ += seconds;
}

void Activity::epollOpen() {
  if (epoll_ < 0) {
    epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
    if (epoll_ < 0) {
      throw ErrnoException(errno, "epoll_create1");
    }
  }
}

// The timer's watch id: descriptors' ids start at 1.
constexpr std::uint64_t kTimerWatchId = 0;

int Activity::descriptor() {
  if (mode_ != TimeMode::real) {
    throwRangeException("an outside loop can poll only an activity in real time");
  }
  epollOpen();
  if (timer_ < 0) {
    timer_ = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (timer_ < 0) {
      throw ErrnoException(errno, "timerfd_create");
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kTimerWatchId;
    if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, timer_, &event) < 0) {
      throw ErrnoException(errno, "epoll_ctl add the activity's timer");
    }
    armTimer(clock_->nextTime());
  }
  return epoll_;
}

// Arms the timer for a clock time: 0 (a next-turn firing) and times past fire
// at once, +infinity disarms.
void Activity::armTimer(double time) {
  itimerspec spec{};
  int flags = 0;
  if (time <= now()) {
    spec.it_value.tv_nsec = 1;  // at once: a zero value would disarm
  } else if (time != kNoTimer) {
    double const whole = std::floor(time);
    spec.it_value.tv_sec = static_cast<time_t>(whole);
    spec.it_value.tv_nsec = static_cast<long>((time - whole) * 1e9);
    flags = TFD_TIMER_ABSTIME;
  }
  if (::timerfd_settime(timer_, flags, &spec, nullptr) < 0) {
    throw ErrnoException(errno, "timerfd_settime");
  }
  timerDue_ = time;
}

std::size_t Activity::runReady() {
  std::size_t const delivered = runTurn(0.0);
  if (timer_ >= 0) {
    std::uint64_t expirations = 0;
    [[maybe_unused]] ssize_t const ignored = ::read(timer_, &expirations, sizeof expirations);
    armTimer(clock_->nextTime());
  }
  return delivered;
}

std::uint64_t Activity::watch(FileDescriptor* fd, int descriptor) {
  epollOpen();
  std::uint64_t const id = nextWatchId_++;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) < 0) {
    throw ErrnoException(errno, "epoll_ctl add " + fd->name());
  }
  watched_.insertOrAssign(id, fd);
  return id;
}

void Activity::unwatch(std::uint64_t id, int descriptor) {
  watched_.erase(id);
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

std::size_t Activity::pollDescriptors(double maxWait) {
  epollOpen();
  int const timeoutMs = maxWait <= 0.0 ? 0 : static_cast<int>(std::min(std::ceil(maxWait * 1000.0), 3600000.0));
  epoll_event events[64];
  int const count = ::epoll_wait(epoll_, events, 64, timeoutMs);
  lastPoll_ = System::wallClockTime();
  if (count < 0) {
    if (errno == EINTR) {
      return 0;
    }
    throw ErrnoException(errno, "epoll_wait");
  }
  std::size_t delivered = 0;
  for (int i = 0; i < count; ++i) {
    // A handler earlier in this batch may have closed a later descriptor.
    FileDescriptor* const* fd = watched_.find(events[i].data.u64);
    if (fd != nullptr) {
      Ptr<FileDescriptor> const hold(*fd);
      hold->readableCountInc();
      ++delivered;
    }
  }
  return delivered;
}

std::size_t Activity::runTurn(double maxWait) {
  std::size_t delivered = 0;
  bool const busy = clock_->nextTime() == 0.0;
  double wait = 0.0;
  if (mode_ == TimeMode::real && !busy) {
    wait = std::max(0.0, std::min(maxWait, clock_->nextTime() - now()));
  }
  if (watched_.empty() ? wait > 0.0 : !busy || pollDueWhileBusy()) {
    delivered += pollDescriptors(wait);
  }
  delivered += clock_->fireTurn();
  return delivered;
}

bool Activity::pollDueWhileBusy() const {
  return mode_ == TimeMode::simulated || System::wallClockTime() - lastPoll_ >= kBusyPollInterval;
}

void Activity::runUntilIdle() {
  while (runTurn(0.0) > 0) {
  }
}

void Activity::runFor(double seconds) {
  double const end = now() + seconds;
  if (mode_ == TimeMode::simulated) {
    for (;;) {
      // Work that takes simulated time (advanceTime) may use the span up.
      while (simulatedNow_ <= end && runTurn(0.0) > 0) {
      }
      if (simulatedNow_ > end) {
        return;
      }
      double const next = clock_->nextTime();
      if (next > end) {
        break;
      }
      simulatedNow_ = std::max(simulatedNow_, next);
    }
    simulatedNow_ = std::max(simulatedNow_, end);
    return;
  }
  stopped_ = false;
  while (!stopped_ && now() < end) {
    runTurn(end - now());
  }
}

void Activity::run() {
  stopped_ = false;
  while (!stopped_) {
    if (clock_->armed() == 0 && watched_.empty()) {
      return;
    }
    if (mode_ == TimeMode::simulated) {
      runUntilIdle();
      // With no timer armed, simulated time has nothing left to bring: a
      // descriptor can only become readable from outside the simulation.
      double const next = clock_->nextTime();
      if (next == kInfinity) {
        return;
      }
      simulatedNow_ = std::max(simulatedNow_, next);
    } else {
      runTurn(kInfinity);
    }
  }
}

}  // namespace Rxn

#include "sim/AnswerQueue.h"

#include <limits>

namespace Sim {

AnswerQueue::AnswerQueue(double delay) : delay_(delay), clock_(new RxnClock(Rxn::ActivityFacility::clock(), this)) {
  clock_->hasNotificationActiveIs(true);
}

AnswerQueue::~AnswerQueue() {
  clock_->timeMinIs(std::numeric_limits<double>::infinity());
}

void AnswerQueue::post(std::function<void()> answer) {
  pending_.push_back({Rxn::System::currentTime() + delay_, std::move(answer)});
  if (pending_.size() == 1) {
    arm();
  }
}

void AnswerQueue::heldIs(bool held) {
  held_ = held;
  arm();
}

void AnswerQueue::arm() {
  if (held_ || pending_.empty()) {
    clock_->timeMinIs(std::numeric_limits<double>::infinity());
    return;
  }
  double const due = pending_.front().due;
  clock_->timeMinIs(due > Rxn::System::currentTime() ? due : 0.0);
}

void AnswerQueue::answerDue() {
  double const now = Rxn::System::currentTime();
  // An answer may ask for more; those wait for a turn of their own.
  for (std::size_t asked = pending_.size(); asked > 0 && !held_ && pending_.front().due <= now; --asked) {
    std::function<void()> const answer = std::move(pending_.front().answer);
    pending_.pop_front();
    answer();
  }
  arm();
}

}  // namespace Sim

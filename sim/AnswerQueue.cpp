#include "sim/AnswerQueue.h"

#include <algorithm>
#include <limits>
#include <vector>

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

void AnswerQueue::clear() {
  pending_.clear();
  arm();
}

void AnswerQueue::answerDue() {
  double const now = Rxn::System::currentTime();
  std::vector<std::function<void()>> due;
  while (!held_ && !pending_.empty() && pending_.front().due <= now) {
    due.push_back(std::move(pending_.front().answer));
    pending_.pop_front();
  }
  if (newestFirst_) {
    std::reverse(due.begin(), due.end());
  }
  // An answer may ask for more; those wait for a turn of their own.
  for (std::function<void()> const& answer : due) {
    answer();
  }
  arm();
}

}  // namespace Sim

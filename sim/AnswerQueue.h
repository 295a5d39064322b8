#pragma once
// The platform's answers to the requests of the machines: each comes the
// answer delay after it was asked for, in the order asked. A delay of 0
// answers at the next turn, never within the asking handler. Held answers
// wait until they are released, as those of a platform that is late.

#include <deque>
#include <functional>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Reactor.h"

namespace Sim {

class AnswerQueue {
 public:
  explicit AnswerQueue(double delay);
  ~AnswerQueue();
  AnswerQueue(AnswerQueue const&) = delete;
  AnswerQueue& operator=(AnswerQueue const&) = delete;

  void post(std::function<void()> answer);
  // Applies to the answers asked for from now on.
  void delayIs(double delay) { delay_ = delay; }
  void heldIs(bool held);
  bool held() const { return held_; }
  // Answers that are due in the same turn come newest first.
  void newestFirstIs(bool newestFirst) { newestFirst_ = newestFirst; }
  std::size_t pending() const { return pending_.size(); }
  // Forgets every answer not yet given, as a platform that restarts.
  void clear();

 private:
  class RxnClock : public Rxn::Reactor<AnswerQueue, Rxn::Clock const> {
   public:
    using Reactor::Reactor;
    void onTime() override {
      if (rxnMarkedForDeletion()) return;
      owner()->answerDue();
    }
  };
  struct Pending {
    double due;
    std::function<void()> answer;
  };

  void arm();
  void answerDue();

  double delay_;
  bool held_ = false;
  bool newestFirst_ = false;
  std::deque<Pending> pending_;
  Rxn::Ptr<RxnClock> clock_;
};

}  // namespace Sim

#include "sim/StackCheck.h"

namespace Sim {

void Checks::fail(char const* check, std::string const& detail, bool knownByDetail) const {
  std::string const text = std::string(check) + (detail.empty() ? "" : ": " + detail);
  throw CheckFailure(knownByDetail ? text : check, text);
}

bool Checks::owes(Platform::Answerer answerer) const {
  AnswerQueue const* const queue = platform_.answerQueue(answerer);
  return queue != nullptr && queue->held() && queue->pending() > 0;
}

bool Checks::owesAny() const {
  return owes(Platform::Answerer::vtepHook) || owes(Platform::Answerer::vniHook) ||
         owes(Platform::Answerer::tunnelLayer);
}

void StackCheck::afterStep() {
  verifyMachines();
  checkCentralAfterStep(checks_);
  checkVtepAfterStep(checks_);
  checkVniAfterStep(checks_);
  checkMacAfterStep(checks_);
}

void StackCheck::whenQuiet() {
  checkCentralWhenQuiet(checks_);
  checkVtepWhenQuiet(checks_);
  checkVniWhenQuiet(checks_);
  checkMacWhenQuiet(checks_);
}

// Every machine runs its own verification; a mismatch that one reports (as
// a verification failure, not an assertion) fails the check.
void StackCheck::verifyMachines() {
  Platform& platform = checks_.platform();
  if (!platform.agentRunning()) {
    return;
  }
  Rxn::Ptr<Fab::VerifyData> const verifyData = platform.acsd()->verifyData();
  verifyData->cliVerifyOutputDelAll();
  verifyData->verifyInc(1);
  checks_.expect("verify", true);
  for (auto const& [function, text] : verifyData->cliVerifyOutput()) {
    checks_.fail("verify", text, true);
  }
}

}  // namespace Sim

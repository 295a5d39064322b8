// The scenario steps of the agent and the platform: restarts, the halves of
// a hitless restart, how the platform answers, and waiting for quiet.

#include "sim/ScenarioReader.h"

namespace Sim {

namespace {

// What the restarted agent finds of its own state: published at rest, as the
// agent republishes it, or kept as it was, as a persistent store keeps it.
OwnState ownStateOf(Context const& ctx, std::string const& text, std::vector<std::string> const& words,
                    char const* what) {
  if (text == words[0]) return OwnState::rested;
  if (text == words[1]) return OwnState::kept;
  ctx.fail(std::string("'") + what + "' takes \"" + words[0] + "\", \"" + words[1] + "\"" +
           (words.size() > 2 ? " or \"" + words[2] + "\"" : std::string()));
}

Step restartStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  std::string const text = spec.IsString() ? spec.GetString() : "";
  Step step;
  if (text == "cold") {
    step.what = "cold restart";
    step.action = [](Platform& platform) { platform.restartCold(); };
    return step;
  }
  OwnState const own = ownStateOf(ctx, text, {"hitless", "hitlessKeepingState", "cold"}, "restart");
  step.what = own == OwnState::kept ? "hitless restart keeping the agent's state" : "hitless restart";
  step.action = [own](Platform& platform) { platform.restartHitlessly(own); };
  return step;
}

Step agentStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  std::string const text = spec.IsString() ? spec.GetString() : "";
  Step step;
  step.what = "agent " + text;
  if (text == "down") {
    step.action = [](Platform& platform) { platform.agentDown(); };
    return step;
  }
  OwnState const own = ownStateOf(ctx, text, {"up", "upKeepingState", "down"}, "agent");
  step.action = [own](Platform& platform) { platform.agentUp(own); };
  return step;
}

Platform::Answerer answererOf(Context const& ctx, std::string const& who) {
  if (who == "hook") return Platform::Answerer::hook;
  if (who == "vtepHook") return Platform::Answerer::vtepHook;
  if (who == "vniHook") return Platform::Answerer::vniHook;
  if (who == "tunnelLayer") return Platform::Answerer::tunnelLayer;
  ctx.fail("bad 'of' '" + who + "': expected hook, vtepHook, vniHook or tunnelLayer");
}

Step answersStep(Context const& ctx, Json const& spec, PlatformConfig const& config) {
  expectKeys(ctx, spec, "answers", {"delay", "hold", "of", "newestFirst"});
  double const delay = spec.HasMember("delay") ? numberAt(ctx, spec, "delay") : config.answerDelay;
  if (delay < 0) {
    ctx.fail("'delay' must not be negative");
  }
  bool const hold = spec.HasMember("hold") && boolAt(ctx, spec, "hold");
  std::string const who = spec.HasMember("of") ? stringAt(ctx, spec, "of") : "the platform";
  Platform::Answerer const answerer = spec.HasMember("of") ? answererOf(ctx, who) : Platform::Answerer::all;
  Platform::Answers answers{delay, hold, false};
  if (spec.HasMember("newestFirst")) {
    answers.newestFirst = boolAt(ctx, spec, "newestFirst");
    // Only the VNI hook's answers are independent of their order: each VLAN
    // has one request in flight, and the chip reads the row as it stands.
    if (answers.newestFirst && answerer != Platform::Answerer::vniHook) {
      ctx.fail("'newestFirst' is for the answers of the vniHook alone");
    }
  }
  Step step;
  step.what = who + " answers " + (hold ? std::string("held back") : Rxn::format("after %gs", delay)) +
              (answers.newestFirst ? ", newest first" : "");
  step.action = [answers, answerer](Platform& platform) { platform.answersAre(answers, answerer); };
  return step;
}

// Runs until nothing is armed: every answer not held back has come and every
// drain has finished.
Step settleStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  if (!spec.IsBool() || !spec.GetBool()) {
    ctx.fail("'settle' takes true");
  }
  Step step;
  step.what = "the platform settles";
  step.action = [](Platform& platform) { platform.settle(); };
  step.settles = true;
  return step;
}

}  // namespace

std::vector<StepKind> agentStepKinds() {
  return {{"restart", false, restartStep},
          {"agent", false, agentStep},
          {"answers", true, answersStep},
          {"settle", false, settleStep}};
}

}  // namespace Sim

// Events of the agent and the platform: how the platform answers (prompt,
// late, held back and released in bursts, the VNI hook's newest first),
// hitless and cold restarts at any moment, the agent away while the world
// changes, quiet, and the whole world brought to rest.

#include "sim/stress/Driver.h"

namespace Stress {

namespace {

using Steps = std::vector<std::string>;
using Answerer = Sim::Platform::Answerer;

struct Named {
  char const* name;
  Answerer answerer;
};
std::vector<Named> const kAnswerers = {
    {"vtepHook", Answerer::vtepHook}, {"vniHook", Answerer::vniHook}, {"tunnelLayer", Answerer::tunnelLayer}};

std::string delay(Maker& maker) {
  static std::vector<char const*> const delays = {"0", "0.1", "0.5", "2"};
  return maker.pick(delays);
}

Steps answersDelay(Maker& maker) {
  Named const& who = maker.pick(kAnswerers);
  return {"{\"answers\": {\"of\": " + quoted(who.name) + ", \"delay\": " + delay(maker) + "}}"};
}

Steps answersHold(Maker& maker) {
  Named const& who = maker.pick(kAnswerers);
  return {"{\"answers\": {\"of\": " + quoted(who.name) + ", \"delay\": " + delay(maker) + ", \"hold\": true}}"};
}

// Held answers come in a burst; the VNI hook's may come newest first.
Steps answersRelease(Maker& maker) {
  std::vector<Named> held;
  for (Named const& who : kAnswerers) {
    if (maker.platform().answers(who.answerer).held) {
      held.push_back(who);
    }
  }
  if (held.empty()) return {};
  Named const& who = maker.pick(held);
  bool const newestFirst = who.answerer == Answerer::vniHook && maker.chance(0.5);
  return {"{\"answers\": {\"of\": " + quoted(who.name) + ", \"delay\": " + delay(maker) +
          (newestFirst ? ", \"newestFirst\": true" : "") + "}}"};
}

Steps restartHitless(Maker&) {
  return {"{\"restart\": \"hitless\"}"};
}

Steps restartKeepingState(Maker&) {
  return {"{\"restart\": \"hitlessKeepingState\"}"};
}

Steps restartCold(Maker&) {
  return {"{\"restart\": \"cold\"}"};
}

Steps agentDown(Maker& maker) {
  if (!maker.platform().agentRunning()) return {};
  return {"{\"agent\": \"down\"}"};
}

// While the agent is away the world goes on: a VTI goes down or away.
Steps worldWhileAway(Maker& maker) {
  if (maker.platform().agentRunning()) return {};
  std::vector<std::string> const existing = maker.existingVtis();
  if (existing.empty()) return {};
  std::string const vti = maker.pick(existing);
  return {"{\"vti\": {\"name\": " + quoted(vti) + ", " +
          (maker.chance(0.5) ? "\"delete\": true" : "\"operStatus\": \"down\"") + "}}"};
}

Steps agentUp(Maker& maker) {
  if (maker.platform().agentRunning()) return {};
  return {maker.chance(0.5) ? "{\"agent\": \"up\"}" : "{\"agent\": \"upKeepingState\"}"};
}

Steps settle(Maker&) {
  return {"{\"settle\": true}"};
}

Steps rest(Maker& maker) {
  return stepsToRest(maker);
}

}  // namespace

Steps stepsToRest(Maker& maker) {
  Sim::Platform& platform = maker.platform();
  Steps steps = {"{\"answers\": {\"delay\": " + delay(maker) + "}}"};
  if (!platform.agentRunning()) {
    steps.push_back("{\"agent\": \"up\"}");
  }
  for (std::string const& vti : maker.existingVtis()) {
    steps.push_back("{\"vti\": {\"name\": " + quoted(vti) + ", \"operStatus\": \"down\"}}");
  }
  // The remote MAC machine follows: the VTIs going down flush their hosts,
  // which lets go of their VTEPs, next hops and VLANs.
  steps.push_back("{\"settle\": true}");
  return steps;
}

std::vector<EventKind> agentEvents() {
  return {{"answers-delay", 2, answersDelay},
          {"answers-hold", 1.5, answersHold},
          {"answers-release", 4, answersRelease},
          {"restart-hitless", 1, restartHitless},
          {"restart-keeping-state", 1, restartKeepingState},
          {"restart-cold", 0.6, restartCold},
          {"agent-down", 0.6, agentDown},
          {"agent-up", 20, agentUp},
          {"world-while-away", 20, worldWhileAway},
          {"settle", 4, settle},
          {"rest", 0.8, rest}};
}

}  // namespace Stress

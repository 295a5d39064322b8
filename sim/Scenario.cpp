#include "sim/Scenario.h"

#include <rapidjson/error/en.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "sim/ScenarioReader.h"

namespace Sim {

namespace {

// Every kind of step, part by part.
std::vector<StepKind> const& stepKinds() {
  static std::vector<StepKind> const kinds = [] {
    std::vector<StepKind> all;
    for (auto const& part : {centralStepKinds(), agentStepKinds(), vtepStepKinds(), vniStepKinds(), macStepKinds()}) {
      all.insert(all.end(), part.begin(), part.end());
    }
    return all;
  }();
  return kinds;
}

std::string actionList() {
  std::string list;
  for (StepKind const& kind : stepKinds()) {
    list += (list.empty() ? "" : ", ") + std::string(kind.key);
  }
  return list;
}

Step parseStep(Context const& ctx, Json const& spec, double previousAt, PlatformConfig const& config) {
  objectAt(ctx, spec, "a step");
  std::vector<char const*> keys = {"at", "show"};
  for (StepKind const& kind : stepKinds()) {
    keys.push_back(kind.key);
  }
  expectKeys(ctx, spec, "a step", keys);
  Step step;
  int actions = 0;
  for (StepKind const& kind : stepKinds()) {
    if (!spec.HasMember(kind.key)) {
      continue;
    }
    ++actions;
    Json const& body = spec[kind.key];
    if (kind.objectBody) {
      objectAt(ctx, body, ("'" + std::string(kind.key) + "'").c_str());
    }
    step = kind.read(ctx, body, config);
  }
  if (actions > 1) {
    ctx.fail("a step does one thing: " + actionList());
  }
  step.at = previousAt;
  if (spec.HasMember("at")) {
    step.at = numberAt(ctx, spec, "at");
    if (step.at < previousAt) {
      ctx.fail("'at' goes back in time, to " + Rxn::format("%g", step.at) + " after " + Rxn::format("%g", previousAt));
    }
  }
  if (spec.HasMember("show")) {
    Json const& show = spec["show"];
    if (!show.IsBool() && !show.IsString()) {
      ctx.fail("'show' takes true, false or a label");
    }
    step.show = show.IsString() || show.GetBool();
    step.label = show.IsString() ? show.GetString() : step.what;
  }
  if (actions == 0 && !step.show) {
    ctx.fail("a step needs " + actionList() + " or show");
  }
  return step;
}

PlatformConfig platformOf(Context const& ctx, Json const& spec) {
  objectAt(ctx, spec, "'platform'");
  expectKeys(ctx, spec, "'platform'",
             {"answerDelay", "vtepGroupSupported", "hitlessRestart", "useUniqGenId", "maxRemoteVteps", "maxTunnels",
              "maxNextHops", "vniTableSize", "vniSynchronous", "remoteMacMachine", "macTableSize", "macAnswerDelay"});
  PlatformConfig config;
  if (spec.HasMember("answerDelay")) {
    config.answerDelay = numberAt(ctx, spec, "answerDelay");
    if (config.answerDelay < 0) {
      ctx.fail("'answerDelay' must not be negative");
    }
  }
  if (spec.HasMember("vtepGroupSupported")) config.vtepGroupSupported = boolAt(ctx, spec, "vtepGroupSupported");
  if (spec.HasMember("hitlessRestart")) config.hitlessRestartSupported = boolAt(ctx, spec, "hitlessRestart");
  if (spec.HasMember("useUniqGenId")) config.useUniqGenId = boolAt(ctx, spec, "useUniqGenId");
  if (spec.HasMember("maxRemoteVteps")) config.maxRemoteVteps = countAt(ctx, spec, "maxRemoteVteps");
  if (spec.HasMember("maxTunnels")) config.tunnelLayer.tunnels = countAt(ctx, spec, "maxTunnels");
  if (spec.HasMember("maxNextHops")) config.tunnelLayer.nextHops = countAt(ctx, spec, "maxNextHops");
  if (spec.HasMember("vniTableSize")) config.vniTableSize = countAt(ctx, spec, "vniTableSize");
  if (spec.HasMember("vniSynchronous")) config.vniSynchronous = boolAt(ctx, spec, "vniSynchronous");
  if (spec.HasMember("remoteMacMachine")) config.remoteMacMachine = boolAt(ctx, spec, "remoteMacMachine");
  if (spec.HasMember("macTableSize")) config.macTableSize = countAt(ctx, spec, "macTableSize");
  if (spec.HasMember("macAnswerDelay")) {
    config.macAnswerDelay = numberAt(ctx, spec, "macAnswerDelay");
    if (config.macAnswerDelay < 0) {
      ctx.fail("'macAnswerDelay' must not be negative");
    }
  }
  return config;
}

std::string lineAndColumn(std::string const& text, std::size_t offset) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

Scenario parseScenario(std::string const& jsonText, std::string const& name) {
  Context ctx(name);
  rapidjson::Document document;
  document.Parse(jsonText.c_str(), jsonText.size());
  if (document.HasParseError()) {
    ctx.fail(std::string("bad JSON at ") + lineAndColumn(jsonText, document.GetErrorOffset()) + ": " +
             rapidjson::GetParseError_En(document.GetParseError()));
  }
  objectAt(ctx, document, "a scenario");
  expectKeys(ctx, document, "the scenario", {"description", "platform", "toggles", "checks", "steps"});
  Scenario scenario;
  scenario.name = name;
  if (document.HasMember("description")) scenario.description = stringAt(ctx, document, "description");
  if (document.HasMember("platform")) scenario.platform = platformOf(ctx, document["platform"]);
  if (document.HasMember("checks")) scenario.checks = boolAt(ctx, document, "checks");
  if (document.HasMember("toggles")) {
    for (auto const& toggle : objectAt(ctx, document["toggles"], "'toggles'").GetObject()) {
      if (!toggle.value.IsBool()) {
        ctx.fail(std::string("toggle '") + toggle.name.GetString() + "' must be true or false");
      }
      scenario.toggles.emplace_back(toggle.name.GetString(), toggle.value.GetBool());
    }
  }
  if (!document.HasMember("steps") || !document["steps"].IsArray()) {
    ctx.fail("'steps' must be a list of steps");
  }
  double at = 0.0;
  std::size_t number = 0;
  for (Json const& spec : document["steps"].GetArray()) {
    ctx.stepIs(++number);
    scenario.steps.push_back(parseStep(ctx, spec, at, scenario.platform));
    at = scenario.steps.back().at;
  }
  return scenario;
}

Step parseStep(std::string const& stepJson, PlatformConfig const& platform, double previousAt) {
  Context ctx("a step");
  rapidjson::Document document;
  document.Parse(stepJson.c_str(), stepJson.size());
  if (document.HasParseError()) {
    ctx.fail(std::string("bad JSON: ") + rapidjson::GetParseError_En(document.GetParseError()));
  }
  return parseStep(ctx, document, previousAt, platform);
}

Scenario loadScenario(std::string const& path) {
  std::ifstream in(path);
  if (!in) {
    throw ScenarioError(path + ": cannot be read: " + std::strerror(errno));
  }
  std::ostringstream text;
  text << in.rdbuf();
  return parseScenario(text.str(), path);
}

}  // namespace Sim

#include "sim/stress/Driver.h"

#include <unistd.h>

#include <chrono>

namespace Stress {

namespace {

// How long after the step before a step comes: often at once (two changes in
// one turn of the loop), often within an answer delay, sometimes after all
// answers.
// In milliseconds, so that a time written and read back is the same.
std::uint64_t nextGap(std::mt19937_64& random) {
  static std::uint64_t const gaps[] = {0, 0, 1, 10, 50, 100, 250, 500, 600, 1000, 2000, 3000};
  return gaps[std::uniform_int_distribution<std::size_t>(0, std::size(gaps) - 1)(random)];
}

// A step object with its time put first.
std::string timed(std::string const& step, std::uint64_t atMs) {
  char buffer[48];
  std::snprintf(buffer, sizeof buffer, "{\"at\": %llu.%03llu, ", static_cast<unsigned long long>(atMs / 1000),
                static_cast<unsigned long long>(atMs % 1000));
  return buffer + step.substr(1);
}

std::vector<EventKind> allEvents() {
  std::vector<EventKind> all;
  for (auto const& part : {worldEvents(), vniEvents(), vtepEvents(), macEvents(), agentEvents()}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

void writeLine(int fd, std::string const& line) {
  std::string const text = line + "\n";
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const n = ::write(fd, text.data() + done, text.size() - done);
    if (n <= 0) {
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

}  // namespace

Setup setupOf(std::uint64_t seed) {
  std::mt19937_64 random(seed * 0x9E3779B97F4A7C15ULL + 1);
  auto pick = [&random](auto const& items) {
    return items[std::uniform_int_distribution<std::size_t>(0, std::size(items) - 1)(random)];
  };
  auto chance = [&random](double p) { return std::bernoulli_distribution(p)(random); };
  static double const delays[] = {0.0, 0.1, 0.5, 1.0};
  static std::uint32_t const tableSizes[] = {2, 3, 5, 4094};
  static std::uint32_t const tunnelLimits[] = {3, 5, 64};
  static std::uint32_t const nextHopLimits[] = {4, 6, 128};
  Setup setup;
  Sim::PlatformConfig& p = setup.platform;
  p.answerDelay = pick(delays);
  p.vniTableSize = pick(tableSizes);
  p.vniSynchronous = chance(0.15);
  p.tunnelLayer.tunnels = pick(tunnelLimits);
  p.tunnelLayer.nextHops = pick(nextHopLimits);
  p.hitlessRestartSupported = chance(0.85);
  p.useUniqGenId = chance(0.8);
  bool const perVniControlPlane = chance(0.8);
  setup.toggles.emplace_back("PerVniControlPlane", perVniControlPlane);
  char text[512];
  std::snprintf(text, sizeof text,
                "{\"answerDelay\": %g, \"vniTableSize\": %zu, \"vniSynchronous\": %s, \"maxTunnels\": %u, "
                "\"maxNextHops\": %u, \"hitlessRestart\": %s, \"useUniqGenId\": %s}",
                p.answerDelay, p.vniTableSize, p.vniSynchronous ? "true" : "false", p.tunnelLayer.tunnels,
                p.tunnelLayer.nextHops, p.hitlessRestartSupported ? "true" : "false",
                p.useUniqGenId ? "true" : "false");
  setup.platformJson = text;
  setup.togglesJson = std::string("{\"PerVniControlPlane\": ") + (perVniControlPlane ? "true" : "false") + "}";
  return setup;
}

RunResult run(RunConfig const& config) {
  Setup const setup = setupOf(config.seed);
  Sim::ScenarioPlayer player("stress seed " + std::to_string(config.seed), setup.platform, setup.toggles, true);
  std::mt19937_64 random(config.seed);
  Universe const universe;
  std::vector<EventKind> const kinds = allEvents();
  std::vector<double> weights;
  for (EventKind const& kind : kinds) {
    weights.push_back(kind.weight);
  }
  std::discrete_distribution<std::size_t> choose(weights.begin(), weights.end());
  RunResult result;
  auto const start = std::chrono::steady_clock::now();
  // The world moves to an event's time before the event is made, so that
  // what the generator sees is what the step meets when it is played: a
  // replay, which runs to each step's time, plays the same.
  std::uint64_t atMs = 0;
  double at = 0.0;
  auto advance = [&] {
    atMs += nextGap(random);
    double const target = static_cast<double>(atMs) / 1000.0;
    if (target > player.platform().now()) {
      player.platform().runFor(target - player.platform().now());
    }
  };
  auto play = [&](std::vector<std::string> const& steps) {
    for (std::string const& step : steps) {
      std::string const line = timed(step, atMs);
      if (config.stepLog >= 0) {
        writeLine(config.stepLog, line);
      }
      Sim::Step const parsed = Sim::parseStep(line, setup.platform, at);
      at = parsed.at;
      player.play(parsed);
      ++result.steps;
    }
  };
  while (result.events < config.events) {
    EventKind const& kind = kinds[choose(random)];
    advance();
    Maker maker(player.platform(), universe, random);
    std::vector<std::string> const steps = kind.make(maker);
    if (steps.empty()) {
      continue;
    }
    ++result.events;
    ++result.eventCounts[kind.name];
    play(steps);
  }
  advance();
  Maker maker(player.platform(), universe, random);
  play(stepsToRest(maker));
  player.finish();
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  result.checkCounts = player.checks()->counts();
  return result;
}

void printStatistics(RunConfig const& config, RunResult const& result) {
  std::printf("seed %llu: %llu events (%llu steps) in %.1f s: %.0f events per second\n",
              static_cast<unsigned long long>(config.seed), static_cast<unsigned long long>(result.events),
              static_cast<unsigned long long>(result.steps), result.seconds,
              result.seconds > 0 ? static_cast<double>(result.events) / result.seconds : 0.0);
  if (config.quiet) {
    return;
  }
  std::printf("\nevents:\n");
  for (auto const& [name, count] : result.eventCounts) {
    std::printf("  %-24s %10llu  %5.2f %%\n", name.c_str(), static_cast<unsigned long long>(count),
                100.0 * static_cast<double>(count) / static_cast<double>(result.events));
  }
  std::printf("\nchecks made:\n");
  for (auto const& [name, count] : result.checkCounts) {
    std::printf("  %-40s %12llu\n", name.c_str(), static_cast<unsigned long long>(count));
  }
}

std::string quoted(std::string const& text) {
  std::string out = "\"";
  for (char const c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
    }
    out += c == '\n' ? ' ' : c;
  }
  return out + "\"";
}

std::string scenarioText(std::uint64_t seed, std::string const& failure, std::vector<std::string> const& steps) {
  Setup const setup = setupOf(seed);
  std::string text = "{\n  \"description\": " +
                     quoted("fabvxlan-stress, seed " + std::to_string(seed) + ", " + std::to_string(steps.size()) +
                            " steps: " + failure) +
                     ",\n";
  text += "  \"platform\": " + setup.platformJson + ",\n";
  text += "  \"toggles\": " + setup.togglesJson + ",\n";
  text += "  \"checks\": true,\n  \"steps\": [\n";
  for (std::size_t i = 0; i < steps.size(); ++i) {
    text += "    " + steps[i] + (i + 1 < steps.size() ? ",\n" : "\n");
  }
  return text + "  ]\n}\n";
}

}  // namespace Stress

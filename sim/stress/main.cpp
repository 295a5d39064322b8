// fabvxlan-stress: the randomized whole-stack driver. It plays legal random
// events on the simulated platform from a seed and checks the whole stack
// after every step. On a failure it prints the seed, shrinks the steps to a
// short sequence that fails the same way, and writes it as a scenario file
// for fabvxlan-sim.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "sim/stress/Isolated.h"

namespace {

// Writes a scenario file; a run whose failure cannot be kept says so rather
// than pointing at a file that is not there.
bool writeScenario(std::string const& path, std::string const& text) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) {
    std::fprintf(stderr, "fabvxlan-stress: %s: cannot be written: %s\n", path.c_str(), std::strerror(errno));
    return false;
  }
  return true;
}

int usage(char const* problem) {
  if (problem != nullptr) {
    std::fprintf(stderr, "fabvxlan-stress: %s\n", problem);
  }
  std::fprintf(problem != nullptr ? stderr : stdout,
               "usage: fabvxlan-stress [--events N] [--seed S] [--out DIR] [--shrink-seconds T] [--quiet]\n"
               "       fabvxlan-stress --seed S --shrink FILE [--out DIR] [--shrink-seconds T]\n"
               "Plays N random events (default 3000) from seed S (default 1) and checks the whole stack after\n"
               "every step. A failure is shrunk and written to DIR (default .) as a scenario file. --shrink\n"
               "replays the steps of a file it wrote for seed S, and shrinks them again.\n");
  return problem == nullptr ? 0 : 2;
}

// The steps of a scenario file that fabvxlan-stress wrote: one a line.
std::vector<std::string> stepsOf(std::string const& path) {
  std::ifstream in(path);
  std::vector<std::string> steps;
  for (std::string line; std::getline(in, line);) {
    std::size_t const start = line.find("{\"at\"");
    if (start != std::string::npos) {
      std::size_t const end = line.back() == ',' ? line.size() - 1 : line.size();
      steps.push_back(line.substr(start, end - start));
    }
  }
  return steps;
}

bool number(char const* text, std::uint64_t& out) {
  char* end = nullptr;
  out = std::strtoull(text, &end, 10);
  return end != text && *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
  Stress::RunConfig config;
  std::string out = ".";
  std::uint64_t shrinkSeconds = 300;
  std::string replayPath;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    bool const hasValue = i + 1 < argc;
    if (arg == "--help" || arg == "-h") {
      return usage(nullptr);
    } else if (arg == "--quiet") {
      config.quiet = true;
    } else if (arg == "--events" && hasValue && number(argv[i + 1], config.events)) {
      ++i;
    } else if (arg == "--seed" && hasValue && number(argv[i + 1], config.seed)) {
      ++i;
    } else if (arg == "--shrink-seconds" && hasValue && number(argv[i + 1], shrinkSeconds)) {
      ++i;
    } else if (arg == "--out" && hasValue) {
      out = argv[++i];
    } else if (arg == "--shrink" && hasValue) {
      replayPath = argv[++i];
    } else {
      return usage(("bad argument '" + arg + "'").c_str());
    }
  }
  Stress::Outcome outcome;
  if (!replayPath.empty()) {
    // A run written earlier, replayed and shrunk again (with more time).
    std::vector<std::string> const steps = stepsOf(replayPath);
    outcome = Stress::replayIsolated(config.seed, steps);
    outcome.steps = steps;
  } else {
    outcome = Stress::runIsolated(config);
  }
  if (!outcome.failed) {
    return 0;
  }
  std::printf("seed %llu failed at step %zu: %s\n  %s\n", static_cast<unsigned long long>(config.seed),
              outcome.steps.size(), outcome.signature.c_str(), outcome.message.c_str());
  std::fflush(stdout);
  std::string const base = out + "/stress-seed-" + std::to_string(config.seed);
  if (!writeScenario(base + ".unshrunk.json", Stress::scenarioText(config.seed, outcome.signature, outcome.steps))) {
    return 1;
  }
  std::vector<std::string> const steps =
      Stress::shrink(config.seed, outcome.steps, outcome.signature, static_cast<double>(shrinkSeconds));
  std::string const path = base + ".json";
  if (!writeScenario(path, Stress::scenarioText(config.seed, outcome.signature, steps))) {
    return 1;
  }
  Stress::Outcome const replay = Stress::replayFileIsolated(path);
  std::printf("shrunk to %zu steps: %s\nreplay: fabvxlan-sim %s (%s)\n", steps.size(), path.c_str(), path.c_str(),
              replay.failed && replay.signature == outcome.signature ? "fails the same way"
                                                                     : ("replays as: " + replay.signature).c_str());
  return 1;
}

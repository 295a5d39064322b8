#include "sim/stress/Isolated.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

namespace Stress {

namespace {

// A file that a child writes and the parent reads once it has ended.
class ScratchFile {
 public:
  ScratchFile() {
    char name[] = "/tmp/fabvxlan-stress-XXXXXX";
    fd_ = ::mkstemp(name);
    if (fd_ < 0) {
      throw std::runtime_error("cannot create a scratch file in /tmp");
    }
    path_ = name;
  }
  ~ScratchFile() {
    ::close(fd_);
    ::unlink(path_.c_str());
  }
  ScratchFile(ScratchFile const&) = delete;
  ScratchFile& operator=(ScratchFile const&) = delete;
  int fd() const { return fd_; }
  std::vector<std::string> lines() const {
    std::ifstream in(path_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    return lines;
  }

 private:
  int fd_ = -1;
  std::string path_;
};

constexpr char const* kFailureMark = "FAILURE ";

// The child's last word: a failure it caught itself ("FAILURE signature\t
// message"), or the assertion that
// ended it ("file:line: function: Assertion `expr' failed."), with the text
// fabAssert printed before its assertion "0".
void readFailure(std::vector<std::string> const& errors, Outcome& outcome) {
  for (std::size_t i = errors.size(); i-- > 0;) {
    std::string const& line = errors[i];
    if (line.rfind(kFailureMark, 0) == 0) {
      std::size_t const start = std::string(kFailureMark).size();
      std::size_t const tab = line.find('\t', start);
      outcome.signature = line.substr(start, tab == std::string::npos ? std::string::npos : tab - start);
      outcome.message = tab == std::string::npos ? outcome.signature : line.substr(tab + 1);
      return;
    }
    std::size_t const open = line.find("Assertion `");
    if (open != std::string::npos) {
      std::size_t const close = line.rfind("' failed");
      std::string expression =
          line.substr(open + 11, close == std::string::npos ? std::string::npos : close - open - 11);
      if (expression == "0" && i > 0) {
        expression = errors[i - 1];
      }
      outcome.signature = "assertion " + expression;
      outcome.message = line;
      return;
    }
  }
  outcome.signature = "crash";
  outcome.message = errors.empty() ? "no message" : errors.back();
}

// Runs `body` in a child with its stderr in a scratch file; a failure that
// the body catches is written there after the mark.
Outcome isolated(std::function<void()> const& body) {
  ScratchFile errors;
  std::cout.flush();
  pid_t const child = ::fork();
  if (child < 0) {
    throw std::runtime_error("fork failed");
  }
  if (child == 0) {
    ::dup2(errors.fd(), STDERR_FILENO);
    try {
      body();
    } catch (Sim::CheckFailure const& e) {
      std::fprintf(stderr, "%scheck %s\t%s\n", kFailureMark, e.check().c_str(), e.what());
      std::fflush(stderr);
      std::_Exit(3);
    } catch (std::exception const& e) {
      std::fprintf(stderr, "%sstep refused\t%s\n", kFailureMark, e.what());
      std::fflush(stderr);
      std::_Exit(4);
    }
    std::fflush(stdout);
    std::_Exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  Outcome outcome;
  outcome.failed = !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  if (outcome.failed) {
    readFailure(errors.lines(), outcome);
  }
  return outcome;
}

}  // namespace

Outcome runIsolated(RunConfig const& config) {
  ScratchFile log;
  RunConfig child = config;
  child.stepLog = log.fd();
  Outcome outcome = isolated([&child] {
    RunResult const result = run(child);
    printStatistics(child, result);
  });
  outcome.steps = log.lines();
  return outcome;
}

Outcome replayIsolated(std::uint64_t seed, std::vector<std::string> const& steps) {
  return isolated([seed, &steps] {
    Setup const setup = setupOf(seed);
    Sim::ScenarioPlayer player("replay", setup.platform, setup.toggles, true);
    double at = 0.0;
    for (std::string const& line : steps) {
      Sim::Step const step = Sim::parseStep(line, setup.platform, at);
      at = step.at;
      player.play(step);
    }
    player.finish();
  });
}

Outcome replayFileIsolated(std::string const& path) {
  return isolated([&path] {
    Sim::Scenario const scenario = Sim::loadScenario(path);
    Sim::ScenarioPlayer player(scenario);
    for (Sim::Step const& step : scenario.steps) {
      player.play(step);
    }
    player.finish();
  });
}

namespace {

// A long run's failure usually needs only its last steps: the shortest tail,
// of 64, 256, 1024, ... steps, that fails the same way on its own.
std::vector<std::string> shortestFailingTail(std::uint64_t seed, std::vector<std::string> steps,
                                             std::string const& signature,
                                             std::chrono::steady_clock::time_point deadline) {
  for (std::size_t tail = 64; tail < steps.size() && std::chrono::steady_clock::now() < deadline; tail *= 4) {
    std::vector<std::string> candidate(steps.end() - static_cast<std::ptrdiff_t>(tail), steps.end());
    Outcome const outcome = replayIsolated(seed, candidate);
    if (outcome.failed && outcome.signature == signature) {
      return candidate;
    }
  }
  return steps;
}

}  // namespace

// A short tail first, then delta debugging: drop ever smaller chunks of steps
// while the failure stays the same, until no single step can go or the time
// is up.
std::vector<std::string> shrink(std::uint64_t seed, std::vector<std::string> steps, std::string const& signature,
                                double seconds) {
  auto const deadline =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
  steps = shortestFailingTail(seed, std::move(steps), signature, deadline);
  std::size_t chunks = 2;
  while (steps.size() >= 2 && std::chrono::steady_clock::now() < deadline) {
    std::size_t const size = (steps.size() + chunks - 1) / chunks;
    bool reduced = false;
    for (std::size_t start = 0; start < steps.size() && std::chrono::steady_clock::now() < deadline; start += size) {
      std::vector<std::string> candidate(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(start));
      candidate.insert(candidate.end(),
                       steps.begin() + static_cast<std::ptrdiff_t>(std::min(start + size, steps.size())), steps.end());
      Outcome const outcome = replayIsolated(seed, candidate);
      if (outcome.failed && outcome.signature == signature) {
        steps = std::move(candidate);
        chunks = std::max<std::size_t>(chunks - 1, 2);
        reduced = true;
        break;
      }
    }
    if (!reduced) {
      if (chunks >= steps.size()) {
        break;
      }
      chunks = std::min(steps.size(), chunks * 2);
    }
  }
  return steps;
}

}  // namespace Stress

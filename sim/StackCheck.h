#pragma once
// The checks that hold across the whole stack on the simulated platform,
// beyond what each machine verifies of itself: what the simulated hardware
// holds agrees with what the machines publish; once the platform is quiet,
// nothing leaked, every request has its answer and the feature follows its
// VTIs; with every VTI down, everything is at rest.
//
// A scenario with "checks": true runs them after every step, and so does
// the randomized driver (fabvxlan-stress). A failure throws CheckFailure,
// whose text begins with the name of the check.

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

#include "sim/SimPlatform.h"

namespace Sim {

class CheckFailure : public std::runtime_error {
 public:
  CheckFailure(std::string check, std::string const& text) : std::runtime_error(text), check_(std::move(check)) {}
  // The name of the check that failed.
  std::string const& check() const { return check_; }

 private:
  std::string check_;
};

// What a part of the stack checks, through `expect`. Each subsystem's checks
// live in a file of its own (CheckCentral.cpp, CheckVni.cpp, ...).
class Checks {
 public:
  explicit Checks(Platform& platform) : platform_(platform) {}
  Platform& platform() const { return platform_; }

  // Counts the check and fails it unless it holds; `detail` is asked only on
  // failure.
  template <class Detail>
  void expect(char const* check, bool holds, Detail&& detail) {
    ++counts_[check];
    if (!holds) {
      fail(check, detail());
    }
  }
  void expect(char const* check, bool holds) {
    expect(check, holds, [] { return std::string(); });
  }
  // Fails the check. A failure is known by the check's name, or also by its
  // detail where the name alone says too little (a verification failure).
  [[noreturn]] void fail(char const* check, std::string const& detail, bool knownByDetail = false) const;

  // Whether the answers of this answerer are held back with some waiting: a
  // quiet platform may still owe them.
  bool owes(Platform::Answerer answerer) const;
  // Whether any answer is held back.
  bool owesAny() const;

  std::map<std::string, std::uint64_t> const& counts() const { return counts_; }

 private:
  Platform& platform_;
  std::map<std::string, std::uint64_t> counts_;
};

// Whether the remote MAC machine holds nothing up: no
// VTEP its hosts need, no next hop its entries use, no VLAN with MACs to
// flush. Until it lets go, a stop waits for it.
bool remoteMacsAtRest(Platform const& platform);

// The parts, in the order they run.
void checkCentralAfterStep(Checks& checks);
void checkCentralWhenQuiet(Checks& checks);
void checkVtepAfterStep(Checks& checks);
void checkVtepWhenQuiet(Checks& checks);
void checkVniAfterStep(Checks& checks);
void checkVniWhenQuiet(Checks& checks);
void checkMacAfterStep(Checks& checks);
void checkMacWhenQuiet(Checks& checks);

class StackCheck {
 public:
  explicit StackCheck(Platform& platform) : checks_(platform) {}

  // After every step: every machine verifies itself, and what the simulated
  // hardware holds agrees with what the machines publish.
  void afterStep();
  // Once nothing is armed: nothing leaked, every request was answered (but
  // those held back), the feature's state follows the VTIs; with every VTI
  // down, everything is at rest.
  void whenQuiet();

  // How often each check was made.
  std::map<std::string, std::uint64_t> const& counts() const { return checks_.counts(); }

 private:
  void verifyMachines();

  Checks checks_;
};

}  // namespace Sim

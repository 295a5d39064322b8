#pragma once
// The frame of every state machine: Fab::FabBaseSm, the platform hook base
// Fab::FabBaseHelper, fabAssert, verification reporting and the factory steps.

#include <utility>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Entity.h"
#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabCommonSmData.h"

namespace Fab {

class FabBaseSm : public Rxn::ReactorOwner {
 public:
  explicit FabBaseSm(Rxn::Ptr<FabCommonSmData> const& acsd) : acsd_(acsd) {}
  char const* fwkType() const override { return "Fab::FabBaseSm"; }

  Rxn::Ptr<FabCommonSmData> const& acsd() const { return acsd_; }
  bool initialized() const { return initialized_; }

  // Called once by the platform agent, when the inputs are complete.
  virtual void handleInitialized() { initializedIs(true); }
  virtual void initializedIs(bool initialized) { initialized_ = initialized; }
  void fabAssert(Rxn::String error) const;

 private:
  Rxn::Ptr<FabCommonSmData> acsd_;
  bool initialized_ = false;
};

// The base of the platform hook classes.
class FabBaseHelper : public Rxn::Entity {
 public:
  explicit FabBaseHelper(Rxn::Name const& name) : Rxn::Entity(name) {}
  char const* fwkType() const override { return "Fab::FabBaseHelper"; }
  // Ends the process with the error text, unless FAB_NOOP_AGENT is set.
  void fabAssert(Rxn::String error) const;
};

// The body of every fabAssert: quiet under FAB_NOOP_AGENT, otherwise the text
// on stderr and an abort with the assertion "0".
void fabAssertFailure(Rxn::String const& error);

// Reports a mismatch that handleVerify() found. Under SIMULATION_VMID the
// failure is stored with verifyOutputIs() and the process aborts; otherwise
// the text lands in cliVerifyOutput under the reporting function.
void reportVerifyFailure(Rxn::Ptr<VerifyData const> const& verifyData, Rxn::String const& text, char const* file,
                         unsigned line, char const* function);
#define FAB_VERIFY_FAILURE(verifyData, text) \
  ::Fab::reportVerifyFailure((verifyData), (text), __FILE__, __LINE__, __PRETTY_FUNCTION__)

// Machines that work in steps ask for a verification run after each one.
void requestVerify(Rxn::Ptr<VerifyData const> const& verifyData);

// The harness side of verification in a test or a simulated platform: turns
// each burst of requests (`reverify`) into one run (`verify`) at the next turn
// of the activity loop.
class VerifyHarness : public Rxn::PtrInterface {
 public:
  explicit VerifyHarness(Rxn::Ptr<VerifyData> const& verifyData);
  ~VerifyHarness() override;

 private:
  class RxnReverify;
  class RxnRunClock;
  Rxn::Ptr<RxnReverify> reverify_;
  Rxn::Ptr<RxnRunClock> runClock_;
};

// The three steps of every factory: allocate and construct, activate, return.
template <class Sm, class... Args>
Rxn::Ptr<Sm> smFactory(Args&&... args) {
  Rxn::Ptr<Sm> sm(new Sm(std::forward<Args>(args)...));
  sm->hasNotificationActiveIs(true);
  return sm;
}

}  // namespace Fab

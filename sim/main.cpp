// fabvxlan-sim: runs the reactive runtime on a small embedded scenario.
//
// A link monitor follows every link of a directory with one reactor per
// link, counts flaps, and reports a link as stable once it has stayed up for
// a hold-down time, through a clock reactor. Time is simulated, so the run is
// deterministic and instant. Set FABVXLAN_TRACE='Demo*/0-9' to see the trace.

#include <cstdio>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Log.h"
#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "sim/DemoState.h"

RXN_TRACE_MODULE("DemoLinkMonitor");

namespace Demo {
namespace {

constexpr double kHoldDown = 2.0;

Rxn::LogHandle const LINK_FLAPPING("DEMO_LINKFLAP", 4, "Link %s flapped %d times within the hold-down time.",
                                   "A link went down again before it was stable.",
                                   "Check the cabling of the link.", 10.0);

class LinkMonitor : public Fab::FabBaseSm {
 public:
  class RxnLink : public Rxn::Reactor<LinkMonitor, Link const> {
   public:
    RxnLink(Rxn::Ptr<Link const> const& link, LinkMonitor* owner)
        : Reactor(link, owner), holdDown_(new RxnHoldDown(Rxn::ActivityFacility::clock(), this)) {
      holdDown_->hasNotificationActiveIs(true);
    }
    void onOperUp() override {
      if (rxnMarkedForDeletion()) return;
      handleOperUp();
    }
    void handleOperUp() {
      bool const up = notifier()->operUp();
      RXN_TRACE(8, " link " << notifier()->intf() << (up ? " up" : " down"));
      if (up) {
        holdDown_->timeMinIs(Rxn::System::currentTime() + kHoldDown);
        return;
      }
      holdDown_->timeMinIs(std::numeric_limits<double>::infinity());
      if (++flaps_ > 1) {
        Rxn::log(LINK_FLAPPING, notifier()->intf(), flaps_);
      }
    }
    void handleStable() {
      std::printf("%10.3f  %-10s stable after %d flap(s)\n", Rxn::System::currentTime() - Rxn::Activity::kSimulatedStart,
                  notifier()->intf().c_str(), flaps_);
      flaps_ = 0;
    }

   protected:
    void rxnRemovalHook() override { holdDown_->timeMinIs(std::numeric_limits<double>::infinity()); }

   private:
    class RxnHoldDown : public Rxn::Reactor<RxnLink, Rxn::Clock const> {
     public:
      using Reactor::Reactor;
      void onTime() override {
        if (rxnMarkedForDeletion()) return;
        owner()->handleStable();
      }
    };
    Rxn::Ptr<RxnHoldDown> holdDown_;
    int flaps_ = 0;
  };

  LinkMonitor(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<LinkDir const> const& dir)
      : FabBaseSm(acsd), link_(reactors(), "Demo::LinkMonitor", "link") {
    link_.reconcile(this, dir->link());
  }
  void follow(Rxn::Ptr<LinkDir const> const& dir, std::string const& intf) { link_.follow(this, dir->link(), intf); }

 private:
  Rxn::ReactorCollection<std::string, RxnLink> link_;
};

class RxnLinkDir : public Rxn::Reactor<LinkMonitor, LinkDir const> {
 public:
  using Reactor::Reactor;
  void onLink(std::string const& intf) override { owner()->follow(notifier(), intf); }
};

}  // namespace
}  // namespace Demo

int main() {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  // Named log messages go to stdout here, in line with the table.
  Rxn::logSinkIs([](Rxn::LogHandle const& handle, Rxn::String const& text) {
    std::printf("%10.3f  %s\n", Rxn::System::currentTime() - Rxn::Activity::kSimulatedStart,
                Rxn::logLine(handle, text).c_str());
  });
  Rxn::Ptr<Demo::LinkDir> links = Demo::linkDirFactory("links");
  auto monitor = Fab::smFactory<Demo::LinkMonitor>(Fab::fabCommonSmDataFactory("acsd"), links);
  Rxn::Ptr<Demo::RxnLinkDir> follower(new Demo::RxnLinkDir(links, monitor.get()));
  follower->hasNotificationActiveIs(true);

  std::printf("%10s  %-10s %s\n", "time", "link", "event");
  links->linkIs("Ethernet1")->operUpIs(true);
  links->linkIs("Ethernet2")->operUpIs(true);
  activity.runFor(1.0);
  for (bool const up : {false, true, false, true}) {
    links->link("Ethernet2")->operUpIs(up);
    activity.runFor(0.5);
  }
  links->linkDel("Ethernet1");
  activity.runFor(5.0);
  return 0;
}

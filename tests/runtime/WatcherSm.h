#pragma once
// A small state machine of the shape every machine of the system has: an
// input with a reactor on its scalars, and keyed reactors that follow the
// members of a source collection. It writes what it hears into a journal.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fabvxlan/runtime/Reactor.h"
#include "fabvxlan/state/FabBaseSm.h"
#include "tests/runtime/RxnTestState.h"

namespace RxnTest {

class WatcherSm : public Fab::FabBaseSm {
 public:
  class RxnPanel : public Rxn::Reactor<WatcherSm, Panel const> {
   public:
    RxnPanel(Rxn::Ptr<Panel const> const& panel, WatcherSm* owner) : Reactor(panel, owner) {}
    void onSensor(std::uint32_t const& id) override {
      if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
      owner()->sensor_.follow(owner(), notifier()->sensor(), id);
    }
    void onSensorrxnImmediate() override {
      if (rxnMarkedForDeletion() || owner() == nullptr || !notifier()) return;
      reconcileSensors();
    }
    void onAlarms() override {
      if (rxnMarkedForDeletion()) return;
      owner()->handleAlarms();
    }

   protected:
    void rxnReplay() override {
      replay(this, &RxnPanel::replayAlarms);
      reconcileSensors();
    }

   private:
    void replayAlarms() { owner()->handleAlarms(); }
    void reconcileSensors() { owner()->sensor_.reconcile(owner(), notifier()->sensor()); }
  };

  class RxnSensor : public Rxn::Reactor<WatcherSm, Sensor const> {
   public:
    RxnSensor(Rxn::Ptr<Sensor const> const& sensor, WatcherSm* owner) : Reactor(sensor, owner) { handleInitialized(); }

    void handleInitialized() {
      if (!owner()->initialized()) return;
      initialized_ = true;
      handleMode();
      handleLevel();
    }
    void onMode() override {
      if (rxnMarkedForDeletion()) return;
      handleMode();
    }
    void onLevel() override {
      if (rxnMarkedForDeletion()) return;
      handleLevel();
    }
    void onLimit(std::uint32_t const& key) override {
      if (rxnMarkedForDeletion()) return;
      owner()->note("limit " + std::to_string(fwkKey()) + " " + std::to_string(key));
    }

    void handleMode() {
      if (!initialized_) return;
      owner()->note("mode " + std::to_string(fwkKey()) + " " + Rxn::valueToString(notifier()->mode()));
      if (owner()->onModeHook) owner()->onModeHook(this);
    }
    void handleLevel() {
      if (!initialized_) return;
      owner()->note("level " + std::to_string(fwkKey()) + " " + std::to_string(notifier()->level()));
    }

   protected:
    void rxnReplay() override { replay(this, &RxnSensor::handleMode, &RxnSensor::handleLevel); }
    void rxnRemovalHook() override { cleanup(); }

   private:
    void cleanup() {
      owner()->note(std::string(rxnMarkedForDeletion() ? "revive " : "cleanup ") + std::to_string(fwkKey()));
    }
    bool initialized_ = false;
  };

  WatcherSm(Rxn::Ptr<Fab::FabCommonSmData> const& acsd, Rxn::Ptr<Panel const> const& panel)
      : FabBaseSm(acsd),
        panel_(reactors(), new RxnPanel(panel, this)),
        sensor_(reactors(), "RxnTest::WatcherSm", "sensor") {
    sensor_.reconcile(this, panel->sensor());
  }

  char const* fwkType() const override { return "RxnTest::WatcherSm"; }

  void handleInitialized() override {
    initializedIs(true);
    sensor_.forEach([](RxnSensor* reactor) { reactor->handleInitialized(); });
  }

  Rxn::Ptr<Panel const> panel() const { return panel_->notifier(); }
  void panelIs(Rxn::Ptr<Panel const> const& panel) { panel_->notifierIs(panel); }
  RxnSensor* sensorIs(Rxn::Ptr<Sensor const> const& sensor) { return sensor_.is(this, sensor); }
  Rxn::Ptr<Sensor const> sensorDel(std::uint32_t id) { return sensor_.del(id); }
  RxnSensor* sensor(std::uint32_t id) const { return sensor_(id); }
  std::size_t sensors() const { return sensor_.size(); }

  void handleAlarms() {
    if (!initialized()) return;
    note("alarms " + std::to_string(panel()->alarms()));
  }

  void note(std::string const& text) { journal->push_back(text); }
  // Outlives the machine, so that a test can read what its teardown did.
  std::shared_ptr<std::vector<std::string>> journal = std::make_shared<std::vector<std::string>>();
  // Lets a test act from inside a mode handler.
  std::function<void(RxnSensor*)> onModeHook;

 private:
  Rxn::ReactorPtr<RxnPanel> panel_;
  Rxn::ReactorCollection<std::uint32_t, RxnSensor> sensor_;
};

}  // namespace RxnTest

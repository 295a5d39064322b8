#pragma once
// Reactors of state machines: the typed base of a reactor, the holder of a
// single input's reactor, and keyed reactor collections that follow a
// source collection with one reactor per member.
//
// Rules every reactor obeys:
//  - Forwarder: an onXxx override returns at once if the reactor is marked
//    for deletion, and otherwise calls its handler.
//  - Construction attaches and registers, and runs no attribute handler; a
//    reactor that declares handleInitialized() calls it from its constructor.
//  - Attaching to another notifier (notifierIs) replays: the handlers of the
//    scalar attributes in declared order (rxnReplay), collections reconciled.
//  - The zombie step (rxnDoZombieReactors) silences the reactor, runs its
//    removal hook (cleanup() or handleDel()), passes on to nested reactors,
//    and sets the marked-for-deletion flag. Reviving runs the hook too.

#include <optional>
#include <type_traits>
#include <vector>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/HashMap.h"
#include "fabvxlan/runtime/Ptr.h"

namespace Rxn {

// A member of an owner that holds reactors: a single input's reactor or a
// keyed collection. The owner passes its zombie and activation steps on.
class ReactorHolder {
 public:
  virtual void rxnZombie(bool zombie) = 0;
  virtual void rxnActiveIs(bool active) = 0;

 protected:
  ~ReactorHolder() = default;
};

// The reactor holders of one owner, in declaration order. Single reactors
// come first, then the members of keyed collections.
class ReactorRegistry {
 public:
  void singleIs(ReactorHolder* holder) { singles_.push_back(holder); }
  void keyedIs(ReactorHolder* holder) { keyed_.push_back(holder); }
  void zombieAll(bool zombie) const {
    for (ReactorHolder* holder : singles_)
      holder->rxnZombie(zombie);
    for (ReactorHolder* holder : keyed_)
      holder->rxnZombie(zombie);
  }
  void activeAll(bool active) const {
    for (ReactorHolder* holder : singles_)
      holder->rxnActiveIs(active);
    for (ReactorHolder* holder : keyed_)
      holder->rxnActiveIs(active);
  }

 private:
  std::vector<ReactorHolder*> singles_;
  std::vector<ReactorHolder*> keyed_;
};

// The base of a state machine: an object whose reactors live and die with it.
class ReactorOwner : public PtrInterface {
 public:
  // Zombies (or revives) every reactor: single ones in declaration order,
  // then the members of keyed collections; then the owner itself.
  virtual void rxnDoZombieReactors(bool zombie);
  // Activates (or silences) the owner and, after it, every reactor.
  void hasNotificationActiveIs(bool active) override;
  // The last reference went: the reactors' removal hooks run before the
  // destructor detaches them, while the owner's hooks are still there.
  void zeroReferencesIs(bool zero) override;

 protected:
  ReactorRegistry& reactors() { return reactors_; }

 private:
  ReactorRegistry reactors_;
};

// A reactor of Owner watching W: `X const` for an input the owner only
// reads, `X` for one it writes too.
template <class Owner, class W>
class Reactor : public std::remove_const_t<W>::NotifieeConst {
 public:
  using Watched = W;
  using WatchedClass = std::remove_const_t<W>;
  using Base = typename WatchedClass::NotifieeConst;

  Reactor(Ptr<W> const& notifier, Owner* owner) : owner_(owner) {
    Base::notifierIs(notifier);
    this->isRegisteredNotifieeIs(true);
  }

  Owner* owner() const { return owner_; }
  void ownerIs(Owner* owner) { owner_ = owner; }
  Ptr<W> notifier() const {
    return Ptr<W>(const_cast<W*>(static_cast<WatchedClass const*>(this->notifierBase().get())));
  }
  // A keyed reactor's key is its notifier's key.
  auto fwkKey() const { return static_cast<WatchedClass const*>(this->notifierBase().get())->fwkKey(); }

  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    if (notifier.get() == this->notifierBase().get()) {
      return;
    }
    Base::notifierIs(notifier);
    if (notifier) {
      rxnReplay();
    }
    this->isRegisteredNotifieeIs(true);
  }

  void hasNotificationActiveIs(bool active) override {
    Base::hasNotificationActiveIs(active);
    if (ReactorRegistry* nested = rxnNested()) {
      nested->activeAll(active);
    }
  }

  void rxnDoZombieReactors(bool zombie) override {
    if (zombie == this->rxnMarkedForDeletion()) {
      return;
    }
    if (this->notifierBase()) {
      hasNotificationActiveIs(!zombie);
    }
    rxnRemovalHook();
    if (ReactorRegistry* nested = rxnNested()) {
      nested->zombieAll(zombie);
    }
    this->rxnMarkedForDeletionIs(zombie);
  }

  // The report names the machine, which tells more than the reactor alone:
  // a platform's machine derived from the library's names itself.
  void onNotificationException() override { this->reportNotificationException(rxnMachineType()); }

  // The type of the state machine that owns this reactor, through the
  // reactors that own it in turn.
  String rxnMachineType() const {
    if (owner_ == nullptr) {
      return PtrInterface::NotifieeConst::kNoMachine;
    }
    if constexpr (requires { owner_->rxnMachineType(); }) {
      return owner_->rxnMachineType();
    } else if constexpr (std::is_base_of_v<PtrInterface, Owner>) {
      return owner_->fwkType();
    } else {
      return demangledTypeName(typeid(Owner));
    }
  }

 protected:
  // On attach to a new notifier: the handlers of the scalar attributes in
  // declared order (use replay()), and the reconcile step of collections.
  virtual void rxnReplay() {}
  // The removal hook: cleanup() or handleDel(), as the reactor declares.
  virtual void rxnRemovalHook() {}
  // The registry of a reactor that owns reactors of its own.
  virtual ReactorRegistry* rxnNested() { return nullptr; }

  // Runs the handlers in order, testing before each that the reactor is not
  // marked for deletion.
  template <class Self, class... Handlers>
  void replay(Self* self, Handlers... handlers) {
    ((self->rxnMarkedForDeletion() ? void() : (self->*handlers)()), ...);
  }

 private:
  Owner* owner_;
};

// The reactor of one input of an owner.
template <class R>
class ReactorPtr : public ReactorHolder {
 public:
  ReactorPtr(ReactorRegistry& registry, R* reactor) : reactor_(reactor) { registry.singleIs(this); }
  R* operator->() const { return reactor_.get(); }
  R* get() const { return reactor_.get(); }

  void rxnZombie(bool zombie) override { reactor_->rxnDoZombieReactors(zombie); }
  void rxnActiveIs(bool active) override { reactor_->hasNotificationActiveIs(active); }

 private:
  Ptr<R> reactor_;
};

// Reactors keyed like the source collection they follow.
template <class K, class R>
class ReactorCollection : public ReactorHolder {
 public:
  using Watched = typename R::Watched;

  ReactorCollection(ReactorRegistry& registry, char const* ownerClass, char const* attrName)
      : reactors_(MapName(ownerClass, attrName)), ownerClass_(ownerClass), attrName_(attrName) {
    registry.keyedIs(this);
  }

  R* operator()(K const& key) const {
    Ptr<R> const* reactor = reactors_.find(key);
    return reactor != nullptr ? reactor->get() : nullptr;
  }
  std::size_t size() const { return reactors_.size(); }
  bool empty() const { return reactors_.empty(); }
  auto begin() const { return reactors_.begin(); }
  auto end() const { return reactors_.end(); }

  // The owner's xxxIs(member): makes, retargets or keeps the member's reactor.
  // Returns null if the reactor's own start or replay already retired it.
  template <class Owner>
  R* is(Owner* owner, Ptr<Watched> const& member) {
    if (!member) {
      throwRangeException(String("null _") + attrName_ + " parameter to mutator for " + ownerClass_ + "::" + attrName_ +
                          " not allowed");
    }
    auto const key = member->fwkKey();
    Ptr<R> reactor;
    if (Ptr<R> const* existing = reactors_.find(key)) {
      reactor = *existing;
      if (reactor->notifierBase().get() == member.get()) {
        return reactor.get();
      }
      reactor->notifierIs(member);
    } else {
      reactor = new R(member, owner);
      // A reactor hears what its owner hears: nothing before the factory
      // activates the owner, everything after.
      reactor->hasNotificationActiveIs(owner->hasNotificationActive());
      reactors_.insertOrAssign(key, reactor);
    }
    if (!holds(key, reactor.get())) {
      return nullptr;
    }
    reactor->rxnDoZombieReactors(owner->rxnMarkedForDeletion());
    return holds(key, reactor.get()) ? reactor.get() : nullptr;
  }

  // The owner's xxxDel(key): retires the key's reactor; returns its notifier.
  // The key is a copy: the removal hook may change the map it came from.
  Ptr<Watched> del(K key) {
    std::optional<Ptr<R>> taken = reactors_.take(key);
    if (!taken) {
      return Ptr<Watched>();
    }
    Ptr<R> const reactor = *taken;
    reactor->rxnDoZombieReactors(true);
    reactor->ownerIs(nullptr);
    reactor->hasNotificationActiveIs(false);
    return reactor->notifier();
  }

  // One key of the source changed: follow it. A reactor whose start removed
  // its own member from the source goes again at once.
  template <class Owner, class Source>
  void follow(Owner* owner, Source const& source, K key) {
    if (auto const* member = source.find(key); member != nullptr && *member) {
      is(owner, *member);
    }
    if (auto const* member = source.find(key); member == nullptr || !*member) {
      del(key);
    }
  }

  // Any key may have changed: a reactor for every member, none for the rest.
  template <class Owner, class Source>
  void reconcile(Owner* owner, Source const& source) {
    for (auto const& [key, member] : source) {
      if (member) {
        is(owner, member);
      }
    }
    for (auto it = reactors_.begin(); it != reactors_.end();) {
      K const key = it.key();
      ++it;
      if (!source.contains(key)) {
        del(key);
      }
    }
  }

  void rxnZombie(bool zombie) override {
    forEach([zombie](R* reactor) { reactor->rxnDoZombieReactors(zombie); });
  }
  void rxnActiveIs(bool active) override {
    forEach([active](R* reactor) { reactor->hasNotificationActiveIs(active); });
  }
  // Calls fn on every reactor; fn may add or delete reactors as it goes.
  template <class Fn>
  void forEach(Fn&& fn) const {
    for (auto it = reactors_.begin(); it != reactors_.end(); ++it) {
      Ptr<R> const reactor = it.value();
      fn(reactor.get());
    }
  }

 private:
  bool holds(K const& key, R const* reactor) const {
    Ptr<R> const* present = reactors_.find(key);
    return present != nullptr && present->get() == reactor;
  }

  HashMap<K, R> reactors_;
  char const* ownerClass_;
  char const* attrName_;
};

}  // namespace Rxn

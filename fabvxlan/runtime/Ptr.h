#pragma once
// Counted objects, counted pointers and the notification link between a
// notifier and the reactors (notifiees) that watch it.
//
// Every notifying object is a PtrInterface. Its reactors register in its
// NotifieeList; a mutator visits that list synchronously, before it returns.
// The list tolerates any mutation during a visit: a reactor may detach
// itself or others, new reactors may attach, and the notifier itself may
// lose its last reference.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/String.h"

namespace Rxn {

// The process-wide switch between plain and atomic reference counts. Objects
// linked into a multi-threaded process set it once, before any object exists.
struct VFPtrInterface {
  static inline bool threadSafePointers_ = false;
};

class NotifieeList;

class PtrInterface {
 public:
  class NotifieeConst;

  // Notes whether the object is being made with new: only such an object
  // may delete itself when its last counted reference goes.
  PtrInterface();
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  virtual NotifieeList* notifieeList() const { return notifiees_; }
  virtual void hasNotificationActiveIs(bool active) { flagIs(kActive, active); }
  // Raised when the last reference goes. The default destroys the object.
  virtual void zeroReferencesIs(bool zero);
  virtual char const* fwkType() const { return "Rxn::PtrInterface"; }
  virtual ~PtrInterface();

  bool hasNotificationActive() const { return flags_ & kActive; }
  bool rxnMarkedForDeletion() const { return flags_ & kMarked; }
  void rxnMarkedForDeletionIs(bool marked) { flagIs(kMarked, marked); }

  std::uint32_t references() const { return refs_; }
  [[gnu::always_inline]] void referencesInc() const {
    if (VFPtrInterface::threadSafePointers_) [[unlikely]] {
      std::atomic_ref<std::uint32_t>(refs_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++refs_;
    }
  }
  [[gnu::always_inline]] void referencesDec() const {
    if (referencesDecNoDelete() == 0) [[unlikely]] {
      const_cast<PtrInterface*>(this)->handleZeroRef();
    }
  }
  // Drops a reference without acting on zero; for holders that decide themselves.
  [[gnu::always_inline]] std::uint32_t referencesDecNoDelete() const {
    if (VFPtrInterface::threadSafePointers_) [[unlikely]] {
      return std::atomic_ref<std::uint32_t>(refs_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
    return --refs_;
  }
  void handleZeroRef() { zeroReferencesIs(true); }
  // The end of an object whose last reference went: refused, with the
  // remedy, for one that was not made with new.
  void deleteSelf();

  static void* rxnMemAlloc(std::size_t size);
  static void rxnMemFree(void* memory);
  static void* operator new(std::size_t size) { return rxnMemAlloc(size); }
  static void operator delete(void* memory) { rxnMemFree(memory); }

 protected:
  // Visits the notifiees of this object that watch it through N (a depth of
  // at least `depth` in the notifiee hierarchy) and calls fn on each.
  template <class N, class Fn>
  void rxnVisitNotifiees(std::uint8_t depth, Fn&& fn) const;

 private:
  friend class NotifieeList;
  static constexpr std::uint8_t kActive = 1;
  static constexpr std::uint8_t kMarked = 2;
  static constexpr std::uint8_t kRegistered = 4;
  static constexpr std::uint8_t kMadeWithNew = 8;

  void flagIs(std::uint8_t flag, bool on) { flags_ = on ? (flags_ | flag) : (flags_ & ~flag); }
  NotifieeList& notifieeListMake() const;

  mutable std::uint32_t refs_ = 0;
  std::uint8_t flags_ = 0;
  // Depth of the watched class of a notifiee; 0 for objects that watch nothing.
  std::uint8_t notifyDepth_ = 0;
  mutable NotifieeList* notifiees_ = nullptr;
};

// A counted pointer. Ptr<T const> is the read-only form of an input.
template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* p) : p_(p) { inc(); }
  Ptr(Ptr const& other) : p_(other.p_) { inc(); }
  Ptr(Ptr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  template <class U>
  Ptr(Ptr<U> const& other) : p_(other.get()) {
    inc();
  }
  ~Ptr() { dec(); }

  Ptr& operator=(Ptr const& other) {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }
  void swap(Ptr& other) noexcept { std::swap(p_, other.p_); }

  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  bool operator!() const { return p_ == nullptr; }
  template <class U>
  bool operator==(Ptr<U> const& other) const {
    return p_ == other.get();
  }
  bool operator==(std::nullptr_t) const { return p_ == nullptr; }

 private:
  void inc() const {
    if (p_) p_->referencesInc();
  }
  void dec() const {
    if (p_) p_->referencesDec();
  }
  T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptrCast(Ptr<U> const& p) {
  return Ptr<T>(static_cast<T*>(p.get()));
}

// A reactor: watches one notifier and hears its changes through the virtual
// onXxx operations of the watched class's NotifieeConst.
class PtrInterface::NotifieeConst : public PtrInterface {
 public:
  NotifieeConst() = default;
  ~NotifieeConst() override;

  Ptr<PtrInterface const> const& notifierBase() const { return notifier_; }
  // Detaches from the old notifier and attaches to the new one. Calls no handler.
  virtual void notifierIs(Ptr<PtrInterface const> const& notifier);
  // The base zombie step: a zombie hears nothing more.
  virtual void rxnDoZombieReactors(bool zombie);
  // An exception escaped one of this reactor's handlers. The default reports
  // it and lets the remaining reactors hear the change.
  virtual void onNotificationException();

  bool isRegisteredNotifiee() const { return flags_ & kRegistered; }
  virtual void isRegisteredNotifieeIs(bool registered);
  // Only an active, registered reactor stands in its notifier's list.
  void hasNotificationActiveIs(bool active) override;

 protected:
  // The depth of the watched class, set by each generated NotifieeConst.
  void notifyDepthIs(std::uint8_t depth) { notifyDepth_ = depth; }
  // Reports the exception in flight, naming this reactor's type and the
  // type of the state machine that owns it.
  void reportNotificationException(String const& machineType) const;
  // The machine type of a reactor that no machine owns.
  static constexpr char kNoMachine[] = "no machine";

 private:
  friend class NotifieeList;
  // Enters or leaves the notifier's list as registration and activity change.
  void listedIs(bool was, bool is);
  Ptr<PtrInterface const> notifier_;
};

// The notifiees of one object: the reactors that are registered and active.
// Each entry carries the depth of the reactor's watched class in its low bits,
// so that one comparison skips reactors of a base class.
//
// A visit never depends on the list after it has called a handler: a lone
// reactor is called directly, and several are first copied, each with a
// counted reference. So handlers may add or remove reactors, delete the one
// that runs, or drop the last reference to the notifier itself.
class NotifieeList {
 public:
  using Notifiee = PtrInterface::NotifieeConst;
  // Depths fit the low bits of an aligned pointer.
  static constexpr std::uintptr_t kDepthMask = 7;

  void add(Notifiee* notifiee);
  void remove(Notifiee* notifiee);
  std::size_t size() const { return entries_.size(); }
  // Detaches every notifiee from the notifier.
  void deleteAll();

  template <class N, class Fn>
  void doVisit(PtrInterface const* notifier, std::uint8_t depth, Fn&& fn);

 private:
  template <class N, class Fn>
  static void deliver(Notifiee* notifiee, Fn& fn);
  // Kept out of line, so that the lone-reactor path stays small.
  template <class N, class Fn>
  [[gnu::noinline]] void visitCopy(PtrInterface const* notifier, std::uint8_t depth, Fn& fn);

  std::vector<std::uintptr_t> entries_;
};

template <class N, class Fn>
[[gnu::always_inline]] inline void NotifieeList::deliver(Notifiee* notifiee, Fn& fn) {
  try {
    fn(static_cast<N*>(notifiee));
  } catch (...) {
    notifiee->onNotificationException();
  }
}

// Inlined into every notify member: delivery is the hot path of the system.
template <class N, class Fn>
[[gnu::always_inline]] inline void NotifieeList::doVisit(PtrInterface const* notifier, std::uint8_t depth, Fn&& fn) {
  if (entries_.size() != 1) [[unlikely]] {
    visitCopy<N>(notifier, depth, fn);
    return;
  }
  std::uintptr_t const entry = entries_.front();
  if ((entry & kDepthMask) < depth) {
    return;
  }
  Notifiee* const n = reinterpret_cast<Notifiee*>(entry & ~kDepthMask);
  // The running handler keeps its reactor alive even if it deletes it.
  n->referencesInc();
  deliver<N>(n, fn);
  n->referencesDec();
}

template <class N, class Fn>
void NotifieeList::visitCopy(PtrInterface const* notifier, std::uint8_t depth, Fn& fn) {
  // Most objects have a few reactors: copy them to the stack.
  constexpr std::size_t kOnStack = 8;
  std::array<Notifiee*, kOnStack> onStack;
  std::vector<Notifiee*> onHeap;
  Notifiee** copy = onStack.data();
  if (entries_.size() > kOnStack) {
    onHeap.resize(entries_.size());
    copy = onHeap.data();
  }
  std::size_t count = 0;
  for (std::uintptr_t const entry : entries_) {
    if ((entry & kDepthMask) >= depth) {
      copy[count] = reinterpret_cast<Notifiee*>(entry & ~kDepthMask);
      copy[count++]->referencesInc();
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    Notifiee* const n = copy[i];
    // An earlier handler may have silenced or moved this one.
    if (n->hasNotificationActive() && n->isRegisteredNotifiee() && n->notifierBase().get() == notifier) {
      deliver<N>(n, fn);
    }
    n->referencesDec();
  }
}

template <class N, class Fn>
[[gnu::always_inline]] inline void PtrInterface::rxnVisitNotifiees(std::uint8_t depth, Fn&& fn) const {
  if (notifiees_ != nullptr) {
    notifiees_->doVisit<N>(this, depth, fn);
  }
}

}  // namespace Rxn

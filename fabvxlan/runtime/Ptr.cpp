#include "fabvxlan/runtime/Ptr.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <typeinfo>

#include "fabvxlan/runtime/Log.h"

namespace Rxn {

namespace {

// The blocks that PtrInterface's operator new handed out last on this thread
// and whose objects are not made yet: an object whose PtrInterface lies in
// one was made with new. Several, since the arguments of a new expression
// may make objects of their own after its block was allocated.
struct Block {
  char const* start = nullptr;
  std::size_t size = 0;
};
constexpr std::size_t kPendingBlocks = 16;
thread_local Block tPending[kPendingBlocks];
thread_local std::size_t tNextPending = 0;

}  // namespace

void* PtrInterface::rxnMemAlloc(std::size_t size) {
  void* const memory = ::operator new(size);
  tPending[tNextPending++ % kPendingBlocks] = Block{static_cast<char const*>(memory), size};
  return memory;
}

PtrInterface::PtrInterface() {
  char const* const self = reinterpret_cast<char const*>(this);
  for (Block& block : tPending) {
    if (block.start != nullptr && self >= block.start && self < block.start + block.size) {
      flags_ |= kMadeWithNew;
      block = Block{};
      return;
    }
  }
}

// An object on the stack or inside another would be freed here and again
// where it lives: a double free far from its cause. Refuse it with the remedy.
static void refuseNotMadeWithNew(PtrInterface const* object) {
  std::fprintf(stderr,
               "Rxn: a %s lost its last counted reference but was not made with new: reactors, machines and "
               "entities are heap objects held by Rxn::Ptr (make it with new and hold it in an Rxn::Ptr)\n",
               object->fwkType());
  std::abort();
}

void PtrInterface::rxnMemFree(void* memory) {
  ::operator delete(memory);
}

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) {
    deleteSelf();
  }
}

void PtrInterface::deleteSelf() {
  if ((flags_ & kMadeWithNew) == 0) {
    refuseNotMadeWithNew(this);
  }
  delete this;
}

PtrInterface::~PtrInterface() {
  delete notifiees_;
}

NotifieeList& PtrInterface::notifieeListMake() const {
  if (notifiees_ == nullptr) {
    notifiees_ = new NotifieeList;
  }
  return *notifiees_;
}

PtrInterface::NotifieeConst::~NotifieeConst() {
  isRegisteredNotifieeIs(false);
}

void PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  if (notifier.get() == notifier_.get()) {
    return;
  }
  bool const registered = isRegisteredNotifiee();
  isRegisteredNotifieeIs(false);
  notifier_ = notifier;
  if (registered) {
    isRegisteredNotifieeIs(true);
  }
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee() || (registered && !notifier_)) {
    return;
  }
  bool const listed = isRegisteredNotifiee() && hasNotificationActive();
  flagIs(kRegistered, registered);
  listedIs(listed, isRegisteredNotifiee() && hasNotificationActive());
}

void PtrInterface::NotifieeConst::hasNotificationActiveIs(bool active) {
  bool const listed = isRegisteredNotifiee() && hasNotificationActive();
  PtrInterface::hasNotificationActiveIs(active);
  listedIs(listed, isRegisteredNotifiee() && hasNotificationActive());
}

void PtrInterface::NotifieeConst::listedIs(bool was, bool is) {
  if (was == is || !notifier_) {
    return;
  }
  if (is) {
    notifier_->notifieeListMake().add(this);
  } else if (notifier_->notifiees_ != nullptr) {
    notifier_->notifiees_->remove(this);
  }
}

void PtrInterface::NotifieeConst::rxnDoZombieReactors(bool zombie) {
  if (zombie == rxnMarkedForDeletion()) {
    return;
  }
  if (notifier_) {
    hasNotificationActiveIs(!zombie);
  }
  rxnMarkedForDeletionIs(zombie);
}

void PtrInterface::NotifieeConst::onNotificationException() {
  reportNotificationException(kNoMachine);
}

void PtrInterface::NotifieeConst::reportNotificationException(String const& machineType) const {
  String what = "unknown exception";
  try {
    throw;
  } catch (std::exception const& e) {
    what = e.what();
  } catch (...) {
  }
  // A reactor has no fwkType of its own: its C++ type tells which one it is.
  logNotificationException(demangledTypeName(typeid(*this)), machineType, what);
}

void NotifieeList::add(Notifiee* notifiee) {
  assert(notifiee->notifyDepth_ <= kDepthMask);
  entries_.push_back(reinterpret_cast<std::uintptr_t>(notifiee) | notifiee->notifyDepth_);
}

void NotifieeList::remove(Notifiee* notifiee) {
  auto it = std::find_if(entries_.begin(), entries_.end(), [notifiee](std::uintptr_t entry) {
    return (entry & ~kDepthMask) == reinterpret_cast<std::uintptr_t>(notifiee);
  });
  if (it != entries_.end()) {
    entries_.erase(it);
  }
}

void NotifieeList::deleteAll() {
  std::vector<std::uintptr_t> const detached = entries_;
  for (std::uintptr_t entry : detached) {
    reinterpret_cast<Notifiee*>(entry & ~kDepthMask)->isRegisteredNotifieeIs(false);
  }
}

}  // namespace Rxn

#include "fabvxlan/runtime/Ptr.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <new>

#include "fabvxlan/runtime/Log.h"

namespace Rxn {

void* PtrInterface::rxnMemAlloc(std::size_t size) {
  return ::operator new(size);
}

void PtrInterface::rxnMemFree(void* memory) {
  ::operator delete(memory);
}

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) {
    delete this;
  }
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
  String what = "unknown exception";
  try {
    throw;
  } catch (std::exception const& e) {
    what = e.what();
  } catch (...) {
  }
  logNotificationException(fwkType(), what);
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

#include "fabvxlan/runtime/Ptr.h"

#include <algorithm>
#include <exception>
#include <new>

#include "fabvxlan/runtime/Log.h"

namespace Rxn {

void* PtrInterface::rxnMemAlloc(std::size_t size) { return ::operator new(size); }

void PtrInterface::rxnMemFree(void* memory) { ::operator delete(memory); }

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) {
    delete this;
  }
}

PtrInterface::~PtrInterface() {
  if (notifiees_ != nullptr) {
    notifiees_->release();
  }
}

NotifieeList& PtrInterface::notifieeListMake() const {
  if (notifiees_ == nullptr) {
    notifiees_ = new NotifieeList;
  }
  return *notifiees_;
}

PtrInterface::NotifieeConst::~NotifieeConst() { isRegisteredNotifieeIs(false); }

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
  if (registered == isRegisteredNotifiee()) {
    return;
  }
  if (registered) {
    if (!notifier_) {
      return;
    }
    notifier_->notifieeListMake().add(this);
  } else if (notifier_ && notifier_->notifiees_ != nullptr) {
    notifier_->notifiees_->remove(this);
  }
  flagIs(kRegistered, registered);
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

void NotifieeList::remove(Notifiee* notifiee) {
  auto it = std::find(entries_.begin(), entries_.end(), notifiee);
  if (it == entries_.end()) {
    return;
  }
  if (visiting_ > 0) {
    *it = nullptr;
    holes_ = true;
  } else {
    entries_.erase(it);
  }
}

std::size_t NotifieeList::size() const {
  return entries_.size() - std::count(entries_.begin(), entries_.end(), nullptr);
}

void NotifieeList::deleteAll() {
  std::vector<Notifiee*> const detached = entries_;
  for (Notifiee* n : detached) {
    if (n != nullptr) {
      n->isRegisteredNotifieeIs(false);
    }
  }
}

void NotifieeList::release() {
  if (visiting_ > 0) {
    released_ = true;
  } else {
    delete this;
  }
}

void NotifieeList::sweep() {
  if (released_) {
    delete this;
    return;
  }
  if (holes_) {
    entries_.erase(std::remove(entries_.begin(), entries_.end(), nullptr), entries_.end());
    holes_ = false;
  }
}

}  // namespace Rxn

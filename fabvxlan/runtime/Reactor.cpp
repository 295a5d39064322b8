#include "fabvxlan/runtime/Reactor.h"

namespace Rxn {

void ReactorOwner::rxnDoZombieReactors(bool zombie) {
  reactors_.zombieAll(zombie);
  rxnMarkedForDeletionIs(zombie);
}

void ReactorOwner::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) {
    return;
  }
  PtrInterface::hasNotificationActiveIs(active);
  reactors_.activeAll(active);
}

void ReactorOwner::zeroReferencesIs(bool zero) {
  if (!zero) {
    return;
  }
  // Removal hooks may take and drop references of their own while they run.
  referencesInc();
  rxnDoZombieReactors(true);
  if (referencesDecNoDelete() == 0) {
    deleteSelf();
  }
}

}  // namespace Rxn

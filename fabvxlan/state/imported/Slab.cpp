#include "fabvxlan/state/imported/Slab.h"

namespace Slab {

L2Rib::HostAndSource HostOutputReader::host(Bridging::MacVlanPair const& key) const {
  if (corrupted_.contains(key)) {
    throw CorruptionException("L2Rib::HostOutput row " + key.stringValue() + " failed its check");
  }
  return table_ ? table_->host(key) : L2Rib::HostAndSource();
}

void HostOutputReader::corruptionIs(Rxn::String const& message) {
  ++corruptions_;
  lastCorruption_ = message;
}

void HostOutputReader::rowCorruptedIs(Bridging::MacVlanPair const& key, bool corrupted) {
  if (corrupted) {
    corrupted_.insert(key);
  } else {
    corrupted_.erase(key);
  }
}

}  // namespace Slab

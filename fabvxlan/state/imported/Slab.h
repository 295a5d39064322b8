#pragma once
// Slab: the shared-memory tables of the switch's other agents, as a reader in
// this process sees them. A row of shared memory carries a check; a read that
// finds it broken throws, and the reader reports the corruption back to the
// table so that its writer can repair the row.

#include <cstdint>
#include <set>
#include <stdexcept>

#include "fabvxlan/runtime/Ptr.h"
#include "fabvxlan/runtime/String.h"
#include "fabvxlan/state/imported/Bridging.h"
#include "fabvxlan/state/imported/L2Rib.h"

namespace Slab {

// A read found a row whose check failed.
class CorruptionException : public std::runtime_error {
 public:
  explicit CorruptionException(Rxn::String const& text) : std::runtime_error(text) {}
};

// A reader of the L2Rib's host table (L2Rib::HostOutput) in shared memory.
class HostOutputReader : public Rxn::PtrInterface {
 public:
  explicit HostOutputReader(Rxn::Ptr<L2Rib::HostOutput const> const& table) : table_(table) {}

  // The host of the key, or the empty host if the table has none. Throws
  // CorruptionException if the row is corrupted.
  L2Rib::HostAndSource host(Bridging::MacVlanPair const& key) const;
  // The table, to walk its keys.
  Rxn::Ptr<L2Rib::HostOutput const> const& table() const { return table_; }

  // A reader reports what it caught; the table counts the reports.
  void corruptionIs(Rxn::String const& message);
  std::uint64_t corruptions() const { return corruptions_; }
  Rxn::String const& lastCorruption() const { return lastCorruption_; }

  // The writer's side, for a platform that simulates a fault: the row of the
  // key is corrupted in shared memory, or repaired.
  void rowCorruptedIs(Bridging::MacVlanPair const& key, bool corrupted);
  bool rowCorrupted(Bridging::MacVlanPair const& key) const { return corrupted_.contains(key); }

 private:
  Rxn::Ptr<L2Rib::HostOutput const> table_;
  std::set<Bridging::MacVlanPair> corrupted_;
  std::uint64_t corruptions_ = 0;
  Rxn::String lastCorruption_;
};

}  // namespace Slab

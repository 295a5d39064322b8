#pragma once
// Rxn::QueueSet: a key set that walks its keys in the order they came in.
//
// It is the set for work that waits its turn: a handler notes a key, and a
// time quantum takes the keys from the front. A key noted again while it
// waits keeps its place, so it stays one key and is not pushed back.
//
// Why not a HashMap2018: a hash set walks in the order of its hashes, and a
// drain that always starts at the front of that order, while new keys keep
// arriving everywhere, leaves the keys it has not reached yet piling up in
// the back part of the hash range. Past a backlog of about half the set that
// part holds more keys than it has slots, and every insert and erase there
// shifts long runs. In arrival order the drain takes the oldest key first
// and nothing piles up; no key waits behind keys that came after it.
//
// Walks. Every key that came in has a stamp, one more than the one before;
// an iterator remembers the stamp it stands on. A key erased during a walk,
// the current one included, is skipped; a key that comes in during a walk
// comes last, and is visited.
//
// Room. The queue holds a slot for every stamp from its oldest key on; an
// erased key leaves a dead slot that goes once every key before it has gone.
// A drain from the front takes them as it passes, so a set that becomes
// empty holds no slot; its index keeps the room of its peak, as every map
// does, until clear(). A key that never leaves the front keeps the dead
// slots behind it: a work queue's front is the first to go.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <optional>
#include <ostream>
#include <utility>

#include "fabvxlan/runtime/HashMap.h"

namespace Rxn {

template <class K>
class QueueSet {
 public:
  using key_type = K;
  using mapped_type = bool;
  using value_type = std::pair<K const, bool>;

  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = QueueSet::value_type;
    using reference = value_type;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    value_type operator*() const { return value_type(key(), true); }
    K const& key() const { return set_->slotOf(settle())->key; }
    Iterator& operator++() {
      stamp_ = settle() + 1;
      return *this;
    }
    bool operator==(Iterator const& other) const { return settle() == other.settle(); }

   private:
    friend class QueueSet;
    Iterator(QueueSet const* set, std::uint64_t stamp) : set_(set), stamp_(stamp) {}
    // The stamp of the first live key at or after the remembered one, or
    // the end's.
    std::uint64_t settle() const { return stamp_ = set_->liveFrom(stamp_); }

    QueueSet const* set_ = nullptr;
    mutable std::uint64_t stamp_ = 0;
  };
  using iterator = Iterator;
  using const_iterator = Iterator;

  explicit QueueSet(MapName name) : stamps_(name) {}

  std::size_t size() const { return stamps_.size(); }
  bool empty() const { return stamps_.empty(); }
  bool contains(K const& key) const { return stamps_.contains(key); }
  bool const* find(K const& key) const { return contains(key) ? &kMember : nullptr; }

  // Puts the key at the back, unless it waits already. Returns whether it
  // came in.
  std::pair<bool const*, bool> insertOrAssign(K const& key, bool) {
    auto [stamp, fresh] = stamps_.findOrInsert(key);
    if (!fresh) {
      return {&kMember, false};
    }
    *stamp = front_ + slots_.size();
    slots_.push_back(Slot{key, true});
    return {&kMember, true};
  }

  bool erase(K const& key) {
    std::optional<std::uint64_t> const stamp = stamps_.take(key);
    if (!stamp) {
      return false;
    }
    slots_[*stamp - front_].live = false;
    dropDeadFront();
    return true;
  }

  // Stamps go on from where they were: an iterator of the old keys goes on
  // at the new ones, as it would had the old ones been erased one by one.
  void clear() {
    stamps_.clear();
    front_ += slots_.size();
    slots_ = std::deque<Slot>();
  }

  Iterator begin() const { return Iterator(this, front_); }
  Iterator end() const { return Iterator(this, kEnd); }

  bool operator==(QueueSet const& other) const {
    if (size() != other.size()) {
      return false;
    }
    for (auto const& [key, member] : *this) {
      if (!other.contains(key)) return false;
    }
    return true;
  }

 private:
  struct Slot {
    K key;
    bool live;
  };
  static constexpr bool kMember = true;
  static constexpr std::uint64_t kEnd = ~std::uint64_t{0};

  Slot const* slotOf(std::uint64_t stamp) const { return &slots_[stamp - front_]; }

  std::uint64_t liveFrom(std::uint64_t stamp) const {
    if (stamp == kEnd) {
      return kEnd;
    }
    std::uint64_t const back = front_ + slots_.size();
    for (stamp = std::max(stamp, front_); stamp < back; ++stamp) {
      if (slots_[stamp - front_].live) return stamp;
    }
    return kEnd;
  }

  // The dead slots at the front go at once. Those behind a live key wait
  // for it: stamps are never handed out twice, so that a walk meets every
  // key that comes in after its place.
  void dropDeadFront() {
    while (!slots_.empty() && !slots_.front().live) {
      slots_.pop_front();
      ++front_;
    }
  }

  HashMap2018<K, std::uint64_t> stamps_;  // the stamp of each key
  std::deque<Slot> slots_;                // slot i holds the key of stamp front_ + i
  std::uint64_t front_ = 0;
};

template <class K>
std::ostream& operator<<(std::ostream& out, QueueSet<K> const& set) {
  bool first = true;
  out << "[";
  for (auto const& [key, member] : set) {
    out << (first ? "" : ", ") << key;
    first = false;
  }
  return out << "]";
}

}  // namespace Rxn

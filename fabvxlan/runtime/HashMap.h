#pragma once
// Rxn::HashMap2018 (value collections) and Rxn::HashMap (collections of
// counted references: reactors and child entities).
//
// The iteration order is the ascending order of the mixed hash of the key,
// ties broken by the key's operator<. It depends on the set of keys alone:
// not on the history of inserts and deletes, not on the table size, not on
// the process. That order is what makes the walks robust:
//  - an iterator remembers the key it stands on, so deleting that key (or
//    any other) during the walk only makes it seek the next key in order;
//  - a key inserted during the walk is visited if it sorts after the
//    iterator, and not otherwise;
//  - lowerBound(k) resumes a walk at a stored key (a bookmark), whether or
//    not that key is still present.
//
// The table is open-addressed with linear probing and kept sorted: slot i
// holds a key whose home slot (the top bits of its hash) is at most i, and
// the occupied slots, read in index order, are in iteration order. Inserts
// shift the rest of a run right, deletes shift it back, and the table has
// room at its end instead of wrapping. So a walk reads memory in order, and
// nothing is allocated per key. Values move when the table changes: a
// pointer from find() is good until the next insert or delete.

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <optional>
#include <ostream>
#include <type_traits>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Hash.h"
#include "fabvxlan/runtime/Ptr.h"

namespace Rxn {

template <class K, class V>
class HashMap2018 {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K const, V>;

 private:
  static constexpr std::size_t kEnd = ~std::size_t{0};

  struct Slot {
    std::uint64_t h;
    alignas(value_type) unsigned char raw[sizeof(value_type)];
    value_type& kv() { return *std::launder(reinterpret_cast<value_type*>(raw)); }
    value_type const& kv() const { return *std::launder(reinterpret_cast<value_type const*>(raw)); }
  };

 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = HashMap2018::value_type;
    using reference = value_type const&;
    using pointer = value_type const*;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    reference operator*() const {
      sync();
      assert(index_ != kEnd);
      return map_->slots_[index_].kv();
    }
    value_type const* operator->() const { return &**this; }
    Iterator& operator++() {
      sync();
      if (index_ != kEnd && standsOnPosition()) {
        index_ = map_->nextUsed(index_ + 1);
      }
      remember();
      return *this;
    }
    bool operator==(Iterator const& other) const {
      sync();
      other.sync();
      return index_ == other.index_;
    }
    K const& key() const { return (**this).first; }
    V const& value() const { return (**this).second; }

   private:
    friend class HashMap2018;
    Iterator(HashMap2018 const* map, std::size_t index) : map_(map), index_(index), epoch_(map->epoch_) { remember(); }

    bool standsOnPosition() const {
      Slot const& slot = map_->slots_[index_];
      return slot.h == h_ && slot.kv().first == key_;
    }
    void remember() {
      if (index_ != kEnd) {
        h_ = map_->slots_[index_].h;
        key_ = map_->slots_[index_].kv().first;
      }
    }
    // After any change of the map the slot may hold another key, or none:
    // seek the remembered position again.
    void sync() const {
      if (map_ != nullptr && epoch_ != map_->epoch_) {
        epoch_ = map_->epoch_;
        if (index_ != kEnd) {
          index_ = map_->seek(h_, key_);
        }
      }
    }

    HashMap2018 const* map_ = nullptr;
    mutable std::size_t index_ = kEnd;
    mutable std::uint64_t epoch_ = 0;
    std::uint64_t h_ = 0;
    K key_{};
  };
  using iterator = Iterator;
  using const_iterator = Iterator;

  HashMap2018() = default;
  HashMap2018(HashMap2018 const& other) {
    for (auto const& [k, v] : other) {
      insertOrAssign(k, v);
    }
  }
  HashMap2018(HashMap2018&& other) noexcept { swap(other); }
  HashMap2018& operator=(HashMap2018 other) noexcept {
    swap(other);
    return *this;
  }
  ~HashMap2018() { clear(); }

  void swap(HashMap2018& other) noexcept {
    std::swap(slots_, other.slots_);
    std::swap(used_, other.used_);
    std::swap(slotCount_, other.slotCount_);
    std::swap(bits_, other.bits_);
    std::swap(size_, other.size_);
    ++epoch_;
    ++other.epoch_;
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V const* find(K const& key) const {
    std::size_t const index = indexOf(hashMix(hashOf(key)), key);
    return index != kEnd ? &slots_[index].kv().second : nullptr;
  }
  V* find(K const& key) {
    std::size_t const index = indexOf(hashMix(hashOf(key)), key);
    return index != kEnd ? &slots_[index].kv().second : nullptr;
  }
  bool contains(K const& key) const { return indexOf(hashMix(hashOf(key)), key) != kEnd; }

  // Inserts or assigns. Returns the stored value and whether anything changed.
  std::pair<V*, bool> insertOrAssign(K const& key, V value) {
    std::uint64_t const h = hashMix(hashOf(key));
    std::size_t const index = indexOf(h, key);
    if (index != kEnd) {
      V& stored = slots_[index].kv().second;
      if (stored == value) {
        return {&stored, false};
      }
      stored = std::move(value);
      return {&stored, true};
    }
    return {&insertNew(h, key, std::move(value)), true};
  }

  // Finds the key, or inserts a default-constructed value for it.
  std::pair<V*, bool> findOrInsert(K const& key) {
    std::uint64_t const h = hashMix(hashOf(key));
    std::size_t const index = indexOf(h, key);
    if (index != kEnd) {
      return {&slots_[index].kv().second, false};
    }
    return {&insertNew(h, key, V()), true};
  }

  // Removes the key and hands back its value, if it was present.
  std::optional<V> take(K const& key) {
    std::size_t const index = indexOf(hashMix(hashOf(key)), key);
    if (index == kEnd) {
      return std::nullopt;
    }
    std::optional<V> out(std::move(slots_[index].kv().second));
    eraseAt(index);
    return out;
  }

  bool erase(K const& key) {
    std::size_t const index = indexOf(hashMix(hashOf(key)), key);
    if (index == kEnd) {
      return false;
    }
    eraseAt(index);
    return true;
  }

  void clear() {
    for (std::size_t i = nextUsed(0); i != kEnd; i = nextUsed(i + 1)) {
      slots_[i].kv().~value_type();
    }
    ::operator delete[](slots_, std::align_val_t(alignof(Slot)));
    slots_ = nullptr;
    used_.clear();
    slotCount_ = 0;
    bits_ = 0;
    size_ = 0;
    ++epoch_;
  }

  Iterator begin() const { return Iterator(this, nextUsed(0)); }
  Iterator end() const { return Iterator(this, kEnd); }
  // The first key at or after `key` in iteration order; `key` need not exist.
  Iterator lowerBound(K const& key) const { return Iterator(this, seek(hashMix(hashOf(key)), key)); }

  // Collections inside value records order, hash and print by their
  // iteration order, which depends on the keys alone.
  bool operator<(HashMap2018 const& other) const {
    return std::lexicographical_compare(begin(), end(), other.begin(), other.end());
  }
  std::uint64_t hash() const {
    std::uint64_t h = size_;
    for (auto const& [k, v] : *this) {
      h = hashCombine(h, hashCombine(hashOf(k), hashOf(v)));
    }
    return h;
  }

  bool operator==(HashMap2018 const& other) const {
    if (size_ != other.size_) {
      return false;
    }
    for (auto const& [k, v] : *this) {
      V const* theirs = other.find(k);
      if (theirs == nullptr || !(*theirs == v)) {
        return false;
      }
    }
    return true;
  }

 private:
  static constexpr std::uint8_t kMinBits = 3;

  std::size_t capacity() const { return slots_ == nullptr ? 0 : std::size_t{1} << bits_; }
  // Occupancy lives in a bitmap beside the slots, so that a walk finds the
  // next key 64 slots at a time.
  bool used(std::size_t index) const { return (used_[index / 64] >> (index % 64)) & 1U; }
  void usedIs(std::size_t index, bool on) {
    std::uint64_t const bit = std::uint64_t{1} << (index % 64);
    used_[index / 64] = on ? used_[index / 64] | bit : used_[index / 64] & ~bit;
  }
  std::size_t home(std::uint64_t h) const { return static_cast<std::size_t>(h >> (64 - bits_)); }
  static bool before(Slot const& slot, std::uint64_t h, K const& key) {
    return slot.h < h || (slot.h == h && slot.kv().first < key);
  }

  // The first occupied slot at or after `index`, or kEnd.
  std::size_t nextUsed(std::size_t index) const {
    if (index >= slotCount_) {
      return kEnd;
    }
    std::size_t word = index / 64;
    std::uint64_t bits = used_[word] & (~std::uint64_t{0} << (index % 64));
    while (bits == 0) {
      if (++word * 64 >= slotCount_) {
        return kEnd;
      }
      bits = used_[word];
    }
    return word * 64 + static_cast<std::size_t>(__builtin_ctzll(bits));
  }
  // The slot of the first key at or after (h, key), or kEnd.
  std::size_t seek(std::uint64_t h, K const& key) const {
    if (slots_ == nullptr) {
      return kEnd;
    }
    std::size_t index = home(h);
    while (index < slotCount_ && used(index) && before(slots_[index], h, key)) {
      ++index;
    }
    return nextUsed(index);
  }
  std::size_t indexOf(std::uint64_t h, K const& key) const {
    std::size_t const index = seek(h, key);
    return index != kEnd && slots_[index].h == h && slots_[index].kv().first == key ? index : kEnd;
  }

  V& insertNew(std::uint64_t h, K const& key, V value) {
    if ((size_ + 1) * 4 > capacity() * 3) {
      rehash(slots_ == nullptr ? kMinBits : bits_ + 1);
    }
    for (;;) {
      std::size_t index = home(h);
      while (index < slotCount_ && used(index) && before(slots_[index], h, key)) {
        ++index;
      }
      std::size_t free = index;
      while (free < slotCount_ && used(free)) {
        ++free;
      }
      if (free == slotCount_) {
        rehash(bits_);  // the run reached the end: make more room there
        continue;
      }
      for (std::size_t i = free; i > index; --i) {
        moveSlot(i - 1, i);
      }
      Slot& slot = slots_[index];
      slot.h = h;
      usedIs(index, true);
      ::new (slot.raw) value_type(key, std::move(value));
      ++size_;
      ++epoch_;
      return slot.kv().second;
    }
  }

  void eraseAt(std::size_t index) {
    slots_[index].kv().~value_type();
    usedIs(index, false);
    for (std::size_t next = index + 1; next < slotCount_ && used(next) && home(slots_[next].h) < next; ++next) {
      moveSlot(next, next - 1);
    }
    --size_;
    ++epoch_;
    // Keep a walk proportional to the number of keys, not to a past peak.
    if (bits_ > kMinBits && size_ * 16 < capacity()) {
      rehash(bits_ - 1);
    }
  }

  void moveSlot(std::size_t from, std::size_t to) {
    Slot& source = slots_[from];
    Slot& target = slots_[to];
    target.h = source.h;
    usedIs(to, true);
    ::new (target.raw) value_type(std::move(source.kv()));
    source.kv().~value_type();
    usedIs(from, false);
  }

  // Rebuilds the table with 2^bits home slots. The order is the same for
  // every size, so the keys are laid down in one pass, each at its home or
  // just after its predecessor; room at the end grows when a run needs it.
  void rehash(std::uint8_t bits) {
    std::size_t const homes = std::size_t{1} << bits;
    std::size_t const spare = slotCount_ > capacity() && bits == bits_ ? 2 * (slotCount_ - capacity()) : 0;
    std::size_t count = homes + std::max<std::size_t>(spare, homes / 8 + 8);
    std::uint8_t const oldBits = bits_;
    bits_ = bits;
    count = std::max(count, layDown(nullptr, nullptr) + 8);
    bits_ = oldBits;

    Slot* fresh = static_cast<Slot*>(::operator new[](count * sizeof(Slot), std::align_val_t(alignof(Slot))));
    std::vector<std::uint64_t> freshUsed((count + 63) / 64, 0);
    bits_ = bits;
    layDown(fresh, freshUsed.data());
    ::operator delete[](slots_, std::align_val_t(alignof(Slot)));
    slots_ = fresh;
    used_ = std::move(freshUsed);
    slotCount_ = count;
    ++epoch_;
  }

  // Places every key at max(its home, one past its predecessor) in `fresh`,
  // moving it there, or only counts the slots needed when `fresh` is null.
  std::size_t layDown(Slot* fresh, std::uint64_t* freshUsed) {
    std::size_t next = 0;
    for (std::size_t i = nextUsed(0); i != kEnd; i = nextUsed(i + 1)) {
      Slot& slot = slots_[i];
      std::size_t const index = std::max(home(slot.h), next);
      if (fresh != nullptr) {
        fresh[index].h = slot.h;
        freshUsed[index / 64] |= std::uint64_t{1} << (index % 64);
        ::new (fresh[index].raw) value_type(std::move(slot.kv()));
        slot.kv().~value_type();
      }
      next = index + 1;
    }
    return next;
  }

  Slot* slots_ = nullptr;
  std::vector<std::uint64_t> used_;
  std::size_t slotCount_ = 0;
  std::size_t size_ = 0;
  std::uint8_t bits_ = 0;
  // Moves on every change: an iterator that sees it move re-seeks its position.
  std::uint64_t epoch_ = 0;
};

// A key set prints as [k1, k2], a map as {k1: v1, k2: v2}.
template <class K, class V>
std::ostream& operator<<(std::ostream& out, HashMap2018<K, V> const& map) {
  bool first = true;
  out << (std::is_same_v<V, bool> ? "[" : "{");
  for (auto const& [k, v] : map) {
    out << (first ? "" : ", ") << k;
    if constexpr (!std::is_same_v<V, bool>) {
      out << ": " << v;
    }
    first = false;
  }
  return out << (std::is_same_v<V, bool> ? "]" : "}");
}

// A collection of counted references, keyed: reactors and child entities.
template <class K, class T>
using HashMap = HashMap2018<K, Ptr<T>>;

}  // namespace Rxn

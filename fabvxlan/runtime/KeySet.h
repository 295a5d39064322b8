#pragma once
// Rxn::KeySet: a key set inside a value record.
//
// Records are read by copy (an entity's x(k) hands out a copy), so copying a
// record must not copy its sets: a set of one key holds it in place, and a
// larger set shares one sorted array among its copies, which a write copies
// first if another copy still shares it. Reading a record that holds a set
// allocates nothing.
//
// Keys walk in ascending order, so two equal sets walk, compare, hash and
// print alike whatever their history. A walk yields (key, true) pairs, as a
// key set of an entity does: `for (auto const& [key, member] : set)`.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Hash.h"

namespace Rxn {

template <class K>
class KeySet {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::pair<K const, bool>;
    using reference = value_type;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    value_type operator*() const { return value_type(*at_, true); }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    bool operator==(Iterator const& other) const = default;
    K const& key() const { return *at_; }

   private:
    friend class KeySet;
    explicit Iterator(K const* at) : at_(at) {}
    K const* at_ = nullptr;
  };

  bool contains(K const& key) const { return std::binary_search(data(), data() + size_, key); }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Iterator begin() const { return Iterator(data()); }
  Iterator end() const { return Iterator(data() + size_); }

  void insert(K const& key) {
    if (contains(key)) return;
    if (size_ == 0) {
      one_ = key;
    } else if (size_ == 1) {
      many_ = std::make_shared<std::vector<K>>(std::initializer_list<K>{std::min(one_, key), std::max(one_, key)});
      one_ = K();
    } else {
      std::vector<K>& keys = own();
      keys.insert(std::lower_bound(keys.begin(), keys.end(), key), key);
    }
    ++size_;
  }

  void erase(K const& key) {
    if (!contains(key)) return;
    if (size_ == 1) {
      one_ = K();
    } else if (size_ == 2) {
      one_ = (*many_)[0] == key ? (*many_)[1] : (*many_)[0];
      many_.reset();
    } else {
      std::vector<K>& keys = own();
      keys.erase(std::lower_bound(keys.begin(), keys.end(), key));
    }
    --size_;
  }

  bool operator==(KeySet const& other) const {
    return std::equal(data(), data() + size_, other.data(), other.data() + other.size_);
  }
  bool operator<(KeySet const& other) const {
    return std::lexicographical_compare(data(), data() + size_, other.data(), other.data() + other.size_);
  }
  std::uint64_t hash() const {
    std::uint64_t h = size_;
    for (K const* key = data(); key != data() + size_; ++key) {
      h = hashCombine(h, hashOf(*key));
    }
    return h;
  }

 private:
  K const* data() const { return size_ == 1 ? &one_ : many_ ? many_->data() : nullptr; }
  // The array, this set's own before it changes.
  std::vector<K>& own() {
    if (many_.use_count() > 1) {
      many_ = std::make_shared<std::vector<K>>(*many_);
    }
    return *many_;
  }

  std::size_t size_ = 0;
  K one_{};                               // the key of a set of one
  std::shared_ptr<std::vector<K>> many_;  // the keys of a larger set, sorted
};

// Prints as [k1, k2].
template <class K>
std::ostream& operator<<(std::ostream& out, KeySet<K> const& set) {
  out << "[";
  for (auto it = set.begin(); it != set.end(); ++it) {
    out << (it == set.begin() ? "" : ", ") << it.key();
  }
  return out << "]";
}

}  // namespace Rxn

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

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <optional>
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
  struct Node {
    template <class... A>
    Node(std::uint64_t hh, K const& k, A&&... a) : h(hh), kv(std::piecewise_construct, std::forward_as_tuple(k),
                                                             std::forward_as_tuple(std::forward<A>(a)...)) {}
    Node* next = nullptr;
    std::uint64_t h;
    value_type kv;
  };

 public:
  class Iterator {
   public:
    using value_type = HashMap2018::value_type;
    using reference = value_type const&;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    reference operator*() const {
      sync();
      assert(node_ != nullptr);
      return node_->kv;
    }
    value_type const* operator->() const { return &**this; }
    Iterator& operator++() {
      sync();
      if (node_ != nullptr && standsOnPosition()) {
        node_ = map_->successor(node_);
      }
      remember();
      return *this;
    }
    bool operator==(Iterator const& other) const {
      sync();
      other.sync();
      return node_ == other.node_;
    }
    K const& key() const { return (**this).first; }
    V const& value() const { return (**this).second; }

   private:
    friend class HashMap2018;
    Iterator(HashMap2018 const* map, Node* node) : map_(map), node_(node), epoch_(map->epoch_) { remember(); }

    bool standsOnPosition() const { return node_->h == h_ && node_->kv.first == key_; }
    void remember() {
      if (node_ != nullptr) {
        h_ = node_->h;
        key_ = node_->kv.first;
      }
    }
    // After a deletion anywhere in the map the node may be gone: seek the
    // remembered position again.
    void sync() const {
      if (map_ != nullptr && epoch_ != map_->epoch_) {
        epoch_ = map_->epoch_;
        if (node_ != nullptr) {
          node_ = map_->seek(h_, key_);
        }
      }
    }

    HashMap2018 const* map_ = nullptr;
    mutable Node* node_ = nullptr;
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
    std::swap(buckets_, other.buckets_);
    std::swap(size_, other.size_);
    std::swap(bits_, other.bits_);
    ++epoch_;
    ++other.epoch_;
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V const* find(K const& key) const {
    Node* node = findNode(key);
    return node != nullptr ? &node->kv.second : nullptr;
  }
  V* find(K const& key) {
    Node* node = findNode(key);
    return node != nullptr ? &node->kv.second : nullptr;
  }
  bool contains(K const& key) const { return findNode(key) != nullptr; }

  // Inserts or assigns. Returns the stored value and whether anything changed.
  template <class VV>
  std::pair<V*, bool> insertOrAssign(K const& key, VV&& value) {
    std::uint64_t const h = hashMix(hashOf(key));
    Node** link = linkFor(h, key);
    if (*link != nullptr && (*link)->h == h && (*link)->kv.first == key) {
      V& stored = (*link)->kv.second;
      if (stored == value) {
        return {&stored, false};
      }
      stored = std::forward<VV>(value);
      return {&stored, true};
    }
    return {&insertAt(link, h, key, std::forward<VV>(value)), true};
  }

  // Finds the key, or inserts a default-constructed value for it.
  std::pair<V*, bool> findOrInsert(K const& key) {
    std::uint64_t const h = hashMix(hashOf(key));
    Node** link = linkFor(h, key);
    if (*link != nullptr && (*link)->h == h && (*link)->kv.first == key) {
      return {&(*link)->kv.second, false};
    }
    return {&insertAt(link, h, key), true};
  }

  // Removes the key and hands back its value, if it was present.
  std::optional<V> take(K const& key) {
    Node** link = existingLink(key);
    if (link == nullptr) {
      return std::nullopt;
    }
    std::optional<V> out(std::move((*link)->kv.second));
    unlinkAndFree(link);
    return out;
  }

  bool erase(K const& key) {
    Node** link = existingLink(key);
    if (link == nullptr) {
      return false;
    }
    unlinkAndFree(link);
    return true;
  }

  void clear() {
    for (std::size_t b = 0; b < bucketCount(); ++b) {
      for (Node* n = buckets_[b]; n != nullptr;) {
        Node* next = n->next;
        delete n;
        n = next;
      }
    }
    delete[] buckets_;
    buckets_ = nullptr;
    bits_ = 0;
    size_ = 0;
    ++epoch_;
  }

  Iterator begin() const { return Iterator(this, firstFrom(0)); }
  Iterator end() const { return Iterator(this, nullptr); }
  // The first key at or after `key` in iteration order; `key` need not exist.
  Iterator lowerBound(K const& key) const { return Iterator(this, seek(hashMix(hashOf(key)), key)); }

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
  static bool before(std::uint64_t h1, K const& k1, std::uint64_t h2, K const& k2) {
    return h1 < h2 || (h1 == h2 && k1 < k2);
  }
  std::size_t bucketCount() const { return buckets_ == nullptr ? 0 : (std::size_t{1} << bits_); }
  std::size_t bucketOf(std::uint64_t h) const { return bits_ == 0 ? 0 : static_cast<std::size_t>(h >> (64 - bits_)); }

  // The link at which (h, key) stands or would be inserted.
  Node** linkFor(std::uint64_t h, K const& key) {
    if (buckets_ == nullptr) {
      rehash(0);
    }
    Node** link = &buckets_[bucketOf(h)];
    while (*link != nullptr && before((*link)->h, (*link)->kv.first, h, key)) {
      link = &(*link)->next;
    }
    return link;
  }
  Node** existingLink(K const& key) {
    if (buckets_ == nullptr) {
      return nullptr;
    }
    std::uint64_t const h = hashMix(hashOf(key));
    Node** link = linkFor(h, key);
    return (*link != nullptr && (*link)->h == h && (*link)->kv.first == key) ? link : nullptr;
  }
  Node* findNode(K const& key) const {
    if (buckets_ == nullptr) {
      return nullptr;
    }
    std::uint64_t const h = hashMix(hashOf(key));
    for (Node* n = buckets_[bucketOf(h)]; n != nullptr && n->h <= h; n = n->next) {
      if (n->h == h && n->kv.first == key) {
        return n;
      }
    }
    return nullptr;
  }

  template <class... A>
  V& insertAt(Node** link, std::uint64_t h, K const& key, A&&... value) {
    Node* node = new Node(h, key, std::forward<A>(value)...);
    node->next = *link;
    *link = node;
    if (++size_ > bucketCount()) {
      rehash(bits_ + 1);
    }
    return node->kv.second;
  }
  void unlinkAndFree(Node** link) {
    Node* node = *link;
    *link = node->next;
    delete node;
    --size_;
    ++epoch_;
    // Keep iteration proportional to the number of keys, not to past peaks.
    if (bits_ > 3 && size_ < (bucketCount() >> 3)) {
      rehash(bits_ - 2);
    }
  }

  // Re-buckets every node. The global order is the same for every table
  // size, so appending in the old order keeps each chain sorted.
  void rehash(std::uint8_t bits) {
    std::size_t const count = std::size_t{1} << bits;
    Node** fresh = new Node*[count]();
    std::vector<Node**> tails(count);
    for (std::size_t b = 0; b < count; ++b) {
      tails[b] = &fresh[b];
    }
    Node** old = buckets_;
    std::size_t const oldCount = bucketCount();
    bits_ = bits;
    for (std::size_t b = 0; b < oldCount; ++b) {
      for (Node* n = old[b]; n != nullptr;) {
        Node* next = n->next;
        std::size_t const nb = bucketOf(n->h);
        n->next = nullptr;
        *tails[nb] = n;
        tails[nb] = &n->next;
        n = next;
      }
    }
    delete[] old;
    buckets_ = fresh;
  }

  Node* firstFrom(std::size_t bucket) const {
    for (std::size_t b = bucket; b < bucketCount(); ++b) {
      if (buckets_[b] != nullptr) {
        return buckets_[b];
      }
    }
    return nullptr;
  }
  Node* successor(Node* node) const { return node->next != nullptr ? node->next : firstFrom(bucketOf(node->h) + 1); }
  // The first node at or after (h, key).
  Node* seek(std::uint64_t h, K const& key) const {
    if (buckets_ == nullptr) {
      return nullptr;
    }
    std::size_t const b = bucketOf(h);
    for (Node* n = buckets_[b]; n != nullptr; n = n->next) {
      if (!before(n->h, n->kv.first, h, key)) {
        return n;
      }
    }
    return firstFrom(b + 1);
  }

  Node** buckets_ = nullptr;
  std::size_t size_ = 0;
  std::uint8_t bits_ = 0;
  // Counts deletions: an iterator that sees it move re-seeks its position.
  std::uint64_t epoch_ = 0;
};

// A collection of counted references, keyed: reactors and child entities.
template <class K, class T>
using HashMap = HashMap2018<K, Ptr<T>>;

}  // namespace Rxn

#pragma once
// Rxn::HashMap2018 (value collections) and Rxn::HashMap (collections of
// counted references: reactors and child entities).
//
// Order. A map walks its keys in the ascending order of a salted hash of the
// key, ties broken by the key's operator<. The salt comes from the map's
// declared name (Class::attribute, which the generator passes) and from the
// first key put into the map while it was empty. It depends on the map's own
// history and on nothing else (no address, no time, no process-wide counter),
// so a scenario replayed in another process walks every map in the same
// order. And two maps hardly ever share an order, which matters: keys that
// arrive in a map's own order pile up in one run of its growing table, so a
// map filled in the walk order of another map with the same order (the copy
// of a table, a replay of one collection into another) would fill in
// quadratic time.
//
// Walks. An iterator remembers the key it stands on and, after any change of
// the map, seeks that key again. So deleting the current key (or any other)
// during a walk only makes it go on at the next key in order; a key inserted
// during the walk is visited if it sorts after the iterator, and not
// otherwise. lowerBound(k) resumes a walk at a stored key (a bookmark),
// whether or not that key is still present.
//
// Layout. Records (key and value) live in pages that never move. An index of
// 8-byte slots (the top 32 bits of the salted hash, and the record's number)
// is open-addressed with linear probing and kept sorted: slot i holds a key
// whose home (the top bits of its hash) is at most i, the slots between a
// key's home and its slot are all occupied, and the occupied slots, read in
// index order, are in walk order. An insert shifts the rest of its run one
// slot right, an erase shifts it back, and the table has room at its end
// instead of wrapping.
//  - A reference to a value (find(), *it, a range-for binding) stays good
//    until its own key is erased or the map is cleared, assigned or
//    destroyed. Inserts and other erases, growth included, leave it alone.
//  - Growth is spread over later operations. A table that would pass 3/4 of
//    its home slots gets a table twice the size; keys below a boundary (in
//    walk order) live in the new one, the rest in the old one, and each
//    later insert or erase moves the next kMigrationStep keys across. Only
//    index slots move, never records.
//  - Erasing never shrinks the table. A drain that erases the keys it walks
//    leaves the survivors at the density they had, in one part of the hash
//    range: shrinking would pack them twice as tight there, into one long
//    run. The room of the peak is reused by later inserts and given back by
//    clear() (which xDelAll() calls on the collection it empties).
//  - A copy copies the table as it is: same salt, same layout, no
//    reinsertion.

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <type_traits>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Hash.h"
#include "fabvxlan/runtime/Ptr.h"

namespace Rxn {

// The declared name of a map, "Ns::Class::attribute": the part of its salt
// that its history does not choose.
class MapName {
 public:
  constexpr MapName() = default;
  constexpr explicit MapName(char const* name) { add(name); }
  // The same as MapName("scope::name").
  constexpr MapName(char const* scope, char const* name) {
    add(scope);
    add("::");
    add(name);
  }
  constexpr std::uint64_t salt() const { return salt_; }

 private:
  // FNV-1a: the same text gives the same salt in every process.
  constexpr void add(char const* text) {
    for (; *text != '\0'; ++text) {
      salt_ = (salt_ ^ static_cast<unsigned char>(*text)) * 0x100000001b3ULL;
    }
  }
  std::uint64_t salt_ = 0xcbf29ce484222325ULL;
};

namespace detail {

// The memory of the large tables. A block of 2 MiB or more is mapped by
// itself, aligned to a huge page and advised to be backed by huge pages: a
// table of a million keys is read at random all over, and with 4 KiB pages
// nearly every lookup would miss the TLB as well as the cache, and every
// first touch of a page would cost a fault. Smaller blocks come from the
// heap, aligned to `alignment`.
void* allocateBlock(std::size_t bytes, std::size_t alignment);
void freeBlock(void* block, std::size_t bytes, std::size_t alignment);

}  // namespace detail

// The bytes of the blocks that the tables mapped by themselves, which the
// heap's own statistics do not see.
std::size_t largeBlockBytesInUse();

namespace detail {

// One entry of a map's index.
struct IndexSlot {
  std::uint32_t order;   // the top 32 bits of the key's salted hash
  std::uint32_t record;  // the record's number in the map's RecordStore
};

// A sorted index: 2^bits home slots and room at the end, with a bitmap of
// the occupied slots (a walk skips 64 empty slots at a time), in one block.
class IndexTable {
 public:
  static constexpr std::size_t kNone = ~std::size_t{0};

  static IndexTable* make(std::uint8_t bits);
  static void destroy(IndexTable* table) { freeBlock(table, bytesFor(table->count_), alignof(IndexTable)); }
  IndexTable* copy() const;
  // The same slots in a table with twice the room at its end.
  IndexTable* widened() const;

  std::uint8_t bits() const { return bits_; }
  std::size_t homes() const { return std::size_t{1} << bits_; }
  std::size_t count() const { return count_; }
  std::size_t home(std::uint32_t order) const { return order >> (32 - bits_); }

  IndexSlot& operator[](std::size_t index) { return slots()[index]; }
  IndexSlot const& operator[](std::size_t index) const { return slots()[index]; }
  [[gnu::always_inline]] bool used(std::size_t index) const { return (words()[index / 64] >> (index % 64)) & 1U; }
  [[gnu::always_inline]] void usedIs(std::size_t index, bool on) {
    std::uint64_t const bit = std::uint64_t{1} << (index % 64);
    words()[index / 64] = on ? words()[index / 64] | bit : words()[index / 64] & ~bit;
  }

  // The first occupied slot at or after `index`, or kNone.
  std::size_t nextUsed(std::size_t index) const {
    if (index >= count_) return kNone;
    std::size_t word = index / 64;
    std::uint64_t bits = words()[word] & (~std::uint64_t{0} << (index % 64));
    while (bits == 0) {
      if (++word * 64 >= count_) return kNone;
      bits = words()[word];
    }
    return word * 64 + static_cast<std::size_t>(std::countr_zero(bits));
  }
  // The last occupied slot before `index`, or kNone.
  std::size_t prevUsed(std::size_t index) const;
  // The first free slot at or after `index`, or count().
  [[gnu::always_inline]] std::size_t nextFree(std::size_t index) const {
    if (index >= count_) return count_;
    std::size_t word = index / 64;
    std::uint64_t bits = ~words()[word] & (~std::uint64_t{0} << (index % 64));
    while (bits == 0) {
      if (++word * 64 >= count_) return count_;
      bits = ~words()[word];
    }
    return std::min(count_, word * 64 + static_cast<std::size_t>(std::countr_zero(bits)));
  }

 private:
  IndexTable(std::uint8_t bits, std::size_t count) : count_(count), bits_(bits) {}
  static std::size_t wordsFor(std::size_t count) { return (count + 63) / 64; }
  static std::size_t bytesFor(std::size_t count) {
    return sizeof(IndexTable) + count * sizeof(IndexSlot) + wordsFor(count) * sizeof(std::uint64_t);
  }
  static IndexTable* allocate(std::uint8_t bits, std::size_t count);
  IndexSlot* slots() { return reinterpret_cast<IndexSlot*>(this + 1); }
  IndexSlot const* slots() const { return reinterpret_cast<IndexSlot const*>(this + 1); }
  std::uint64_t* words() { return reinterpret_cast<std::uint64_t*>(slots() + count_); }
  std::uint64_t const* words() const { return reinterpret_cast<std::uint64_t const*>(slots() + count_); }

  std::size_t count_;
  std::uint8_t bits_;
};

// The records of a map, in pages that never move, so that a reference to a
// record stays good until the record itself goes. Records are numbered from
// 0; a number given back is handed out again first, the last given back
// first: the room of a given-back record holds the number given back before
// it. Pages grow from 8 records to the size of a huge page, so that a small
// map stays small and a large one wastes at most one page.
template <class T>
class RecordStore {
 public:
  static constexpr std::uint32_t kNone = ~std::uint32_t{0};

  RecordStore() = default;
  RecordStore(RecordStore const&) = delete;
  RecordStore& operator=(RecordStore const&) = delete;
  ~RecordStore() { clear(); }

  void swap(RecordStore& other) noexcept {
    std::swap(origins_, other.origins_);
    std::swap(freeHead_, other.freeHead_);
    std::swap(issued_, other.issued_);
  }

  T& operator[](std::uint32_t number) const { return *std::launder(reinterpret_cast<T*>(room(number))); }
  // The raw room of a record, for the caller to construct it in.
  [[gnu::always_inline]] void* room(std::uint32_t number) const {
    return reinterpret_cast<void*>(origins_[pageOf(number)] + std::uintptr_t{number} * sizeof(Cell));
  }

  // A number for a new record.
  [[gnu::always_inline]] std::uint32_t take() {
    if (freeHead_ != kNone) {
      std::uint32_t const number = freeHead_;
      std::memcpy(&freeHead_, room(number), sizeof freeHead_);
      return number;
    }
    if (issued_ == firstOf(static_cast<std::uint32_t>(origins_.size()))) {
      addPage();
    }
    return issued_++;
  }
  // Takes back the number of a record that the caller destroyed.
  [[gnu::always_inline]] void give(std::uint32_t number) {
    std::memcpy(room(number), &freeHead_, sizeof freeHead_);
    freeHead_ = number;
  }

  // The pages and the free numbers of `other`; the live records are the
  // caller's to copy, at the same numbers.
  void copyLayoutOf(RecordStore const& other) {
    while (origins_.size() < other.origins_.size()) {
      addPage();
    }
    issued_ = other.issued_;
    freeHead_ = other.freeHead_;
    other.forEachGiven(
        [this, &other](std::uint32_t number) { std::memcpy(room(number), other.room(number), sizeof freeHead_); });
  }

  // Calls fn(number) for each live record, in number order, which is the
  // order of the records in memory.
  template <class Fn>
  void forEachLive(Fn&& fn) const {
    std::vector<bool> given(issued_);
    forEachGiven([&given](std::uint32_t number) { given[number] = true; });
    for (std::uint32_t number = 0; number < issued_; ++number) {
      if (!given[number]) {
        fn(number);
      }
    }
  }

  // Lets every page go; the records must be destroyed already.
  void clear() {
    for (std::uint32_t page = 0; page < origins_.size(); ++page) {
      freeBlock(room(firstOf(page)), pageBytes(page), alignof(Cell));
    }
    origins_.clear();
    freeHead_ = kNone;
    issued_ = 0;
  }

 private:
  struct Cell {
    alignas(T) unsigned char raw[std::max(sizeof(T), sizeof(std::uint32_t))];
  };
  // Pages 0 to kSmallPages - 1 double from 8 cells up to kSmall cells in
  // all, at most 1 MiB; the rest hold kBigCells each, the cells that fit in
  // one huge page, so that the records of a large map stand in huge pages
  // and the map wastes at most one.
  static constexpr std::uint32_t kSmallShift =
      std::clamp<std::uint32_t>(std::bit_width((std::size_t{1} << 20) / sizeof(Cell)) - 1, 4, 17);
  static constexpr std::uint32_t kSmall = std::uint32_t{1} << kSmallShift;
  static constexpr std::uint32_t kSmallPages = kSmallShift - 2;
  static constexpr std::uint32_t kBigCells =
      std::max<std::uint32_t>(static_cast<std::uint32_t>((std::size_t{2} << 20) / sizeof(Cell)), kSmall);

  static std::uint32_t pageOf(std::uint32_t number) {
    return number < kSmall ? static_cast<std::uint32_t>(std::bit_width(number | 7U)) - 3
                           : kSmallPages + (number - kSmall) / kBigCells;
  }
  static std::uint32_t firstOf(std::uint32_t page) {
    if (page == 0) return 0;
    if (page < kSmallPages) return std::uint32_t{4} << page;
    return kSmall + kBigCells * (page - kSmallPages);
  }

  static std::size_t pageBytes(std::uint32_t page) { return (firstOf(page + 1) - firstOf(page)) * sizeof(Cell); }

  // A page is kept as its origin: where its record 0 would be, were the
  // page to start there. Then a record is at origin + number * size, with
  // no subtraction of the page's first number.
  void addPage() {
    std::uint32_t const page = static_cast<std::uint32_t>(origins_.size());
    void* const cells0 = allocateBlock(pageBytes(page), alignof(Cell));
    origins_.push_back(reinterpret_cast<std::uintptr_t>(cells0) - std::uintptr_t{firstOf(page)} * sizeof(Cell));
  }

  // Calls fn(number) for each number given back, the last first.
  template <class Fn>
  void forEachGiven(Fn&& fn) const {
    for (std::uint32_t number = freeHead_; number != kNone;) {
      std::uint32_t next = kNone;
      std::memcpy(&next, room(number), sizeof next);
      fn(number);
      number = next;
    }
  }

  std::vector<std::uintptr_t> origins_;
  std::uint32_t freeHead_ = kNone;  // the last number given back
  std::uint32_t issued_ = 0;        // numbers below issued_ have been handed out
};

}  // namespace detail

template <class K, class V>
class HashMap2018 {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K const, V>;

 private:
  using IndexTable = detail::IndexTable;
  using IndexSlot = detail::IndexSlot;
  static constexpr std::size_t kNone = IndexTable::kNone;

  // A slot of one of the tables; a null table is the end of the walk.
  struct Position {
    IndexTable const* table = nullptr;
    std::size_t index = 0;
  };
  // Where a key stands, or would stand, and its record if it is there.
  struct Spot {
    IndexTable* table;
    std::size_t index;
    std::uint32_t order;
    value_type* record;
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
      assert(record_ != nullptr);
      return *record_;
    }
    pointer operator->() const { return &**this; }
    Iterator& operator++() {
      sync();
      if (record_ != nullptr && onKey_) {
        at(map_->after(position_));
      } else if (record_ != nullptr) {
        remember();  // its key went: it already stands on the next one
      }
      onKey_ = true;
      return *this;
    }
    bool operator==(Iterator const& other) const {
      sync();
      other.sync();
      return record_ == other.record_;
    }
    K const& key() const { return (**this).first; }
    V const& value() const { return (**this).second; }

   private:
    friend class HashMap2018;
    Iterator(HashMap2018 const* map, Position position) : map_(map), epoch_(map->epoch_) { at(position); }

    void at(Position position) const {
      position_ = position;
      record_ = position.table != nullptr ? &map_->recordAt(position) : nullptr;
      if (record_ != nullptr) {
        remember();
        map_->prefetchAfter(position);
      }
    }
    // The place in walk order, kept to find it again after a change: the key
    // and its order (which spares hashing the key again, unless the map has
    // taken a new salt since).
    void remember() const {
      key_ = record_->first;
      order_ = (*position_.table)[position_.index].order;
      salt_ = map_->salt_;
    }
    // After any change of the map, the position is found again from the key.
    void sync() const {
      if (map_ == nullptr || epoch_ == map_->epoch_) return;
      epoch_ = map_->epoch_;
      if (record_ == nullptr) return;
      std::uint32_t const order = salt_ == map_->salt_ ? order_ : map_->orderOf(key_);
      Position const position = map_->lowerBoundPosition(order, key_);
      position_ = position;
      record_ = position.table != nullptr ? &map_->recordAt(position) : nullptr;
      onKey_ = record_ != nullptr && record_->first == key_;
      if (onKey_) {
        salt_ = map_->salt_;
        order_ = order;
      }
    }

    HashMap2018 const* map_ = nullptr;
    mutable Position position_;
    mutable value_type const* record_ = nullptr;
    mutable std::uint64_t epoch_ = 0;
    mutable bool onKey_ = true;
    mutable K key_{};
    mutable std::uint32_t order_ = 0;
    mutable std::uint64_t salt_ = 0;
  };
  using iterator = Iterator;
  using const_iterator = Iterator;

  HashMap2018() = default;
  explicit HashMap2018(MapName name) : name_(name.salt()) {}
  HashMap2018(HashMap2018 const& other)
      : table_(other.table_ != nullptr ? other.table_->copy() : nullptr),
        old_(other.old_ != nullptr ? other.old_->copy() : nullptr),
        oldFirst_(other.oldFirst_),
        boundary_(other.boundary_),
        newEnd_(other.newEnd_),
        firstHint_(other.firstHint_),
        size_(other.size_),
        growAt_(other.growAt_),
        name_(other.name_),
        salt_(other.salt_) {
    records_.copyLayoutOf(other.records_);
    other.records_.forEachLive(
        [this, &other](std::uint32_t number) { ::new (records_.room(number)) value_type(other.records_[number]); });
  }
  HashMap2018(HashMap2018&& other) noexcept { swap(other); }
  HashMap2018& operator=(HashMap2018 other) noexcept {
    swap(other);
    return *this;
  }
  ~HashMap2018() { clear(); }

  void swap(HashMap2018& other) noexcept {
    std::swap(table_, other.table_);
    std::swap(old_, other.old_);
    std::swap(oldFirst_, other.oldFirst_);
    std::swap(boundary_, other.boundary_);
    std::swap(newEnd_, other.newEnd_);
    std::swap(firstHint_, other.firstHint_);
    records_.swap(other.records_);
    std::swap(size_, other.size_);
    std::swap(growAt_, other.growAt_);
    std::swap(name_, other.name_);
    std::swap(salt_, other.salt_);
    ++epoch_;
    ++other.epoch_;
  }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V const* find(K const& key) const {
    Spot const spot = locate(key);
    return spot.record != nullptr ? &spot.record->second : nullptr;
  }
  V* find(K const& key) {
    Spot const spot = locate(key);
    return spot.record != nullptr ? &spot.record->second : nullptr;
  }
  bool contains(K const& key) const { return locate(key).record != nullptr; }

  // Inserts or assigns. Returns the stored value and whether anything changed.
  std::pair<V*, bool> insertOrAssign(K const& key, V value) {
    Spot const spot = locate(key);
    if (spot.record != nullptr) {
      V& stored = spot.record->second;
      if (stored == value) {
        return {&stored, false};
      }
      stored = std::move(value);
      return {&stored, true};
    }
    return {&insertNew(key, std::move(value), spot), true};
  }

  // Finds the key, or inserts a default-constructed value for it.
  std::pair<V*, bool> findOrInsert(K const& key) {
    Spot const spot = locate(key);
    if (spot.record != nullptr) {
      return {&spot.record->second, false};
    }
    return {&insertNew(key, V(), spot), true};
  }

  // Removes the key and hands back its value, if it was present.
  std::optional<V> take(K const& key) {
    Spot const spot = locate(key);
    if (spot.record == nullptr) {
      return std::nullopt;
    }
    std::optional<V> out(std::move(spot.record->second));
    eraseAt(spot);
    return out;
  }

  bool erase(K const& key) {
    Spot const spot = locate(key);
    if (spot.record == nullptr) {
      return false;
    }
    eraseAt(spot);
    return true;
  }

  // Destroys every record and gives all room back.
  void clear() {
    if constexpr (!std::is_trivially_destructible_v<value_type>) {
      records_.forEachLive([this](std::uint32_t number) { records_[number].~value_type(); });
    }
    records_.clear();
    for (IndexTable** table : {&table_, &old_}) {
      if (*table != nullptr) {
        IndexTable::destroy(*table);
        *table = nullptr;
      }
    }
    size_ = 0;
    growAt_ = 0;
    ++epoch_;
  }

  Iterator begin() const { return Iterator(this, first()); }
  Iterator end() const { return Iterator(this, Position{}); }
  // The first key at or after `key` in walk order; `key` need not exist.
  Iterator lowerBound(K const& key) const { return Iterator(this, lowerBoundPosition(orderOf(key), key)); }

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
  // Keys moved from the old table to the new one by each insert or erase
  // while a growth is under way: enough to finish long before the new table
  // fills, few enough that no single operation takes long.
  static constexpr std::size_t kMigrationStep = 32;
  // How far ahead a walk fetches records: enough to cover the latency of
  // memory while the caller handles the records before.
  static constexpr std::size_t kPrefetchDistance = 4;

  std::uint32_t orderOf(K const& key) const { return static_cast<std::uint32_t>(hashMix(hashOf(key) ^ salt_) >> 32); }
  value_type& recordAt(Position position) const { return records_[(*position.table)[position.index].record]; }

  // During a growth, keys from the boundary on are still in the old table.
  IndexTable* tableFor(std::uint32_t order) const { return old_ != nullptr && order >= boundary_ ? old_ : table_; }

  // The slot of the key, or the first slot after every key before it.
  // Inline, so that the spot stays in registers.
  [[gnu::always_inline]] Spot locate(K const& key) const { return locateAt(orderOf(key), key); }
  [[gnu::always_inline]] Spot locateAt(std::uint32_t order, K const& key) const {
    IndexTable* const table = tableFor(order);
    if (table == nullptr) {
      return Spot{nullptr, 0, order, nullptr};
    }
    std::size_t index = table->home(order);
    if (table == old_) {
      index = std::max(index, oldFirst_);  // the slots before it have moved to the new table
    }
    while (index < table->count() && table->used(index) && (*table)[index].order < order) {
      ++index;
    }
    // Keys of one order stand in key order.
    for (; index < table->count() && table->used(index) && (*table)[index].order == order; ++index) {
      value_type& there = records_[(*table)[index].record];
      if (there.first == key) {
        return Spot{table, index, order, &there};
      }
      if (key < there.first) {
        break;
      }
    }
    return Spot{table, index, order, nullptr};
  }

  // The spot is read field by field: a copy of the whole, just built field
  // by field, would wait for those stores to land.
  V& insertNew(K const& key, V&& value, Spot const& found) {
    IndexTable* table = found.table;
    std::size_t index = found.index;
    std::uint32_t order = found.order;
    if (size_ == 0 || size_ >= growAt_ || old_ != nullptr) [[unlikely]] {
      Spot const again = makeRoom(key);
      table = again.table;
      index = again.index;
      order = again.order;
    }
    std::uint32_t const number = records_.take();
    value_type* record;
    try {
      record = ::new (records_.room(number)) value_type(key, std::move(value));
    } catch (...) {
      records_.give(number);
      throw;
    }
    placeSlot(table, index, IndexSlot{order, number});
    ++size_;
    ++epoch_;
    return record->second;
  }

  // Before an insert into an empty map, a full one or one that is growing:
  // a new order for an empty map, a table, a growth begun when the load
  // would pass 3/4, the next keys of a growth moved. Returns where the key
  // goes now.
  [[gnu::noinline]] Spot makeRoom(K const& key) {
    if (size_ == 0) {
      salt_ = hashCombine(name_, hashOf(key));  // an empty map takes a new order
    }
    if (table_ == nullptr) {
      table_ = IndexTable::make(kMinBits);
      firstHint_ = 0;
    } else if (old_ == nullptr && size_ >= growAt_) {
      beginGrowth();
    }
    migrate();
    growAt_ = table_->homes() / 4 * 3;
    return locate(key);
  }

  void beginGrowth() {
    old_ = table_;
    table_ = IndexTable::make(static_cast<std::uint8_t>(old_->bits() + 1));
    firstHint_ = 0;
    newEnd_ = 0;
    oldFirst_ = old_->nextUsed(0);
    boundary_ = (*old_)[oldFirst_].order;
  }

  // Moves the next keys of a growth to the new table, if one is under way.
  bool migrate() { return old_ != nullptr && migrateStep(); }
  // Each key goes after every key there, at its home or just after the last
  // one. Keys of one order move together, so that the boundary never splits
  // them.
  [[gnu::noinline]] bool migrateStep() {
    std::uint32_t lastOrder = 0;
    for (std::size_t moved = 0; oldFirst_ != kNone; ++moved) {
      IndexSlot const slot = (*old_)[oldFirst_];
      if (moved >= kMigrationStep && slot.order != lastOrder) {
        break;
      }
      std::size_t const index = std::max(table_->home(slot.order), newEnd_);
      if (index == table_->count()) {
        widen(table_);
      }
      (*table_)[index] = slot;
      table_->usedIs(index, true);
      newEnd_ = index + 1;
      old_->usedIs(oldFirst_, false);
      oldFirst_ = old_->nextUsed(oldFirst_ + 1);
      lastOrder = slot.order;
    }
    settleBoundary();
    ++epoch_;
    return true;
  }

  // The boundary is the order of the old table's first key; a growth whose
  // old table is empty is over.
  void settleBoundary() {
    if (oldFirst_ != kNone) {
      boundary_ = (*old_)[oldFirst_].order;
      return;
    }
    IndexTable::destroy(old_);
    old_ = nullptr;
  }

  // Puts a slot at its place, shifting the rest of the run one slot right.
  void placeSlot(IndexTable* table, std::size_t index, IndexSlot slot) {
    std::size_t free = table->nextFree(index);
    if (free == table->count()) {
      table = widen(table);
    }
    for (std::size_t at = free; at > index; --at) {
      (*table)[at] = (*table)[at - 1];
    }
    (*table)[index] = slot;
    table->usedIs(free, true);
    if (table == table_) {
      firstHint_ = std::min(firstHint_, index);
      newEnd_ = old_ != nullptr ? std::max(newEnd_, free + 1) : newEnd_;
    }
  }

  void eraseAt(Spot const& spot) {
    spot.record->~value_type();
    records_.give((*spot.table)[spot.index].record);
    removeSlot(spot.table, spot.index);
    --size_;
    ++epoch_;
    migrate();
  }

  // Takes a slot out, shifting back the keys after it that are not at home.
  void removeSlot(IndexTable* table, std::size_t index) {
    std::size_t hole = index;
    for (std::size_t next = index + 1;
         next < table->count() && table->used(next) && table->home((*table)[next].order) <= hole; ++next) {
      (*table)[hole] = (*table)[next];
      hole = next;
    }
    table->usedIs(hole, false);
    if (old_ != nullptr) [[unlikely]] {
      keepGrowthMarks(table, index, hole);
    }
  }
  // During a growth: the old table's first key, when it goes, and the end of
  // the new table's keys, when the last goes.
  void keepGrowthMarks(IndexTable const* table, std::size_t index, std::size_t hole) {
    if (table == old_ && index == oldFirst_) {
      oldFirst_ = old_->nextUsed(oldFirst_);
      settleBoundary();
    } else if (table == table_ && hole + 1 == newEnd_) {
      std::size_t const last = table_->prevUsed(hole);
      newEnd_ = last == kNone ? 0 : last + 1;
    }
  }

  // A run reached the end of a table: the same table with more room there.
  IndexTable* widen(IndexTable* table) {
    IndexTable*& holder = table == table_ ? table_ : old_;
    holder = table->widened();
    IndexTable::destroy(table);
    return holder;
  }

  // Walk order: the new table first (its keys are below the boundary), then
  // what the old one still holds.
  Position first() const {
    if (size_ == 0) {
      return Position{};
    }
    // Keys are erased from the front by drains: remember where the first
    // one was, so that finding it again does not rescan the empty front.
    firstHint_ = table_->nextUsed(firstHint_);
    if (firstHint_ != kNone) {
      return Position{table_, firstHint_};
    }
    firstHint_ = 0;
    return Position{old_, oldFirst_};
  }
  Position after(Position position) const {
    std::size_t const next = position.table->nextUsed(position.index + 1);
    if (next != kNone) {
      return Position{position.table, next};
    }
    return position.table == table_ && old_ != nullptr ? Position{old_, oldFirst_} : Position{};
  }
  Position lowerBoundPosition(std::uint32_t order, K const& key) const {
    Spot const spot = locateAt(order, key);
    if (spot.table == nullptr) {
      return Position{};
    }
    std::size_t const index = spot.table->nextUsed(spot.index);
    if (index != kNone) {
      return Position{spot.table, index};
    }
    return spot.table == table_ && old_ != nullptr ? Position{old_, oldFirst_} : Position{};
  }

  // A walk reads records in walk order, which is no order in memory: the
  // record a few slots ahead is fetched while the caller works on this one
  // (the nearer ones were asked for at the steps before).
  void prefetchAfter(Position position) const {
    IndexTable const& table = *position.table;
    std::size_t const ahead = position.index + kPrefetchDistance;
    if (ahead < table.count() && table.used(ahead)) {
      __builtin_prefetch(records_.room(table[ahead].record));
    }
  }

  IndexTable* table_ = nullptr;        // the index; during a growth, the keys below the boundary
  IndexTable* old_ = nullptr;          // during a growth, the keys from the boundary on
  std::size_t oldFirst_ = 0;           // the old table's first occupied slot
  std::uint32_t boundary_ = 0;         // the order of the old table's first key
  std::size_t newEnd_ = 0;             // during a growth, one past the new table's last key
  mutable std::size_t firstHint_ = 0;  // no key of table_ stands before it
  mutable detail::RecordStore<value_type> records_;
  std::size_t size_ = 0;
  std::size_t growAt_ = 0;  // the size at which the next insert begins a growth
  std::uint64_t name_ = MapName().salt();
  std::uint64_t salt_ = 0;
  // Moves on every change: an iterator that sees it move seeks its key again.
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

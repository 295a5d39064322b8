// Rxn::HashMap2018: an order that follows the map's own history, walks that
// survive mutation, bookmarks that resume after their key is gone, and
// references that stay good; at a million keys as at a hundred.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "fabvxlan/runtime/HashMap.h"

namespace {

using Map = Rxn::HashMap2018<std::uint32_t, std::uint32_t>;

std::vector<std::uint32_t> keysOf(Map const& map) {
  std::vector<std::uint32_t> keys;
  for (auto const& [key, value] : map) {
    keys.push_back(key);
  }
  return keys;
}

Map filled(Rxn::MapName name, std::vector<std::uint32_t> const& keys) {
  Map map(name);
  for (std::uint32_t key : keys) {
    map.insertOrAssign(key, key);
  }
  return map;
}

std::vector<std::uint32_t> range(std::uint32_t first, std::uint32_t count) {
  std::vector<std::uint32_t> keys(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    keys[i] = first + i;
  }
  return keys;
}

TEST(HashMap, TheOrderFollowsTheMapsOwnHistoryAndNothingElse) {
  Rxn::MapName const name("Test::Table::entry");
  std::vector<std::uint32_t> const keys = range(0, 1000);
  std::vector<std::uint32_t> reversed(keys.rbegin(), keys.rend());
  reversed.insert(reversed.begin(), 0);  // the same first key

  // Same name, same first key: the same order, wherever and whenever the
  // map was made, and whatever the order of the later keys.
  Map const first = filled(name, keys);
  std::vector<std::unique_ptr<Map>> elsewhere;
  for (int i = 0; i < 3; ++i) {
    elsewhere.push_back(std::make_unique<Map>(filled(name, reversed)));
  }
  for (auto const& map : elsewhere) {
    EXPECT_EQ(keysOf(*map), keysOf(first));
  }
  std::vector<std::uint32_t> const order = keysOf(first);
  EXPECT_FALSE(std::is_sorted(order.begin(), order.end()));  // the hash order, not the keys'

  // Another name, or another first key: another order, so that filling one
  // map in the other's order is filling it in no particular order.
  EXPECT_NE(keysOf(filled(Rxn::MapName("Test::Table::other"), keys)), order);
  std::vector<std::uint32_t> startingElsewhere = keys;
  std::swap(startingElsewhere[0], startingElsewhere[500]);
  EXPECT_NE(keysOf(filled(name, startingElsewhere)), order);
  EXPECT_EQ(Rxn::MapName("Test::Table", "entry").salt(), name.salt());

  // Emptied, a map starts afresh: refilled, it walks as a new one would.
  Map reused = filled(name, startingElsewhere);
  for (std::uint32_t key : keys) {
    reused.erase(key);
  }
  for (std::uint32_t key : keys) {
    reused.insertOrAssign(key, key);
  }
  EXPECT_EQ(keysOf(reused), order);

  // A copy keeps the order, and the two stay alike under the same changes.
  Map copy = first;
  Map original = first;
  EXPECT_EQ(keysOf(copy), order);
  for (std::uint32_t key : range(5000, 3000)) {
    copy.insertOrAssign(key, key);
    original.insertOrAssign(key, key);
  }
  EXPECT_EQ(keysOf(copy), keysOf(original));
  EXPECT_EQ(copy, original);
}

// What a walk does at each key: delete it (if even), delete the key after it
// (if a multiple of 3), and insert a new key (while small).
void mutateAt(Map& map, std::uint32_t key) {
  if (key % 2 == 0) map.erase(key);
  if (key % 3 == 0) map.erase((key + 1) % 200);
  if (key < 100) map.insertOrAssign(1000 + key, 0);
}

TEST(HashMap, AWalkSurvivesDeletionOfTheCurrentKeyAndInsertion) {
  Map map;
  for (std::uint32_t k = 0; k < 200; ++k) {
    map.insertOrAssign(k, 0);
  }
  Map model = map;
  // The position of every key that will ever exist: a copy keeps the order.
  Map everyKey = map;
  for (std::uint32_t k = 0; k < 200; ++k) {
    everyKey.insertOrAssign(1000 + k, 0);
  }
  std::map<std::uint32_t, std::size_t> rank;
  for (std::uint32_t key : keysOf(everyKey)) {
    rank.emplace(key, rank.size());
  }

  std::vector<std::uint32_t> visited;
  for (auto it = map.begin(); it != map.end(); ++it) {
    visited.push_back(it.key());
    mutateAt(map, it.key());
  }

  // The expected walk: always the present key that comes next in order.
  std::vector<std::uint32_t> expected;
  std::optional<std::size_t> position;
  for (;;) {
    std::optional<std::uint32_t> next;
    for (auto const& [key, value] : model) {
      if ((!position || rank[key] > *position) && (!next || rank[key] < rank[*next])) next = key;
    }
    if (!next) break;
    expected.push_back(*next);
    position = rank[*next];
    mutateAt(model, *next);
  }
  EXPECT_EQ(visited, expected);
  EXPECT_EQ(keysOf(map), keysOf(model));
  EXPECT_GT(visited.size(), 200U);  // keys inserted behind the walk were seen too
}

TEST(HashMap, ABookmarkResumesAtItsPositionEvenAfterItsKeyIsGone) {
  Map map;
  for (std::uint32_t k = 0; k < 64; ++k) {
    map.insertOrAssign(k, k * 10);
  }
  std::vector<std::uint32_t> const order = keysOf(map);
  std::uint32_t const bookmark = order[20];

  auto resumed = map.lowerBound(bookmark);
  EXPECT_EQ(resumed.key(), bookmark);

  map.erase(bookmark);
  map.erase(order[21]);
  resumed = map.lowerBound(bookmark);
  EXPECT_EQ(resumed.key(), order[22]);
  EXPECT_EQ(resumed.value(), order[22] * 10);

  // A bookmark past the last key ends the walk.
  EXPECT_EQ(map.lowerBound(order.back()).key(), order.back());
  map.erase(order.back());
  EXPECT_TRUE(map.lowerBound(order.back()) == map.end());
  EXPECT_DEATH(*map.end(), "record_ != nullptr");
}

// A walk over a million keys that deletes and inserts as it goes, and so
// passes through a growth of the table: every key that was there at the
// start and is never deleted is visited exactly once, no key twice, no key
// after its deletion, and the walk keeps the order the map ends with.
TEST(HashMap, AMillionKeyWalkWithInsertsAndDeletesVisitsEverySurvivorOnce) {
  constexpr std::uint32_t kKeys = 1000000;
  constexpr std::uint32_t kFresh = 4000000;  // keys inserted during the walk start here
  Map map(Rxn::MapName("Test::Big::walk"));
  std::mt19937 random(7);
  std::vector<std::uint32_t> keys = range(0, kKeys);
  std::shuffle(keys.begin(), keys.end(), random);
  for (std::uint32_t key : keys) {
    map.insertOrAssign(key, key);
  }
  std::vector<bool> present(kFresh + kKeys, false);
  std::fill(present.begin(), present.begin() + kKeys, true);
  std::vector<bool> erased(kKeys, false);
  std::vector<std::uint32_t> visits(kFresh + kKeys, 0);
  std::vector<std::uint32_t> walk;

  std::uint32_t fresh = kFresh;
  for (auto it = map.begin(); it != map.end(); ++it) {
    std::uint32_t const key = it.key();
    ASSERT_TRUE(present[key]) << key;
    EXPECT_EQ(it.value(), key);
    ++visits[key];
    walk.push_back(key);
    if (key >= kFresh) continue;
    map.insertOrAssign(fresh, fresh);  // a million inserts: the table grows under the walk
    present[fresh++] = true;
    for (std::uint32_t victim : {key % 3 == 0 ? key : kKeys, key % 5 == 0 ? (key + 7919) % kKeys : kKeys}) {
      if (victim < kKeys && present[victim]) {
        map.erase(victim);
        present[victim] = false;
        erased[victim] = true;
      }
    }
  }

  for (std::uint32_t key = 0; key < kKeys; ++key) {
    if (!erased[key]) {
      ASSERT_EQ(visits[key], 1U) << key;
    }
  }
  EXPECT_LE(*std::max_element(visits.begin(), visits.end()), 1U);
  std::vector<std::uint32_t> survivors;
  std::copy_if(walk.begin(), walk.end(), std::back_inserter(survivors),
               [&](std::uint32_t key) { return present[key]; });
  std::vector<std::uint32_t> const final = keysOf(map);
  std::vector<std::uint32_t> finalVisited;
  std::copy_if(final.begin(), final.end(), std::back_inserter(finalVisited),
               [&](std::uint32_t key) { return visits[key] == 1; });
  EXPECT_EQ(survivors, finalVisited);
  EXPECT_EQ(map.size(), static_cast<std::size_t>(std::count(present.begin(), present.end(), true)));
}

// 786,432 keys fill 2^20 home slots to 3/4: the next insert begins a growth
// that moves 32 keys across at each later change, so the deletes below fall
// while it is under way, on both sides of its boundary, and then after it.
TEST(HashMap, ABookmarkResumesAfterItsKeyAndItsNeighboursWentDuringAGrowth) {
  Map map(Rxn::MapName("Test::Big::bookmark"));
  for (std::uint32_t key = 0; key < 786432; ++key) {
    map.insertOrAssign(key * 2, key);
  }
  map.insertOrAssign(1, 1);
  Map const everyKey = map;
  std::vector<std::uint32_t> const order = keysOf(everyKey);
  std::vector<bool> present(order.size(), true);
  auto const expectResumesAfter = [&](std::size_t at) {
    std::size_t next = at;
    while (next < order.size() && !present[next])
      ++next;
    auto const resumed = map.lowerBound(order[at]);
    if (next == order.size()) {
      EXPECT_TRUE(resumed == map.end()) << at;
    } else {
      EXPECT_EQ(resumed.key(), order[next]) << at;
    }
  };
  auto const eraseAt = [&](std::size_t at) {
    if (at < order.size() && present[at]) {
      map.erase(order[at]);
      present[at] = false;
    }
  };

  // A block of keys ahead of the boundary goes; as the boundary passes it,
  // a bookmark in it finds no key after it in the new table, and resumes in
  // the old one.
  std::size_t const block = 100000;
  for (std::size_t at = block; at < block + 50; ++at) {
    eraseAt(at);
  }
  for (std::size_t last = order.size() - 1; last > order.size() - 5000; --last) {
    eraseAt(last);
    expectResumesAfter(block);
  }
  for (std::size_t at = 1; at < order.size(); at += 997) {
    for (std::size_t neighbour = at - 1; neighbour <= at + 2; ++neighbour) {
      eraseAt(neighbour);
    }
    expectResumesAfter(at);
  }
  for (std::size_t at = 5; at < order.size(); at += 2) {
    eraseAt(at);  // enough changes to finish the growth
  }
  for (std::size_t at = 1; at < order.size(); at += 997) {
    expectResumesAfter(at);
    expectResumesAfter(at + 300);
  }
  EXPECT_EQ(keysOf(map).size(), map.size());
}

TEST(HashMap, AReferenceToAValueStaysGoodUntilItsOwnKeyGoes) {
  Map map;
  map.insertOrAssign(42, 4242);
  std::uint32_t const* value = map.find(42);
  auto const& [key, walked] = *map.begin();
  for (std::uint32_t k = 100; k < 200000; ++k) {
    map.insertOrAssign(k, k);  // growths, many of them
  }
  for (std::uint32_t k = 100; k < 200000; k += 2) {
    map.erase(k);
  }
  EXPECT_EQ(map.find(42), value);
  EXPECT_EQ(*value, 4242U);
  EXPECT_EQ(&walked, value);
  EXPECT_EQ(key, 42U);
}

// A key whose every value hashes alike: one order for all, so one run, which
// outgrows the room at the end of the table; ties stand in key order.
struct Colliding {
  std::uint32_t id = 0;
  std::uint64_t hash() const { return 7; }
  auto operator<=>(Colliding const&) const = default;
};

TEST(HashMap, KeysThatAllCollideStillBehaveAsAMapWalkedInKeyOrder) {
  Rxn::HashMap2018<Colliding, std::uint32_t> map;
  std::map<std::uint32_t, std::uint32_t> model;
  std::mt19937 random(99);
  for (int step = 0; step < 6000; ++step) {
    std::uint32_t const id = random() % 1500;
    if (random() % 3 != 0) {
      map.insertOrAssign(Colliding{id}, id + 1);
      model[id] = id + 1;
    } else {
      EXPECT_EQ(map.erase(Colliding{id}), model.erase(id) == 1);
    }
  }
  std::vector<std::uint32_t> walked;
  for (auto const& [key, value] : map) {
    EXPECT_EQ(value, key.id + 1);
    walked.push_back(key.id);
  }
  std::vector<std::uint32_t> expected;
  for (auto const& [id, value] : model) {
    expected.push_back(id);
  }
  EXPECT_EQ(walked, expected);
  EXPECT_EQ(map.lowerBound(Colliding{expected[10]}).key().id, expected[10]);
}

// A large map's index and record pages are blocks of their own, mapped beside
// the heap; all of them go back when the map lets its keys go.
TEST(HashMap, ALargeMapsBlocksAreMappedBesideTheHeapAndGivenBack) {
  std::size_t const before = Rxn::largeBlockBytesInUse();
  {
    Map map = filled(Rxn::MapName("Test::Table::entry"), range(0, 1 << 20));
    // Records of 8 bytes and index slots of 8: at least that much, in blocks.
    EXPECT_GE(Rxn::largeBlockBytesInUse() - before, std::size_t{16} << 20);
    Map const copy = map;
    EXPECT_EQ(copy.size(), map.size());
    map.clear();
    EXPECT_EQ(*copy.find(12345), 12345U);
  }
  EXPECT_EQ(Rxn::largeBlockBytesInUse(), before);
}

TEST(HashMap, BehavesAsAMapUnderRandomOperationsThroughGrowthsEmptyingsAndCopies) {
  Map map;
  std::map<std::uint32_t, std::uint32_t> model;
  std::mt19937 random(12345);
  for (int step = 0; step < 200000; ++step) {
    // Phases of growth, of draining to empty, and of churn.
    std::uint32_t const phase = (step / 20000) % 3;
    std::uint32_t const key = random() % (phase == 0 ? 50000 : 500);
    switch (phase == 1 ? 2 : random() % 4) {
      case 0:
      case 1: {
        std::uint32_t const value = random() % 3;
        bool const changed = map.insertOrAssign(key, value).second;
        auto [it, inserted] = model.try_emplace(key, value);
        EXPECT_EQ(changed, inserted || it->second != value);
        it->second = value;
        break;
      }
      case 2:
        if (phase == 1 && !model.empty()) {
          std::uint32_t const first = map.begin().key();
          EXPECT_TRUE(map.erase(first));
          model.erase(first);
        } else {
          EXPECT_EQ(map.erase(key), model.erase(key) == 1);
        }
        break;
      default: {
        std::optional<std::uint32_t> const taken = map.take(key);
        auto it = model.find(key);
        EXPECT_EQ(taken.has_value(), it != model.end());
        if (it != model.end()) {
          EXPECT_EQ(*taken, it->second);
          model.erase(it);
        }
      }
    }
    if (step % 7919 == 0) {
      Map const copy = map;
      EXPECT_EQ(keysOf(copy), keysOf(map));
      EXPECT_EQ(copy, map);
    }
  }
  EXPECT_EQ(map.size(), model.size());
  for (auto const& [key, value] : model) {
    ASSERT_NE(map.find(key), nullptr);
    EXPECT_EQ(*map.find(key), value);
  }
  EXPECT_EQ(keysOf(map).size(), model.size());
}

}  // namespace

// Rxn::HashMap2018: deterministic order, walks that survive mutation, and
// bookmarks that resume after their key is gone.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
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

TEST(HashMap, OrderDependsOnTheKeysAloneNotOnHistory) {
  Map forward;
  Map backward;
  Map churned;
  for (std::uint32_t k = 0; k < 1000; ++k) {
    forward.insertOrAssign(k, k);
    backward.insertOrAssign(999 - k, k);
    churned.insertOrAssign(k * 7 + 5000, k);  // grows the table, then goes away again
  }
  for (std::uint32_t k = 0; k < 1000; ++k) {
    churned.insertOrAssign(k, k);
    churned.erase(k * 7 + 5000);
  }
  EXPECT_EQ(keysOf(forward), keysOf(backward));
  EXPECT_EQ(keysOf(forward), keysOf(churned));
  EXPECT_EQ(forward.size(), 1000U);
  EXPECT_EQ(forward, churned);
  // Not sorted by key: the order is the hash order.
  std::vector<std::uint32_t> keys = keysOf(forward);
  EXPECT_FALSE(std::is_sorted(keys.begin(), keys.end()));
}

// What a walk does at each key: delete it (if even), delete its successor
// key (if a multiple of 3), and insert a new key (while small).
void mutateAt(Map& map, std::uint32_t key) {
  if (key % 2 == 0) map.erase(key);
  if (key % 3 == 0) map.erase((key + 1) % 200);
  if (key < 100) map.insertOrAssign(1000 + key, 0);
}

TEST(HashMap, AWalkSurvivesDeletionOfTheCurrentKeyAndInsertion) {
  // The position of every key that will ever exist, from a map of them all.
  Map everyKey;
  for (std::uint32_t k = 0; k < 200; ++k) {
    everyKey.insertOrAssign(k, 0);
    everyKey.insertOrAssign(1000 + k, 0);
  }
  std::map<std::uint32_t, std::size_t> rank;
  for (std::uint32_t key : keysOf(everyKey)) {
    rank.emplace(key, rank.size());
  }

  Map map;
  Map model;
  for (std::uint32_t k = 0; k < 200; ++k) {
    map.insertOrAssign(k, 0);
    model.insertOrAssign(k, 0);
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
}

TEST(HashMap, BehavesAsAMapUnderRandomOperations) {
  Map map;
  std::map<std::uint32_t, std::uint32_t> model;
  std::mt19937 random(12345);
  for (int step = 0; step < 20000; ++step) {
    std::uint32_t const key = random() % 500;
    switch (random() % 4) {
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
        EXPECT_EQ(map.erase(key), model.erase(key) == 1);
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
  }
  EXPECT_EQ(map.size(), model.size());
  for (auto const& [key, value] : model) {
    ASSERT_NE(map.find(key), nullptr);
    EXPECT_EQ(*map.find(key), value);
  }
  EXPECT_EQ(keysOf(map).size(), model.size());
}

}  // namespace

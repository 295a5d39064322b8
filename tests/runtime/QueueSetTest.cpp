// Rxn::QueueSet: keys walk in the order they came in, a key noted again keeps
// its place, and a walk survives any change of the set, as the time quantum
// of a work queue needs.

#include <gtest/gtest.h>

#include <list>
#include <random>
#include <set>
#include <vector>

#include "fabvxlan/runtime/QueueSet.h"

namespace {

using Queue = Rxn::QueueSet<std::uint32_t>;

std::vector<std::uint32_t> keysOf(Queue const& queue) {
  std::vector<std::uint32_t> keys;
  for (auto const& [key, member] : queue) {
    keys.push_back(key);
  }
  return keys;
}

TEST(QueueSet, KeysWaitInArrivalOrderAndAWalkSurvivesEveryChange) {
  Queue queue(Rxn::MapName("Test::Machine::backlog"));
  for (std::uint32_t key : {50U, 7U, 31U, 12U, 99U}) {
    EXPECT_TRUE(queue.insertOrAssign(key, true).second);
  }
  // A key noted again while it waits keeps its place.
  EXPECT_FALSE(queue.insertOrAssign(7, true).second);
  EXPECT_EQ(keysOf(queue), (std::vector<std::uint32_t>{50, 7, 31, 12, 99}));
  EXPECT_NE(queue.find(31), nullptr);
  EXPECT_EQ(queue.find(32), nullptr);

  // A drain that takes its key off before handling it; the handling erases
  // the key after next and notes new ones, which come last and are visited.
  std::vector<std::uint32_t> visited;
  for (auto it = queue.begin(); it != queue.end();) {
    std::uint32_t const key = it.key();
    ++it;
    EXPECT_TRUE(queue.erase(key));
    visited.push_back(key);
    if (key == 7) {
      EXPECT_TRUE(queue.erase(12));
      queue.insertOrAssign(1, true);
      queue.insertOrAssign(50, true);  // taken already: comes back at the end
    }
  }
  EXPECT_EQ(visited, (std::vector<std::uint32_t>{50, 7, 31, 99, 1, 50}));
  EXPECT_TRUE(queue.empty());

  // An iterator standing on a key that is erased goes on at the next one,
  // and after a clear at the keys that came since.
  for (std::uint32_t key : {4U, 5U, 6U})
    queue.insertOrAssign(key, true);
  Queue::Iterator const onFive = std::next(queue.begin());
  EXPECT_TRUE(queue.erase(5));
  EXPECT_EQ(onFive.key(), 6U);
  queue.clear();
  queue.insertOrAssign(8, true);
  EXPECT_EQ(onFive.key(), 8U);
}

// The set against a model of a list and a set, under the mix of a work
// queue: keys noted everywhere, the front drained, keys dropped anywhere.
TEST(QueueSet, BehavesAsAnArrivalOrderedSetUnderRandomDrainsAndDrops) {
  Queue queue(Rxn::MapName("Test::Machine::backlog"));
  std::list<std::uint32_t> order;
  std::set<std::uint32_t> members;
  std::mt19937 random(2026);
  for (int step = 0; step < 300000; ++step) {
    std::uint32_t const key = random() % 20000;
    switch (random() % 5) {
      case 0:
      case 1:
        EXPECT_EQ(queue.insertOrAssign(key, true).second, members.insert(key).second);
        if (order.size() < members.size()) order.push_back(key);
        break;
      case 2:
        if (!members.empty()) {
          EXPECT_EQ(queue.begin().key(), order.front());
          EXPECT_TRUE(queue.erase(order.front()));
          members.erase(order.front());
          order.pop_front();
        }
        break;
      default: {
        bool const present = members.erase(key) == 1;
        EXPECT_EQ(queue.erase(key), present);
        if (present) order.remove(key);
      }
    }
    ASSERT_EQ(queue.size(), members.size());
  }
  EXPECT_EQ(keysOf(queue), std::vector<std::uint32_t>(order.begin(), order.end()));
}

}  // namespace

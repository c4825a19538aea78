// The vector and the list as standard ranges: algorithms, moves, erase
// while walking, and every failure.
#include <algorithm>
#include <ranges>
#include <vector>

#include "test_host.h"
#include "vell/list.hpp"
#include "vell/vector.hpp"

namespace {

using CppContainer = HostTest;

struct Point {
  int x, y;
  bool operator==(const Point &) const = default;
};

TEST_F(CppContainer, TheVectorIsAContiguousRange) {
  {  // released before the sweep resets the host's records
    // Sorted by a projection, copied, appended to and moved; a fixed
    // vector refuses to grow past its capacity.
    auto v = vell::vector<Point>::create();
    ASSERT_TRUE(v);
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(v->push_back({(i * 37) % 50, i}));
    std::ranges::sort(*v, {}, &Point::x);
    EXPECT_EQ((*v)[49].x, 49);
    auto copy = v->copy();
    ASSERT_TRUE(copy && v->append(*copy));
    vell::vector<Point> moved = std::move(*v);
    EXPECT_TRUE(std::equal(moved.begin(), moved.begin() + 50, copy->begin(),
                           copy->end()));
    auto fixed = vell::vector<int>::create_fixed(2);
    while (fixed->size() < fixed->capacity()) ASSERT_TRUE(fixed->push_back(1));
    EXPECT_FALSE(fixed->push_back(2));
  }
  // Each allocation fails in turn: the vector keeps what it had.
  th::sweep([](long) {
    auto v = vell::vector<int>::create(1);
    for (int i = 0; v && i < 5; ++i)
      if (!v->push_back(i)) return;
    EXPECT_TRUE(!v || v->size() == 5u);
  });
}

struct Item : vell::list_hook<>, vell::list_hook<struct Other> {
  int id;
  explicit Item(int i) : id(i) {}
};

TEST_F(CppContainer, ListElementsOnTwoListsWalkBothWays) {
  auto all = vell::list<Item>::create("all");
  auto odd = vell::list<Item, Other>::create("odd");
  ASSERT_TRUE(all && odd);
  std::vector<Item> items;
  for (int i = 0; i < 6; ++i) items.emplace_back(i);
  for (Item &it : items) {
    all->push_back(it);
    if (it.id % 2) odd->push_front(it);
  }
  auto ids = [](auto &&range) {
    std::vector<int> v;
    for (const Item &it : range) v.push_back(it.id);
    return v;
  };
  // Each hook has its own list; either list walks both ways.
  EXPECT_EQ(ids(*odd), (std::vector<int>{5, 3, 1}));
  std::vector<int> backwards;  // no views: clang 14 cannot use libstdc++'s
  for (auto it = all->end(); it != all->begin();)
    backwards.push_back((--it)->id);
  EXPECT_EQ(backwards, (std::vector<int>{5, 4, 3, 2, 1, 0}));
  // Erase while walking, insert before any position, pop, move.
  for (auto it = all->begin(); it != all->end();)
    it = it->id % 3 == 0 ? all->erase(it) : std::next(it);
  all->insert(std::ranges::find(*all, 4, &Item::id), items[0]);
  all->insert(all->end(), items[3]);
  EXPECT_EQ(all->pop_front()->id, 1);
  vell::list<Item> moved = std::move(*all);
  EXPECT_EQ(ids(moved), (std::vector<int>{2, 0, 4, 5, 3}));
  th::fail_nth(1);  // a list that cannot be made is empty
  EXPECT_FALSE(vell::list<Item>::create());
}

}  // namespace

// The vector and the list as standard ranges: algorithms, sizes and
// slots, fixed capacity, moves and moved-from handles, erase while
// walking, const access, and every failure.
#include <algorithm>
#include <ranges>
#include <type_traits>
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
    // A moved-from vector is empty and takes nothing.
    EXPECT_FALSE(*v || v->size() || v->begin() != v->end() ||
                 v->push_back({}) || v->resize(2) || v->reserve(2));

    // Sizes and slots: resize both ways, pop, clear, reserve, shrink.
    ASSERT_TRUE(moved.resize(50) && moved.resize(52, {7, 7}) &&
                moved.resize(51));
    EXPECT_EQ(moved[50], (Point{7, 7}));
    moved.pop_back();
    EXPECT_EQ(moved.size(), 50u);
    ASSERT_TRUE(moved.reserve(500));
    EXPECT_GE(moved.capacity(), 500u);
    EXPECT_EQ(moved.size(), 50u);
    moved.clear();
    ASSERT_TRUE(moved.empty() && moved.push_back({1, 1}) &&
                moved.shrink_to_fit());
    EXPECT_LT(moved.capacity(), 500u);
    EXPECT_EQ(moved[0], (Point{1, 1}));

    // A fixed vector holds what was asked, whatever the C vector rounds up
    // to, however the elements come.
    auto fixed = vell::vector<int>::create_fixed(3);
    ASSERT_TRUE(fixed && fixed->resize(2) && fixed->push_back(1));
    EXPECT_EQ(fixed->capacity(), 3u);
    EXPECT_FALSE(fixed->push_back(2) || fixed->append(*fixed) ||
                 fixed->resize(4) || fixed->reserve(4));
    EXPECT_EQ(fixed->size(), 3u);
    auto fixed_copy = fixed->copy();
    fixed->pop_back();
    EXPECT_FALSE(fixed_copy->push_back(2));
    EXPECT_TRUE(fixed->push_back(2));
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
  // splice_back moves every element over, in order; a moved-from list is
  // empty and links nothing.
  auto more = vell::list<Item>::create("more");
  ASSERT_TRUE(more);
  Item extra(9);
  more->push_back(extra);
  moved.splice_back(*more);
  EXPECT_TRUE(more->empty());
  all->push_back(extra);
  all->splice_back(moved);
  EXPECT_FALSE(*all || all->size() || all->front() || all->pop_back() ||
               all->begin() != all->end());
  // A const list hands out const elements.
  const vell::list<Item> &read = moved;
  static_assert(std::is_same_v<decltype(*read.begin()), const Item &>);
  static_assert(std::is_same_v<decltype(read.front()), const Item *>);
  EXPECT_EQ(ids(read), (std::vector<int>{2, 0, 4, 5, 3, 9}));
  EXPECT_EQ(read.back()->id, 9);
  th::fail_nth(1);  // a list that cannot be made is empty
  EXPECT_FALSE(vell::list<Item>::create());
}

}  // namespace

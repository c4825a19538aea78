// The typed maps over all three hash tables: find, replace, update in
// place and erase, erase while walking a copy of the elements, moved-from
// maps, and every failure.
#include "vell/hash.hpp"

#include <algorithm>
#include <set>

#include "test_host.h"

namespace {

struct Key {
  uint32_t a;
  uint16_t b, c;
  auto operator<=>(const Key &) const = default;
};
struct Value {
  double weight;
  char tag;
};

th::Ctx ctx(256);

template <typename Map>
std::optional<Map> make() {
  if constexpr (std::is_same_v<Map, vell::khash_map<Key, Value>>)
    return Map::create(16u, ctx.get());
  else if constexpr (std::is_same_v<Map, vell::ordered_hash_map<Key, Value>>)
    return Map::create(16u, "ordered");
  else
    return Map::create(16u);
}

template <typename Map>
class CppHash : public HostTest {};
using Maps = ::testing::Types<vell::hash_map<Key, Value>,
                              vell::ordered_hash_map<Key, Value>,
                              vell::khash_map<Key, Value>>;
TYPED_TEST_SUITE(CppHash, Maps);

TYPED_TEST(CppHash, FindReplaceEraseAndEraseWhileWalking) {
  auto map = make<TypeParam>();
  ASSERT_TRUE(map);
  // A second insert replaces the value; a key erased once is gone.
  EXPECT_TRUE(map->insert_or_assign({1, 2, 3}, {0.5, 'a'}));
  EXPECT_TRUE(map->insert_or_assign({1, 2, 3}, {2.5, 'c'}));
  EXPECT_EQ(map->find({1, 2, 3})->tag, 'c');
  EXPECT_FALSE(map->find({1, 2, 4}));
  EXPECT_TRUE(map->erase({1, 2, 3}));
  EXPECT_FALSE(map->erase({1, 2, 3}));
  // update inserts a value-initialised value first, then changes in place.
  for (int i = 0; i < 2; ++i)
    ASSERT_TRUE(map->update({7, 0, 0}, [](Value &v) { v.weight += 1.5; }));
  EXPECT_EQ(map->find({7, 0, 0})->weight, 3.0);
  EXPECT_TRUE(map->erase({7, 0, 0}));

  // A moved map's elements come out once each, as copies the map may
  // change under; a moved-from map reads as empty and refuses changes.
  for (uint16_t i = 0; i < 100; ++i)
    ASSERT_TRUE(map->insert_or_assign({i, i, 0}, {i * 1.0, 'x'}));
  TypeParam moved = std::move(*map);
  EXPECT_FALSE(*map || map->size() || map->find({1, 1, 0}) || map->items() ||
               map->insert_or_assign({1, 1, 0}, {}));
  const auto items = moved.items();
  std::set<uint32_t> seen;
  for (const auto &[key, value] : items) {
    seen.insert(key.a);
    if (key.a % 3) moved.erase({key.a + 1, uint16_t(key.b + 1), 0});
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_EQ(std::ranges::distance(items), 100);
  EXPECT_EQ(moved.size(), 34u);
  EXPECT_TRUE(std::ranges::all_of(
      moved.items(), [](const auto &kv) { return kv.first.a % 3 != 2; }));
  static_assert(std::ranges::forward_range<const decltype(items) &> &&
                std::ranges::common_range<decltype(items)>);
}

// Each allocation fails in turn: a failed replacement keeps the old value,
// and a walk that cannot start tests false.
TYPED_TEST(CppHash, FailuresLeaveTheMapAsItWas) {
  th::sweep([](long) {
    auto map = make<TypeParam>();
    if (!map || !map->insert_or_assign({1, 0, 0}, {1, 'a'})) return;
    bool replaced = map->insert_or_assign({1, 0, 0}, {3, 'c'});
    EXPECT_EQ(map->find({1, 0, 0})->tag, replaced ? 'c' : 'a');
    EXPECT_TRUE(map->items() || th::failure_injected());
  });
}

}  // namespace

// The typed maps over all three hash tables: find, replace and erase,
// iteration with erase of the element just delivered, and every failure.
#include "vell/hash.hpp"

#include <algorithm>
#include <map>
#include <vector>

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

TYPED_TEST(CppHash, FindReplaceAndErase) {
  auto map = make<TypeParam>();
  ASSERT_TRUE(map);
  EXPECT_TRUE(map->empty());
  EXPECT_TRUE(map->insert_or_assign({1, 2, 3}, {0.5, 'a'}));
  EXPECT_TRUE(map->insert_or_assign({1, 2, 4}, {1.5, 'b'}));
  EXPECT_TRUE(map->insert_or_assign({1, 2, 3}, {2.5, 'c'}));
  EXPECT_EQ(map->size(), 2u);
  EXPECT_EQ(map->find({1, 2, 3})->tag, 'c');
  EXPECT_FALSE(map->find({9, 9, 9}));
  EXPECT_TRUE(map->erase({1, 2, 3}));
  EXPECT_FALSE(map->erase({1, 2, 3}));
  EXPECT_FALSE(map->contains({1, 2, 3}));
  TypeParam moved = std::move(*map);
  EXPECT_TRUE(moved.contains({1, 2, 4}));
  moved.clear();
  EXPECT_TRUE(moved.empty());
}

TYPED_TEST(CppHash, IterationMayEraseWhatItJustDelivered) {
  auto map = make<TypeParam>();
  ASSERT_TRUE(map);
  for (uint16_t i = 0; i < 100; ++i)
    ASSERT_TRUE(map->insert_or_assign({i, i, 0}, {i * 1.0, 'x'}));
  std::map<Key, double> seen;
  auto items = map->items();
  ASSERT_TRUE(items);
  for (const auto &[key, value] : items) {
    seen[key] = value.weight;
    if (key.a % 2) {
      EXPECT_TRUE(map->erase(key));
    }
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_EQ(map->size(), 50u);
  auto rest = map->items();
  EXPECT_TRUE(std::ranges::all_of(
      rest, [](const auto &kv) { return kv.first.a % 2 == 0; }));
}

TYPED_TEST(CppHash, FailuresLeaveTheMapAsItWas) {
  th::sweep([](long) {
    auto map = make<TypeParam>();
    if (!map) return;
    if (!map->insert_or_assign({1, 0, 0}, {1, 'a'})) return;
    EXPECT_TRUE(map->insert_or_assign({2, 0, 0}, {2, 'b'}) ||
                th::failure_injected());
    bool replaced = map->insert_or_assign({1, 0, 0}, {3, 'c'});
    EXPECT_EQ(map->find({1, 0, 0})->tag, replaced ? 'c' : 'a');
    if (!map->items()) {
      EXPECT_TRUE(th::failure_injected());
    }
  });
}

using CppOrderedHash = HostTest;

TEST_F(CppOrderedHash, WalksInInsertionOrderWithReplacedKeysLast) {
  auto map = vell::ordered_hash_map<uint32_t, uint32_t>::create(4u);
  ASSERT_TRUE(map);
  for (uint32_t k : {5u, 3u, 9u, 3u}) map->insert_or_assign(k, k * 10);
  std::vector<uint32_t> keys;
  for (const auto &[k, v] : map->items()) keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<uint32_t>{5, 9, 3}));
}

}  // namespace

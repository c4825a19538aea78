// Degenerate and small tries: no entries, one entry, forced wide roots,
// short entries filling slots, destructor order, iterator ends.
#include <string>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class SmallTrie : public HostTest {};
using Families = ::testing::Types<tt::V4, tt::V6>;
TYPED_TEST_SUITE(SmallTrie, Families);

const std::string kRule =
    "-----------------------------------------------------------\n";

template <class F>
std::string nodes_section() {
  const std::string &out = th::console();
  return out.substr(out.find("Nodes\n--------\n") + 15);
}

// The index of each of the root's children: an entry for a leaf, the first
// grandchild for an internal node.
template <class F>
std::vector<uint32_t> root_children(const typename F::Trie *t) {
  std::vector<uint32_t> out;
  auto root = t->nodes[0];
  for (uint32_t i = 0; i < (1u << root.branch); ++i)
    out.push_back(t->nodes[root.index + i].index);
  return out;
}

TYPED_TEST(SmallTrie, NoEntriesGivesAnEmptyButUsableTrie) {
  using F = TypeParam;
  th::Ctx ctx(64);
  typename F::Trie *t = F::construct(ctx, nullptr, 0, 50, 0);
  ASSERT_TRUE(t);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text,
            std::string(F::kName) + ": no entries given\n");
  EXPECT_EQ(th::diags()[0].level, 2);
  EXPECT_EQ(t->sz_ctx, ctx.get());
  EXPECT_EQ(F::lpmatch(t, {1, 2, 3, 4}), 0u);
  typename F::Iter *it = F::iter(t);
  typename F::Item item;
  EXPECT_EQ(F::next(it, &item), -1);
  F::iter_destruct(it);
  EXPECT_EQ(F::memory(t), sizeof(typename F::Trie));

  th::clear_output();
  F::stats(t);
  EXPECT_NE(th::console().find("    Root branch factor: 0\n"
                               "    Average / Maximum depth (w/o prefixes): "
                               "0.00 / 0\n"
                               "    Average / Maximum prefixes path length: "
                               "0.00 / 0\n" +
                               kRule),
            std::string::npos)
      << th::console();
  th::clear_output();
  F::print(t);
  EXPECT_EQ(nodes_section<F>(), "");
  static int calls;
  calls = 0;
  F::set_destructor(t, [](uint32_t) { ++calls; });
  F::destruct(t);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(th::blocks().size(), 2u);  // the record and the iterator
}

// One entry: the root is a leaf, every key is tested against that entry.
TYPED_TEST(SmallTrie, OneEntryMakesALeafRoot) {
  using F = TypeParam;
  Addr a = {0xC0000000, 0, 0, 0};
  auto in = F::entry(a, 3, 7);
  typename F::Trie *t = F::construct(nullptr, &in, 1, 50, 3);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->n_nodes, 1u);
  EXPECT_EQ(t->prefixes, nullptr);
  EXPECT_EQ(t->nodes[0].branch, 0u);
  EXPECT_EQ(F::lpmatch(t, {0xDFFFFFFF, ~0u, ~0u, ~0u}), 7u);
  EXPECT_EQ(F::lpmatch(t, {0xBFFFFFFF}), 0u);
  th::clear_output();
  F::stats(t);
  EXPECT_NE(th::console().find("    Root branch factor: 0\n"
                               "    Average / Maximum depth (w/o prefixes): "
                               "1.00 / 1\n"
                               "    Average / Maximum prefixes path length: "
                               "0.00 / 0\n"),
            std::string::npos);
  th::clear_output();
  F::print(t);
  EXPECT_EQ(nodes_section<F>(), "... -> 0\n");
  F::destruct(t);

  // A full-length entry's leaf keeps no dots (its length is kept to the
  // width of the skip field).
  Addr host = tt::cut<F>({1, 2, 3, 4}, F::kBits);
  in = F::entry(host, F::kBits, 9);
  t = F::construct(nullptr, &in, 1, 50, 0);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->nodes[0].skip, 0u);
  EXPECT_EQ(F::lpmatch(t, host), 9u);
  EXPECT_EQ(F::lpmatch(t, tt::step<F>(host, 1)), 0u);
  EXPECT_EQ(F::lpmatch(t, tt::step<F>(host, -1)), 0u);
  F::destruct(t);
}

TYPED_TEST(SmallTrie, DefaultRouteAloneMatchesEverything) {
  using F = TypeParam;
  auto in = F::entry({}, 0, 42);
  typename F::Trie *t = F::construct(nullptr, &in, 1, 50, 0);
  ASSERT_TRUE(t);
  for (Addr k : {Addr{}, Addr{~0u, ~0u, ~0u, ~0u}, Addr{0x80000000, 0, 0, 1}})
    EXPECT_EQ(F::lpmatch(t, k), 42u);
  F::destruct(t);
}

// A forced root of branch 3 over two entries: their slots hold their
// leaves, the six empty ones name a neighbour by the empty-slot rule.
TYPED_TEST(SmallTrie, ForcedWideRootFillsEmptySlots) {
  using F = TypeParam;
  std::vector<typename F::Entry> in = {F::entry({0x20000000}, 3, 1),
                                       F::entry({0xA0000000}, 3, 2)};
  typename F::Trie *t = F::construct(nullptr, in.data(), 2, 50, 3);
  ASSERT_TRUE(t);
  ASSERT_EQ(t->n_nodes, 9u);
  EXPECT_EQ(t->nodes[0].branch, 3u);
  // Neither neighbour has a covering prefix: ties go to the next entry.
  EXPECT_EQ(root_children<F>(t),
            (std::vector<uint32_t>{0, 0, 1, 1, 1, 1, 1, 1}));
  EXPECT_EQ(F::lpmatch(t, {0x3FFFFFFF}), 1u);
  EXPECT_EQ(F::lpmatch(t, {0x40000000}), 0u);
  F::destruct(t);
}

// An entry one bit longer than its node's position fills the half of a
// 3-bit node's slots it covers; the empty-slot rule prefers the neighbour
// whose chain holds the longer covering prefix, even the one before.
TYPED_TEST(SmallTrie, ShortEntryFillsTheSlotsItCovers) {
  using F = TypeParam;
  std::vector<typename F::Entry> in = {
      F::entry({0x00000000}, 1, 1), F::entry({0x80000000}, 4, 2),
      F::entry({0x90000000}, 4, 3), F::entry({0xC0000000}, 3, 4),
      F::entry({0xE0000000}, 3, 5), F::entry({0x80000000}, 2, 6)};
  typename F::Trie *t = F::construct(nullptr, in.data(), 6, 50, 0);
  ASSERT_TRUE(t);
  ASSERT_EQ(t->nodes[0].branch, 3u);
  // Entries 0.0/1 (slots 000-011), 8.0/4 and 9.0/4 (a subtree at 100 whose
  // children start at node 9), 101 is covered by the /2 in 9.0/4's chain,
  // c.0/3 (110), e.0/3 (111).
  EXPECT_EQ(root_children<F>(t),
            (std::vector<uint32_t>{0, 0, 0, 0, 9, 2, 3, 4}));
  EXPECT_NE(t->nodes[5].branch, 0u);
  EXPECT_EQ(F::lpmatch(t, {0xA0000000}), 6u);
  EXPECT_EQ(F::lpmatch(t, {0xB1234567}), 6u);
  EXPECT_EQ(F::lpmatch(t, {0xD0000000}), 4u);
  EXPECT_EQ(F::lpmatch(t, {0x7FFFFFFF}), 1u);
  F::destruct(t);
}

// The destructor sees every leaf entry, then every prefix record, once;
// a dropped duplicate's data never reaches it. The input stays as it was.
TYPED_TEST(SmallTrie, DestructorSeesEveryKeptDatumOnce) {
  using F = TypeParam;
  std::vector<typename F::Entry> in = {
      F::entry({0x0A000000}, 8, 10), F::entry({0x0A010000}, 16, 20),
      F::entry({0x0A000000}, 8, 11), F::entry({0x0B000000}, 8, 30)};
  in[0].prefix = 5;  // ignored in the input
  auto copy = in;
  typename F::Trie *t = F::construct(nullptr, in.data(), 4, 50, 0);
  ASSERT_TRUE(t);
  EXPECT_EQ(memcmp(copy.data(), in.data(), in.size() * sizeof in[0]), 0);
  ASSERT_EQ(t->n_entries, 2u);
  ASSERT_EQ(t->n_prefixes, 1u);
  static std::vector<uint32_t> seen;
  seen.clear();
  F::set_destructor(t, [](uint32_t d) { seen.push_back(d); });
  uint32_t kept = t->prefixes[0].data;
  F::destruct(t);
  EXPECT_EQ(seen, (std::vector<uint32_t>{20, 30, kept}));
  EXPECT_TRUE(kept == 10 || kept == 11);
}

TYPED_TEST(SmallTrie, IteratorEndsAndBadArguments) {
  using F = TypeParam;
  EXPECT_EQ(F::iter(nullptr), nullptr);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text, "sc_btrie_iter_construct: trie is 0!\n");
  EXPECT_EQ(th::diags()[0].file, F::kModule);
  typename F::Item item{};
  item.len = 99;
  EXPECT_EQ(F::next(nullptr, &item), -1);
  typename F::Iter orphan{};
  EXPECT_EQ(F::next(&orphan, &item), -1);
  EXPECT_EQ(item.len, 99u);
  F::iter_destruct(nullptr);
  F::destruct(nullptr);
  EXPECT_EQ(F::memory(nullptr), 0u);
  th::clear_output();
  F::print(nullptr);
  F::stats(nullptr);
  EXPECT_EQ(th::console(), "");

  // A prefix enclosing three entries comes out once after each of them,
  // with that entry's address.
  std::vector<typename F::Entry> in = {
      F::entry({0x0A000000}, 8, 1), F::entry({0x0A010000}, 16, 2),
      F::entry({0x0A020000}, 16, 3), F::entry({0x0A030000}, 16, 4)};
  typename F::Trie *t = F::construct(nullptr, in.data(), 4, 50, 0);
  typename F::Iter *it = F::iter(t);
  std::vector<std::pair<uint32_t, uint32_t>> got;
  while (F::next(it, &item) == 0) got.push_back({F::addr(item)[0], item.len});
  EXPECT_EQ(F::next(it, &item), -1);
  EXPECT_EQ(got, (std::vector<std::pair<uint32_t, uint32_t>>{{0x0A010000, 16},
                                                             {0x0A010000, 8},
                                                             {0x0A020000, 16},
                                                             {0x0A020000, 8},
                                                             {0x0A030000, 16},
                                                             {0x0A030000, 8}}));
  F::iter_destruct(it);
  F::destruct(t);
}

// Word-boundary lengths of IPv6 compare whole words, then the top bits of
// the next one.
TEST(SmallTrie6, PrefixesAcrossWordBoundaries) {
  th::reset();
  std::vector<sc_btrie6_entry> in;
  for (uint32_t len : {33u, 64u, 65u, 96u}) {
    tt::Addr a =
        tt::cut<tt::V6>({0x20010DB8, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, len);
    in.push_back(tt::V6::entry(a, len, len));
  }
  sc_btrie6 *t = sc_btrie6_construct(nullptr, in.data(), in.size(), 50, 0);
  ASSERT_TRUE(t);
  auto m = [&](tt::Addr k) { return tt::V6::lpmatch(t, k); };
  EXPECT_EQ(m({0x20010DB8, 0x80000000, 0, 0}), 33u);
  EXPECT_EQ(m({0x20010DB8, 0x7FFFFFFF, 0, 0}), 0u);
  EXPECT_EQ(m({0x20010DB8, 0xFFFFFFFF, 0x7FFFFFFF, 0}), 64u);
  EXPECT_EQ(m({0x20010DB8, 0xFFFFFFFF, 0x80000000, 0}), 65u);
  EXPECT_EQ(m({0x20010DB8, 0xFFFFFFFF, 0xFFFFFFFF, 0x12345678}), 96u);
  sc_btrie6_destruct(t);
  th::expect_clean();
}

}  // namespace

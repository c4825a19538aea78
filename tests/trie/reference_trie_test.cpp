// A five-prefix reference trie, word for word: node words, lookups,
// iteration order, statistics and dump.
#include <inttypes.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

template <class F>
class ReferenceTrie : public HostTest {};
TYPED_TEST_SUITE(ReferenceTrie, tt::Families);

const std::string kRule = std::string(59, '-') + "\n";

std::string hex(const void *p, const char *format) {
  char buf[32];
  snprintf(buf, sizeof buf, format, reinterpret_cast<uintptr_t>(p));
  return buf;
}

TYPED_TEST(ReferenceTrie, NodesLookupsIterationAndStatistics) {
  using F = TypeParam;
  const bool v4 = F::kWords == 1;
  auto in = tt::reference_set<F>();
  typename F::Trie *t = F::construct(nullptr, in.data(), 5, 50, 0);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->n_entries, 3u);
  EXPECT_EQ(t->n_prefixes, 2u);
  ASSERT_EQ(t->n_nodes, 7u);
  // Node 1 skips to where entries B and C differ; D's leaf keeps its length
  // beyond the root's two bits.
  const std::vector<std::vector<uint32_t>> want_nodes = {
      {2, 0, 1}, {1, v4 ? 12u : 44u, 5}, {0, 0, 2},
      {0, 0, 2}, {0, v4 ? 22u : 8u, 2},  {0, 1, 0},
      {0, 1, 1}};
  for (uint32_t i = 0; i < 7; ++i) {
    auto n = t->nodes[i];
    EXPECT_EQ((std::vector<uint32_t>{n.branch, n.skip, n.index}), want_nodes[i])
        << "node " << i;
  }
  // The array was taken at the estimate (115 nodes), then trimmed.
  EXPECT_EQ(th::blocks()[3].size, 460u);

  for (auto &[key, data] : tt::reference_lookups<F>())
    EXPECT_EQ(F::lpmatch(t, key), data) << std::hex << key[0];

  // Each leaf entry, then its chain, with the entry's own address.
  std::vector<std::pair<tt::Addr, std::vector<uint32_t>>> want_items;
  for (int leaf : {1, 2, 3})
    for (int from : {leaf, 0, 4})
      if (leaf != 3 || from != 0)
        want_items.push_back(
            {F::addr(in[leaf]), {in[from].len, in[from].data}});
  typename F::Iter *it = F::iter(t);
  typename F::Item item;
  std::vector<std::pair<tt::Addr, std::vector<uint32_t>>> items;
  while (F::next(it, &item) == 0)
    items.push_back({F::addr(item), {item.len, item.data}});
  EXPECT_EQ(F::next(it, &item), -1);
  F::iter_destruct(it);
  EXPECT_EQ(items, want_items);

  const uint32_t memory = sizeof(typename F::Trie) + (v4 ? 36 : 72) + 24 + 28;
  EXPECT_EQ(F::memory(t), memory);
  char kb[16];
  snprintf(kb, sizeof kb, "%.1f", memory / 1024.0);  // 120B on 32 bits: 0.1
  __sc_debug_level = 0;  // reports ignore the debug level
  F::stats(t);
  EXPECT_EQ(th::console(),
            kRule + "Trie " + hex(t, "%08" PRIxPTR) +
                ": n_entries = 3, n_prefixes = 2, n_nodes = 7\n" +
                "    Total memory usage: " + std::to_string(memory) + "B (" +
                kb + "KB, 0.00MB)\n" +
                "    Nodes memory usage: 28B (0.0KB, 0.00MB)\n"
                "    Root branch factor: 2\n"
                "    Average / Maximum depth (w/o prefixes): 2.25 / 3\n"
                "    Average / Maximum prefixes path length: 0.50 / 1\n" +
                kRule);
  F::destruct(t);
}

TEST(ReferenceTrieDump, Ipv4) {
  th::reset();
  auto in = tt::reference_set<tt::V4>();
  sc_btrie *t = sc_btrie_construct(nullptr, in.data(), 5, 50, 0);
  sc_btrie_print(t);
  EXPECT_EQ(th::console(),
            kRule + "Trie " + hex(t, "%" PRIxPTR) +
                ", n_entries = 3, n_prefixes = 2, n_nodes = 7\n" + kRule +
                "--------\nEntries\n--------\n"
                "Entry 0: 0a010000/16 prefix 1\n"
                "Entry 1: 0a020000/16 prefix 1\n"
                "Entry 2: c0a80100/24 prefix 0\n"
                "--------\nPrefixes\n--------\n"
                "Prefix 0: len 0 prefix 4194303\n"
                "Prefix 1: len 8 prefix 0\n"
                "--------\nNodes\n--------\n"
                "\n"
                " 00............\n"
                "    0. -> 0\n"
                "    1. -> 1\n"
                " 01 -> 2\n"
                " 10 -> 2\n"
                " 11...................... -> 2\n");
  sc_btrie_destruct(t);
  th::expect_clean();
}

TEST(ReferenceTrieDump, Ipv6) {
  th::reset();
  auto in = tt::reference_set<tt::V6>();
  sc_btrie6 *t = sc_btrie6_construct(nullptr, in.data(), 5, 50, 0);
  sc_btrie6_print(t);
  const std::string db8 = "00100000000000010000110110111000000000000000";
  const std::string dots80(80, '.');
  EXPECT_EQ(th::console(),
            kRule + "Trie " + hex(t, "%" PRIxPTR) +
                ", n_entries = 3, n_prefixes = 2, n_nodes = 7\n" + kRule +
                "--------\nEntries\n--------\n" + "0:" + db8 + "0001" + dots80 +
                "/48 prfx:1\n" + "1:" + db8 + "0010" + dots80 + "/48 prfx:1\n" +
                "2:1111111010" + std::string(118, '.') + "/10 prfx:0\n" +
                "--------\nPrefixes\n--------\n"
                "Prefix 0: len 0 prefix 2097151\n"
                "Prefix 1: len 32 prefix 0\n"
                "--------\nNodes\n--------\n\n" +
                " 00" + std::string(44, '.') + "\n" +
                "    0. -> 0\n    1. -> 1\n"
                " 01 -> 2\n 10 -> 2\n 11........ -> 2\n");
  sc_btrie6_destruct(t);
  th::expect_clean();
}

}  // namespace

// The small tries of the documentation, checked word for word: node words,
// lookups, iteration order, dump and statistics.
#include <inttypes.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "sc_btrie.h"
#include "sc_btrie6.h"
#include "test_host.h"

namespace {

using TrieExample = HostTest;

constexpr uint32_t A = 0xA, B = 0xB, C = 0xC, D = 0xD, E = 0xE;

sc_btrie_entry e4(uint32_t addr, uint32_t len, uint32_t data) {
  sc_btrie_entry e{};
  e.addr = addr;
  e.len = len;
  e.data = data;
  return e;
}

sc_btrie6_entry e6(uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3,
                   uint32_t len, uint32_t data) {
  sc_btrie6_entry e{};
  e.addr[0] = w0;
  e.addr[1] = w1;
  e.addr[2] = w2;
  e.addr[3] = w3;
  e.len = len;
  e.data = data;
  return e;
}

struct NodeWord {
  uint32_t branch, skip, index;
  bool operator==(const NodeWord &) const = default;
};

template <class Node>
std::vector<NodeWord> nodes_of(const Node *n, uint32_t count) {
  std::vector<NodeWord> out;
  for (uint32_t i = 0; i < count; ++i)
    out.push_back({n[i].branch, n[i].skip, n[i].index});
  return out;
}

std::string hex_ptr(const void *p, bool pad) {
  char buf[32];
  snprintf(buf, sizeof buf, pad ? "%08" PRIxPTR : "%" PRIxPTR,
           reinterpret_cast<uintptr_t>(p));
  return buf;
}

const std::string kRule =
    "-----------------------------------------------------------\n";

// Both families build the same shape for the documentation's example; only
// the skips of node 1 and of the last entry's leaf differ.
template <class Trie>
void expect_example_shape(const Trie *t, uint32_t second_skip,
                          uint32_t last_skip) {
  EXPECT_EQ(t->n_entries, 3u);
  EXPECT_EQ(t->n_prefixes, 2u);
  ASSERT_EQ(t->n_nodes, 7u);
  EXPECT_EQ(nodes_of(t->nodes, 7), (std::vector<NodeWord>{{2, 0, 1},
                                                          {1, second_skip, 5},
                                                          {0, 0, 2},
                                                          {0, 0, 2},
                                                          {0, last_skip, 2},
                                                          {0, 1, 0},
                                                          {0, 1, 1}}));
}

TEST_F(TrieExample, Ipv4BuildLookupIterateDump) {
  const sc_btrie_entry in[] = {e4(0x0A000000, 8, A), e4(0x0A010000, 16, B),
                               e4(0x0A020000, 16, C), e4(0xC0A80100, 24, D),
                               e4(0, 0, E)};
  sc_btrie *t = sc_btrie_construct(nullptr, in, 5, 50, 0);
  ASSERT_TRUE(t);
  expect_example_shape(t, 12, 22);
  EXPECT_EQ(t->entries[2].prefix, 0u);
  EXPECT_EQ(t->prefixes[0].prefix, SC_BTRIE_NO_PREFIX);
  EXPECT_EQ(t->prefixes[1].prefix, 0u);
  // The node array was taken at the estimate, then trimmed.
  std::vector<uint32_t> sizes;
  for (auto &b : th::blocks()) sizes.push_back(b.size);
  EXPECT_EQ(sizes,
            (std::vector<uint32_t>{sizeof(sc_btrie), 60, 60, 460, 36, 24, 28}));

  EXPECT_EQ(sc_btrie_lpmatch(t, 0x0A010203), B);
  EXPECT_EQ(sc_btrie_lpmatch(t, 0x0A030001), A);
  EXPECT_EQ(sc_btrie_lpmatch(t, 0x0B000000), E);
  EXPECT_EQ(sc_btrie_lpmatch(t, 0x40000001), E);
  EXPECT_EQ(sc_btrie_lpmatch(t, 0xC0A80107), D);

  sc_btrie_iter *it = sc_btrie_iter_construct(t);
  ASSERT_TRUE(it);
  std::vector<std::vector<uint32_t>> items;
  sc_btrie_item item;
  while (sc_btrie_iter_next(it, &item) == 0)
    items.push_back({item.addr, item.len, item.data});
  item = {1, 2, 3};
  EXPECT_EQ(sc_btrie_iter_next(it, &item), -1);
  EXPECT_EQ(item.addr, 1u);
  sc_btrie_iter_destruct(it);
  EXPECT_EQ(items, (std::vector<std::vector<uint32_t>>{{0x0A010000, 16, B},
                                                       {0x0A010000, 8, A},
                                                       {0x0A010000, 0, E},
                                                       {0x0A020000, 16, C},
                                                       {0x0A020000, 8, A},
                                                       {0x0A020000, 0, E},
                                                       {0xC0A80100, 24, D},
                                                       {0xC0A80100, 0, E}}));

  EXPECT_EQ(sc_btrie_memory_usage(t), sizeof(sc_btrie) + 88);
  th::clear_output();
  sc_btrie_print(t);
  EXPECT_EQ(th::console(),
            kRule + "Trie " + hex_ptr(t, false) +
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
  th::clear_output();
  __sc_debug_level = 0;  // reports ignore the debug level
  sc_btrie_print_stats(t);
  if (sizeof(void *) == 4) {
    EXPECT_NE(th::console().find("Total memory usage: 120B (0.1KB, 0.00MB)"),
              std::string::npos);
  }
  EXPECT_EQ(th::console(),
            kRule + "Trie " + hex_ptr(t, true) +
                ": n_entries = 3, n_prefixes = 2, n_nodes = 7\n" +
                "    Total memory usage: " +
                std::to_string(sc_btrie_memory_usage(t)) +
                "B (0.1KB, 0.00MB)\n" +
                "    Nodes memory usage: 28B (0.0KB, 0.00MB)\n"
                "    Root branch factor: 2\n"
                "    Average / Maximum depth (w/o prefixes): 2.25 / 3\n"
                "    Average / Maximum prefixes path length: 0.50 / 1\n" +
                kRule);
  sc_btrie_destruct(t);
}

TEST_F(TrieExample, Ipv6BuildLookupIterateDump) {
  const sc_btrie6_entry in[] = {
      e6(0x20010DB8, 0, 0, 0, 32, A), e6(0x20010DB8, 0x00010000, 0, 0, 48, B),
      e6(0x20010DB8, 0x00020000, 0, 0, 48, C), e6(0xFE800000, 0, 0, 0, 10, D),
      e6(0, 0, 0, 0, 0, E)};
  sc_btrie6 *t = sc_btrie6_construct(nullptr, in, 5, 50, 0);
  ASSERT_TRUE(t);
  expect_example_shape(t, 44, 8);

  const uint32_t k1[] = {0x20010DB8, 0x00010000, 0, 5};
  const uint32_t k2[] = {0x20010DB8, 0x00030000, 0, 1};
  const uint32_t k3[] = {0x20010DB9, 0, 0, 1};
  const uint32_t k4[] = {0xFE800000, 0, 0, 1};
  const uint32_t k5[] = {0x40000000, 0, 0, 1};
  EXPECT_EQ(sc_btrie6_lpmatch(t, k1), B);
  EXPECT_EQ(sc_btrie6_lpmatch(t, k2), A);
  EXPECT_EQ(sc_btrie6_lpmatch(t, k3), E);
  EXPECT_EQ(sc_btrie6_lpmatch(t, k4), D);
  EXPECT_EQ(sc_btrie6_lpmatch(t, k5), E);

  sc_btrie6_iter *it = sc_btrie6_iter_construct(t);
  ASSERT_TRUE(it);
  std::vector<std::vector<uint32_t>> items;
  sc_btrie6_item item;
  while (sc_btrie6_iter_next(it, &item) == 0)
    items.push_back({item.addr[0], item.addr[1], item.len, item.data});
  EXPECT_EQ(sc_btrie6_iter_next(it, &item), -1);
  sc_btrie6_iter_destruct(it);
  EXPECT_EQ(items,
            (std::vector<std::vector<uint32_t>>{{0x20010DB8, 0x10000, 48, B},
                                                {0x20010DB8, 0x10000, 32, A},
                                                {0x20010DB8, 0x10000, 0, E},
                                                {0x20010DB8, 0x20000, 48, C},
                                                {0x20010DB8, 0x20000, 32, A},
                                                {0x20010DB8, 0x20000, 0, E},
                                                {0xFE800000, 0, 10, D},
                                                {0xFE800000, 0, 0, E}}));

  th::clear_output();
  sc_btrie6_print(t);
  const std::string dots80(80, '.');
  EXPECT_NE(
      th::console().find("--------\nEntries\n--------\n"
                         "0:001000000000000100001101101110000000000000000001" +
                         dots80 +
                         "/48 prfx:1\n"
                         "1:001000000000000100001101101110000000000000000010" +
                         dots80 +
                         "/48 prfx:1\n"
                         "2:1111111010" +
                         std::string(118, '.') +
                         "/10 prfx:0\n"
                         "--------\nPrefixes\n--------\n"
                         "Prefix 0: len 0 prefix 2097151\n"
                         "Prefix 1: len 32 prefix 0\n"
                         "--------\nNodes\n--------\n\n"
                         " 00" +
                         std::string(44, '.') +
                         "\n"
                         "    0. -> 0\n    1. -> 1\n"
                         " 01 -> 2\n 10 -> 2\n 11........ -> 2\n"),
      std::string::npos)
      << th::console();
  th::clear_output();
  sc_btrie6_print_stats(t);
  EXPECT_NE(th::console().find(
                "    Nodes memory usage: 28B (0.0KB, 0.00MB)\n"
                "    Root branch factor: 2\n"
                "    Average / Maximum depth (w/o prefixes): 2.25 / 3\n"
                "    Average / Maximum prefixes path length: 0.50 / 1\n"),
            std::string::npos)
      << th::console();
  EXPECT_EQ(sc_btrie6_memory_usage(t), sizeof(sc_btrie6) + 72 + 24 + 28);
  sc_btrie6_destruct(t);
}

}  // namespace

// One test-side face for both trie families, so that the behaviour they
// share is tested once over both. Addresses are four words; IPv4 uses the
// first.
#pragma once

#include <stdint.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"
#include "sc_btrie.h"
#include "sc_btrie6.h"

namespace tt {

using Addr = std::array<uint32_t, 4>;

struct V4 {
  using Trie = sc_btrie;
  using Entry = sc_btrie_entry;
  using Iter = sc_btrie_iter;
  using Item = sc_btrie_item;
  static constexpr uint32_t kWords = 1, kBits = 32;
  static constexpr uint32_t kNone = SC_BTRIE_NO_PREFIX;
  static constexpr uint32_t kMaxEntries = 0x200000;
  static constexpr uint32_t kIndexLimit = 1u << 22;
  static constexpr uint32_t kMaxBranch = 31, kMaxChosenBranch = 31;
  static constexpr const char *kModule = "lib/pfe/ds/src/sc_btrie";
  static constexpr const char *kName = "sc_btrie_construct";

  static Entry entry(const Addr &a, uint32_t len, uint32_t data) {
    Entry e{};
    e.addr = a[0];
    e.len = len;
    e.data = data;
    return e;
  }
  static Addr addr(const Entry &e) { return {e.addr, 0, 0, 0}; }
  static Addr addr(const Item &i) { return {i.addr, 0, 0, 0}; }
  static Trie *construct(void *ctx, const Entry *in, uint32_t n, uint32_t fill,
                         uint32_t root) {
    return sc_btrie_construct(ctx, in, n, fill, root);
  }
  static void destruct(Trie *t) { sc_btrie_destruct(t); }
  static uint32_t lpmatch(const Trie *t, const Addr &k) {
    return sc_btrie_lpmatch(t, k[0]);
  }
  static Iter *iter(Trie *t) { return sc_btrie_iter_construct(t); }
  static int next(Iter *it, Item *item) { return sc_btrie_iter_next(it, item); }
  static void iter_destruct(Iter *it) { sc_btrie_iter_destruct(it); }
  static void set_destructor(Trie *t, void (*d)(uint32_t)) {
    sc_btrie_set_data_destructor(t, d);
  }
  static uint32_t memory(const Trie *t) { return sc_btrie_memory_usage(t); }
  static void print(const Trie *t) { sc_btrie_print(t); }
  static void stats(const Trie *t) { sc_btrie_print_stats(t); }
};

struct V6 {
  using Trie = sc_btrie6;
  using Entry = sc_btrie6_entry;
  using Iter = sc_btrie6_iter;
  using Item = sc_btrie6_item;
  static constexpr uint32_t kWords = 4, kBits = 128;
  static constexpr uint32_t kNone = SC_BTRIE6_NO_PREFIX;
  static constexpr uint32_t kMaxEntries = 0x100000;
  static constexpr uint32_t kIndexLimit = 1u << 21;
  static constexpr uint32_t kMaxBranch = 15, kMaxChosenBranch = 4;
  static constexpr const char *kModule = "lib/pfe/ds/src/sc_btrie6";
  static constexpr const char *kName = "sc_btrie6_construct";

  static Entry entry(const Addr &a, uint32_t len, uint32_t data) {
    Entry e{};
    for (int w = 0; w < 4; ++w) e.addr[w] = a[w];
    e.len = len;
    e.data = data;
    return e;
  }
  static Addr addr(const Entry &e) {
    return {e.addr[0], e.addr[1], e.addr[2], e.addr[3]};
  }
  static Addr addr(const Item &i) {
    return {i.addr[0], i.addr[1], i.addr[2], i.addr[3]};
  }
  static Trie *construct(void *ctx, const Entry *in, uint32_t n, uint32_t fill,
                         uint32_t root) {
    return sc_btrie6_construct(ctx, in, n, fill, root);
  }
  static void destruct(Trie *t) { sc_btrie6_destruct(t); }
  static uint32_t lpmatch(const Trie *t, const Addr &k) {
    return sc_btrie6_lpmatch(t, k.data());
  }
  static Iter *iter(Trie *t) { return sc_btrie6_iter_construct(t); }
  static int next(Iter *it, Item *item) {
    return sc_btrie6_iter_next(it, item);
  }
  static void iter_destruct(Iter *it) { sc_btrie6_iter_destruct(it); }
  static void set_destructor(Trie *t, void (*d)(uint32_t)) {
    sc_btrie6_set_data_destructor(t, d);
  }
  static uint32_t memory(const Trie *t) { return sc_btrie6_memory_usage(t); }
  static void print(const Trie *t) { sc_btrie6_print(t); }
  static void stats(const Trie *t) { sc_btrie6_print_stats(t); }
};

// Address a with every bit at a position >= len cleared, or set (ones).
template <class F>
Addr cut(Addr a, uint32_t len, bool ones = false) {
  for (uint32_t w = F::kWords; w < 4; ++w) a[w] = 0;
  for (uint32_t w = 0; w < F::kWords; ++w) {
    uint32_t keep = len > w * 32 ? len - w * 32 : 0;
    uint32_t mask = keep >= 32 ? ~0u : keep == 0 ? 0 : ~0u << (32 - keep);
    a[w] = ones ? a[w] | ~mask : a[w] & mask;
  }
  return a;
}

// a + 1 or a - 1 over the family's width (wrapping).
template <class F>
Addr step(Addr a, int delta) {
  for (int w = int(F::kWords) - 1; w >= 0; --w) {
    uint32_t before = a[w];
    a[w] += uint32_t(delta);
    if (delta > 0 ? a[w] > before : a[w] < before) break;
  }
  return a;
}

using Families = ::testing::Types<V4, V6>;

// The documentation's example: A a /8 (IPv6 /32), B and C two /16s (/48s)
// inside it, D elsewhere, E the default route; data 0xA to 0xE.
template <class F>
std::vector<typename F::Entry> example() {
  if (F::kWords == 1)
    return {F::entry({0x0A000000}, 8, 0xA), F::entry({0x0A010000}, 16, 0xB),
            F::entry({0x0A020000}, 16, 0xC), F::entry({0xC0A80100}, 24, 0xD),
            F::entry({}, 0, 0xE)};
  return {F::entry({0x20010DB8}, 32, 0xA),
          F::entry({0x20010DB8, 0x10000}, 48, 0xB),
          F::entry({0x20010DB8, 0x20000}, 48, 0xC),
          F::entry({0xFE800000}, 10, 0xD), F::entry({}, 0, 0xE)};
}

// Keys of the example and the data they find.
template <class F>
std::vector<std::pair<Addr, uint32_t>> example_lookups() {
  if (F::kWords == 1)
    return {{{0x0A010203}, 0xB},
            {{0x0A030001}, 0xA},
            {{0x0B000000}, 0xE},
            {{0x40000001}, 0xE},
            {{0xC0A80107}, 0xD}};
  return {{{0x20010DB8, 0x10000, 0, 5}, 0xB},
          {{0x20010DB8, 0x30000, 0, 1}, 0xA},
          {{0x20010DB9, 0, 0, 1}, 0xE},
          {{0xFE800000, 0, 0, 1}, 0xD},
          {{0x40000000, 0, 0, 1}, 0xE}};
}

}  // namespace tt

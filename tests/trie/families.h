// One test-side face for both trie families, so that the behaviour they
// share is tested once over both. Addresses are four words; IPv4 uses the
// first.
#pragma once

#include <stdint.h>
#include <string.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"
#include "sc_btrie.h"
#include "sc_btrie6.h"

namespace tt {

using Addr = std::array<uint32_t, 4>;

// What the two families' records have in common.
template <class TrieT, class EntryT, class IterT, class ItemT, uint32_t W>
struct Family {
  using Trie = TrieT;
  using Entry = EntryT;
  using Iter = IterT;
  using Item = ItemT;
  static constexpr uint32_t kWords = W, kBits = 32 * W;

  static Entry entry(const Addr &a, uint32_t len, uint32_t data) {
    Entry e{};
    memcpy(&e.addr, a.data(), 4 * W);
    e.len = len;
    e.data = data;
    return e;
  }
  template <class R>  // an entry or an item
  static Addr addr(const R &r) {
    Addr a{};
    memcpy(a.data(), &r.addr, 4 * W);
    return a;
  }
};

struct V4 : Family<sc_btrie, sc_btrie_entry, sc_btrie_iter, sc_btrie_item, 1> {
  static constexpr uint32_t kNone = SC_BTRIE_NO_PREFIX;
  static constexpr uint32_t kMaxEntries = 0x200000;
  static constexpr uint32_t kMaxBranch = 31, kMaxChosenBranch = 31;
  static constexpr const char *kModule = "lib/pfe/ds/src/sc_btrie";
  static constexpr const char *kName = "sc_btrie_construct";
  static constexpr auto construct = sc_btrie_construct;
  static constexpr auto destruct = sc_btrie_destruct;
  static constexpr auto iter = sc_btrie_iter_construct;
  static constexpr auto next = sc_btrie_iter_next;
  static constexpr auto iter_destruct = sc_btrie_iter_destruct;
  static constexpr auto set_destructor = sc_btrie_set_data_destructor;
  static constexpr auto memory = sc_btrie_memory_usage;
  static constexpr auto print = sc_btrie_print;
  static constexpr auto stats = sc_btrie_print_stats;
  static uint32_t lpmatch(const Trie *t, const Addr &k) {
    return sc_btrie_lpmatch(t, k[0]);
  }
};

struct V6
    : Family<sc_btrie6, sc_btrie6_entry, sc_btrie6_iter, sc_btrie6_item, 4> {
  static constexpr uint32_t kNone = SC_BTRIE6_NO_PREFIX;
  static constexpr uint32_t kMaxEntries = 0x100000;
  static constexpr uint32_t kMaxBranch = 15, kMaxChosenBranch = 4;
  static constexpr const char *kModule = "lib/pfe/ds/src/sc_btrie6";
  static constexpr const char *kName = "sc_btrie6_construct";
  static constexpr auto construct = sc_btrie6_construct;
  static constexpr auto destruct = sc_btrie6_destruct;
  static constexpr auto iter = sc_btrie6_iter_construct;
  static constexpr auto next = sc_btrie6_iter_next;
  static constexpr auto iter_destruct = sc_btrie6_iter_destruct;
  static constexpr auto set_destructor = sc_btrie6_set_data_destructor;
  static constexpr auto memory = sc_btrie6_memory_usage;
  static constexpr auto print = sc_btrie6_print;
  static constexpr auto stats = sc_btrie6_print_stats;
  static uint32_t lpmatch(const Trie *t, const Addr &k) {
    return sc_btrie6_lpmatch(t, k.data());
  }
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

// The five-prefix reference set: A a /8 (IPv6 /32), B and C two /16s (/48s)
// inside it, D elsewhere, E the default route; data 0xA to 0xE.
template <class F>
std::vector<typename F::Entry> reference_set() {
  if (F::kWords == 1)
    return {F::entry({0x0A000000}, 8, 0xA), F::entry({0x0A010000}, 16, 0xB),
            F::entry({0x0A020000}, 16, 0xC), F::entry({0xC0A80100}, 24, 0xD),
            F::entry({}, 0, 0xE)};
  return {F::entry({0x20010DB8}, 32, 0xA),
          F::entry({0x20010DB8, 0x10000}, 48, 0xB),
          F::entry({0x20010DB8, 0x20000}, 48, 0xC),
          F::entry({0xFE800000}, 10, 0xD), F::entry({}, 0, 0xE)};
}

// Keys of the reference set and the data they find.
template <class F>
std::vector<std::pair<Addr, uint32_t>> reference_lookups() {
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

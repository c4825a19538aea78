// The two trie families behind one interface, so the tool and the
// benchmarks write each step once for both.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <array>
#include <vector>

#include "lpm_addr.h"
#include "sc_btrie.h"
#include "sc_btrie6.h"

namespace lpm {

struct Ops4 {
  static constexpr Family family = Family::v4;
  using Entry = sc_btrie_entry;
  using Trie = sc_btrie;
  using Key = uint32_t;
  static constexpr uint32_t kMaxRootBranch = 20;
  static constexpr uint32_t kMaxEntries = 0x200000;

  static Trie *construct(const Entry *e, uint32_t n, uint32_t fill,
                         uint32_t root_branch) {
    return sc_btrie_construct(nullptr, e, n, fill, root_branch);
  }
  static void destruct(Trie *t) { sc_btrie_destruct(t); }
  static uint32_t lookup(const Trie *t, const Key &k) {
    return sc_btrie_lpmatch(t, k);
  }
  static void lookup_bulk(const Trie *t, const Key *k, uint32_t *d,
                          uint32_t n) {
    sc_btrie_lpmatch_bulk(t, k, d, n);
  }
  static uint32_t memory(const Trie *t) { return sc_btrie_memory_usage(t); }
  static void print_stats(const Trie *t) { sc_btrie_print_stats(t); }

  using Fib = sc_btrie_fib;
  static Fib *fib_construct(const Trie *t, uint32_t miss) {
    return sc_btrie_fib_construct(nullptr, t, miss);
  }
  static void fib_destruct(Fib *f) { sc_btrie_fib_destruct(f); }
  static uint32_t fib_lookup(const Fib *f, const Key &k) {
    return sc_btrie_fib_lookup(f, k);
  }
  static void fib_lookup_bulk(const Fib *f, const Key *k, uint32_t *d,
                              uint32_t n) {
    sc_btrie_fib_lookup_bulk(f, k, d, n);
  }
  static uint32_t fib_memory(const Fib *f) {
    return sc_btrie_fib_memory_usage(f);
  }
  static void print(const Trie *t) { sc_btrie_print(t); }

  // Calls f(addr, len, data) for every item of the trie's iterator; false
  // when the iterator cannot be made.
  template <typename F>
  static bool for_each_item(Trie *t, F f) {
    sc_btrie_iter *it = sc_btrie_iter_construct(t);
    if (!it) return false;
    sc_btrie_item item;
    while (sc_btrie_iter_next(it, &item) == 0)
      f(Addr{{item.addr, 0, 0, 0}}, item.len, item.data);
    sc_btrie_iter_destruct(it);
    return true;
  }

  static Addr entry_addr(const Entry &e) { return Addr{{e.addr, 0, 0, 0}}; }
  static unsigned entry_len(const Entry &e) { return e.len; }
  static Key addr_key(const Addr &a) { return a.w[0]; }
};

struct Ops6 {
  static constexpr Family family = Family::v6;
  using Entry = sc_btrie6_entry;
  using Trie = sc_btrie6;
  using Key = std::array<uint32_t, 4>;
  static constexpr uint32_t kMaxRootBranch = 15;  // the node's branch field
  static constexpr uint32_t kMaxEntries = 0x100000;

  static Trie *construct(const Entry *e, uint32_t n, uint32_t fill,
                         uint32_t root_branch) {
    return sc_btrie6_construct(nullptr, e, n, fill, root_branch);
  }
  static void destruct(Trie *t) { sc_btrie6_destruct(t); }
  static uint32_t lookup(const Trie *t, const Key &k) {
    return sc_btrie6_lpmatch(t, k.data());
  }
  static void lookup_bulk(const Trie *t, const Key *k, uint32_t *d,
                          uint32_t n) {
    static_assert(sizeof(Key) == sizeof(uint32_t[4]));
    sc_btrie6_lpmatch_bulk(t, reinterpret_cast<const uint32_t(*)[4]>(k), d, n);
  }
  static uint32_t memory(const Trie *t) { return sc_btrie6_memory_usage(t); }
  static void print_stats(const Trie *t) { sc_btrie6_print_stats(t); }

  using Fib = sc_btrie6_fib;
  static Fib *fib_construct(const Trie *t, uint32_t miss) {
    return sc_btrie6_fib_construct(nullptr, t, miss);
  }
  static void fib_destruct(Fib *f) { sc_btrie6_fib_destruct(f); }
  static uint32_t fib_lookup(const Fib *f, const Key &k) {
    return sc_btrie6_fib_lookup(f, k.data());
  }
  static void fib_lookup_bulk(const Fib *f, const Key *k, uint32_t *d,
                              uint32_t n) {
    sc_btrie6_fib_lookup_bulk(f, reinterpret_cast<const uint32_t(*)[4]>(k), d,
                              n);
  }
  static uint32_t fib_memory(const Fib *f) {
    return sc_btrie6_fib_memory_usage(f);
  }
  static void print(const Trie *t) { sc_btrie6_print(t); }

  template <typename F>
  static bool for_each_item(Trie *t, F f) {
    sc_btrie6_iter *it = sc_btrie6_iter_construct(t);
    if (!it) return false;
    sc_btrie6_item item;
    while (sc_btrie6_iter_next(it, &item) == 0)
      f(Addr{{item.addr[0], item.addr[1], item.addr[2], item.addr[3]}},
        item.len, item.data);
    sc_btrie6_iter_destruct(it);
    return true;
  }

  static Addr entry_addr(const Entry &e) {
    return Addr{{e.addr[0], e.addr[1], e.addr[2], e.addr[3]}};
  }
  static unsigned entry_len(const Entry &e) { return e.len; }
  static Key addr_key(const Addr &a) {
    return {a.w[0], a.w[1], a.w[2], a.w[3]};
  }
};

// Drops every entry whose address and length an earlier entry already has,
// so the first of them wins (a trie keeps an unspecified one, other
// libraries the last). Keeps the order; returns the number dropped.
template <class Ops>
size_t keep_first_of_duplicates(std::vector<typename Ops::Entry> &entries) {
  struct Key {
    Addr addr;
    unsigned len;
    size_t pos;
  };
  std::vector<Key> keys;
  keys.reserve(entries.size());
  for (size_t i = 0; i < entries.size(); ++i)
    keys.push_back(
        {Ops::entry_addr(entries[i]), Ops::entry_len(entries[i]), i});
  std::sort(keys.begin(), keys.end(), [](const Key &a, const Key &b) {
    if (a.addr != b.addr) return a.addr < b.addr;
    return a.len != b.len ? a.len < b.len : a.pos < b.pos;
  });
  std::vector<bool> drop(entries.size(), false);
  for (size_t i = 1; i < keys.size(); ++i)
    if (keys[i].addr == keys[i - 1].addr && keys[i].len == keys[i - 1].len)
      drop[keys[i].pos] = true;
  size_t kept = 0;
  for (size_t i = 0; i < entries.size(); ++i)
    if (!drop[i]) entries[kept++] = entries[i];
  size_t dropped = entries.size() - kept;
  entries.resize(kept);
  return dropped;
}

}  // namespace lpm

// One test-side face for both trie families, so that what they share is
// tested once over both, by the unit tests and the fuzz targets alike.
// Addresses are four words; IPv4 uses the first.
#pragma once

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <vector>

#include "sc_btrie.h"
#include "sc_btrie6.h"

namespace tt {

using Addr = std::array<uint32_t, 4>;

// The family's records and operations, named alike for both.
#define TT_FAMILY(Name, p, W, none, max_branch, key)                       \
  struct Name {                                                            \
    using Trie = p;                                                        \
    using Entry = p##_entry;                                               \
    using Iter = p##_iter;                                                 \
    using Item = p##_item;                                                 \
    static constexpr uint32_t kWords = W, kBits = 32 * W, kNone = none;    \
    static constexpr uint32_t kMaxBranch = max_branch;                     \
    static constexpr const char *kName = #p "_construct";                  \
    static constexpr const char *kModule = "lib/pfe/ds/src/" #p;           \
    static constexpr auto construct = p##_construct;                       \
    static constexpr auto destruct = p##_destruct;                         \
    static constexpr auto iter = p##_iter_construct;                       \
    static constexpr auto next = p##_iter_next;                            \
    static constexpr auto iter_destruct = p##_iter_destruct;               \
    static constexpr auto set_destructor = p##_set_data_destructor;        \
    static constexpr auto memory = p##_memory_usage;                       \
    static constexpr auto print = p##_print;                               \
    static constexpr auto stats = p##_print_stats;                         \
    static constexpr auto lpmatch_bulk = p##_lpmatch_bulk;                 \
    static constexpr auto fib_lookup_bulk = p##_fib_lookup_bulk;           \
    static uint32_t lpmatch(const Trie *t, const Addr &k) {                \
      return p##_lpmatch(t, key);                                          \
    }                                                                      \
    using Fib = p##_fib;                                                   \
    static constexpr auto fib_construct = p##_fib_construct;               \
    static constexpr auto fib_destruct = p##_fib_destruct;                 \
    static constexpr auto fib_memory = p##_fib_memory_usage;               \
    static constexpr const char *kFibName = #p "_fib_construct";           \
    static constexpr const char *kFibModule = "lib/pfe/ds/src/" #p "_fib"; \
    static uint32_t fib_lookup(const Fib *f, const Addr &k) {              \
      return p##_fib_lookup(f, key);                                       \
    }                                                                      \
    static Entry entry(const Addr &a, uint32_t len, uint32_t data) {       \
      Entry e{{}, len, 0, data};                                           \
      memcpy(&e.addr, a.data(), 4 * W);                                    \
      return e;                                                            \
    }                                                                      \
    template <class R> /* an entry or an item */                           \
    static Addr addr(const R &r) {                                         \
      Addr a{};                                                            \
      memcpy(a.data(), &r.addr, 4 * W);                                    \
      return a;                                                            \
    }                                                                      \
  };
TT_FAMILY(V4, sc_btrie, 1, SC_BTRIE_NO_PREFIX, 31, k[0])
TT_FAMILY(V6, sc_btrie6, 4, SC_BTRIE6_NO_PREFIX, 15, k.data())

inline Addr random_addr(std::mt19937 &rng) {
  return {uint32_t(rng()), uint32_t(rng()), uint32_t(rng()), uint32_t(rng())};
}

// Address a with every bit at a position >= len cleared, or set (ones).
template <class F>
Addr cut(Addr a, uint32_t len, bool ones = false) {
  for (uint32_t w = 0; w < 4; ++w) {
    uint32_t keep = std::clamp(int(len) - 32 * int(w), 0, 32);
    uint32_t mask = uint32_t(~0ull << (32 - keep));
    a[w] = w >= F::kWords ? 0 : ones ? a[w] | ~mask : a[w] & mask;
  }
  return a;
}

// a + 1 or a - 1 over the family's width (wrapping).
template <class F>
Addr step(Addr a, int delta) {
  for (int w = int(F::kWords) - 1; w >= 0; --w)
    if ((a[w] += uint32_t(delta)) != (delta > 0 ? 0 : ~0u)) break;  // no carry
  return a;
}

// The five-prefix reference set: A a /8 (IPv6 /32), B and C two /16s (/48s)
// inside it, D elsewhere, E the default route; data 0xA to 0xE.
template <class F>
std::vector<typename F::Entry> reference_set() {
  if (F::kWords == 1)
    return {F::entry({0x0A000000}, 8, 0xA), F::entry({0x0A010000}, 16, 0xB),
            F::entry({0x0A020000}, 16, 0xC), F::entry({0xC0A80100}, 24, 0xD),
            F::entry({}, 0, 0xE)};
  const uint32_t d = 0x20010DB8;  // 2001:db8::
  return {F::entry({d}, 32, 0xA), F::entry({d, 0x10000}, 48, 0xB),
          F::entry({d, 0x20000}, 48, 0xC), F::entry({0xFE800000}, 10, 0xD),
          F::entry({}, 0, 0xE)};
}

// Longest covering prefix by scanning every entry.
template <class F>
uint32_t brute_force(const std::vector<typename F::Entry> &in, const Addr &k) {
  int best_len = -1;
  uint32_t data = 0;
  for (auto &e : in)
    if (int(e.len) > best_len && cut<F>(k, e.len) == F::addr(e)) {
      best_len = int(e.len);
      data = e.data;
    }
  return data;
}

// Distinct prefixes in nested runs (so leaves fall back on prefix chains),
// with the default route and host routes among them.
template <class F>
std::vector<typename F::Entry> prefix_set(std::mt19937 &rng, uint32_t n) {
  std::set<std::pair<Addr, uint32_t>> seen;
  std::vector<typename F::Entry> out;
  auto add = [&](const Addr &a, uint32_t len) {
    Addr c = cut<F>(a, len);
    if (seen.insert({c, len}).second)
      out.push_back(F::entry(c, len, uint32_t(out.size()) + 1));
  };
  add({}, 0);
  if (n >= 40) {
    // Host routes that each differ from one address in one bit: the walk
    // to that address passes a node per bit, deeper than any fixed number
    // of levels.
    Addr a = random_addr(rng);
    add(a, F::kBits);
    for (uint32_t bit = 1; bit < F::kBits; bit += 3) {
      Addr b = a;
      b[bit / 32] ^= 0x80000000u >> (bit % 32);
      add(b, F::kBits);
    }
  }
  while (out.size() < n) {
    Addr a = random_addr(rng);
    uint32_t len = 1 + rng() % F::kBits;
    for (uint32_t l = len; l > 0 && out.size() < n;
         l -= std::min(l, 1 + uint32_t(rng() % 12)))
      add(a, l);
    if (rng() % 8 == 0) add(a, F::kBits);
  }
  return out;
}

// A bulk call of the family (a trie's lpmatch_bulk, a compiled table's
// lookup_bulk) over keys[from, from + n), four-word test addresses.
template <class F, class T, class Call>
std::vector<uint32_t> bulk(Call call, const T *t, const std::vector<Addr> &keys,
                           size_t from, size_t n) {
  std::vector<uint32_t> out(n, 0xDEADBEEF);
  if constexpr (F::kWords == 1) {
    std::vector<uint32_t> k;
    for (size_t i = from; i < from + n; ++i) k.push_back(keys[i][0]);
    call(t, k.data(), out.data(), uint32_t(n));
  } else {
    static_assert(sizeof(Addr) == sizeof(uint32_t[4]));
    call(t, reinterpret_cast<const uint32_t(*)[4]>(keys.data() + from),
         out.data(), uint32_t(n));
  }
  return out;
}

template <class F>
std::vector<uint32_t> lpmatch_bulk(const typename F::Trie *t,
                                   const std::vector<Addr> &keys, size_t from,
                                   size_t n) {
  return bulk<F>(F::lpmatch_bulk, t, keys, from, n);
}

template <class F>
std::vector<uint32_t> fib_bulk(const typename F::Fib *f,
                               const std::vector<Addr> &keys, size_t from,
                               size_t n) {
  return bulk<F>(F::fib_lookup_bulk, f, keys, from, n);
}

// Each prefix's first and last address and their outside neighbours, then
// `randoms` random keys, shuffled so walks of every depth share a batch.
template <class F>
std::vector<Addr> probe_keys(const std::vector<typename F::Entry> &in,
                             int randoms, std::mt19937 &rng) {
  std::vector<Addr> keys;
  for (auto &e : in) {
    Addr first = F::addr(e), last = cut<F>(first, e.len, true);
    keys.insert(keys.end(),
                {first, last, step<F>(first, -1), step<F>(last, 1)});
  }
  for (int i = 0; i < randoms; ++i)
    keys.push_back(cut<F>(random_addr(rng), F::kBits));
  std::shuffle(keys.begin(), keys.end(), rng);
  return keys;
}

}  // namespace tt

// Test helpers written once over both trie families (vell::trie4_family
// and vell::trie6_family), for the unit tests and the fuzz targets alike.
// Test addresses are four words; IPv4 uses the first.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vell/trie_family.hpp"

namespace tt {

// Both families in a type list: tt::both<::testing::Types>.
template <template <class...> class List>
using both = List<vell::trie4_family, vell::trie6_family>;

using Addr = std::array<uint32_t, 4>;

// The entry for a prefix at a test address, and a record's test address.
template <class F>
typename F::entry entry(const Addr &a, uint32_t len, uint32_t data) {
  return F::make_entry(a.data(), len, data);
}
template <class F, class R>  // an entry or an item
Addr addr(const R &r) {
  Addr a{};
  F::addr_words(r, a.data());
  return a;
}

// The single lookups of a trie and of a compiled table at a test address.
template <class F>
uint32_t lpmatch(const typename F::trie *t, const Addr &k) {
  return F::lpmatch(t, F::word_key(k.data()));
}
template <class F>
uint32_t fib_lookup(const typename F::fib *f, const Addr &k) {
  return F::fib_lookup(f, F::word_key(k.data()));
}

// What a family's diagnostics name: the function ("sc_btrie6" + part) and
// the module path of its source.
template <class F>
std::string name(const char *part) {
  return F::name + std::string(part);
}
template <class F>
std::string module(const char *part = "") {
  return "lib/pfe/ds/src/" + name<F>(part);
}

inline Addr random_addr(std::mt19937 &rng) {
  return {uint32_t(rng()), uint32_t(rng()), uint32_t(rng()), uint32_t(rng())};
}

// Address a with every bit at a position >= len cleared, or set (ones).
template <class F>
Addr cut(Addr a, uint32_t len, bool ones = false) {
  for (uint32_t w = 0; w < 4; ++w) {
    uint32_t keep = std::clamp(int(len) - 32 * int(w), 0, 32);
    uint32_t mask = uint32_t(~0ull << (32 - keep));
    if (w >= F::words)
      a[w] = 0;  // beyond the family's width
    else
      a[w] = ones ? a[w] | ~mask : a[w] & mask;
  }
  return a;
}

// a + 1 or a - 1 over the family's width (wrapping).
template <class F>
Addr step(Addr a, int delta) {
  for (int w = int(F::words) - 1; w >= 0; --w) {
    a[w] += uint32_t(delta);
    bool carry = delta > 0 ? a[w] == 0 : a[w] == ~0u;  // the word wrapped
    if (!carry) break;
  }
  return a;
}

// The five-prefix reference set: A a /8 (IPv6 /32), B and C two /16s (/48s)
// inside it, D elsewhere, E the default route; data 0xA to 0xE.
template <class F>
std::vector<typename F::entry> reference_set() {
  if (F::words == 1)
    return {entry<F>({0x0A000000}, 8, 0xA), entry<F>({0x0A010000}, 16, 0xB),
            entry<F>({0x0A020000}, 16, 0xC), entry<F>({0xC0A80100}, 24, 0xD),
            entry<F>({}, 0, 0xE)};
  const uint32_t d = 0x20010DB8;  // 2001:db8::
  return {entry<F>({d}, 32, 0xA), entry<F>({d, 0x10000}, 48, 0xB),
          entry<F>({d, 0x20000}, 48, 0xC), entry<F>({0xFE800000}, 10, 0xD),
          entry<F>({}, 0, 0xE)};
}

// The stored prefixes, (address, length), to what a test keeps for each.
template <class V>
using Prefixes = std::map<std::pair<Addr, uint32_t>, V>;

// Each entry's prefix with every data word given for it: a trie keeps one
// of duplicates, so any of them is a right answer.
template <class F>
Prefixes<std::set<uint32_t>> stored(const std::vector<typename F::entry> &in) {
  Prefixes<std::set<uint32_t>> out;
  for (auto &e : in) out[{addr<F>(e), e.len}].insert(e.data);
  return out;
}

// What m keeps for the longest prefix covering key, or null.
template <class F, class V>
const V *longest(const Prefixes<V> &m, const Addr &key) {
  for (int len = F::bits; len >= 0; --len) {
    auto it = m.find({cut<F>(key, uint32_t(len)), uint32_t(len)});
    if (it != m.end()) return &it->second;
  }
  return nullptr;
}

// Distinct prefixes in nested runs (so leaves fall back on prefix chains),
// with the default route and host routes among them.
template <class F>
std::vector<typename F::entry> prefix_set(std::mt19937 &rng, uint32_t n) {
  std::set<std::pair<Addr, uint32_t>> seen;
  std::vector<typename F::entry> out;
  auto add = [&](const Addr &a, uint32_t len) {
    Addr c = cut<F>(a, len);
    if (seen.insert({c, len}).second)
      out.push_back(entry<F>(c, len, uint32_t(out.size()) + 1));
  };
  add({}, 0);
  if (n >= 40) {
    // Host routes that each differ from one address in one bit: the walk
    // to that address passes a node per bit, deeper than any fixed number
    // of levels.
    Addr a = random_addr(rng);
    add(a, F::bits);
    for (uint32_t bit = 1; bit < F::bits; bit += 3) {
      Addr b = a;
      b[bit / 32] ^= 0x80000000u >> (bit % 32);
      add(b, F::bits);
    }
  }
  while (out.size() < n) {
    Addr a = random_addr(rng);
    uint32_t len = 1 + rng() % F::bits;
    for (uint32_t l = len; l > 0 && out.size() < n;
         l -= std::min(l, 1 + uint32_t(rng() % 12)))
      add(a, l);
    if (rng() % 8 == 0) add(a, F::bits);
  }
  return out;
}

// A bulk call of the family (a trie's lpmatch_bulk, a compiled table's
// lookup_bulk) over keys[from, from + n), four-word test addresses.
template <class F, class T, class Call>
std::vector<uint32_t> bulk(Call call, const T *t, const std::vector<Addr> &keys,
                           size_t from, size_t n) {
  std::vector<uint32_t> out(n, 0xDEADBEEF);
  std::vector<typename F::key> k;
  for (size_t i = from; i < from + n; ++i)
    k.push_back(F::make_key(keys[i].data()));
  call(t, F::c_keys(k.data()), out.data(), uint32_t(n));
  return out;
}

template <class F>
std::vector<uint32_t> lpmatch_bulk(const typename F::trie *t,
                                   const std::vector<Addr> &keys, size_t from,
                                   size_t n) {
  return bulk<F>(F::lpmatch_bulk, t, keys, from, n);
}

template <class F>
std::vector<uint32_t> fib_bulk(const typename F::fib *f,
                               const std::vector<Addr> &keys, size_t from,
                               size_t n) {
  return bulk<F>(F::fib_lookup_bulk, f, keys, from, n);
}

// Each prefix's first and last address and their outside neighbours, then
// `randoms` random keys, shuffled so walks of every depth share a batch.
template <class F>
std::vector<Addr> probe_keys(const std::vector<typename F::entry> &in,
                             int randoms, std::mt19937 &rng) {
  std::vector<Addr> keys;
  for (auto &e : in) {
    Addr first = addr<F>(e), last = cut<F>(first, e.len, true);
    keys.insert(keys.end(),
                {first, last, step<F>(first, -1), step<F>(last, 1)});
  }
  for (int i = 0; i < randoms; ++i)
    keys.push_back(cut<F>(random_addr(rng), F::bits));
  std::shuffle(keys.begin(), keys.end(), rng);
  return keys;
}

}  // namespace tt

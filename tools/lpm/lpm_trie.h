// What the tool and the benchmarks add to a trie family of the C++ layer
// (vell::trie4_family, vell::trie6_family): its Family tag, the tool's
// root limit and conversions to the tool's four-word Addr, so that each
// step is written once for both.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <vector>

#include "lpm_addr.h"
#include "vell/trie_family.hpp"

namespace lpm {

template <class F>
constexpr Family family_of = F::words == 1 ? Family::v4 : Family::v6;

// The largest --root-branch: the family's, and 20 for IPv4 (a root of a
// million slots; wider ones leave the 22-bit node index little room).
template <class F>
constexpr uint32_t max_root_branch = std::min(F::max_root_branch, 20u);

// The address of an entry or an iterator's item.
template <class F, class Record>
Addr record_addr(const Record &r) {
  Addr a;
  F::addr_words(r, a.w);
  return a;
}

// Calls f(addr, len, data) for every item of the trie's iterator; false
// when the iterator cannot be made.
template <class F, class Call>
bool for_each_item(typename F::trie *t, Call f) {
  typename F::iter *it = F::iter_construct(t);
  if (!it) return false;
  typename F::item item;
  while (F::iter_next(it, &item) == 0)
    f(record_addr<F>(item), item.len, item.data);
  F::iter_destruct(it);
  return true;
}

// Drops every entry whose address and length an earlier entry already has,
// so the first of them wins (a trie keeps an unspecified one, other
// libraries the last). Keeps the order; returns the number dropped.
template <class F>
size_t keep_first_of_duplicates(std::vector<typename F::entry> &entries) {
  struct Key {
    Addr addr;
    unsigned len;
    size_t pos;
  };
  std::vector<Key> keys;
  keys.reserve(entries.size());
  for (size_t i = 0; i < entries.size(); ++i)
    keys.push_back({record_addr<F>(entries[i]), entries[i].len, i});
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

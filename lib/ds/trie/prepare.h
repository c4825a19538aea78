// Turns the caller's entries into the trie's leaf entries and prefix
// records: copy, sort, drop duplicates, split.
#pragma once

#include <stdint.h>

#include "sc_host.h"
#include "trie/bits.h"

namespace vds::trie {

// Address ascending (word by word, unsigned), then length ascending, so an
// enclosing prefix sorts before everything it encloses.
template <class L>
int compare_entries(const void *pa, const void *pb, void *) {
  const auto *a = static_cast<const typename L::Entry *>(pa);
  const auto *b = static_cast<const typename L::Entry *>(pb);
  const uint32_t *x = L::addr(*a), *y = L::addr(*b);
  for (uint32_t w = 0; w < L::kWords; ++w)
    if (x[w] != y[w]) return x[w] < y[w] ? -1 : 1;
  return (a->len > b->len) - (a->len < b->len);
}

template <class L>
bool same_entry(const typename L::Entry &a, const typename L::Entry &b) {
  return a.len == b.len &&
         same_prefix<L::kWords>(L::addr(a), L::addr(b), L::kBits);
}

// Whether e encloses f: e is no longer and agrees with f on its length.
template <class L>
bool encloses(const typename L::Entry &e, const typename L::Entry &f) {
  return e.len <= f.len &&
         same_prefix<L::kWords>(L::addr(e), L::addr(f), e.len);
}

// Fills t->entries (room for n) and t->prefixes (room for n) from the
// caller's n >= 1 entries and sets n_entries and n_prefixes. Of identical
// entries the one the sort places first survives. Every leaf entry and
// prefix record ends up naming its longest enclosing prefix: enclosing
// prefixes are met shortest first, and each overwrites the link of the
// entries it encloses.
template <class L>
void prepare(typename L::Trie *t, const typename L::Entry *in, uint32_t n) {
  using Entry = typename L::Entry;
  Entry *e = t->entries;
  for (uint32_t i = 0; i < n; ++i) {
    e[i] = Entry{};  // also clears the bits no field names
    for (uint32_t w = 0; w < L::kWords; ++w)
      L::addr(e[i])[w] = L::addr(in[i])[w];
    e[i].len = in[i].len;
    e[i].prefix = L::kNone;
    e[i].data = in[i].data;
  }
  sc_qsort(e, n, sizeof(Entry), compare_entries<L>, nullptr);

  uint32_t kept = 1;
  for (uint32_t i = 1; i < n; ++i)
    if (!same_entry<L>(e[i], e[kept - 1])) e[kept++] = e[i];

  uint32_t leaves = 0, prefixes = 0;
  for (uint32_t i = 0; i < kept; ++i) {
    if (i + 1 < kept && encloses<L>(e[i], e[i + 1])) {
      typename L::Prefix &p = t->prefixes[prefixes];
      p.len = e[i].len;
      p.prefix = e[i].prefix;
      p.data = e[i].data;
      for (uint32_t j = i + 1; j < kept && encloses<L>(e[i], e[j]); ++j)
        e[j].prefix = prefixes;
      ++prefixes;
    } else {
      e[leaves++] = e[i];
    }
  }
  t->n_entries = leaves;
  t->n_prefixes = prefixes;
}

}  // namespace vds::trie

// A trie's stored prefixes as one array in address order, enclosing
// prefixes before what they enclose: the order the compiler paints in.
#pragma once

#include <stdint.h>

#include "trie/bits.h"

namespace vds::fib {

template <uint32_t W>
struct Prefix {
  uint32_t addr[W];
  uint32_t len;
  uint32_t data;
};

// Number of stored prefixes: every leaf entry and every prefix record.
template <class F>
uint32_t count_prefixes(const typename F::Trie *t) {
  return t->n_entries + t->n_prefixes;
}

// Fills out (room for count_prefixes) in address order. The trie keeps its
// leaf entries in address order and numbers its prefix records in address
// order too; the records not yet listed that enclose the next leaf entry
// are exactly the next ones by number, up to that entry's innermost, and
// they enclose it outermost first. A record holds no address: it is the
// entry's address cut to the record's length. Returns the number written.
template <class F>
uint32_t list_prefixes(const typename F::Trie *t, Prefix<F::kWords> *out) {
  uint32_t n = 0, next_record = 0;
  for (uint32_t i = 0; i < t->n_entries; ++i) {
    const typename F::Entry &e = t->entries[i];
    const uint32_t *addr = F::addr(e);
    if (e.prefix != F::kNone) {
      for (; next_record <= e.prefix; ++next_record, ++n) {
        const typename F::Prefix &r = t->prefixes[next_record];
        trie::cut<F::kWords>(addr, r.len, out[n].addr);
        out[n].len = r.len;
        out[n].data = r.data;
      }
    }
    for (uint32_t w = 0; w < F::kWords; ++w) out[n].addr[w] = addr[w];
    out[n].len = e.len;
    out[n].data = e.data;
    ++n;
  }
  return n;
}

}  // namespace vds::fib

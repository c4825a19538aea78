// Iteration over every stored prefix: each leaf entry in array order, each
// followed by its prefix chain, longest first, with the entry's address.
#pragma once

#include <stdint.h>

#include "diag.h"
#include "trie/blocks.h"
#include "trie/family.h"

namespace vds::trie {

template <Family F>
typename F::Iter *iter_construct(typename F::Trie *t) {
  using Iter = typename F::Iter;
  if (!t) {
    VDS_DIAG_AT(kFailure, F, "sc_btrie_iter_construct: trie is 0!\n");
    return nullptr;
  }
  auto *it = static_cast<Iter *>(take<F>(t->sz_ctx, sizeof(Iter)));
  if (!it) {
    VDS_DIAG_AT(kFailure, F,
                "sc_btrie_iter_construct: sc_kmalloc(1, %zd) failed",
                sizeof(Iter));
    return nullptr;
  }
  it->trie = t;
  it->entry = 0;
  it->prefix = F::kNone;
  return it;
}

// 0 and the next item, or -1 (item untouched) at the end, for a null
// iterator or one without trie.
template <Family F>
int iter_next(typename F::Iter *it, typename F::Item *item) {
  if (!it || !it->trie || it->entry >= it->trie->n_entries) return -1;
  const typename F::Trie *t = it->trie;
  const typename F::Entry &e = t->entries[it->entry];
  for (uint32_t w = 0; w < F::kWords; ++w) F::addr(*item)[w] = F::addr(e)[w];
  uint32_t next;
  if (it->prefix == F::kNone) {
    item->len = e.len;
    item->data = e.data;
    next = e.prefix;
  } else {
    const typename F::Prefix &p = t->prefixes[it->prefix];
    item->len = p.len;
    item->data = p.data;
    next = p.prefix;
  }
  it->prefix = next;
  if (next == F::kNone) ++it->entry;
  return 0;
}

template <Family F>
void iter_destruct(typename F::Iter *it) {
  if (it) give<F>(it->trie->sz_ctx, it, sizeof(typename F::Iter));
}

}  // namespace vds::trie

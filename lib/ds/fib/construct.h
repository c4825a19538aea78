// Construction, destruction and accounting of a compiled table, shared by
// both widths. F is a family: a Shape (table.h) plus kModule (its source
// name for diagnostics and the size-class allocator), kConstruct (the
// construct operation's name for messages) and Fib (its public record,
// derived from Table), tagged by the caller (VDS_AT, diag.h) when it enters
// an operation that reports or allocates. Blocks follow the trie's allocation
// rule (trie/blocks.h), so a table and its trie draw from their allocators
// alike.
#pragma once

#include <stdint.h>
#include <string.h>

#include "diag.h"
#include "fib/blocks.h"
#include "fib/compile.h"
#include "fib/prefixes.h"
#include "trie/blocks.h"

namespace vds::fib {

template <class F>
uint32_t root_bytes() {
  return F::kRootSlots * sizeof(uint32_t);
}
template <class F>
uint32_t root_inner_bytes() {
  return F::kRootSlots / 8;
}

// Gives back every block the table holds (an array not yet taken is null)
// and the record itself.
template <class F>
void destruct(typename F::Fib *f) {
  if (!f) return;
  void *ctx = f->sz_ctx;
  if (f->root) trie::give<F>(ctx, f->root, root_bytes<F>());
  if (f->root_inner) trie::give<F>(ctx, f->root_inner, root_inner_bytes<F>());
  if (f->pool) trie::give<F>(ctx, f->pool, f->pool_words * 4u);
  trie::give<F>(ctx, f, sizeof(typename F::Fib));
}

template <class F>
uint32_t memory_usage(const typename F::Fib *f) {
  if (!f) return 0;
  return static_cast<uint32_t>(sizeof(typename F::Fib)) + root_bytes<F>() +
         root_inner_bytes<F>() + f->pool_words * 4u;
}

template <class F>
typename F::Fib *construct(void *ctx, const typename F::Trie *trie,
                           uint32_t miss) {
  using Fib = typename F::Fib;
  using Item = Prefix<F::kWords>;
  if (!trie) {
    VDS_DIAG_AT(kFailure, F, "%s: trie is 0!\n", F::kConstruct);
    return nullptr;
  }
  auto *f = static_cast<Fib *>(take_array<F>(ctx, 1, sizeof(Fib)));
  if (!f) return nullptr;
  memset(static_cast<void *>(f), 0, sizeof(Fib));
  f->sz_ctx = ctx;
  f->miss = miss;
  f->root = static_cast<uint32_t *>(take_array<F>(ctx, root_bytes<F>(), 1));
  if (f->root)
    f->root_inner =
        static_cast<uint32_t *>(take_array<F>(ctx, root_inner_bytes<F>(), 1));
  if (!f->root_inner) {
    destruct<F>(f);
    return nullptr;
  }

  const uint32_t n = count_prefixes<F>(trie);
  Item *items = nullptr;
  if (n) {
    items = static_cast<Item *>(take_array<F>(ctx, n, sizeof(Item)));
    if (!items) {
      destruct<F>(f);
      return nullptr;
    }
    list_prefixes<F>(trie, items);
  }

  bool complete = Compiler<F>(items, n, f).run();
  if (items) trie::give<F>(ctx, items, n * static_cast<uint32_t>(sizeof(Item)));
  if (!complete) {
    destruct<F>(f);
    return nullptr;
  }
  return f;
}

}  // namespace vds::fib

// The value nodes of the current pool, found by their answer: a root slot
// whose answer has kNode set points at a node whose children all answer it,
// and every slot with that answer shares one. Value nodes are never listed
// as unlinked (garbage.h): they stay until the pool is compacted, so a
// publish adds at most one per new answer, never one per slot. Remembering
// one is best effort: without memory for the map a fresh node is written.
#pragma once

#include <stdint.h>
#include <string.h>

#include "live/state.h"
#include "trie/blocks.h"

namespace vds::live {

// The position of the value node answering `value`, 0 when none is known.
template <class F>
uint32_t value_node(const State<Family<F>> &s, uint32_t value) {
  if (!s.values_cap) return 0;
  for (uint32_t i = value * 2654435761u & (s.values_cap - 1);;
       i = (i + 1) & (s.values_cap - 1)) {
    if (!s.values[2 * i + 1]) return 0;
    if (s.values[2 * i] == value) return s.values[2 * i + 1];
  }
}

template <class F>
void remember_value_node(State<Family<F>> &s, uint32_t value, uint32_t at) {
  if (2 * (s.n_values + 1) > s.values_cap) {
    const uint32_t cap = s.values_cap ? 2 * s.values_cap : 64;
    auto *grown = static_cast<uint32_t *>(trie::take<F>(s.sz_ctx, cap * 8u));
    if (!grown) return;
    memset(grown, 0, cap * 8u);
    uint32_t *old = s.values;
    const uint32_t old_cap = s.values_cap;
    s.values = grown;
    s.values_cap = cap;
    s.n_values = 0;
    for (uint32_t i = 0; i < old_cap; ++i)
      if (old[2 * i + 1]) remember_value_node<F>(s, old[2 * i], old[2 * i + 1]);
    if (old) trie::give<F>(s.sz_ctx, old, old_cap * 8u);
  }
  uint32_t i = value * 2654435761u & (s.values_cap - 1);
  while (s.values[2 * i + 1]) i = (i + 1) & (s.values_cap - 1);
  s.values[2 * i] = value;
  s.values[2 * i + 1] = at;
  ++s.n_values;
}

// Forgets every value node: the pool they were in is retired, or words
// they were written in are no longer the pool's.
template <class F>
void forget_value_nodes(State<Family<F>> &s) {
  if (s.values) memset(s.values, 0, s.values_cap * 8u);
  s.n_values = 0;
}

// Whether the node at `at` may be a shared value node: one run, no node
// child, and its answer the one it inherits. A compiled node of that shape
// answers the same as a value node would; it is then kept like one.
inline bool value_shaped(const uint32_t *pool, uint32_t at) {
  const uint32_t *n = pool + at;
  return fib::inner(n) == 0 && fib::runs(n) == 1 &&
         n[fib::kHeaderWords] == n[-1];
}

}  // namespace vds::live

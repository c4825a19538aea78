// The words of the current pool that publishes unlinked: listed with the
// stamp of the publish that unlinked them, then, once every reader has
// reached that stamp, put on the free lists the pool takes blocks from.
// Listing never fails the publish: a block that cannot be listed (no
// memory to grow the list) is only lost to reuse until the table is next
// compacted into a new pool.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

#include "diag.h"
#include "fib/blocks.h"
#include "fib/table.h"
#include "live/pool.h"
#include "live/readers.h"
#include "live/state.h"
#include "live/values.h"
#include "trie/blocks.h"

namespace vds::live {

// Words of the node at pool position at, its inherited answer included.
inline uint32_t node_words(const uint32_t *pool, uint32_t at) {
  const uint32_t *n = pool + at;
  return kLeadWords + fib::kHeaderWords +
         static_cast<uint32_t>(std::popcount(fib::runs(n)) +
                               std::popcount(fib::inner(n)));
}

// Lists the node at `at` as unlinked by the publish under way (stamped when
// it commits).
// Value nodes, shared, are never listed.
template <class F>
void unlink_node(State<Family<F>> &s, const Version *v, uint32_t at) {
  if (value_shaped(v->pool, at)) return;
  if (s.n_garbage == s.garbage_cap &&
      !fib::grow_array<F>(s.sz_ctx, s.garbage, s.garbage_cap, s.n_garbage, 256,
                          nullptr)) {
    VDS_DIAG_AT(
        kTrace, F,
        "%s: sc_kmalloc(%u) failed, unlinked nodes wait for the next "
        "compaction\n",
        F::kOps.publish,
        (s.garbage_cap ? 2 * s.garbage_cap : 256) * uint32_t{sizeof(Garbage)});
    return;
  }
  s.garbage[s.n_garbage++] =
      Garbage{at - kLeadWords, node_words(v->pool, at), 0};
}

// Lists the node at `at` and every node below it.
template <class F>
void unlink_tree(State<Family<F>> &s, const Version *v, uint32_t at) {
  unlink_node<F>(s, v, at);
  const uint32_t *n = v->pool + at;
  const uint64_t inner = fib::inner(n), runs = fib::runs(n);
  uint32_t child = at + fib::kHeaderWords + std::popcount(runs);
  for (uint64_t b = inner; b; b &= b - 1)
    unlink_tree<F>(s, v, v->pool[child++]);
}

// Stamps the entries listed since `from`, for a publish that has just
// unlinked them.
template <class F>
void stamp_garbage(State<Family<F>> &s, uint32_t from, uint32_t stamp) {
  for (uint32_t i = from; i < s.n_garbage; ++i) s.garbage[i].stamp = stamp;
}

// Moves the entries every reader has passed onto the free lists, and the
// rest to the list's front once they are fewer than those moved.
template <class F>
void free_garbage(State<Family<F>> &s, Version *v, uint32_t oldest) {
  for (; s.garbage_first < s.n_garbage &&
         reached(oldest, s.garbage[s.garbage_first].stamp);
       ++s.garbage_first) {
    const Garbage &g = s.garbage[s.garbage_first];
    v->pool[g.at] = s.free_blocks[g.words];
    s.free_blocks[g.words] = g.at;
  }
  const uint32_t waiting = s.n_garbage - s.garbage_first;
  if (waiting < s.garbage_first) {
    memmove(s.garbage, s.garbage + s.garbage_first, waiting * sizeof(Garbage));
    s.garbage_first = 0;
    s.n_garbage = waiting;
  }
}

// Forgets every entry and free block: the pool they were in is retired.
template <class F>
void forget_garbage(State<Family<F>> &s) {
  s.garbage_first = s.n_garbage = 0;
  memset(s.free_blocks, 0, sizeof s.free_blocks);
}

}  // namespace vds::live

// One published version of a live table: what readers see. It is a
// compiled table (fib/table.h) whose root holds one word per slot, read
// and replaced atomically, so a reader can never see half of a change: a
// word with kNode set holds a node's pool position in its other bits,
// any other word is the answer itself. An answer with kNode set is kept in
// a node whose children all answer it (a value node, values.h).
//
// Nodes are never changed while a reader may reach them: a publish writes
// new nodes into free pool words and then replaces root words; the nodes
// it unlinked are reused only once every reader has passed that publish
// (garbage.h).
#pragma once

#include <stdint.h>

#include "fib/lookup.h"

namespace vds::live {

constexpr uint32_t kNode = 0x80000000u;

// The root's kRootSlots words follow the record in its block, so a lookup
// reaches a root word one load after the version's address.
struct Version {
  uint32_t *pool;       // the nodes, each after its inherited answer
  uint32_t pool_words;  // the pool's size
  uint32_t used;        // words written (the writer's)
  uint32_t retired_at;  // epoch of its retirement
  Version *next_retired;

  // Read and replaced atomically once published.
  uint32_t *root() { return reinterpret_cast<uint32_t *>(this + 1); }
  const uint32_t *root() const {
    return reinterpret_cast<const uint32_t *>(this + 1);
  }
};

// A live root slot as fib::lookup reads one. acquire: the nodes a word
// leads to were written before the release store that published it.
struct LiveRoot {
  const uint32_t *root;
  [[gnu::always_inline]] bool operator()(uint32_t slot, uint32_t &word) const {
    uint32_t w = __atomic_load_n(root + slot, __ATOMIC_ACQUIRE);
    word = w & ~kNode;
    return w & kNode;
  }
};

template <class F>
[[gnu::always_inline]] inline uint32_t lookup(const Version *v,
                                              const uint32_t *k) {
  return fib::lookup<F>(LiveRoot{v->root()}, v->pool, k);
}

template <class F>
[[gnu::always_inline]] inline void lookup_bulk(const Version *v,
                                               const uint32_t *keys,
                                               uint32_t *data, uint32_t n) {
  fib::lookup_bulk<F>(LiveRoot{v->root()}, v->pool, v->root(), keys, data, n);
}

}  // namespace vds::live

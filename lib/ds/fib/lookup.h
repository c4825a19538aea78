// Lookups in a compiled table: the root slot, then one node per kStride
// key bits until a leaf. Each step is a load, a population count and a
// test; nothing allocates or recurses.
#pragma once

#include <stdint.h>

#include <bit>

#include "fib/table.h"
#include "prefetch.h"

namespace vds::fib {

// The pool word of child c of a node: its answer when `leaf`, else its
// node's position.
inline uint32_t child_word(const uint32_t *node, uint64_t runs, uint64_t inner,
                           uint32_t c, bool leaf) {
  uint64_t upto = (uint64_t{2} << c) - 1;
  uint32_t at = leaf ? std::popcount(runs & upto) - 1
                     : std::popcount(runs) + std::popcount(inner & (upto >> 1));
  return node[kHeaderWords + at];
}

// The answer under a root slot that holds node position `word`: one node
// per kStride key bits from the root's end until a leaf.
template <class F>
[[gnu::always_inline]] inline uint32_t walk(const uint32_t *pool, uint32_t word,
                                            const uint32_t *k) {
  for (uint32_t p = F::kRootBits;; p += kStride) {
    const uint32_t *node = pool + word;
    uint32_t c = stride_bits<F::kWords>(k, p);
    uint64_t in = inner(node);
    bool leaf = !(in >> c & 1);
    word = child_word(node, runs(node), in, c, leaf);
    if (leaf) return word;
  }
}

// A frozen table's root slot: its word, and whether that is a node's
// position (else the answer).
struct FrozenRoot {
  const Table *t;
  [[gnu::always_inline]] bool operator()(uint32_t slot, uint32_t &word) const {
    word = t->root[slot];
    return t->root_inner[slot >> 5] >> (slot & 31) & 1;
  }
};

// k: the key's words, most significant first, followed by a 0 word. Root
// reads a root slot as FrozenRoot does.
template <class F, class Root>
[[gnu::always_inline]] inline uint32_t lookup(const Root &root,
                                              const uint32_t *pool,
                                              const uint32_t *k) {
  uint32_t word;
  if (!root(k[0] >> (32 - F::kRootBits), word)) return word;
  return walk<F>(pool, word, k);
}

template <class F>
[[gnu::always_inline]] inline uint32_t lookup(const Table *t,
                                              const uint32_t *k) {
  return lookup<F>(FrozenRoot{t}, t->pool, k);
}

// Lookups of n keys (kWords words each) in groups that descend level by
// level together, each level's loads prefetched by the level before, so a
// group's cache misses overlap. The group sizes (kGroup) were chosen by
// measurement on real tables, against larger and smaller groups, a
// branch-free variant and a software pipeline around the single lookup.
template <class F, class Root>
[[gnu::always_inline]] inline void lookup_bulk(const Root &root,
                                               const uint32_t *pool,
                                               const uint32_t *root_words,
                                               const uint32_t *keys,
                                               uint32_t *data, uint32_t n) {
  constexpr uint32_t W = F::kWords, kGroup = W == 1 ? 16 : 32;
  uint32_t k[kGroup][W + 1];
  uint32_t at[kGroup];
  uint32_t walking[kGroup];
  for (uint32_t base = 0; base < n; base += kGroup) {
    const uint32_t m = n - base < kGroup ? n - base : kGroup;
    for (uint32_t j = 0; j < m; ++j) {
      for (uint32_t w = 0; w < W; ++w) k[j][w] = keys[(base + j) * W + w];
      k[j][W] = 0;
      prefetch(root_words + (k[j][0] >> (32 - F::kRootBits)));
    }
    uint32_t live = 0;
    for (uint32_t j = 0; j < m; ++j) {
      uint32_t word;
      if (root(k[j][0] >> (32 - F::kRootBits), word)) {
        at[j] = word;
        prefetch(pool + word);
        walking[live++] = j;
      } else {
        data[base + j] = word;
      }
    }
    for (uint32_t p = F::kRootBits; live; p += kStride) {
      uint32_t still = 0;
      for (uint32_t i = 0; i < live; ++i) {
        uint32_t j = walking[i];
        const uint32_t *node = pool + at[j];
        uint32_t c = stride_bits<W>(k[j], p);
        uint64_t in = inner(node);
        bool leaf = !(in >> c & 1);
        uint32_t word = child_word(node, runs(node), in, c, leaf);
        if (leaf) {
          data[base + j] = word;
        } else {
          at[j] = word;
          prefetch(pool + word);
          walking[still++] = j;
        }
      }
      live = still;
    }
  }
}

template <class F>
[[gnu::always_inline]] inline void lookup_bulk(const Table *t,
                                               const uint32_t *keys,
                                               uint32_t *data, uint32_t n) {
  lookup_bulk<F>(FrozenRoot{t}, t->pool, t->root, keys, data, n);
}

}  // namespace vds::fib

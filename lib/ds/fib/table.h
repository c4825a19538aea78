// The compiled forwarding table: a read-only multibit trie laid out for
// lookups alone, compiled from a finished trie.
//
// A key's top kRootBits bits index the root array directly. A root slot
// holds the answer itself, or (where its bit in root_inner is set) the
// position of a node in the word pool. A node consumes the next kStride
// key bits and has 2^kStride children, each an answer (a leaf) or another
// node. It is a run of pool words:
//
//   word 0-1   runs   bit c set: leaf child c starts a run: its answer
//                     differs from its left neighbour's, or that neighbour
//                     is a node (equal neighbouring leaves are stored once)
//   word 2-3   inner  bit c set: child c is a node
//   word 4...  one answer per run, in child order, then one pool position
//              per inner child, in child order
//
// So a child is found with a population count over the bits at or below
// it, and its word usually lies in the cache line the bitmaps came from: a
// level costs one cache line. Key bits past the end of the address read as
// 0, so the last level of a width that is not a multiple of the stride uses
// only its first children.
#pragma once

#include <stdint.h>
#include <string.h>

namespace vds::fib {

constexpr uint32_t kStride = 6;
constexpr uint32_t kChildren = 1u << kStride;
constexpr uint32_t kHeaderWords = 4;

// Everything a lookup reads; the blocks are owned by the table.
struct Table {
  uint32_t *root;        // 2^kRootBits answers or node positions
  uint32_t *root_inner;  // 2^kRootBits bits: the slot holds a node position
  uint32_t *pool;        // the nodes
  uint32_t pool_words;
  uint32_t miss;
  void *sz_ctx;
};

// The shape of a table over the address layout L of a trie family
// (trie/ipv4.h, trie/ipv6.h): L's words and width, plus the root's width.
template <class L, uint32_t RootBits>
struct Shape : L {
  static constexpr uint32_t kRootBits = RootBits;
  static constexpr uint32_t kRootSlots = 1u << RootBits;
  static_assert(RootBits >= 5 && RootBits < 32);
};

// kStride key bits at position p (bit 0 the top bit of word 0); bits past
// the address's end read as 0. k holds the key's words followed by a 0.
template <uint32_t W>
inline uint32_t stride_bits(const uint32_t *k, uint32_t p) {
  if constexpr (W == 1) {
    return static_cast<uint32_t>((uint64_t{k[0]} << (32 + p)) >>
                                 (64 - kStride));
  } else {
    uint32_t w = p >> 5;
    uint64_t two = uint64_t{k[w]} << 32 | k[w + 1];
    return static_cast<uint32_t>((two << (p & 31)) >> (64 - kStride));
  }
}

inline uint64_t bitmap(const uint32_t *node, uint32_t word) {
  uint64_t b;
  memcpy(&b, node + word, sizeof b);
  return b;
}
inline uint64_t runs(const uint32_t *node) { return bitmap(node, 0); }
inline uint64_t inner(const uint32_t *node) { return bitmap(node, 2); }

}  // namespace vds::fib

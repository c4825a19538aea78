// The compiled forwarding table: a read-only multibit trie laid out for
// lookups alone, compiled from a finished trie.
//
// A key's top kRootBits bits index the root array directly. A root slot
// holds the answer itself, or (where its bit in root_inner is set) the
// index of a node. A node consumes the next kStride bits of the key and has
// 2^kStride children, each either another node or a leaf (an answer):
//
//   inner  bit c set: child c is a node, the k-th inner child counted from
//          bit 0, at nodes[child_base + k] (child_base is stored minus 1,
//          so the count includes child c itself)
//   runs   bit c set: leaf child c starts a run, i.e. its answer differs
//          from the previous leaf child's; equal neighbouring leaves share
//          one word in leaves, at leaves[leaf_base + runs counted up to c]
//
// So a child is found with one population count over the bits at or below
// it. Key bits past the end of the address read as 0, so the last level of
// a width that is not a multiple of the stride uses only its first children.
#pragma once

#include <stdint.h>

namespace vds::fib {

constexpr uint32_t kStride = 6;
constexpr uint32_t kChildren = 1u << kStride;

struct Node {
  uint64_t inner;
  uint64_t runs;
  uint32_t child_base;  // index of the first inner child, minus 1
  uint32_t leaf_base;   // index of the first run's answer, minus 1
};

// Everything a lookup reads; the blocks are owned by the table.
struct Table {
  uint32_t *root;        // 2^kRootBits answers or node indexes
  uint32_t *root_inner;  // 2^kRootBits bits: the slot holds a node index
  Node *nodes;
  uint32_t n_nodes;
  uint32_t *leaves;
  uint32_t n_leaves;
  uint32_t miss;
  void *sz_ctx;
};

// The shape of a table over the address layout L of a trie family
// (trie/ipv4.h, trie/ipv6.h): L's words and width, plus the root's width.
template <class L, uint32_t RootBits>
struct Shape : L {
  static constexpr uint32_t kRootBits = RootBits;
  static constexpr uint32_t kRootSlots = 1u << RootBits;
  static_assert(RootBits >= 1 && RootBits < 32);
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

// Children at or below c: the mask a population count is taken over.
inline uint64_t upto(uint32_t c) { return (uint64_t{2} << c) - 1; }

}  // namespace vds::fib

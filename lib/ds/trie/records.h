// What both trie families share about their records: the same field names
// in the same roles, so one engine reads and writes either.
#pragma once

#include <stdint.h>

#include <bit>

#include "trie/bits.h"

namespace vds::trie {

// A node is one 32-bit word, decoded from one load; the records' bit-fields
// have this layout on the target (the trie tests check the two agree):
//
//          31                  10 9       5 4        0
//   IPv4  [ index (22 bits)       | skip (5) | branch (5) ]
//          31                 11 10       4 3        0
//   IPv6  [ index (21 bits)      | skip (7) | branch (4) ]
//
// branch: the number of address bits the node consumes; 0 marks a leaf.
// index:  an internal node's children are the 2^branch words from index
//         on, the child for slot v at index + v (child() below); a leaf's
//         index is its entry's position.
// skip:   address bits passed over before this node's branch bits (on a
//         leaf, the entry's remaining length kept to the field's width).
template <class TrieT, class EntryT, class PrefixT, class NodeT, class IterT,
          class ItemT, uint32_t Words, uint32_t BranchBits, uint32_t SkipBits>
struct Records {
  static constexpr uint32_t kWords = Words;  // address words
  static constexpr uint32_t kBits = 32 * Words;
  using Trie = TrieT;
  using Entry = EntryT;
  using Prefix = PrefixT;
  using Node = NodeT;
  using Iter = IterT;
  using Item = ItemT;

  // Each field from a node or from its word (the bulk lookups keep words).
  static uint32_t word(Node n) { return std::bit_cast<uint32_t>(n); }
  static uint32_t branch(uint32_t w) { return w & ((1u << BranchBits) - 1); }
  static uint32_t skip(uint32_t w) {
    return w >> BranchBits & ((1u << SkipBits) - 1);
  }
  static uint32_t index(uint32_t w) { return w >> (BranchBits + SkipBits); }
  static uint32_t branch(Node n) { return branch(word(n)); }
  static uint32_t skip(Node n) { return skip(word(n)); }
  static uint32_t index(Node n) { return index(word(n)); }
  static bool leaf(uint32_t w) { return branch(w) == 0; }
  // Position in the node array of the child a key chooses at a node whose
  // branch bits start at address position pos; b is the node's branch,
  // which every walk has read already to test for a leaf. On a leaf (b 0)
  // it is the leaf's own index, and nothing is read outside the key.
  static uint32_t child(uint32_t w, uint32_t b, const uint32_t *key,
                        uint32_t pos) {
    return index(w) + key_bits<Words>(key, pos, b);
  }
  static uint32_t child(Node n, uint32_t b, const uint32_t *key, uint32_t pos) {
    return child(word(n), b, key, pos);
  }
  // Values wider than a field keep their low bits (a leaf's skip is the
  // entry's remaining length kept to the field's width).
  static Node make_node(uint32_t branch, uint32_t skip, uint32_t index) {
    Node n;
    n.branch = branch;
    n.skip = skip;
    n.index = index;
    return n;
  }
};

}  // namespace vds::trie

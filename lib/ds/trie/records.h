// What both trie families share about their records: the same field names
// in the same roles, so one engine reads and writes either.
#pragma once

#include <stdint.h>

#include <bit>

namespace vds::trie {

// Node words are decoded from one 32-bit load: branch in the low bits, then
// skip, then index, the layout the records' bit-fields have on the target
// (the trie tests check the two agree).
template <class TrieT, class EntryT, class PrefixT, class NodeT, class IterT,
          class ItemT, uint32_t BranchBits, uint32_t SkipBits>
struct Records {
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

// What both trie families share about their records: the same field names
// in the same roles, so one engine reads and writes either.
#pragma once

#include <stdint.h>

namespace vds::trie {

template <class TrieT, class EntryT, class PrefixT, class NodeT, class IterT,
          class ItemT>
struct Records {
  using Trie = TrieT;
  using Entry = EntryT;
  using Prefix = PrefixT;
  using Node = NodeT;
  using Iter = IterT;
  using Item = ItemT;

  static uint32_t branch(Node n) { return n.branch; }
  static uint32_t skip(Node n) { return n.skip; }
  static uint32_t index(Node n) { return n.index; }
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

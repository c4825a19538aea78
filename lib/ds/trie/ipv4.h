// Record layout of the IPv4 trie: one 32-bit address word, node words with
// 5-bit branch, 5-bit skip and 22-bit index fields.
#pragma once

#include <stdint.h>

#include "sc_btrie.h"

namespace vds::trie {

struct Ipv4 {
  using Trie = sc_btrie;
  using Entry = sc_btrie_entry;
  using Prefix = sc_btrie_prefix;
  using Node = sc_btrie_node;
  using Iter = sc_btrie_iter;
  using Item = sc_btrie_item;
  using DataDestructor = sc_btrie_data_destructor;

  static constexpr uint32_t kWords = 1;
  static constexpr uint32_t kBits = 32;
  static constexpr uint32_t kNone = SC_BTRIE_NO_PREFIX;
  // Positions in the node array must stay below this (22-bit index).
  static constexpr uint32_t kIndexLimit = 1u << 22;
  static constexpr uint32_t kMaxEntries = 0x200000;
  static constexpr uint32_t kMaxBranch = 31;  // width of the branch field
  // Widest node the build chooses below the root (the root may be forced
  // wider by root_branch).
  static constexpr uint32_t kMaxChosenBranch = 31;
  static constexpr uint32_t kSkipMask = 31;
  static constexpr uint32_t kLenMask = 63;

  static const uint32_t *addr(const Entry &e) { return &e.addr; }
  static uint32_t *addr(Entry &e) { return &e.addr; }
  static uint32_t *addr(Item &i) { return &i.addr; }

  static uint32_t branch(Node n) { return n.branch; }
  static uint32_t skip(Node n) { return n.skip; }
  static uint32_t index(Node n) { return n.index; }
  static Node make_node(uint32_t branch, uint32_t skip, uint32_t index) {
    Node n;
    n.branch = branch & kMaxBranch;
    n.skip = skip & kSkipMask;
    n.index = index;
    return n;
  }
};

}  // namespace vds::trie

// Record layout of the IPv6 trie: four 32-bit address words, node words with
// 4-bit branch, 7-bit skip and 21-bit index fields.
#pragma once

#include <stdint.h>

#include "sc_btrie6.h"

namespace vds::trie {

struct Ipv6 {
  using Trie = sc_btrie6;
  using Entry = sc_btrie6_entry;
  using Prefix = sc_btrie6_prefix;
  using Node = sc_btrie6_node;
  using Iter = sc_btrie6_iter;
  using Item = sc_btrie6_item;
  using DataDestructor = sc_btrie6_data_destructor;

  static constexpr uint32_t kWords = 4;
  static constexpr uint32_t kBits = 128;
  static constexpr uint32_t kNone = SC_BTRIE6_NO_PREFIX;
  // Positions in the node array must stay below this (21-bit index).
  static constexpr uint32_t kIndexLimit = 1u << 21;
  static constexpr uint32_t kMaxEntries = 0x100000;
  static constexpr uint32_t kMaxBranch = 15;  // width of the branch field
  // Widest node the build chooses below the root (the root may be forced
  // wider by root_branch): narrow nodes keep IPv6 tries shallow in memory.
  static constexpr uint32_t kMaxChosenBranch = 4;
  static constexpr uint32_t kSkipMask = 127;
  static constexpr uint32_t kLenMask = 255;

  static const uint32_t *addr(const Entry &e) { return e.addr; }
  static uint32_t *addr(Entry &e) { return e.addr; }
  static uint32_t *addr(Item &i) { return i.addr; }

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

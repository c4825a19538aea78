// Record layout of the IPv4 trie: one 32-bit address word, node words with
// 5-bit branch, 5-bit skip and 22-bit index fields.
#pragma once

#include <stdint.h>

#include "sc_btrie.h"
#include "trie/records.h"

namespace vds::trie {

struct Ipv4 : Records<sc_btrie, sc_btrie_entry, sc_btrie_prefix, sc_btrie_node,
                      sc_btrie_iter, sc_btrie_item, 1, 5, 5> {
  static constexpr uint32_t kNone = SC_BTRIE_NO_PREFIX;
  // Positions in the node array must stay below this (22-bit index).
  static constexpr uint32_t kIndexLimit = 1u << 22;
  static constexpr uint32_t kMaxEntries = SC_BTRIE_MAX_ENTRIES;
  static constexpr uint32_t kMaxBranch = SC_BTRIE_MAX_ROOT_BRANCH;
  // Widest node the build chooses below the root (the root may be forced
  // wider by root_branch).
  static constexpr uint32_t kMaxChosenBranch = 31;

  static const uint32_t *addr(const Entry &e) { return &e.addr; }
  static uint32_t *addr(Entry &e) { return &e.addr; }
  static uint32_t *addr(Item &i) { return &i.addr; }
};

}  // namespace vds::trie

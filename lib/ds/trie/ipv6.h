// Record layout of the IPv6 trie: four 32-bit address words, node words with
// 4-bit branch, 7-bit skip and 21-bit index fields.
#pragma once

#include <stdint.h>

#include "sc_btrie6.h"
#include "trie/records.h"

namespace vds::trie {

struct Ipv6 : Records<sc_btrie6, sc_btrie6_entry, sc_btrie6_prefix,
                      sc_btrie6_node, sc_btrie6_iter, sc_btrie6_item, 4, 4, 7> {
  static constexpr uint32_t kNone = SC_BTRIE6_NO_PREFIX;
  // Positions in the node array must stay below this (21-bit index).
  static constexpr uint32_t kIndexLimit = 1u << 21;
  static constexpr uint32_t kMaxEntries = SC_BTRIE6_MAX_ENTRIES;
  static constexpr uint32_t kMaxBranch = SC_BTRIE6_MAX_ROOT_BRANCH;
  // Widest node the build chooses below the root (the root may be forced
  // wider by root_branch): IPv6 tables are sparse, and narrow nodes keep
  // their empty slots few.
  static constexpr uint32_t kMaxChosenBranch = 4;

  static const uint32_t *addr(const Entry &e) { return e.addr; }
  static uint32_t *addr(Entry &e) { return e.addr; }
  static uint32_t *addr(Item &i) { return i.addr; }
};

}  // namespace vds::trie

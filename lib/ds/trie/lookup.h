// The longest-prefix-match walk. The bulk lookups take their own steps
// down the nodes; they share with the single lookup the node decoding
// (Records::child and leaf) and walk_resolve.
//
// A key is passed as its address words, most significant first (one word
// for IPv4, four for IPv6). The walk allocates nothing and does not
// recurse: per level it takes the child the key chooses (Records::child)
// and loads that child's node word.
#pragma once

#include <stdint.h>

#include "trie/bits.h"
#include "trie/family.h"

namespace vds::trie {

// Result at the leaf reached: the leaf entry's data when it covers the key,
// else the data of the first (longest) prefix of its chain that does, else
// 0. Prefix records hold no address; each is tested against the entry's.
template <class L>
inline uint32_t walk_resolve(const typename L::Trie *t, const uint32_t *key,
                             typename L::Node leaf) {
  const typename L::Entry &e = t->entries[L::index(leaf)];
  const uint32_t *addr = L::addr(e);
  if (same_prefix<L::kWords>(addr, key, e.len)) return e.data;
  for (uint32_t q = e.prefix; q != L::kNone;) {
    const typename L::Prefix &p = t->prefixes[q];
    if (same_prefix<L::kWords>(addr, key, p.len)) return p.data;
    q = p.prefix;
  }
  return 0;
}

// 0 for a trie built from no entries.
template <Layout L>
inline uint32_t lpmatch(const typename L::Trie *t, const uint32_t *key) {
  if (!t->nodes) return 0;
  typename L::Node n = t->nodes[0];
  uint32_t pos = L::skip(n);
  // A leaf is a node of branch 0 (Records::leaf); the loop tests the
  // branch it goes on to use, which leaf() apart would decode again.
  while (uint32_t b = L::branch(n)) {
    n = t->nodes[L::child(n, b, key, pos)];
    pos += b + L::skip(n);
  }
  return walk_resolve<L>(t, key, n);
}

}  // namespace vds::trie

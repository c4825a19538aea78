// The longest-prefix-match walk, shared by the single and the bulk lookups.
//
// This is a stable internal interface: the bulk lookups interleave several
// walks by calling walk_begin / walk_internal / walk_step / walk_resolve
// directly, so keep these signatures and their meaning unchanged.
//
// A key is passed as its address words, most significant first (one word
// for IPv4, four for IPv6). The walk allocates nothing and does not
// recurse: per level it reads the branch bits from one key word (one shift
// pair), adds them to the node's index and loads the child's node word.
#pragma once

#include <stdint.h>

#include "trie/bits.h"

namespace vds::trie {

// A walk in progress: the node word reached and the address position of its
// branch bits (its skip already passed over).
template <class L>
struct Cursor {
  typename L::Node node;
  uint32_t pos;
};

// Starts a walk at the root. False for a trie built from no entries, whose
// lookups all yield 0.
template <class L>
inline bool walk_begin(const typename L::Trie *t, Cursor<L> &c) {
  if (!t->nodes) return false;
  c.node = t->nodes[0];
  c.pos = L::skip(c.node);
  return true;
}

// Whether the cursor still stands on an internal node.
template <class L>
inline bool walk_internal(const Cursor<L> &c) {
  return L::branch(c.node) != 0;
}

// Position in the node array of the child that key selects at an internal
// node (useful to prefetch before walk_step).
template <class L>
inline uint32_t walk_child(const Cursor<L> &c, const uint32_t *key) {
  uint32_t word = L::kWords == 1 ? key[0] : key[c.pos >> 5];
  return L::index(c.node) +
         ((word << (c.pos & 31)) >> (32 - L::branch(c.node)));
}

// One level down from an internal node.
template <class L>
inline void walk_step(const typename L::Node *nodes, const uint32_t *key,
                      Cursor<L> &c) {
  uint32_t b = L::branch(c.node);
  c.node = nodes[walk_child(c, key)];
  c.pos += b + L::skip(c.node);
}

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

template <class L>
inline uint32_t lpmatch(const typename L::Trie *t, const uint32_t *key) {
  Cursor<L> c;
  if (!walk_begin(t, c)) return 0;
  while (walk_internal(c)) walk_step(t->nodes, key, c);
  return walk_resolve<L>(t, key, c.node);
}

}  // namespace vds::trie

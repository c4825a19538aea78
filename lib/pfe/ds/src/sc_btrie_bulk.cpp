// Batched longest-prefix match for both trie families. A lookup is a chain
// of dependent loads (node words, then the leaf entry and its prefix
// chain), so a single walk spends most of its time waiting for memory. Here
// a group of walks descends in lock step, one level per pass over the
// group, each pass loading the node words the previous pass prefetched, so
// the group's misses overlap. Every result is the single lookup's: the
// walks take the engine's own steps, only their order changes.
#include <string.h>

#include <bit>

#include "api.h"
#include "prefetch.h"
#include "sc_btrie.h"
#include "sc_btrie6.h"
#include "trie/ipv4.h"
#include "trie/ipv6.h"
#include "trie/lookup.h"

namespace {

using namespace vds::trie;
using vds::prefetch;

// Walks in lock step: a typical burst of keys, so that one pass issues
// enough prefetches to keep the core's misses in flight.
constexpr uint32_t kGroup = 64;

// The descent takes kLevels passes whatever the walks' depths, and no
// branch in it depends on the data: a walk that has reached its leaf keeps
// its position and reloads its own word (an L1 hit). A mispredicted branch
// per walk and level costs more than these idle steps. Walks still on an
// internal node after kLevels passes (few, for a kLevels near the usual
// depth) go on in lock step among themselves until all reach their leaves.
// Each leaf's entry is prefetched as it is reached, and a last pass
// resolves them. keys holds n keys of L::kWords words each.
template <class L, uint32_t kLevels>
void lpmatch_bulk(const typename L::Trie *t, const uint32_t *keys,
                  uint32_t *data, uint32_t n) {
  using Node = typename L::Node;
  if (!t->nodes) {
    if (n) memset(data, 0, sizeof(uint32_t) * n);
    return;
  }
  const Node *nodes = t->nodes;
  const uint32_t root = L::word(nodes[0]);
  // Per walk: the node word reached, its position in the node array, and
  // the address position of its branch bits (meaningless once on a leaf).
  uint32_t w[kGroup], at[kGroup], pos[kGroup];
  for (uint32_t base = 0; base < n; base += kGroup) {
    const uint32_t m = n - base < kGroup ? n - base : kGroup;
    const uint32_t *key = keys + base * L::kWords;
    // Chooses the child (a leaf stays put) and prefetches its word.
    auto advance = [&](uint32_t j) {
      // On a leaf the meaningless position still reads within the key.
      uint32_t b = L::branch(w[j]);
      uint32_t next = L::child(w[j], b, key + j * L::kWords, pos[j]);
      uint32_t stay = 0u - L::leaf(w[j]);  // all ones on a leaf
      at[j] = (next & ~stay) | (at[j] & stay);
      pos[j] += b;
      prefetch(&nodes[at[j]]);
    };
    auto load = [&](uint32_t j) {
      w[j] = L::word(nodes[at[j]]);
      pos[j] += L::skip(w[j]);
    };
    for (uint32_t j = 0; j < m; ++j) {
      w[j] = root;
      at[j] = 0;
      pos[j] = L::skip(root);
      advance(j);
    }
    // Up to kLevels loads in lock step; once most walks have reached their
    // leaves (keys that miss, or end in short prefixes), idle steps would
    // cost more than they save, and the rest go on among themselves.
    for (uint32_t l = 1;; ++l) {
      uint32_t internal = 0;
      for (uint32_t j = 0; j < m; ++j) {
        load(j);
        internal += !L::leaf(w[j]);
      }
      if (l == kLevels || 2 * internal < m) break;
      for (uint32_t j = 0; j < m; ++j) advance(j);
    }
    // An internal node's index names no entry: entry 0 stands in for it.
    auto prefetch_entry = [&](uint32_t j, uint32_t internal) {
      prefetch(&t->entries[L::index(w[j]) & (internal - 1u)]);
    };
    // Walks still on an internal node go on in lock step among themselves,
    // listed without a branch; the others' entries are prefetched.
    uint32_t deep[kGroup], n_deep = 0;
    for (uint32_t j = 0; j < m; ++j) {
      uint32_t internal = !L::leaf(w[j]);
      deep[n_deep] = j;
      n_deep += internal;
      prefetch_entry(j, internal);
    }
    while (n_deep) {
      for (uint32_t i = 0; i < n_deep; ++i) advance(deep[i]);
      uint32_t still = 0;
      for (uint32_t i = 0; i < n_deep; ++i) {
        uint32_t j = deep[i];
        load(j);
        uint32_t internal = !L::leaf(w[j]);
        deep[still] = j;
        still += internal;
        prefetch_entry(j, internal);
      }
      n_deep = still;
    }
    for (uint32_t j = 0; j < m; ++j)
      data[base + j] =
          walk_resolve<L>(t, key + j * L::kWords, std::bit_cast<Node>(w[j]));
  }
}

}  // namespace

// Levels: about the usual depth of a lookup below a 2^16-slot IPv4 root (3
// covers nearly all keys of a global table), and of an IPv6 lookup inside
// its table's prefixes, whose nodes branch on at most 4 bits (8).
VDS_API void sc_btrie_lpmatch_bulk(const sc_btrie *trie, const uint32_t *keys,
                                   uint32_t *data, uint32_t n) {
  lpmatch_bulk<Ipv4, 3>(trie, keys, data, n);
}

VDS_API void sc_btrie6_lpmatch_bulk(const sc_btrie6 *trie,
                                    const uint32_t (*keys)[4], uint32_t *data,
                                    uint32_t n) {
  lpmatch_bulk<Ipv6, 8>(trie, keys ? keys[0] : nullptr, data, n);
}

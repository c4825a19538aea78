// Batched longest-prefix match for both trie families. A lookup is a chain
// of dependent loads (node words, then the leaf entry and its prefix
// chain), so a single walk spends most of its time waiting for memory. Here
// a group of walks advances one level at a time, each issuing the prefetch
// of its next node word before the others take their step, so the misses of
// the whole group overlap. Every result is the single lookup's: the walks
// are the engine's own steps, only their order changes.
#include <string.h>

#include "api.h"
#include "sc_btrie.h"
#include "sc_btrie6.h"
#include "trie/ipv4.h"
#include "trie/ipv6.h"
#include "trie/lookup.h"

namespace {

using namespace vds::trie;

// Walks in flight at once: enough to cover a memory miss with the other
// walks' steps, few enough that the cursors stay in registers and L1.
constexpr uint32_t kGroup = 16;

inline void prefetch(const void *p) { __builtin_prefetch(p, 0, 3); }

// keys holds n keys of L::kWords words each.
template <class L>
void lpmatch_bulk(const typename L::Trie *t, const uint32_t *keys,
                  uint32_t *data, uint32_t n) {
  Cursor<L> root;
  if (!walk_begin(t, root)) {
    if (n) memset(data, 0, sizeof(uint32_t) * n);
    return;
  }
  const typename L::Node *nodes = t->nodes;
  for (uint32_t base = 0; base < n; base += kGroup) {
    const uint32_t m = n - base < kGroup ? n - base : kGroup;
    const uint32_t *key = keys + base * L::kWords;
    Cursor<L> c[kGroup];
    for (uint32_t j = 0; j < m; ++j) {
      c[j] = root;
      if (walk_internal(c[j]))
        prefetch(&nodes[walk_child(c[j], key + j * L::kWords)]);
    }
    // Level-synchronous descent: a walk that reached its leaf sits out.
    for (bool moving = true; moving;) {
      moving = false;
      for (uint32_t j = 0; j < m; ++j) {
        if (!walk_internal(c[j])) continue;
        const uint32_t *k = key + j * L::kWords;
        walk_step(nodes, k, c[j]);
        if (walk_internal(c[j])) {
          prefetch(&nodes[walk_child(c[j], k)]);
          moving = true;
        }
      }
    }
    for (uint32_t j = 0; j < m; ++j) prefetch(&t->entries[L::index(c[j].node)]);
    for (uint32_t j = 0; j < m; ++j)
      data[base + j] = walk_resolve<L>(t, key + j * L::kWords, c[j].node);
  }
}

}  // namespace

VDS_API void sc_btrie_lpmatch_bulk(const sc_btrie *trie, const uint32_t *keys,
                                   uint32_t *data, uint32_t n) {
  lpmatch_bulk<Ipv4>(trie, keys, data, n);
}

VDS_API void sc_btrie6_lpmatch_bulk(const sc_btrie6 *trie,
                                    const uint32_t (*keys)[4], uint32_t *data,
                                    uint32_t n) {
  lpmatch_bulk<Ipv6>(trie, keys ? keys[0] : nullptr, data, n);
}

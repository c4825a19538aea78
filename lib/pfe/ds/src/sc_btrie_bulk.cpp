// Batched longest-prefix match for both trie families. A lookup is a chain
// of dependent loads (node words, then the leaf entry and its prefix
// chain), so a single walk spends most of its time waiting for memory. Here
// several walks take turns, each prefetching its next load before the
// others take their step, so their misses overlap. Every result is the
// single lookup's: the walks are the engine's own steps, only their order
// changes.
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

template <class L>
struct Slot {
  Cursor<L> c;
  uint32_t key;  // position of the walk's key in the batch
};

// A pipeline of kGroup walks: each pass moves every walk one load further
// (a node word, or at the leaf the entry and its chain), having prefetched
// that load one pass earlier; a finished walk hands its slot to the next
// key at once, so the pipeline stays full whatever the walks' depths.
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
  // Prefetches what the walk reads next: a child node word, or its entry.
  auto prefetch_next = [&](const Cursor<L> &c, const uint32_t *k) {
    if (walk_internal(c))
      prefetch(&nodes[walk_child(c, k)]);
    else
      prefetch(&t->entries[L::index(c.node)]);
  };
  Slot<L> s[kGroup];
  uint32_t next = 0, live = 0;
  auto start = [&](Slot<L> &slot) {
    if (next == n) return false;
    slot = {root, next++};
    prefetch_next(root, keys + slot.key * L::kWords);
    return true;
  };
  while (live < kGroup && start(s[live])) ++live;
  while (live) {
    for (uint32_t j = 0; j < live;) {
      Slot<L> &slot = s[j];
      const uint32_t *k = keys + slot.key * L::kWords;
      if (walk_internal(slot.c)) {
        walk_step(nodes, k, slot.c);
        prefetch_next(slot.c, k);
        ++j;
        continue;
      }
      data[slot.key] = walk_resolve<L>(t, k, slot.c.node);
      if (start(slot))
        ++j;
      else
        slot = s[--live];  // the last walk moves here and goes next
    }
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

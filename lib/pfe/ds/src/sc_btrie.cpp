// IPv4 longest-prefix-match trie: the C interface over the shared trie
// engine, with this family's messages and dump format.
#include "sc_btrie.h"

#include "api.h"
#include "diag.h"
#include "trie/construct.h"
#include "trie/ipv4.h"
#include "trie/iter.h"
#include "trie/lookup.h"
#include "trie/report.h"
#include "trie/texts.h"

namespace {

using namespace vds::trie;

struct Btrie : Ipv4 {
  static constexpr char kModule[] = "lib/pfe/ds/src/sc_btrie";
  static constexpr Texts kText = {
      .construct = "sc_btrie_construct",
      .too_many = "sc_btrie_construct: too many entries (%d > %d)\n",
      .record_failed = "sc_btrie_construct: sc_kmalloc(1, %zd) failed\n",
      .no_entries = "sc_btrie_construct: no entries given\n",
      .entries_failed = "sc_btrie_construct: sc_kmalloc(%zd) failed",
      .prefixes_failed = "sc_btrie_construct: sc_kmalloc(%zd) failed",
      .nodes_failed = "sc_btrie_construct: sc_kmalloc(%zd) failed",
      .entries_trim_failed = "sc_btrie_construct: sc_kmalloc(%d) failed\n",
      .prefixes_trim_failed = "sc_btrie_construct: sc_kmalloc(%d) failed\n",
      .nodes_trim_failed = "sc_btrie_construct: sc_kmalloc(%d) failed\n",
  };

  static void too_many(uint32_t n) {
    VDS_DIAG(vds::kFailure, kModule, kText.too_many, static_cast<int>(n),
             static_cast<int>(kMaxEntries));
  }
  static void reject_entry(uint32_t pos, const Entry &e, const char *why) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_btrie_construct: entry %u (%08x/%u) %s\n", pos, e.addr,
             static_cast<unsigned>(e.len), why);
  }
  static void print_entry(uint32_t pos, const Entry &e) {
    sc_printf("Entry %d: %08x/%d prefix %d\n", static_cast<int>(pos), e.addr,
              static_cast<int>(e.len), static_cast<int>(e.prefix));
  }
};

}  // namespace

VDS_API sc_btrie *sc_btrie_construct(void *sz_ctx,
                                     const sc_btrie_entry *entries,
                                     uint32_t n_entries, uint32_t fill_factor,
                                     uint32_t root_branch) {
  return construct<VDS_AT(Btrie)>(sz_ctx, entries, n_entries, fill_factor,
                                  root_branch);
}

VDS_API void sc_btrie_set_data_destructor(sc_btrie *trie,
                                          sc_btrie_data_destructor destructor) {
  trie->data_destructor = destructor;
}

VDS_API void sc_btrie_destruct(sc_btrie *trie) {
  destruct<VDS_AT(Btrie)>(trie);
}

VDS_API uint32_t sc_btrie_lpmatch(const sc_btrie *trie, uint32_t key) {
  return lpmatch<Btrie>(trie, &key);
}

VDS_API sc_btrie_iter *sc_btrie_iter_construct(sc_btrie *trie) {
  return iter_construct<VDS_AT(Btrie)>(trie);
}

VDS_API int sc_btrie_iter_next(sc_btrie_iter *it, sc_btrie_item *item) {
  return iter_next<Btrie>(it, item);
}

VDS_API void sc_btrie_iter_destruct(sc_btrie_iter *it) {
  iter_destruct<VDS_AT(Btrie)>(it);
}

VDS_API uint32_t sc_btrie_memory_usage(const sc_btrie *trie) {
  return memory_usage<Btrie>(trie);
}

VDS_API void sc_btrie_print_stats(const sc_btrie *trie) {
  print_stats<Btrie>(trie);
}

VDS_API void sc_btrie_print(const sc_btrie *trie) { print<Btrie>(trie); }

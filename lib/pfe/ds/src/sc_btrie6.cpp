// IPv6 longest-prefix-match trie: the C interface over the shared trie
// engine, with this family's messages and dump format. Some messages name
// the IPv4 operation; operators' log filters expect them as they are.
#include "sc_btrie6.h"

#include "api.h"
#include "diag.h"
#include "trie/construct.h"
#include "trie/ipv6.h"
#include "trie/iter.h"
#include "trie/lookup.h"
#include "trie/report.h"
#include "trie/texts.h"

namespace {

using namespace vds::trie;

struct Btrie6 : Ipv6 {
  static constexpr char kModule[] = "lib/pfe/ds/src/sc_btrie6";
  static constexpr Texts kText = {
      .construct = "sc_btrie6_construct",
      .too_many = "sc_btrie6_construct: too many entries (%d > %d)\n",
      .record_failed = "sc_btrie6_construct: sc_kmalloc(1, %zd) failed\n",
      .no_entries = "sc_btrie6_construct: no entries given\n",
      .entries_failed = "sc_btrie6_construct: sc_kmalloc(%zd) failed",
      .prefixes_failed = "sc_btrie_construct: sc_kmalloc(%zd) failed",
      .nodes_failed = "sc_btrie_construct: sc_kmalloc(%zd) failed",
      .entries_trim_failed = "sc_btrie_construct: sc_kmalloc(%d) failed\n",
      .prefixes_trim_failed = "sc_btrie6_construct: sc_kmalloc(%d) failed\n",
      .nodes_trim_failed = "sc_btrie6_construct: sc_kmalloc(%d) failed\n",
  };

  // Printed on the console whatever the debug level.
  static void too_many(uint32_t n) {
    sc_printf(kText.too_many, static_cast<int>(n),
              static_cast<int>(kMaxEntries));
  }
  static void reject_entry(uint32_t pos, const Entry &e, const char *why) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_btrie6_construct: entry %u (%08x %08x %08x %08x/%u) %s\n", pos,
             e.addr[0], e.addr[1], e.addr[2], e.addr[3],
             static_cast<unsigned>(e.len), why);
  }
  // The address as 128 characters: its bits up to len, then dots.
  static void print_entry(uint32_t pos, const Entry &e) {
    char text[130] = {};
    for (uint32_t j = 0; j < 128; ++j)
      text[j] = j >= e.len                                ? '.'
                : (e.addr[j >> 5] >> (31 - (j & 31))) & 1 ? '1'
                                                          : '0';
    sc_printf("%d:%s/%d prfx:%d\n", static_cast<int>(pos), text,
              static_cast<int>(e.len), static_cast<int>(e.prefix));
  }
};

}  // namespace

VDS_API sc_btrie6 *sc_btrie6_construct(void *sz_ctx,
                                       const sc_btrie6_entry *entries,
                                       uint32_t n_entries, uint32_t fill_factor,
                                       uint32_t root_branch) {
  return construct<VDS_AT(Btrie6)>(sz_ctx, entries, n_entries, fill_factor,
                                   root_branch);
}

VDS_API void sc_btrie6_set_data_destructor(
    sc_btrie6 *trie, sc_btrie6_data_destructor destructor) {
  trie->data_destructor = destructor;
}

VDS_API void sc_btrie6_destruct(sc_btrie6 *trie) {
  destruct<VDS_AT(Btrie6)>(trie);
}

VDS_API uint32_t sc_btrie6_lpmatch(const sc_btrie6 *trie,
                                   const uint32_t key[4]) {
  return lpmatch<Btrie6>(trie, key);
}

VDS_API sc_btrie6_iter *sc_btrie6_iter_construct(sc_btrie6 *trie) {
  return iter_construct<VDS_AT(Btrie6)>(trie);
}

VDS_API int sc_btrie6_iter_next(sc_btrie6_iter *it, sc_btrie6_item *item) {
  return iter_next<Btrie6>(it, item);
}

VDS_API void sc_btrie6_iter_destruct(sc_btrie6_iter *it) {
  iter_destruct<VDS_AT(Btrie6)>(it);
}

VDS_API uint32_t sc_btrie6_memory_usage(const sc_btrie6 *trie) {
  return memory_usage<Btrie6>(trie);
}

VDS_API void sc_btrie6_print_stats(const sc_btrie6 *trie) {
  print_stats<Btrie6>(trie);
}

VDS_API void sc_btrie6_print(const sc_btrie6 *trie) { print<Btrie6>(trie); }

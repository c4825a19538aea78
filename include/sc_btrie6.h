/* Static longest-prefix-match trie over IPv6 prefixes, the IPv4 trie's
 * design on four-word addresses (word 0 most significant, host byte
 * order). Below the root no node branches on more than 4 bits, and no
 * node's branch bits cross a 32-bit word boundary.
 *
 * Behaviour where the caller errs or the build runs out of room, as for
 * the IPv4 trie (see sc_btrie.h), with these widths:
 * - rejected with a level-2 diagnostic ("sc_btrie6_construct: ..."), null
 *   and nothing left taken: a fill_factor of 0, a root_branch above 15,
 *   an entry longer than 128 or with address bits set at positions >= len,
 *   a root_branch that would make the root's branch bits cross a word
 *   boundary after the entries' common leading bits;
 * - the node array grows when the estimate is short, never past 2,097,152
 *   positions (21-bit index): beyond that construction fails with
 *   "sc_btrie6_construct: more than 2097152 nodes needed";
 * - more than 1,048,576 entries are refused with a console line printed
 *   whatever the debug level;
 * - a failed trim keeps the larger array, released and counted at the size
 *   it was taken with;
 * - reports of an empty trie or one without prefix records print 0 and
 *   "0.00 / 0" where there is nothing to measure. */
#ifndef SC_BTRIE6_H
#define SC_BTRIE6_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sc_btrie6_entry {
  uint32_t addr[4];
  uint32_t len : 8, prefix : 21, : 3;
  uint32_t data;
} sc_btrie6_entry;
typedef struct sc_btrie6_prefix {
  uint32_t len;
  uint32_t prefix : 21, : 11;
  uint32_t data;
} sc_btrie6_prefix;
typedef struct sc_btrie6_node {
  uint32_t branch : 4, skip : 7, index : 21;
} sc_btrie6_node;
typedef void (*sc_btrie6_data_destructor)(uint32_t data);
typedef struct sc_btrie6 {
  sc_btrie6_entry *entries;
  uint32_t n_entries;
  sc_btrie6_prefix *prefixes;
  uint32_t n_prefixes;
  sc_btrie6_node *nodes;
  uint32_t n_nodes;
  sc_btrie6_data_destructor data_destructor;
  void *sz_ctx;
} sc_btrie6;
typedef struct sc_btrie6_iter {
  sc_btrie6 *trie;
  uint32_t entry;
  uint32_t prefix;
} sc_btrie6_iter;
typedef struct sc_btrie6_item {
  uint32_t addr[4];
  uint32_t len;
  uint32_t data;
} sc_btrie6_item;

#define SC_BTRIE6_NO_PREFIX 0x1FFFFFu
/* The most entries sc_btrie6_construct takes, and the widest root_branch
 * (the node word's branch field). */
#define SC_BTRIE6_MAX_ENTRIES 0x100000u
#define SC_BTRIE6_MAX_ROOT_BRANCH 15u

sc_btrie6 *sc_btrie6_construct(void *sz_ctx, const sc_btrie6_entry *entries,
                               uint32_t n_entries, uint32_t fill_factor,
                               uint32_t root_branch);
void sc_btrie6_set_data_destructor(sc_btrie6 *trie,
                                   sc_btrie6_data_destructor destructor);
void sc_btrie6_destruct(sc_btrie6 *trie);
uint32_t sc_btrie6_lpmatch(const sc_btrie6 *trie, const uint32_t key[4]);
sc_btrie6_iter *sc_btrie6_iter_construct(sc_btrie6 *trie);
int sc_btrie6_iter_next(sc_btrie6_iter *it, sc_btrie6_item *item);
void sc_btrie6_iter_destruct(sc_btrie6_iter *it);
uint32_t sc_btrie6_memory_usage(const sc_btrie6 *trie);
void sc_btrie6_print_stats(const sc_btrie6 *trie);
void sc_btrie6_print(const sc_btrie6 *trie);

/* Extensions */

/* data[i] = sc_btrie6_lpmatch(trie, keys[i]) for i < n, walks interleaved */
void sc_btrie6_lpmatch_bulk(const sc_btrie6 *trie, const uint32_t (*keys)[4],
                            uint32_t *data, uint32_t n);

/* Compiled forwarding table, as the IPv4 one (see sc_btrie.h): covered
 * keys answer what sc_btrie6_lpmatch answers, others `miss`; messages
 * read "sc_btrie6_fib_construct: ...". */
typedef struct sc_btrie6_fib sc_btrie6_fib;
sc_btrie6_fib *sc_btrie6_fib_construct(void *sz_ctx, const sc_btrie6 *trie,
                                       uint32_t miss);
void sc_btrie6_fib_destruct(sc_btrie6_fib *fib);
uint32_t sc_btrie6_fib_lookup(const sc_btrie6_fib *fib, const uint32_t key[4]);
/* data[i] = sc_btrie6_fib_lookup(fib, keys[i]) for i < n, walks interleaved */
void sc_btrie6_fib_lookup_bulk(const sc_btrie6_fib *fib,
                               const uint32_t (*keys)[4], uint32_t *data,
                               uint32_t n);
uint32_t sc_btrie6_fib_memory_usage(const sc_btrie6_fib *fib);

/* Live table, as the IPv4 one (see sc_btrie.h); messages read
 * "sc_btrie6_live_<operation>: ...". */
typedef struct sc_btrie6_live sc_btrie6_live;
sc_btrie6_live *sc_btrie6_live_construct(void *sz_ctx, uint32_t miss,
                                         uint32_t max_readers);
void sc_btrie6_live_destruct(sc_btrie6_live *live);
int sc_btrie6_live_set(sc_btrie6_live *live, const uint32_t addr[4],
                       uint32_t len, uint32_t data);
int sc_btrie6_live_remove(sc_btrie6_live *live, const uint32_t addr[4],
                          uint32_t len);
int sc_btrie6_live_publish(sc_btrie6_live *live);
uint32_t sc_btrie6_live_size(const sc_btrie6_live *live);
uint32_t sc_btrie6_live_memory_usage(const sc_btrie6_live *live);
int sc_btrie6_live_reader_register(sc_btrie6_live *live);
void sc_btrie6_live_reader_unregister(sc_btrie6_live *live, int reader);
void sc_btrie6_live_quiescent(sc_btrie6_live *live, int reader);
uint32_t sc_btrie6_live_lookup(const sc_btrie6_live *live,
                               const uint32_t key[4]);
void sc_btrie6_live_lookup_bulk(const sc_btrie6_live *live,
                                const uint32_t (*keys)[4], uint32_t *data,
                                uint32_t n);

#ifdef __cplusplus
}
#endif

#endif /* SC_BTRIE6_H */

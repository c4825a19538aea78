/* Static longest-prefix-match trie over IPv4 prefixes.
 *
 * Built once by sc_btrie_construct from an array of (address, length, data)
 * entries, then only read: sc_btrie_lpmatch returns the data word of the
 * longest stored prefix covering a key (0 when none does, so a stored data
 * word of 0 looks like a miss). Every block comes from the size-class
 * allocator when a context is given and the block is no larger than the
 * context's limit (sc_sz_get_max_alloc), else from __sc_kmalloc, and goes
 * back the same way with the size it was taken with.
 *
 * Behaviour where the caller errs or the build runs out of room:
 * - Input is checked, not trusted. A fill_factor of 0, a root_branch above
 *   31 (the branch field), an entry whose len exceeds 32 or whose address
 *   has bits set at positions >= len, and a root_branch that would make the
 *   root read past the end of the address after the entries' common leading
 *   bits, all fail construction with a level-2 diagnostic
 *   ("sc_btrie_construct: ..."; an entry error names the first offending
 *   entry by position, address and length), a null result and nothing
 *   left taken.
 * - The node array is first taken at the estimate (n_entries * 200 + 100) /
 *   fill_factor + 2^root_branch + 100 (never more than the 22-bit index can
 *   address). When the build needs more it grows the array (a failure to do
 *   so is reported like the first node-array failure, with the size asked);
 *   it never writes past the array. A trie needing more than 4,194,304 node
 *   positions fails with "sc_btrie_construct: more than 4194304 nodes
 *   needed". The 2,097,152-entry limit keeps prefix positions addressable.
 * - A trim that cannot get its smaller block leaves that array installed
 *   (level-4 diagnostic for the entry and prefix arrays, level 2 for the
 *   node array, whose n_nodes then stays at its first size). Destruction
 *   still releases it with the size it was taken with, and
 *   sc_btrie_memory_usage counts it at that size. The lookup path does not
 *   read this bookkeeping.
 * - Of several identical entries (same address and length) the one the
 *   sort places first is kept; which that is depends on sc_qsort.
 * - sc_btrie_print_stats of a trie built from no entries prints 0 for the
 *   root branch factor and "0.00 / 0" for the depths; without prefix
 *   records the path length line reads "0.00 / 0". sc_btrie_print then
 *   prints no node lines. The trie's address is printed in full
 *   (zero-padded to at least 8 hex digits where the format says %08x). */
#ifndef SC_BTRIE_H
#define SC_BTRIE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sc_btrie_entry {
  uint32_t addr;
  uint32_t len : 6, prefix : 22, : 4;
  uint32_t data;
} sc_btrie_entry;
typedef struct sc_btrie_prefix {
  uint32_t len;
  uint32_t prefix : 22, : 10;
  uint32_t data;
} sc_btrie_prefix;
typedef struct sc_btrie_node {
  uint32_t branch : 5, skip : 5, index : 22;
} sc_btrie_node;
typedef void (*sc_btrie_data_destructor)(uint32_t data);
typedef struct sc_btrie {
  sc_btrie_entry *entries;
  uint32_t n_entries;
  sc_btrie_prefix *prefixes;
  uint32_t n_prefixes;
  sc_btrie_node *nodes;
  uint32_t n_nodes;
  sc_btrie_data_destructor data_destructor;
  void *sz_ctx;
} sc_btrie;
typedef struct sc_btrie_iter {
  sc_btrie *trie;
  uint32_t entry;
  uint32_t prefix;
} sc_btrie_iter;
typedef struct sc_btrie_item {
  uint32_t addr;
  uint32_t len;
  uint32_t data;
} sc_btrie_item;

#define SC_BTRIE_NO_PREFIX 0x3FFFFFu
/* The most entries sc_btrie_construct takes, and the widest root_branch
 * (the node word's branch field). */
#define SC_BTRIE_MAX_ENTRIES 0x200000u
#define SC_BTRIE_MAX_ROOT_BRANCH 31u

sc_btrie *sc_btrie_construct(void *sz_ctx, const sc_btrie_entry *entries,
                             uint32_t n_entries, uint32_t fill_factor,
                             uint32_t root_branch);
void sc_btrie_set_data_destructor(sc_btrie *trie,
                                  sc_btrie_data_destructor destructor);
void sc_btrie_destruct(sc_btrie *trie);
uint32_t sc_btrie_lpmatch(const sc_btrie *trie, uint32_t key);
sc_btrie_iter *sc_btrie_iter_construct(sc_btrie *trie);
int sc_btrie_iter_next(sc_btrie_iter *it, sc_btrie_item *item);
void sc_btrie_iter_destruct(sc_btrie_iter *it);
uint32_t sc_btrie_memory_usage(const sc_btrie *trie);
void sc_btrie_print_stats(const sc_btrie *trie);
void sc_btrie_print(const sc_btrie *trie);

/* Extensions */

/* data[i] = sc_btrie_lpmatch(trie, keys[i]) for i < n, walks interleaved */
void sc_btrie_lpmatch_bulk(const sc_btrie *trie, const uint32_t *keys,
                           uint32_t *data, uint32_t n);

/* Compiled forwarding table: a read-only copy of a finished trie laid out
 * for lookups alone (a root of 2^18 words indexed by the key's top bits,
 * then a few node loads per lookup). For every key some stored prefix covers,
 * sc_btrie_fib_lookup answers what sc_btrie_lpmatch of that trie answers (a
 * stored 0 included); for a key no prefix covers it answers `miss`, so a
 * non-zero miss tells a miss from a stored 0 (miss 0 gives lpmatch's answers
 * everywhere). The table holds no pointer into the trie, which may be
 * destructed first. Blocks are taken and given back by the trie's rule
 * (size-class context when given and the block fits its limit, else
 * __sc_kmalloc). A null trie or a failed allocation gets a level-2
 * diagnostic ("sc_btrie_fib_construct: ..."), a null result and nothing
 * left taken. Lookups take a table from construct (never null); the
 * destructor accepts null, and memory_usage of null is 0. */
typedef struct sc_btrie_fib sc_btrie_fib;
sc_btrie_fib *sc_btrie_fib_construct(void *sz_ctx, const sc_btrie *trie,
                                     uint32_t miss);
void sc_btrie_fib_destruct(sc_btrie_fib *fib);
uint32_t sc_btrie_fib_lookup(const sc_btrie_fib *fib, uint32_t key);
/* data[i] = sc_btrie_fib_lookup(fib, keys[i]) for i < n, walks interleaved */
void sc_btrie_fib_lookup_bulk(const sc_btrie_fib *fib, const uint32_t *keys,
                              uint32_t *data, uint32_t n);
uint32_t sc_btrie_fib_memory_usage(const sc_btrie_fib *fib);

/* Live table: a forwarding table whose prefixes one writer changes while
 * any number of reader threads look up, without locks. The caller
 * serialises the writer-side calls (construct, destruct, set, remove,
 * publish, size, memory_usage). set and remove stage a change; publish
 * makes every staged change visible, none before. Lookups answer, for each
 * key, the data word of the longest prefix covering it (else `miss`) in the
 * prefix set of one published version, never older than the last publish
 * completed before the call began, and a reader never sees a key's answer
 * go back to an older version. A publish becomes visible root slot by root
 * slot (each slot covers 2^14 addresses), so while it lands, keys under
 * different slots (also within one bulk call) may answer from the versions
 * either side of it.
 * Readers register (lock-free, any thread) and call quiescent between
 * batches of work, declaring that they hold nothing from earlier lookups;
 * a block a publish replaced is given back, inside a later publish or the
 * destruct, only once every registered reader has been quiescent or has
 * unregistered since. Blocks follow the fib's allocation rule and are taken
 * only inside writer-side calls. Address bits past `len` must be 0. Bad
 * arguments and failed allocations get a level-2 diagnostic
 * ("sc_btrie_live_<operation>: ...") and change nothing. */
typedef struct sc_btrie_live sc_btrie_live;
/* null on bad arguments (max_readers 0) or no memory */
sc_btrie_live *sc_btrie_live_construct(void *sz_ctx, uint32_t miss,
                                       uint32_t max_readers);
/* no reader may be inside a lookup; gives back every block */
void sc_btrie_live_destruct(sc_btrie_live *live);
/* stage: add or replace addr/len with data. 0 staged; -1 refused (bad
 * prefix, no memory), nothing staged */
int sc_btrie_live_set(sc_btrie_live *live, uint32_t addr, uint32_t len,
                      uint32_t data);
/* stage a removal. 0 staged; 1 not present (published or staged), nothing
 * staged; -1 bad prefix */
int sc_btrie_live_remove(sc_btrie_live *live, uint32_t addr, uint32_t len);
/* 0: every staged change is visible (or none was staged), and what no
 * reader can still see is given back; -1: no memory: readers keep the
 * previous version and the staged changes stay staged */
int sc_btrie_live_publish(sc_btrie_live *live);
/* prefixes held, staged changes included */
uint32_t sc_btrie_live_size(const sc_btrie_live *live);
uint32_t sc_btrie_live_memory_usage(const sc_btrie_live *live);
/* a slot 0 .. max_readers-1, or -1 when all are taken */
int sc_btrie_live_reader_register(sc_btrie_live *live);
void sc_btrie_live_reader_unregister(sc_btrie_live *live, int reader);
/* the reader holds nothing from its earlier lookups */
void sc_btrie_live_quiescent(sc_btrie_live *live, int reader);
/* registered readers only */
uint32_t sc_btrie_live_lookup(const sc_btrie_live *live, uint32_t key);
void sc_btrie_live_lookup_bulk(const sc_btrie_live *live, const uint32_t *keys,
                               uint32_t *data, uint32_t n);

#ifdef __cplusplus
}
#endif

#endif /* SC_BTRIE_H */

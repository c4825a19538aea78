/* Static longest-prefix-match trie over IPv4 prefixes. */
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

#ifdef __cplusplus
}
#endif

#endif /* SC_BTRIE_H */

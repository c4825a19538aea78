/* Resizable chained hash table whose elements also stay on a list, in
 * insertion order (a replaced key moves to the list's end). The table never
 * resizes by itself: sc_ohash_grow and sc_ohash_shrink rebuild the chains
 * from the list, and element addresses stay valid across both.
 *
 * Decisions:
 * - sc_ohash_shrink refuses (diagnostic, -1, table unchanged) a count of 0
 *   or one that is not a power of two, whatever the current count.
 * - sc_ohash_construct refuses (diagnostic, null) a hint whose bucket array
 *   would not fit a 32-bit byte size; sc_ohash_grow likewise refuses
 *   (diagnostic, -1, table unchanged) to double past that size.
 * - The load of sc_ohash_grow, nelements * 100 / n_buckets, is computed
 *   without overflow at any element count.
 * - sc_ohash_internal_insert refuses (diagnostic, null) extra == NULL with a
 *   nonzero extra_sz, and an element that would not fit a 32-bit size.
 * - Insertion clears the element's data word.
 * - Dumps and diagnostics print addresses as the whole pointer in lowercase
 *   hexadecimal without a prefix. */
#ifndef SC_OHASH_H
#define SC_OHASH_H

#include <stdint.h>

#include "sc_elist.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*sc_ohash_value_destructor)(void *val, uint32_t vsz);

typedef struct sc_ohash_element {
  struct sc_ohash_element *next;
  struct sc_ohash_element **pprev;
  struct sc_ohash *table;
  void *data;
  sc_elist_node list_node;
  uint32_t ksz;
  uint32_t vsz;
} sc_ohash_element;

typedef struct sc_ohash {
  sc_ohash_element **buckets;
  uint32_t n_buckets;
  sc_ohash_value_destructor value_destructor;
  uint32_t nelements;
  sc_elist *element_list;
} sc_ohash;

typedef struct sc_ohash_iter {
  sc_ohash *table;
  sc_ohash_element *next_element;
} sc_ohash_iter;

sc_ohash *sc_ohash_construct(uint32_t n_buckets_hint, const char *name,
                             sc_ohash_value_destructor value_destructor);
void sc_ohash_destruct(sc_ohash *t);
int sc_ohash_insert(sc_ohash *t, const void *key, uint32_t ksz, const void *val,
                    uint32_t vsz);
sc_ohash_element *sc_ohash_internal_insert(sc_ohash *t, const void *key,
                                           uint32_t ksz, const void *val,
                                           uint32_t vsz, const void *extra,
                                           uint32_t extra_sz);
int sc_ohash_find(sc_ohash *t, const void *key, uint32_t ksz, void **val,
                  uint32_t *vsz);
sc_ohash_element **sc_ohash_findp(sc_ohash *t, const void *key, uint32_t ksz);
uint32_t sc_ohash_hash(sc_ohash *t, const void *key, uint32_t ksz);
int sc_ohash_delete(sc_ohash *t, const void *key, uint32_t ksz);
void sc_ohash_internal_delete(sc_ohash_element *e);
void sc_ohash_delete_all(sc_ohash *t);
int sc_ohash_grow(sc_ohash *t, uint32_t threshold);
int sc_ohash_shrink(sc_ohash *t, uint32_t n_buckets);
uint32_t sc_ohash_nelements(const sc_ohash *t);
void sc_ohash_element_get(sc_ohash_element *e, void **key, uint32_t *ksz,
                          void **val, uint32_t *vsz);
void sc_ohash_element_set_data(sc_ohash_element *e, void *data);
void *sc_ohash_element_get_data(const sc_ohash_element *e);
sc_ohash_iter *sc_ohash_iter_construct(sc_ohash *t);
int sc_ohash_iter_next(sc_ohash_iter *it, void **key, uint32_t *ksz, void **val,
                       uint32_t *vsz);
void sc_ohash_iter_destruct(sc_ohash_iter *it);
void sc_ohash_debug(sc_ohash *t);

#ifdef __cplusplus
}
#endif

#endif /* SC_OHASH_H */

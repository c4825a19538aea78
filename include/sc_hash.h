/* Chained hash table (control side): byte-string keys and values copied
 * into one block per element, a fixed power-of-two bucket count, iteration
 * in bucket order.
 *
 * Decisions:
 * - sc_hash_construct refuses (diagnostic, null) a hint whose bucket array
 *   would not fit a 32-bit byte size, rather than capping it.
 * - An insertion whose element would not fit a 32-bit size is refused
 *   (diagnostic, -1); the table is unchanged.
 * - Insertion clears the element's data word.
 * - Dumps and diagnostics print addresses as the whole pointer in lowercase
 *   hexadecimal without a prefix.
 * - The data accessors take element addresses, which no exported operation
 *   of this family hands out; they exist for callers that keep elements by
 *   other means. */
#ifndef SC_HASH_H
#define SC_HASH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*sc_hash_value_destructor)(void *val, uint32_t vsz);

typedef struct sc_hash_element {
  struct sc_hash_element *next;
  struct sc_hash_element **pprev;
  struct sc_hash *table;
  void *data;
  uint32_t ksz;
  uint32_t vsz; /* key bytes follow, value at key + roundup4(ksz) */
} sc_hash_element;

typedef struct sc_hash {
  sc_hash_element **buckets;
  uint32_t n_buckets;
  sc_hash_value_destructor value_destructor;
  uint32_t nelements;
} sc_hash;

typedef struct sc_hash_iter {
  sc_hash *table;
  sc_hash_element *next_element;
  sc_hash_element **bucket;
} sc_hash_iter;

sc_hash *sc_hash_construct(uint32_t n_buckets_hint,
                           sc_hash_value_destructor value_destructor);
void sc_hash_destruct(sc_hash *h);
int sc_hash_insert(sc_hash *h, const void *key, uint32_t ksz, const void *val,
                   uint32_t vsz);
int sc_hash_find(sc_hash *h, const void *key, uint32_t ksz, void **val,
                 uint32_t *vsz);
int sc_hash_delete(sc_hash *h, const void *key, uint32_t ksz);
void sc_hash_delete_all(sc_hash *h);
uint32_t sc_hash_nelements(const sc_hash *h);
void sc_hash_element_set_data(sc_hash_element *e, void *data);
void *sc_hash_element_get_data(const sc_hash_element *e);
sc_hash_iter *sc_hash_iter_construct(sc_hash *h);
int sc_hash_iter_next(sc_hash_iter *it, void **key, uint32_t *ksz, void **val,
                      uint32_t *vsz);
void sc_hash_iter_destruct(sc_hash_iter *it);
int sc_hash_serialize(sc_hash *h, void **buf, uint32_t *len);
void sc_hash_debug(sc_hash *h);

#ifdef __cplusplus
}
#endif

#endif /* SC_HASH_H */

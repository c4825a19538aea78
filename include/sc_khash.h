/* Chained hash table of the forwarding side, on the size-class allocator.
 * The table record, elements and iterators come from the context given at
 * construction; the bucket array too when its size is strictly below the
 * context's limit, from the general heap otherwise.
 *
 * Decisions:
 * - sc_khash_construct refuses (diagnostic, null) a bucket count whose array
 *   would not fit a 32-bit byte size.
 * - sc_khash_internal_insert refuses (diagnostic, null, table unchanged) a
 *   key over 65535 bytes, a value over 65535 bytes (vsz + extra_sz), and
 *   extra == NULL with a nonzero extra_sz, rather than store a wrong size.
 * - Insertion clears the element's data word. */
#ifndef SC_KHASH_H
#define SC_KHASH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*sc_khash_value_destructor)(void *val, uint32_t vsz);

typedef struct sc_khash_element {
  struct sc_khash_element *next;
  struct sc_khash_element **pprev;
  struct sc_khash *table;
  void *data;
  uint16_t ksz;
  uint16_t vsz; /* key at (char *)e + sizeof *e, value at key + roundup4(ksz) */
} sc_khash_element;

/* An element's key bytes (ksz of them) and value bytes (vsz of them).
 * Defined here and not exported by the library; the parenthesised names
 * mark them as header-only. */
#ifdef __cplusplus /* the cast C++ warnings accept */
#define SC_KHASH_BYTES_(e) reinterpret_cast<char *>(e)
#else
#define SC_KHASH_BYTES_(e) ((char *)(e))
#endif
static inline void *(sc_khash_element_key)(sc_khash_element *e) {
  return SC_KHASH_BYTES_(e) + sizeof *e;
}
static inline void *(sc_khash_element_val)(sc_khash_element *e) {
  return SC_KHASH_BYTES_(e) + sizeof *e + ((e->ksz + 3u) & ~3u);
}
#undef SC_KHASH_BYTES_

typedef struct sc_khash {
  sc_khash_element **buckets;
  sc_khash_value_destructor value_destructor;
  void *sz_ctx;
  uint32_t n_buckets;
  uint32_t nelements;
} sc_khash;

typedef struct sc_khash_iter {
  sc_khash *table;
  sc_khash_element *next_element;
  sc_khash_element **bucket;
} sc_khash_iter;

sc_khash *sc_khash_construct(uint32_t n_buckets, void *sz_ctx,
                             sc_khash_value_destructor value_destructor);
void sc_khash_destruct(sc_khash *t);
sc_khash_element *sc_khash_internal_insert(sc_khash *t, const void *key,
                                           uint32_t ksz, const void *val,
                                           uint32_t vsz, const void *extra,
                                           uint32_t extra_sz);
sc_khash_element **sc_khash_findp(sc_khash *t, const void *key, uint32_t ksz);
void sc_khash_internal_delete(sc_khash_element *e);
void sc_khash_delete_all(sc_khash *t);
void sc_khash_debug(sc_khash *t);
sc_khash_iter *sc_khash_iter_construct(sc_khash *t);
int sc_khash_iter_next(sc_khash_iter *kip, void **key, uint32_t *ksz,
                       void **val, uint32_t *vsz);
int sc_khash_iter_reinit(sc_khash_iter *kip);
void sc_khash_iter_destruct(sc_khash_iter *kip);

#ifdef __cplusplus
}
#endif

#endif /* SC_KHASH_H */

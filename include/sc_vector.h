/* Growable array of fixed-size elements, stored by value in one contiguous
 * block taken from __sc_kmalloc.
 *
 * Behaviour at the edges:
 * - elementSize 0 is accepted: such a vector stores nothing but still counts
 *   its additions (its storage is a 0-byte block, so the host's
 *   __sc_kmalloc(0) must return a pointer); sc_vector_unique treats all
 *   empty elements as equal and keeps one.
 * - Growth whose slot count or byte size would pass 2^32 - 1 fails with a
 *   diagnostic and leaves the vector unchanged; the arithmetic never wraps.
 * - sc_vector_add accepts an element that lies in the vector's own storage,
 *   even when the addition moves that storage.
 * - sc_vector_append appends the source's elements as they are at the call,
 *   so appending a vector to itself doubles it once. It returns -1 when an
 *   addition fails (no-grow vector full, or no memory); the elements added
 *   before the failure stay.
 * - sc_vector_compact on an empty vector that still has slots releases the
 *   storage, leaving elements null and nAlloc 0.
 * - The record of a vector made by sc_vector_szconstruct with a context
 *   comes from __sc_szalloc but goes back through __sc_kfree: the vector
 *   keeps no context, so the host must accept that release. */
#ifndef SC_VECTOR_H
#define SC_VECTOR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SC_VECTOR_SORTED 0x01 /* bit 0 of flags */
#define SC_VECTOR_NOGROW 0x02 /* bit 1 of flags */

typedef struct sc_vector {
  void *elements;
  uint32_t nElements;
  uint32_t nAlloc;
  uint32_t elementSize;
  uint16_t resizeFactor;
  uint8_t flags;
} sc_vector;

/* Called by the host's sort with two elements and the vector itself; must
 * not change the vector. */
typedef int (*sc_vector_cmp)(const void *a, const void *b, void *vector);

sc_vector *sc_vector_construct(uint32_t nInitial, uint32_t elementSize,
                               int resizeFactor);
sc_vector *sc_vector_szconstruct(void *sz_ctx, uint32_t nInitial,
                                 uint32_t elementSize, int resizeFactor);
sc_vector *sc_vector_construct_no_grow(uint32_t nInitial, uint32_t elementSize);
sc_vector *sc_vector_szconstruct_no_grow(void *sz_ctx, uint32_t nInitial,
                                         uint32_t elementSize);
void sc_vector_destruct(sc_vector *v);
int sc_vector_add(sc_vector *v, const void *element);
int sc_vector_get(sc_vector *v, uint32_t index, void **out);
int sc_vector_append(sc_vector *dst, sc_vector *src);
int sc_vector_compact(sc_vector *v);
uint32_t sc_vector_get_esize(const sc_vector *v);
uint32_t sc_vector_get_nalloc(const sc_vector *v);
/* Without a comparator the order is memcmp over each element's bytes. */
void sc_vector_sort(sc_vector *v, sc_vector_cmp compare);
void sc_vector_unique(sc_vector *v, sc_vector_cmp compare);
void sc_vector_remove_dup(sc_vector *v);
sc_vector *sc_vector_copy(const sc_vector *v);
void sc_vector_get_all(const sc_vector *v, void *buffer);
uint32_t sc_vector_memory_usage(const sc_vector *v);
void sc_vector_debug(const sc_vector *v, int verbose);

#ifdef __cplusplus
}
#endif

#endif /* SC_VECTOR_H */

// Whole-vector operations: sorting, duplicate removal, bulk reads,
// memory accounting and the dump.
#include <string.h>

#include "api.h"
#include "sc_host.h"
#include "sc_vector_slots.h"

using vds::vector::slot;

namespace {

// Element equality is always byte-wise, compared in place.
bool same_bytes(const char *a, const char *b, uint32_t n) {
  return memcmp(a, b, n) == 0;
}

// The default order is memcmp over one element's bytes: the host's sort
// hands the element size through as memcmp's third argument, a size_t that
// every supported ABI passes exactly as it passes a pointer.
sc_qsort_cmp bytewise_order() {
  return reinterpret_cast<sc_qsort_cmp>(reinterpret_cast<void (*)()>(&memcmp));
}

}  // namespace

VDS_API void sc_vector_sort(sc_vector *v, sc_vector_cmp compare) {
  if (compare)
    sc_qsort(v->elements, v->nElements, v->elementSize, compare, v);
  else
    sc_qsort(v->elements, v->nElements, v->elementSize, bytewise_order(),
             reinterpret_cast<void *>(uintptr_t{v->elementSize}));
  v->flags |= SC_VECTOR_SORTED;
}

// Keeps one element of each run of byte-identical neighbours. A vector
// already marked sorted is taken as sorted. Counting kept elements instead
// of measuring bytes means empty elements (all equal) leave exactly one.
VDS_API void sc_vector_unique(sc_vector *v, sc_vector_cmp compare) {
  if (v->nElements < 2) return;
  if (!(v->flags & SC_VECTOR_SORTED)) sc_vector_sort(v, compare);
  const uint32_t size = v->elementSize;
  char *last = slot(v, 0);
  uint32_t kept = 1;
  for (uint32_t i = 1; i < v->nElements; i++) {
    const char *e = slot(v, i);
    if (same_bytes(e, last, size)) continue;
    last = slot(v, kept++);
    if (last != e) memcpy(last, e, size);
  }
  v->nElements = kept;
}

// Keeps the first occurrence of each element and the order of the kept
// ones. Quadratic: for vectors that must not be reordered.
VDS_API void sc_vector_remove_dup(sc_vector *v) {
  if (v->nElements < 2) return;
  const uint32_t size = v->elementSize;
  uint32_t kept = 1;
  for (uint32_t i = 1; i < v->nElements; i++) {
    const char *e = slot(v, i);
    bool seen = false;
    for (uint32_t j = 0; j < kept && !seen; j++)
      seen = same_bytes(e, slot(v, j), size);
    if (seen) continue;
    char *to = slot(v, kept++);
    if (to != e) memcpy(to, e, size);
  }
  v->nElements = kept;
}

VDS_API void sc_vector_get_all(const sc_vector *v, void *buffer) {
  if (v->nElements)
    memcpy(buffer, v->elements,
           vds::vector::slot_offset(v->nElements, v->elementSize));
}

VDS_API uint32_t sc_vector_memory_usage(const sc_vector *v) {
  if (!v) return 0;
  return static_cast<uint32_t>(sizeof(sc_vector)) +
         vds::vector::storage_bytes(v);
}

VDS_API void sc_vector_debug(const sc_vector *v, int verbose) {
  sc_printf("vector %p: nElements=%d, nAlloc=%d, elementSize=%d\n",
            static_cast<const void *>(v), v->nElements, v->nAlloc,
            v->elementSize);
  if (!verbose) return;
  for (uint32_t i = 0; i < v->nElements; i++) {
    const unsigned char *e =
        reinterpret_cast<const unsigned char *>(slot(v, i));
    sc_printf("%5d: |", i);
    for (uint32_t b = 0; b < v->elementSize; b++) {
      sc_printf("%02x", e[b]);
      if (b % 4 == 3) sc_printf("|");
    }
    sc_printf("\n");
  }
}

// Growable array of fixed-size elements: construction, growth, addition,
// indexed access, append, compaction and copy.
#include <string.h>

#include "api.h"
#include "diag.h"
#include "sc_vector_slots.h"

using vds::vector::slot;
using vds::vector::storage_bytes;

namespace {

constexpr char kModule[] = "lib/pfe/ds/src/sc_vector";

constexpr uint16_t kDefaultResizeFactor = 50;

// Makes room for at least `wanted` slots, growing to (100 + resizeFactor)%
// of `wanted`. On failure the vector is unchanged. `wanted` is 64-bit so an
// addition to a vector of 2^32 - 1 elements is refused instead of wrapping.
int sc_vector_make_room(sc_vector *v, uint64_t wanted) {
  if (v->nAlloc >= wanted) return 0;
  if (v->elements && v->resizeFactor == 0) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_make_room: resizeFactor is zero!\n");
    return -1;
  }
  const uint64_t slots = (v->resizeFactor + uint64_t{100}) * wanted / 100;
  const uint64_t bytes = slots * v->elementSize;
  if (slots > UINT32_MAX || bytes > UINT32_MAX) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_make_room: %llu slots of %u bytes exceed 32 bits\n",
             static_cast<unsigned long long>(slots), v->elementSize);
    return -1;
  }
  void *block = __sc_kmalloc(static_cast<uint32_t>(bytes));
  if (!block) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_make_room: sc_kmalloc(%d) failed\n",
             static_cast<uint32_t>(bytes));
    return -1;
  }
  if (v->elements) {
    // The whole old block, so slots beyond nElements keep their bytes too.
    memcpy(block, v->elements, storage_bytes(v));
    __sc_kfree(v->elements, storage_bytes(v));
  }
  v->elements = block;
  v->nAlloc = static_cast<uint32_t>(slots);
  return 0;
}

// Fills a freshly taken record and gives it its first slots; releases the
// record (through __sc_kfree, whichever allocator it came from) on failure.
sc_vector *init_record(sc_vector *v, uint32_t nInitial, uint32_t elementSize,
                       int resizeFactor) {
  v->elements = nullptr;
  v->nElements = 0;
  v->nAlloc = 0;
  v->elementSize = elementSize;
  v->resizeFactor = resizeFactor == 0 ? kDefaultResizeFactor
                                      : static_cast<uint16_t>(resizeFactor);
  v->flags = 0;
  if (sc_vector_make_room(v, nInitial) != 0) {
    sc_vector_destruct(v);
    return nullptr;
  }
  return v;
}

sc_vector *freeze(sc_vector *v) {
  if (v) v->flags |= SC_VECTOR_NOGROW;
  return v;
}

// The slow path of an addition to a full vector. An element taken from
// this vector's own storage is found again after growth has moved it.
[[gnu::noinline]] int grow_for_add(sc_vector *v, const void **element) {
  if (v->flags & SC_VECTOR_NOGROW) {
    VDS_DIAG(vds::kFailure, kModule, "sc_vector_add: vector full (%d)\n",
             v->nAlloc);
    return -1;
  }
  const uintptr_t at = reinterpret_cast<uintptr_t>(*element) -
                       reinterpret_cast<uintptr_t>(v->elements);
  const bool own = v->elements && at < storage_bytes(v);
  if (sc_vector_make_room(v, uint64_t{v->nElements} + 1) != 0) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_add: sc_vector_make_room() failed\n");
    return -1;
  }
  if (own) *element = static_cast<const char *>(v->elements) + at;
  return 0;
}

}  // namespace

VDS_API sc_vector *sc_vector_szconstruct(void *sz_ctx, uint32_t nInitial,
                                         uint32_t elementSize,
                                         int resizeFactor) {
  sc_vector *v;
  if (sz_ctx) {
    v = static_cast<sc_vector *>(
        __sc_szalloc(sz_ctx, sizeof(sc_vector), 0, kModule, __LINE__));
    if (!v)
      VDS_DIAG(vds::kFailure, kModule,
               "sc_vector_construct: sc_szalloc(%zd) failed\n",
               sizeof(sc_vector));
  } else {
    v = static_cast<sc_vector *>(__sc_kmalloc(sizeof(sc_vector)));
    if (!v)
      VDS_DIAG(vds::kFailure, kModule,
               "sc_vector_construct: sc_kmalloc(%zd) failed\n",
               sizeof(sc_vector));
  }
  return v ? init_record(v, nInitial, elementSize, resizeFactor) : nullptr;
}

VDS_API sc_vector *sc_vector_construct(uint32_t nInitial, uint32_t elementSize,
                                       int resizeFactor) {
  return sc_vector_szconstruct(nullptr, nInitial, elementSize, resizeFactor);
}

VDS_API sc_vector *sc_vector_construct_no_grow(uint32_t nInitial,
                                               uint32_t elementSize) {
  sc_vector *v =
      sc_vector_construct(nInitial, elementSize, kDefaultResizeFactor);
  if (!v)
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_construct_no_grow: sc_vector_construct() failed\n");
  return freeze(v);
}

VDS_API sc_vector *sc_vector_szconstruct_no_grow(void *sz_ctx,
                                                 uint32_t nInitial,
                                                 uint32_t elementSize) {
  sc_vector *v = sc_vector_szconstruct(sz_ctx, nInitial, elementSize,
                                       kDefaultResizeFactor);
  if (!v)
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_szconstruct_no_grow: sc_vector_szconstruct() "
             "failed\n");
  return freeze(v);
}

VDS_API void sc_vector_destruct(sc_vector *v) {
  if (!v) return;
  if (v->elements) __sc_kfree(v->elements, storage_bytes(v));
  __sc_kfree(v, sizeof(sc_vector));
}

VDS_API int sc_vector_add(sc_vector *v, const void *element) {
  if (v->nElements >= v->nAlloc && grow_for_add(v, &element) != 0) return -1;
  char *const base = static_cast<char *>(v->elements);
  const uint32_t index = v->nElements;
  vds::vector::with_element_size(v->elementSize, [&](auto n) {
    memcpy(base + size_t{index} * n, element, n);
  });
  v->nElements++;
  v->flags &= ~SC_VECTOR_SORTED;
  return 0;
}

VDS_API int sc_vector_get(sc_vector *v, uint32_t index, void **out) {
  if (index >= v->nElements) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_get: index %d out of range %d for vector %p\n", index,
             v->nElements, static_cast<void *>(v));
    return -1;
  }
  *out = slot(v, index);
  return 0;
}

// Appends the source's elements as they are at the call, so a vector
// appended to itself doubles once. Every index stays below that count, so
// fetching a source element cannot fail; a failed addition ends the call.
VDS_API int sc_vector_append(sc_vector *dst, sc_vector *src) {
  const uint32_t n = src->nElements;
  for (uint32_t i = 0; i < n; i++)
    if (sc_vector_add(dst, slot(src, i)) != 0) return -1;
  return 0;
}

VDS_API int sc_vector_compact(sc_vector *v) {
  if (v->nAlloc == v->nElements) return 0;
  void *block = nullptr;
  // An empty vector gives its storage back instead of asking for 0 bytes.
  if (v->nElements) {
    const uint32_t bytes = v->nElements * v->elementSize;
    block = __sc_kmalloc(bytes);
    if (!block) {
      VDS_DIAG(vds::kFailure, kModule,
               "sc_vector_compact: sc_kmalloc(%d) failed\n", bytes);
      return -1;
    }
    memcpy(block, v->elements, bytes);
  }
  __sc_kfree(v->elements, storage_bytes(v));
  v->elements = block;
  v->nAlloc = v->nElements;
  return 0;
}

VDS_API uint32_t sc_vector_get_esize(const sc_vector *v) {
  return v->elementSize;
}

VDS_API uint32_t sc_vector_get_nalloc(const sc_vector *v) { return v->nAlloc; }

// The copy is an ordinary growable vector on the general heap with clear
// flags, sized by the construction rule for the source's element count.
VDS_API sc_vector *sc_vector_copy(const sc_vector *v) {
  if (!v) return nullptr;
  sc_vector *copy = sc_vector_szconstruct(nullptr, v->nElements, v->elementSize,
                                          v->resizeFactor);
  if (!copy) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_vector_copy: sc_vector_construct() failed\n");
    return nullptr;
  }
  copy->nElements = v->nElements;
  sc_vector_get_all(v, copy->elements);
  return copy;
}

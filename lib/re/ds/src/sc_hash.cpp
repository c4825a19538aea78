// Chained hash table of the control side: fixed bucket count, bucket-order
// iteration, serialisation. The mechanism is the shared chained core.
#include "sc_hash.h"

#include "api.h"
#include "hash/chained_table.h"
#include "hash/heap_policy.h"
#include "sc_hash_private.h"

namespace {

struct Policy : vds::hash::HeapPolicy<sc_hash, sc_hash_element>,
                vds::hash::NoHooks {
  static constexpr char kModule[] = "lib/re/ds/src/sc_hash";
  static constexpr vds::hash::Texts kText = {
      .construct = "sc_hash_construct",
      .insert = "sc_hash_internal_insert",
      .record_failed = "sc_hash_construct: sc_malloc(%d) failed",
      .buckets_failed = "sc_hash_construct: sc_malloc(%d) failed\n",
      .insert_failed = "sc_hash_internal_insert: sc_malloc(%d) failed",
      .iter_failed = "sc_hash_iter_construct: sc_malloc(%d) failed",
      .corrupt = "sc_hash_internal_delete: corrupted bucket %" PRIxPTR "\n",
      .dump_head = kDumpHead,
      .dump_element = kDumpElement,
      .dump_odd = kDumpOdd,
  };
};

using Core = vds::hash::Chained<Policy>;
// The core entered from the line given, for operations that may report.
template <int Line>
using CoreAt = vds::hash::Chained<vds::At<Policy, Line>>;

void put_le32(unsigned char *p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
  p[2] = uint8_t(v >> 16);
  p[3] = uint8_t(v >> 24);
}

}  // namespace

uint32_t sc_hash_hash(sc_hash *h, const void *key, uint32_t ksz) {
  return Core::index(h, key, ksz);
}
sc_hash_element **sc_hash_findp(sc_hash *h, const void *key, uint32_t ksz) {
  return Core::findp(h, key, ksz);
}
void sc_hash_element_get(sc_hash_element *e, void **key, uint32_t *ksz,
                         void **val, uint32_t *vsz) {
  Core::get(e, key, ksz, val, vsz);
}
sc_hash_element *sc_hash_internal_insert(sc_hash *h, const void *key,
                                         uint32_t ksz, const void *val,
                                         uint32_t vsz) {
  return CoreAt<__LINE__>::insert(h, key, ksz, val, vsz, nullptr, 0);
}
void sc_hash_internal_delete(sc_hash_element *e) {
  CoreAt<__LINE__>::remove(e);
}

VDS_API sc_hash *sc_hash_construct(uint32_t n_buckets_hint,
                                   sc_hash_value_destructor value_destructor) {
  return CoreAt<__LINE__>::construct(n_buckets_hint, value_destructor, nullptr);
}

VDS_API void sc_hash_destruct(sc_hash *h) { CoreAt<__LINE__>::destruct(h); }

VDS_API int sc_hash_insert(sc_hash *h, const void *key, uint32_t ksz,
                           const void *val, uint32_t vsz) {
  return sc_hash_internal_insert(h, key, ksz, val, vsz) ? 0 : -1;
}

VDS_API int sc_hash_find(sc_hash *h, const void *key, uint32_t ksz, void **val,
                         uint32_t *vsz) {
  return Core::find(h, key, ksz, val, vsz);
}

VDS_API int sc_hash_delete(sc_hash *h, const void *key, uint32_t ksz) {
  return CoreAt<__LINE__>::erase(h, key, ksz);
}

VDS_API void sc_hash_delete_all(sc_hash *h) { CoreAt<__LINE__>::remove_all(h); }
VDS_API uint32_t sc_hash_nelements(const sc_hash *h) { return h->nelements; }

VDS_API void sc_hash_element_set_data(sc_hash_element *e, void *data) {
  e->data = data;
}
VDS_API void *sc_hash_element_get_data(const sc_hash_element *e) {
  return e->data;
}

VDS_API sc_hash_iter *sc_hash_iter_construct(sc_hash *h) {
  return CoreAt<__LINE__>::iter_construct<sc_hash_iter>(h);
}
VDS_API int sc_hash_iter_next(sc_hash_iter *it, void **key, uint32_t *ksz,
                              void **val, uint32_t *vsz) {
  return Core::iter_next(it, key, ksz, val, vsz);
}
VDS_API void sc_hash_iter_destruct(sc_hash_iter *it) {
  CoreAt<__LINE__>::iter_destruct(it);
}

// Two walks: the first sizes the image, the second writes it. Every failure
// leaves both outputs cleared and nothing allocated.
VDS_API int sc_hash_serialize(sc_hash *h, void **buf, uint32_t *len) {
  *buf = nullptr;
  *len = 0;
  sc_hash_iter *it = sc_hash_iter_construct(h);
  if (!it) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "sc_hash_serialize: sc_hash_iter_construct() failed\n");
    return -1;
  }
  uint64_t total = 0;
  uint32_t ksz, vsz;
  while (sc_hash_iter_next(it, nullptr, &ksz, nullptr, &vsz) == 0)
    total += 8ull + ksz + vsz;
  sc_hash_iter_destruct(it);
  if (total > UINT32_MAX) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "sc_hash_serialize: image of %llu bytes too large\n",
             static_cast<unsigned long long>(total));
    return -1;
  }
  auto *out = static_cast<unsigned char *>(__sc_kmalloc(uint32_t(total)));
  if (!out) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "sc_hash_serialize: sc_malloc(%u) failed\n", uint32_t(total));
    return -1;
  }
  it = sc_hash_iter_construct(h);
  if (!it) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "sc_hash_serialize: sc_hash_iter_construct() failed\n");
    __sc_kfree(out, uint32_t(total));
    return -1;
  }
  unsigned char *p = out;
  void *key, *val;
  while (sc_hash_iter_next(it, &key, &ksz, &val, &vsz) == 0) {
    put_le32(p, ksz);
    memcpy(p + 4, key, ksz);
    put_le32(p + 4 + ksz, vsz);
    memcpy(p + 8 + ksz, val, vsz);
    p += 8 + ksz + vsz;
  }
  sc_hash_iter_destruct(it);
  *buf = out;
  *len = uint32_t(total);
  return 0;
}

VDS_API void sc_hash_debug(sc_hash *h) { Core::dump(h); }

// Chained hash table of the forwarding side: the shared chained core on the
// size-class allocator, 16-bit element sizes, keys of up to three bytes left
// unfolded, and an iterator that can be restarted without allocating.
#include "sc_khash.h"

#include <type_traits>

#include "api.h"
#include "hash/chained_table.h"
#include "sz_block.h"

namespace {

struct Policy : vds::hash::NoHooks {
  using Table = sc_khash;
  using Element = sc_khash_element;
  using SizeArg = std::make_signed_t<size_t>;  // printed with %zd
  using Addr = const void *;

  static constexpr char kModule[] = "lib/pfe/ds/src/sc_khash";
  static constexpr vds::hash::Fold kFold = vds::hash::Fold::kLongKeys;
  static constexpr uint32_t kMaxField = UINT16_MAX;
  static constexpr vds::hash::Texts kText = {
      .construct = "sc_khash_construct",
      .insert = "sc_khash_internal_insert",
      .record_failed = "sc_khash_construct: sc_szalloc(%zd) failed",
      .buckets_failed = "sc_khash_construct: sc_kmalloc(%d) failed\n",
      .insert_failed = "sc_khash_internal_insert: sc_szalloc(%d) failed",
      .iter_failed = "sc_khash_iter_construct: sc_szalloc(%zd) failed",
      .corrupt = "sc_khash_internal_delete: corrupted bucket %p\n",
      .dump_head = "hash %p:\n",
      .dump_element = "  elp %p: key=%02x%02x%02x%02x, val=%02x%02x%02x%02x\n",
      .dump_odd = "  elp %p: ksz or vsz != 4!\n",
  };

  static Addr addr(const void *p) { return p; }
  static void *ctx(const sc_khash *t) { return t->sz_ctx; }
  static void bind(sc_khash *t, void *ctx) { t->sz_ctx = ctx; }
  static void *take(void *ctx, uint32_t size) {
    return __sc_szalloc(ctx, size, 0, kModule, __LINE__);
  }
  static void give(void *ctx, void *p, uint32_t size) {
    __sc_szfree(ctx, p, size, kModule, __LINE__);
  }
  // Only an array strictly below the context's limit is a size-class block.
  static void *take_buckets(void *ctx, uint32_t bytes) {
    return vds::take_block<vds::SzLimit::kBelow>(ctx, bytes, kModule, __LINE__);
  }
  static void give_buckets(void *ctx, void *p, uint32_t bytes) {
    vds::give_block<vds::SzLimit::kBelow>(ctx, p, bytes, kModule, __LINE__);
  }
};

using Core = vds::hash::Chained<Policy>;
// The core entered from the line given, for operations that may report.
template <int Line>
using CoreAt = vds::hash::Chained<vds::At<Policy, Line>>;

}  // namespace

VDS_API sc_khash *sc_khash_construct(
    uint32_t n_buckets, void *sz_ctx,
    sc_khash_value_destructor value_destructor) {
  return CoreAt<__LINE__>::construct(n_buckets, value_destructor, sz_ctx);
}

VDS_API void sc_khash_destruct(sc_khash *t) { CoreAt<__LINE__>::destruct(t); }

VDS_API sc_khash_element *sc_khash_internal_insert(
    sc_khash *t, const void *key, uint32_t ksz, const void *val, uint32_t vsz,
    const void *extra, uint32_t extra_sz) {
  return CoreAt<__LINE__>::insert(t, key, ksz, val, vsz, extra, extra_sz);
}

VDS_API sc_khash_element **sc_khash_findp(sc_khash *t, const void *key,
                                          uint32_t ksz) {
  return Core::findp(t, key, ksz);
}

VDS_API void sc_khash_internal_delete(sc_khash_element *e) {
  CoreAt<__LINE__>::remove(e);
}
VDS_API void sc_khash_delete_all(sc_khash *t) {
  CoreAt<__LINE__>::remove_all(t);
}
VDS_API void sc_khash_debug(sc_khash *t) { Core::dump(t); }

VDS_API sc_khash_iter *sc_khash_iter_construct(sc_khash *t) {
  return CoreAt<__LINE__>::iter_construct<sc_khash_iter>(t);
}

VDS_API int sc_khash_iter_next(sc_khash_iter *kip, void **key, uint32_t *ksz,
                               void **val, uint32_t *vsz) {
  return Core::iter_next(kip, key, ksz, val, vsz);
}

VDS_API int sc_khash_iter_reinit(sc_khash_iter *kip) {
  if (!kip || !kip->table) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "sc_khash_iter_reinit: kip is NULL");
    return kip ? -2 : -1;
  }
  Core::iter_start(kip, kip->table);
  return 0;
}

VDS_API void sc_khash_iter_destruct(sc_khash_iter *kip) {
  CoreAt<__LINE__>::iter_destruct(kip);
}

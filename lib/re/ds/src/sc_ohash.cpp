// Resizable chained hash table: the shared chained core, with every element
// also on the table's list in insertion order. The list gives the iteration
// order and lets growth and shrinking rebuild the chains without the old
// bucket array.
#include "sc_ohash.h"

#include <stddef.h>

#include "api.h"
#include "hash/chained_table.h"
#include "hash/heap_policy.h"

namespace {

struct Policy : vds::hash::HeapPolicy<sc_ohash, sc_ohash_element> {
  static constexpr char kModule[] = "lib/re/ds/src/sc_ohash";
  static constexpr vds::hash::Texts kText = {
      .construct = "sc_ohash_construct",
      .insert = "sc_ohash_internal_insert",
      .record_failed = "sc_ohash_construct: sc_malloc(%d) failed",
      .buckets_failed = "sc_ohash_construct: sc_malloc(%d) failed\n",
      .insert_failed = "sc_ohash_internal_insert: sc_malloc(%d) failed",
      .iter_failed = "sc_ohash_iter_construct: sc_malloc(%d) failed",
      .corrupt = "sc_ohash_internal_delete: corrupted bucket %" PRIxPTR "\n",
      .dump_head = kDumpHead,
      .dump_element = kDumpElement,
      .dump_odd = kDumpOdd,
  };

  // A replaced key joins the list's end, like a new one.
  static void linked(sc_ohash *t, sc_ohash_element *e) {
    e->list_node.next = e->list_node.prev = nullptr;
    sc_elist_push_back(t->element_list, &e->list_node);
  }
  static void unlinking(sc_ohash *t, sc_ohash_element *e) {
    sc_elist_remove(t->element_list, &e->list_node);
  }
  static void release_parts(sc_ohash *t) {
    if (!t->element_list) return;
    sc_elist_destruct(t->element_list);
    t->element_list = nullptr;
  }
};

using Core = vds::hash::Chained<Policy>;
// The core entered from the line given, for operations that may report.
template <int Line>
using CoreAt = vds::hash::Chained<vds::At<Policy, Line>>;

sc_ohash_element *element_of(sc_elist_node *n) {
  if (!n) return nullptr;
  return reinterpret_cast<sc_ohash_element *>(
      reinterpret_cast<char *>(n) - offsetof(sc_ohash_element, list_node));
}

// Replaces the bucket array by one of n heads and chains every element again.
// Walking the list from its end and pushing each element on its chain's head
// leaves every new chain in list order; the keys are distinct, so no chain is
// searched. Elements stay where they are. On failure the table is unchanged.
int rebuild(sc_ohash *t, uint32_t n) {
  auto *heads = static_cast<sc_ohash_element **>(
      __sc_kcalloc(n, sizeof(sc_ohash_element *)));
  if (!heads) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "sc_ohash_grow: sc_calloc(%d, %d) failed\n", int(n),
             int(sizeof(sc_ohash_element *)));
    return -1;
  }
  Policy::give_buckets(nullptr, t->buckets, Core::array_bytes(t->n_buckets));
  t->buckets = heads;
  t->n_buckets = n;
  for (sc_ohash_element *e = element_of(sc_elist_peek_back(t->element_list)); e;
       e = element_of(sc_elist_get_prev(&e->list_node))) {
    sc_ohash_element **head = &heads[Core::index(t, Core::key_of(e), e->ksz)];
    e->next = *head;
    if (e->next) e->next->pprev = &e->next;
    e->pprev = head;
    *head = e;
  }
  return 0;
}

}  // namespace

VDS_API sc_ohash *sc_ohash_construct(
    uint32_t n_buckets_hint, const char *name,
    sc_ohash_value_destructor value_destructor) {
  sc_ohash *t =
      CoreAt<__LINE__>::construct(n_buckets_hint, value_destructor, nullptr);
  if (!t) return nullptr;
  t->element_list = sc_elist_construct(name);
  if (!t->element_list) {
    CoreAt<__LINE__>::destruct(t);
    return nullptr;
  }
  return t;
}

VDS_API void sc_ohash_destruct(sc_ohash *t) { CoreAt<__LINE__>::destruct(t); }

VDS_API sc_ohash_element *sc_ohash_internal_insert(
    sc_ohash *t, const void *key, uint32_t ksz, const void *val, uint32_t vsz,
    const void *extra, uint32_t extra_sz) {
  return CoreAt<__LINE__>::insert(t, key, ksz, val, vsz, extra, extra_sz);
}

VDS_API int sc_ohash_insert(sc_ohash *t, const void *key, uint32_t ksz,
                            const void *val, uint32_t vsz) {
  return sc_ohash_internal_insert(t, key, ksz, val, vsz, nullptr, 0) ? 0 : -1;
}

VDS_API int sc_ohash_find(sc_ohash *t, const void *key, uint32_t ksz,
                          void **val, uint32_t *vsz) {
  return Core::find(t, key, ksz, val, vsz);
}

VDS_API sc_ohash_element **sc_ohash_findp(sc_ohash *t, const void *key,
                                          uint32_t ksz) {
  return Core::findp(t, key, ksz);
}

VDS_API uint32_t sc_ohash_hash(sc_ohash *t, const void *key, uint32_t ksz) {
  return Core::index(t, key, ksz);
}

VDS_API int sc_ohash_delete(sc_ohash *t, const void *key, uint32_t ksz) {
  return CoreAt<__LINE__>::erase(t, key, ksz);
}

VDS_API void sc_ohash_internal_delete(sc_ohash_element *e) {
  CoreAt<__LINE__>::remove(e);
}
VDS_API void sc_ohash_delete_all(sc_ohash *t) {
  CoreAt<__LINE__>::remove_all(t);
}

// The load is computed in 64 bits, so it stays exact at any element count.
VDS_API int sc_ohash_grow(sc_ohash *t, uint32_t threshold) {
  uint64_t load = uint64_t(t->nelements) * 100 / t->n_buckets;
  if (load < threshold) return 0;
  if (!Core::array_fits(uint64_t(t->n_buckets) * 2)) {
    VDS_DIAG(vds::kFailure, Policy::kModule, "%s: cannot double %u buckets\n",
             "sc_ohash_grow", t->n_buckets);
    return -1;
  }
  return rebuild(t, t->n_buckets * 2);
}

VDS_API int sc_ohash_shrink(sc_ohash *t, uint32_t n_buckets) {
  if (n_buckets == 0 || (n_buckets & (n_buckets - 1)) != 0) {
    VDS_DIAG(vds::kFailure, Policy::kModule,
             "%s: bucket count %u is not a power of two\n", "sc_ohash_shrink",
             n_buckets);
    return -1;
  }
  if (t->n_buckets <= n_buckets) return 0;
  return rebuild(t, n_buckets);
}

VDS_API uint32_t sc_ohash_nelements(const sc_ohash *t) { return t->nelements; }

VDS_API void sc_ohash_element_get(sc_ohash_element *e, void **key,
                                  uint32_t *ksz, void **val, uint32_t *vsz) {
  Core::get(e, key, ksz, val, vsz);
}
VDS_API void sc_ohash_element_set_data(sc_ohash_element *e, void *data) {
  e->data = data;
}
VDS_API void *sc_ohash_element_get_data(const sc_ohash_element *e) {
  return e->data;
}

VDS_API sc_ohash_iter *sc_ohash_iter_construct(sc_ohash *t) {
  auto *it = CoreAt<__LINE__>::take_iter<sc_ohash_iter>(t);
  if (!it) return nullptr;
  it->table = t;
  it->next_element = element_of(sc_elist_peek_front(t->element_list));
  return it;
}

// Moves past the element before delivering it, so the caller may delete the
// element it was just given; growth and shrinking never move elements, so a
// walk continues across them.
VDS_API int sc_ohash_iter_next(sc_ohash_iter *it, void **key, uint32_t *ksz,
                               void **val, uint32_t *vsz) {
  sc_ohash_element *e = it->next_element;
  if (!e) return -1;
  sc_ohash_element_get(e, key, ksz, val, vsz);
  it->next_element = element_of(sc_elist_get_next(&e->list_node));
  return 0;
}

VDS_API void sc_ohash_iter_destruct(sc_ohash_iter *it) {
  CoreAt<__LINE__>::iter_destruct(it);
}

VDS_API void sc_ohash_debug(sc_ohash *t) { Core::dump(t); }

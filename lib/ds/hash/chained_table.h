// The one chained-table mechanism behind sc_hash, sc_ohash and sc_khash.
//
// A table is a power-of-two array of bucket heads; each head starts a chain
// of elements linked by `next`. Every element is one block: the family's
// header, the key, padding to a multiple of four, the value. `next` is the
// header's first field, so a bucket head and an element's `next` are links
// of one kind, and `pprev` names the link that holds the element, which makes
// unlinking a known element constant-time.
//
// The families differ only in policy, supplied as P:
//   Table, Element               record types (fields named as in the headers)
//   kModule, kFold, kMaxField    source name, key-hash fold, largest ksz/vsz
//   kLine                        the entering call's line (VDS_AT, diag.h),
//                                for operations that report
//   ctx(t), bind(t, ctx)         the table's allocator context
//   take/give                    records, elements and iterators
//   take_buckets/give_buckets    bucket arrays
//   linked/unlinking             hooks run as an element joins or leaves
//   release_parts                run by destruct before the record is freed
//   SizeArg, Addr, addr()        argument types of the family's messages
//   kText                        the family's message and dump texts (texts.h)
#pragma once

#include <stdint.h>
#include <string.h>

#include <concepts>

#include "diag.h"
#include "hash/key_hash.h"
#include "hash/texts.h"

namespace vds::hash {

inline constexpr uint32_t roundup4(uint32_t n) { return (n + 3u) & ~3u; }

// Hooks of a family that keeps nothing beside its chains.
struct NoHooks {
  static void linked(void *, void *) {}
  static void unlinking(void *, void *) {}
  static void release_parts(void *) {}
};

// The policy members above, as a concept: a family missing one fails here
// with the requirement it misses.
template <class P>
concept Policy = requires(typename P::Table *t, typename P::Element *e,
                          void *ctx, void *p, uint32_t n) {
  typename P::SizeArg;
  typename P::Addr;
  { P::kModule } -> std::convertible_to<const char *>;
  { P::kFold } -> std::convertible_to<Fold>;
  { P::kMaxField } -> std::convertible_to<uint32_t>;
  P::kText.construct;
  { P::ctx(t) } -> std::same_as<void *>;
  P::bind(t, ctx);
  { P::take(ctx, n) } -> std::same_as<void *>;
  P::give(ctx, p, n);
  { P::take_buckets(ctx, n) } -> std::same_as<void *>;
  P::give_buckets(ctx, p, n);
  P::linked(t, e);
  P::unlinking(t, e);
  P::release_parts(t);
  { P::addr(p) } -> std::convertible_to<typename P::Addr>;
};

template <Policy P>
struct Chained {
  using T = typename P::Table;
  using E = typename P::Element;
  using Destructor = decltype(T::value_destructor);

  // ---- element layout ----
  static char *key_of(E *e) { return reinterpret_cast<char *>(e) + sizeof(E); }
  static char *val_of(E *e) { return key_of(e) + roundup4(e->ksz); }
  static uint32_t block_size(const E *e) {
    return uint32_t(sizeof(E)) + roundup4(e->ksz) + e->vsz;
  }

  static void get(E *e, void **key, uint32_t *ksz, void **val, uint32_t *vsz) {
    if (key) *key = key_of(e);
    if (ksz) *ksz = e->ksz;
    if (val) *val = val_of(e);
    if (vsz) *vsz = e->vsz;
  }

  // ---- buckets ----
  static bool array_fits(uint64_t n_buckets) {
    return n_buckets * sizeof(E *) <= UINT32_MAX;
  }
  static uint32_t array_bytes(uint32_t n_buckets) {
    return uint32_t(n_buckets * sizeof(E *));
  }
  static uint32_t index(const T *t, const void *key, uint32_t ksz) {
    return key_hash<P::kFold>(key, ksz) & (t->n_buckets - 1);
  }

  // The link holding the element of this key, or the null link ending the
  // key's chain, where an element of this key belongs. Never null.
  static E **findp(T *t, const void *key, uint32_t ksz) {
    E **link = &t->buckets[index(t, key, ksz)];
    for (E *e; (e = *link) != nullptr; link = &e->next)
      if (e->ksz == ksz && (ksz == 0 || memcmp(key_of(e), key, ksz) == 0))
        return link;
    return link;
  }

  // ---- construction ----
  // A hint of 0 or 1 gives one bucket, any other the smallest power of two
  // not below it. Refused (null, diagnostic) when the bucket array's byte
  // size would not fit 32 bits.
  static T *construct(uint32_t hint, Destructor destructor, void *ctx) {
    uint64_t n = 1;
    while (n < hint) n <<= 1;
    if (!array_fits(n)) {
      VDS_DIAG_AT(kFailure, P, "%s: bucket count %u too large\n",
                  P::kText.construct, hint);
      return nullptr;
    }
    auto *t = static_cast<T *>(P::take(ctx, sizeof(T)));
    if (!t) {
      VDS_DIAG_AT(kFailure, P, P::kText.record_failed,
                  typename P::SizeArg(sizeof(T)));
      return nullptr;
    }
    memset(t, 0, sizeof(T));
    P::bind(t, ctx);
    uint32_t bytes = array_bytes(uint32_t(n));
    t->buckets = static_cast<E **>(P::take_buckets(ctx, bytes));
    if (!t->buckets) {
      VDS_DIAG_AT(kFailure, P, P::kText.buckets_failed, int(bytes));
      destruct(t);
      return nullptr;
    }
    t->n_buckets = uint32_t(n);
    for (uint32_t i = 0; i < t->n_buckets; i++) t->buckets[i] = nullptr;
    t->value_destructor = destructor;
    return t;
  }

  // Every element leaves through the value destructor, then the bucket
  // array, the family's own parts and the record are released.
  static void destruct(T *t) {
    if (!t) return;
    void *ctx = P::ctx(t);
    if (t->buckets) {
      remove_all(t);
      P::give_buckets(ctx, t->buckets, array_bytes(t->n_buckets));
      t->buckets = nullptr;
    }
    P::release_parts(t);
    P::give(ctx, t, sizeof(T));
  }

  // ---- insert and delete ----
  // Stores a copy of the key and of the value (vsz bytes of val, then
  // extra_sz bytes of extra). A present key is replaced in place on its
  // chain; a new key goes to its chain's end. The element is built before the
  // old one goes, so key, val and extra may point into the element replaced.
  // On any failure the table is unchanged and null is returned.
  static E *insert(T *t, const void *key, uint32_t ksz, const void *val,
                   uint32_t vsz, const void *extra, uint32_t extra_sz) {
    if (extra_sz && !extra) {
      VDS_DIAG_AT(kFailure, P, "%s: extra is NULL but extra_sz is %u\n",
                  P::kText.insert, extra_sz);
      return nullptr;
    }
    uint64_t vtotal = uint64_t(vsz) + extra_sz;
    uint64_t size = sizeof(E) + ((uint64_t(ksz) + 3) & ~uint64_t(3)) + vtotal;
    if (ksz > P::kMaxField || vtotal > P::kMaxField || size > UINT32_MAX) {
      VDS_DIAG_AT(kFailure, P, "%s: ksz %u or vsz %u + extra_sz %u too large\n",
                  P::kText.insert, ksz, vsz, extra_sz);
      return nullptr;
    }
    auto *e = static_cast<E *>(P::take(P::ctx(t), uint32_t(size)));
    if (!e) {
      VDS_DIAG_AT(kFailure, P, P::kText.insert_failed, int(size));
      return nullptr;
    }
    e->table = t;
    e->data = nullptr;
    e->ksz = static_cast<decltype(e->ksz)>(ksz);
    e->vsz = static_cast<decltype(e->vsz)>(vtotal);
    if (ksz) memcpy(key_of(e), key, ksz);
    if (val && vsz) memcpy(val_of(e), val, vsz);
    if (extra_sz) memcpy(val_of(e) + vsz, extra, extra_sz);

    E **link = findp(t, key, ksz);
    if (*link) remove(*link);  // the link now holds the old one's successor
    e->next = *link;
    if (e->next) e->next->pprev = &e->next;
    t->nelements++;
    *link = e;
    e->pprev = link;
    P::linked(t, e);
    return e;
  }

  // Unlinks the element, hands its value to the value destructor and frees
  // it. An element on no chain (null pprev) is reported and left alone.
  static void remove(E *e) {
    if (!e->pprev) {
      VDS_DIAG_AT(kFailure, P, P::kText.corrupt, P::addr(e));
      return;
    }
    T *t = e->table;
    P::unlinking(t, e);
    if (e->next) e->next->pprev = e->pprev;
    *e->pprev = e->next;
    uint32_t size = block_size(e);
    if (t->value_destructor) t->value_destructor(val_of(e), e->vsz);
    memset(static_cast<void *>(e), 0, sizeof(E));
    P::give(P::ctx(t), e, size);
    t->nelements--;
  }

  // Lookup and deletion by key: 0 when the key is present, -1 otherwise.
  static int find(T *t, const void *key, uint32_t ksz, void **val,
                  uint32_t *vsz) {
    E *e = *findp(t, key, ksz);
    if (!e) return -1;
    get(e, nullptr, nullptr, val, vsz);
    return 0;
  }
  static int erase(T *t, const void *key, uint32_t ksz) {
    E *e = *findp(t, key, ksz);
    if (!e) return -1;
    remove(e);
    return 0;
  }

  // Bucket by bucket, each chain from head to tail.
  static void remove_all(T *t) {
    for (uint32_t i = 0; i < t->n_buckets; i++) {
      for (E *e = t->buckets[i], *next; e; e = next) {
        next = e->next;
        remove(e);
      }
    }
  }

  // An iterator's block, reported when it cannot be had, and its release.
  // A family with its own walk order fills the block in itself.
  template <class It>
  static It *take_iter(T *t) {
    auto *it = static_cast<It *>(P::take(P::ctx(t), sizeof(It)));
    if (!it)
      VDS_DIAG_AT(kFailure, P, P::kText.iter_failed,
                  typename P::SizeArg(sizeof(It)));
    return it;
  }

  template <class It>
  static void iter_destruct(It *it) {
    if (it) P::give(P::ctx(it->table), it, sizeof(It));
  }

  // ---- bucket-order iteration (iterators with table/next_element/bucket) ----
  template <class It>
  static It *iter_construct(T *t) {
    It *it = take_iter<It>(t);
    if (it) iter_start(it, t);
    return it;
  }

  template <class It>
  static void iter_start(It *it, T *t) {
    it->table = t;
    it->bucket = t->buckets;
    iter_settle(it, *it->bucket);
  }

  // next_element becomes e or, when e is null, the head of the first
  // non-empty bucket after the current one; null (and bucket one past the
  // last head) when there is none.
  template <class It>
  static void iter_settle(It *it, E *e) {
    E **end = it->table->buckets + it->table->n_buckets;
    while (!e && ++it->bucket < end) e = *it->bucket;
    it->next_element = e;
  }

  // Moves past the element before delivering it, so the caller may delete
  // the element it was just given.
  template <class It>
  static int iter_next(It *it, void **key, uint32_t *ksz, void **val,
                       uint32_t *vsz) {
    E *e = it->next_element;
    if (!e) return -1;
    get(e, key, ksz, val, vsz);
    iter_settle(it, e->next);
    return 0;
  }

  // ---- dump ----
  static void dump(T *t) {
    sc_printf(P::kText.dump_head, P::addr(t));
    for (uint32_t i = 0; i < t->n_buckets; i++) {
      for (E *e = t->buckets[i]; e; e = e->next) {
        if (e->ksz != 4 || e->vsz != 4) {
          sc_printf(P::kText.dump_odd, P::addr(e));
          continue;
        }
        const auto *k = reinterpret_cast<unsigned char *>(key_of(e));
        const auto *v = reinterpret_cast<unsigned char *>(val_of(e));
        sc_printf(P::kText.dump_element, P::addr(e), k[0], k[1], k[2], k[3],
                  v[0], v[1], v[2], v[3]);
      }
    }
  }
};

}  // namespace vds::hash

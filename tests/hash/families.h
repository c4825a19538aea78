// One adapter per table family, so that what the families share is tested
// once against each. Tables are made with the recording value destructor.
#pragma once

#include <inttypes.h>
#include <stdio.h>

#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "hash/key_hash.h"
#include "hash/sc_hash_private.h"
#include "sc_khash.h"
#include "sc_ohash.h"
#include "test_host.h"

namespace ht {

using Bytes = std::string;
using S = std::vector<std::string>;
inline std::string num(size_t n) { return std::to_string(n); }

// Every value the value destructor was handed.
inline S &destroyed() {
  static S log;
  return log;
}
inline void record_destroyed(void *val, uint32_t vsz) {
  destroyed().emplace_back(static_cast<char *>(val), vsz);
}

// An address as "%" PRIxPTR prints it (hex) and as glibc's "%p" does (ptr).
inline std::string hex(const void *p) {
  char s[32];
  snprintf(s, sizeof s, "%" PRIxPTR, reinterpret_cast<uintptr_t>(p));
  return s;
}
inline std::string ptr(const void *p) { return "0x" + hex(p); }

// Everything an iterator delivers, as key=value; each(key) runs once the
// element is recorded and may delete it.
template <class It, class Next, class Each = void (*)(std::string_view)>
S drain(
    It *it, Next next, Each each = [](std::string_view) {}) {
  S out;
  void *k, *v;
  uint32_t ksz, vsz;
  while (next(it, &k, &ksz, &v, &vsz) == 0) {
    out.push_back(Bytes(static_cast<char *>(k), ksz) + "=" +
                  Bytes(static_cast<char *>(v), vsz));
    each(Bytes(static_cast<char *>(k), ksz));
  }
  return out;
}

// Fails, in turn, every allocation of the operation that body(arm) brackets
// with arm() (the set-up before it runs without failures). Returns the
// diagnostics of each failing run, one string per run, all at level 2; one
// from another module is prefixed "[module] ". Leaks and release errors are
// checked after every run.
template <class Body>
S failure_texts(const char *module, Body body) {
  S out;
  th::sweep([&](long k) {
    th::fail_nth(0);
    body([k] {
      th::clear_output();
      th::fail_nth(k);
    });
    if (!th::failure_injected()) return;
    std::string all;
    for (const th::Diag &d : th::diags()) {
      EXPECT_EQ(d.level, 2) << d.text;
      all += (d.file != module ? "[" + d.file + "] " : "") + d.text;
    }
    out.push_back(all);
  });
  return out;
}

// The calls every family names alike.
#define FAMILY_CALLS(p)                                      \
  static constexpr auto findp = p##_findp;                   \
  static constexpr auto remove = p##_internal_delete;        \
  static constexpr auto iter_construct = p##_iter_construct; \
  static constexpr auto iter_next = p##_iter_next;           \
  static constexpr auto iter_destruct = p##_iter_destruct;   \
  static constexpr auto destroy = p##_destruct;              \
  static constexpr auto dump = p##_debug;                    \
  static constexpr auto delete_all = p##_delete_all

template <class F, class T, class E, class It>
struct Family {
  T *t = F::make(8);
  ~Family() { F::destroy(t); }
  F &self() { return static_cast<F &>(*this); }

  E *element(std::string_view k) { return *F::findp(t, k.data(), k.size()); }
  std::optional<Bytes> find(std::string_view k) {
    E *e = element(k);
    if (!e) return {};
    return Bytes(
        reinterpret_cast<char *>(e) + sizeof *e + ((e->ksz + 3u) & ~3u),
        e->vsz);
  }
  uint32_t size() { return t->nelements; }
  // A whole walk; with `erasing`, each element is deleted once delivered.
  S walk(bool erasing = false) {
    It *it = F::iter_construct(t);
    S out = drain(it, F::iter_next, [&](std::string_view k) {
      if (erasing) self().erase(k);
    });
    F::iter_destruct(it);
    return out;
  }
  bool iter_works() {
    It *it = F::iter_construct(t);
    F::iter_destruct(it);
    return it;
  }

  // Walks the chains directly (no allocation), checking that every pprev
  // names the link holding its element, that every element names its table
  // and lies in its key's bucket, and that nelements counts them. Returns
  // "bucket:key=value" in bucket and chain order.
  S chains() {
    S out;
    for (uint32_t b = 0; b < t->n_buckets; b++) {
      for (E **link = &t->buckets[b]; *link; link = &(*link)->next) {
        E *e = *link;
        EXPECT_EQ(e->pprev, link);
        EXPECT_EQ(e->table, t);
        const char *key = reinterpret_cast<char *>(e) + sizeof *e;
        std::string_view k(key, e->ksz);
        EXPECT_EQ(self().index(k), b);
        out.push_back(num(b) + ":" + Bytes(k) + "=" +
                      Bytes(key + ((e->ksz + 3u) & ~3u), e->vsz));
      }
    }
    EXPECT_EQ(out.size(), t->nelements);
    return out;
  }

  // Expected failure messages.
  static std::string fails(const char *op, const char *alloc, size_t n) {
    return std::string(F::kName) + op + ": " + alloc + "(" + num(n) +
           ") failed";
  }
  static std::string insert_failure(size_t key_and_value) {
    return fails("_internal_insert", F::kAlloc, sizeof(E) + key_and_value);
  }
  static std::string iter_failure() {
    return fails("_iter_construct", F::kAlloc, sizeof(It));
  }
  static S construct_failures(uint32_t n) {
    return {fails("_construct", F::kAlloc, sizeof(T)),
            fails("_construct", F::kArrayAlloc, n * sizeof(void *)) + "\n"};
  }
};

struct HashFamily : Family<HashFamily, sc_hash, sc_hash_element, sc_hash_iter> {
  static constexpr const char *kName = "sc_hash", *kAlloc = "sc_malloc",
                              *kArrayAlloc = "sc_malloc";
  static constexpr const char *kModule = "lib/re/ds/src/sc_hash";
  static constexpr bool kListOrder = false;  // walks in bucket order
  FAMILY_CALLS(sc_hash);
  static sc_hash *make(uint32_t n) {
    return sc_hash_construct(n, record_destroyed);
  }
  static std::string addr(const void *p) { return hex(p); }
  // The family has no extra piece: the split is ignored.
  bool insert(std::string_view k, const Bytes &v, size_t) {
    return sc_hash_insert(t, k.data(), k.size(), v.data(), v.size()) == 0;
  }
  bool erase(std::string_view k) {
    return sc_hash_delete(t, k.data(), k.size()) == 0;
  }
  std::optional<Bytes> find(std::string_view k) {
    void *v;
    uint32_t vsz;
    if (sc_hash_find(t, k.data(), k.size(), &v, &vsz) != 0) return {};
    return Bytes(static_cast<char *>(v), vsz);
  }
  uint32_t index(std::string_view k) {
    return sc_hash_hash(t, k.data(), k.size());
  }
  void resize(std::mt19937 &) {}
};

struct OhashFamily
    : Family<OhashFamily, sc_ohash, sc_ohash_element, sc_ohash_iter> {
  static constexpr const char *kName = "sc_ohash", *kAlloc = "sc_malloc",
                              *kArrayAlloc = "sc_malloc";
  static constexpr const char *kModule = "lib/re/ds/src/sc_ohash";
  static constexpr bool kListOrder = true;  // walks in insertion order
  FAMILY_CALLS(sc_ohash);
  static sc_ohash *make(uint32_t n) {
    return sc_ohash_construct(n, "tbl", record_destroyed);
  }
  static std::string addr(const void *p) { return hex(p); }
  static S construct_failures(uint32_t n) {
    S out = Family::construct_failures(n);
    out.push_back(
        "[lib/re/ds/src/sc_elist] sc_elist_construct[tbl]: "
        "sc_malloc(" +
        num(sizeof(sc_elist)) + ") failed\n");
    return out;
  }
  // The value is stored as its bytes before `split`, then the extra piece.
  bool insert(std::string_view k, const Bytes &v, size_t split) {
    return sc_ohash_internal_insert(t, k.data(), k.size(), v.data(), split,
                                    v.data() + split, v.size() - split);
  }
  bool erase(std::string_view k) {
    return sc_ohash_delete(t, k.data(), k.size()) == 0;
  }
  std::optional<Bytes> find(std::string_view k) {
    void *v;
    uint32_t vsz;
    if (sc_ohash_find(t, k.data(), k.size(), &v, &vsz) != 0) return {};
    return Bytes(static_cast<char *>(v), vsz);
  }
  uint32_t index(std::string_view k) {
    return sc_ohash_hash(t, k.data(), k.size());
  }
  void resize(std::mt19937 &rng) {
    if (rng() % 2)
      EXPECT_EQ(sc_ohash_grow(t, rng() % 200), 0);
    else
      EXPECT_EQ(sc_ohash_shrink(t, 1u << (rng() % 6)), 0);
  }
};

struct KhashFamily
    : Family<KhashFamily, sc_khash, sc_khash_element, sc_khash_iter> {
  static constexpr const char *kName = "sc_khash", *kAlloc = "sc_szalloc",
                              *kArrayAlloc = "sc_kmalloc";
  static constexpr const char *kModule = "lib/pfe/ds/src/sc_khash";
  static constexpr bool kListOrder = false;
  FAMILY_CALLS(sc_khash);
  static th::Ctx &ctx() {
    static th::Ctx c(1 << 18);
    return c;
  }
  static sc_khash *make(uint32_t n) {
    return sc_khash_construct(n, ctx(), record_destroyed);
  }
  static std::string addr(const void *p) { return ptr(p); }
  bool insert(std::string_view k, const Bytes &v, size_t split) {
    return sc_khash_internal_insert(t, k.data(), k.size(), v.data(), split,
                                    v.data() + split, v.size() - split);
  }
  bool erase(std::string_view k) {
    sc_khash_element *e = element(k);
    if (e) sc_khash_internal_delete(e);
    return e;
  }
  uint32_t index(std::string_view k) {
    using vds::hash::Fold;
    return vds::hash::key_hash<Fold::kLongKeys>(k.data(), k.size()) &
           (t->n_buckets - 1);
  }
  void resize(std::mt19937 &) {}
};

template <class F>
class FamilyTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    destroyed().clear();
  }
};
using Families = ::testing::Types<HashFamily, OhashFamily, KhashFamily>;

}  // namespace ht

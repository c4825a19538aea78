// The three chained tables against a std::map: inserts (replacing), finds,
// deletes, walks that may delete what they deliver, delete-all, and per
// family resizing (sc_ohash) or serialisation (sc_hash); every failed
// allocation leaves the table as it was.
#include <map>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "sc_hash.h"
#include "sc_khash.h"
#include "sc_ohash.h"

namespace {

using Bytes = std::string;
long destroyed;  // values handed to the value destructor
void count_destroyed(void *, uint32_t) { ++destroyed; }

#define D(s) (s).data(), uint32_t((s).size())

// A lookup through a control-side find: the value, or false when absent.
template <class Find, class T>
bool found(Find find, T *t, const Bytes &k, Bytes *v) {
  void *p;
  uint32_t n;
  if (find(t, D(k), &p, &n) != 0) return false;
  return v->assign(static_cast<char *>(p), n), true;
}

// Each family's calls under one set of names.
struct Hash {
  static constexpr bool kListOrder = false;
  sc_hash *t;
  Hash(uint32_t n, void *) : t(sc_hash_construct(n, count_destroyed)) {}
  bool insert(const Bytes &k, const Bytes &v, size_t) {
    return sc_hash_insert(t, D(k), D(v)) == 0;
  }
  bool erase(const Bytes &k) { return sc_hash_delete(t, D(k)) == 0; }
  bool find(const Bytes &k, Bytes *v) { return found(sc_hash_find, t, k, v); }
};

struct Ohash {
  static constexpr bool kListOrder = true;
  sc_ohash *t;
  Ohash(uint32_t n, void *)
      : t(sc_ohash_construct(n, "fuzz", count_destroyed)) {}
  bool insert(const Bytes &k, const Bytes &v, size_t split) {
    if (split == v.size()) return sc_ohash_insert(t, D(k), D(v)) == 0;
    return sc_ohash_internal_insert(t, D(k), v.data(), uint32_t(split),
                                    v.data() + split,
                                    uint32_t(v.size() - split)) != nullptr;
  }
  bool erase(const Bytes &k) { return sc_ohash_delete(t, D(k)) == 0; }
  bool find(const Bytes &k, Bytes *v) { return found(sc_ohash_find, t, k, v); }
};

struct Khash {
  static constexpr bool kListOrder = false;
  sc_khash *t;
  Khash(uint32_t n, void *ctx)
      : t(sc_khash_construct(n, ctx, count_destroyed)) {}
  bool insert(const Bytes &k, const Bytes &v, size_t split) {
    return sc_khash_internal_insert(t, D(k), v.data(), uint32_t(split),
                                    v.data() + split,
                                    uint32_t(v.size() - split)) != nullptr;
  }
  bool erase(const Bytes &k) {
    sc_khash_element *e = *sc_khash_findp(t, D(k));
    if (e) sc_khash_internal_delete(e);
    return e;
  }
  bool find(const Bytes &k, Bytes *v) {
    sc_khash_element *e = *sc_khash_findp(t, D(k));
    if (!e) return false;
    return v->assign(static_cast<char *>(sc_khash_element_val(e)), e->vsz),
           true;
  }
};

#define ITER(F, p)                                                   \
  static p##_iter *iter(F &f) { return p##_iter_construct(f.t); }    \
  static int next(p##_iter *it, void **k, uint32_t *ks, void **v,    \
                  uint32_t *vs) {                                    \
    return p##_iter_next(it, k, ks, v, vs);                          \
  }                                                                  \
  static void iter_destruct(p##_iter *it) { p##_iter_destruct(it); } \
  static void delete_all(F &f) { p##_delete_all(f.t); }              \
  static void destruct(F &f) { p##_destruct(f.t); }
struct HashOps {
  ITER(Hash, sc_hash)
};
struct OhashOps {
  ITER(Ohash, sc_ohash)
};
struct KhashOps {
  ITER(Khash, sc_khash)
};

Bytes consume_bytes(FuzzedDataProvider &in, size_t max) {
  // Few distinct bytes, so keys collide and repeat.
  Bytes s;
  for (size_t n = in.ConsumeIntegralInRange<size_t>(0, max); n--;)
    s += "ab\0\xff"[in.ConsumeIntegralInRange<int>(0, 3)];
  return s;
}

template <class F, class Ops>
void run(FuzzedDataProvider &in) {
  th::Ctx ctx(in.ConsumeIntegralInRange<uint32_t>(128, 1024));
  uint32_t hint = in.ConsumeIntegralInRange<uint32_t>(0, 64);
  fuzz::begin(in);
  destroyed = 0;
  F f(hint, ctx.get());
  if (!f.t) {
    FUZZ_CHECK(fuzz::failed());
    return fuzz::end();
  }
  std::map<Bytes, Bytes> model;
  std::vector<Bytes> order;  // sc_ohash: keys in list order
  long gone = 0;             // values that left the table
  auto forget = [&](const Bytes &k) {
    model.erase(k), ++gone;
    if (F::kListOrder) std::erase(order, k);
  };
  // Walks the table; erases each delivered element when asked.
  auto walk = [&](bool erase_each) {
    auto *it = Ops::iter(f);
    if (!it) return FUZZ_CHECK(fuzz::failed());
    std::vector<Bytes> seen;
    void *k, *v;
    uint32_t ks, vs;
    std::map<Bytes, Bytes> left = model;
    while (Ops::next(it, &k, &ks, &v, &vs) == 0) {
      Bytes key(static_cast<char *>(k), ks);
      auto m = left.find(key);
      FUZZ_CHECK(m != left.end() && m->second == Bytes((char *)v, vs));
      left.erase(m), seen.push_back(key);
      if (erase_each) FUZZ_CHECK(f.erase(key)), forget(key);
    }
    FUZZ_CHECK(left.empty());
    FUZZ_CHECK(!F::kListOrder || erase_each || seen == order);
    Ops::iter_destruct(it);
  };

  while (in.remaining_bytes() > 0) {
    Bytes k = consume_bytes(in, 6);
    auto present = model.find(k);
    Bytes old, got;
    switch (in.ConsumeIntegralInRange<int>(0, 9)) {
      case 0:
      case 1:
      case 2: {
        Bytes v = consume_bytes(in, 12);
        size_t split = in.ConsumeIntegralInRange<size_t>(0, v.size());
        if (f.insert(k, v, split)) {
          if (present != model.end()) ++gone;
          model[k] = v;
          if (F::kListOrder) std::erase(order, k), order.push_back(k);
        } else {
          FUZZ_CHECK(fuzz::failed());
        }
        break;
      }
      case 3:
      case 4:
        FUZZ_CHECK(f.erase(k) == (present != model.end()));
        if (present != model.end()) forget(k);
        break;
      case 5:
      case 6:
        FUZZ_CHECK(f.find(k, &got) == (present != model.end()));
        FUZZ_CHECK(present == model.end() || got == present->second);
        break;
      case 7:
        walk(in.ConsumeBool());
        break;
      case 8:
        if (in.ConsumeIntegralInRange<int>(0, 7) == 0) {
          Ops::delete_all(f);
          gone += model.size(), model.clear(), order.clear();
        }
        break;
      default:
        if constexpr (std::is_same_v<F, Ohash>) {
          // Growth stops at 4096 buckets, where repeated doubling would
          // only spend the fuzzer's memory.
          uint32_t was = f.t->n_buckets;
          int r = in.ConsumeBool() && was < 4096
                      ? sc_ohash_grow(f.t, in.ConsumeIntegralInRange(0, 300))
                      : sc_ohash_shrink(f.t, in.ConsumeIntegralInRange(0, 64));
          FUZZ_CHECK(r == 0 || f.t->n_buckets == was);  // refused: unchanged
        }
        if constexpr (std::is_same_v<F, Hash>) {
          void *buf;
          uint32_t len;
          if (sc_hash_serialize(f.t, &buf, &len) != 0) {
            FUZZ_CHECK(fuzz::failed());
            break;
          }
          // Records of 4-byte little-endian ksz, key, vsz, value.
          std::map<Bytes, Bytes> image;
          const auto *p = static_cast<const unsigned char *>(buf);
          auto word = [&](uint32_t at) {
            return p[at] | p[at + 1] << 8 | p[at + 2] << 16 |
                   uint32_t(p[at + 3]) << 24;
          };
          for (uint32_t at = 0; at < len;) {
            FUZZ_CHECK(len - at >= 4);
            uint32_t ks = word(at);
            FUZZ_CHECK(len - at - 4 >= ks + 4);
            Bytes key((const char *)p + at + 4, ks);
            uint32_t vs = word(at + 4 + ks);
            FUZZ_CHECK(len - at - 8 - ks >= vs);
            image[key] = Bytes((const char *)p + at + 8 + ks, vs);
            at += 8 + ks + vs;
          }
          FUZZ_CHECK(image == model);
          if (buf) __sc_kfree(buf, len);
        }
    }
    FUZZ_CHECK(destroyed == gone);
    if (fuzz::failed()) th::fail_nth(0);  // one failure per input
  }
  walk(false);
  Ops::destruct(f);
  FUZZ_CHECK(destroyed == gone + long(model.size()));
  fuzz::end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
      run<Hash, HashOps>(in);
      break;
    case 1:
      run<Ohash, OhashOps>(in);
      break;
    default:
      run<Khash, KhashOps>(in);
  }
  return 0;
}

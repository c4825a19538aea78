// Random operation sequences checked against a reference map: contents,
// lookups, walk order, element count and value-destructor calls, with
// injected allocation failures along the way.
#include <algorithm>
#include <map>
#include <optional>
#include <random>

#include "hash/sc_hash_private.h"
#include "hash_test_util.h"
#include "sc_khash.h"
#include "sc_ohash.h"

namespace {

using ht::Bytes;
using ht::destroyed;
using S = std::vector<std::string>;

std::optional<Bytes> value(int rc, void *v, uint32_t vsz) {
  if (rc != 0) return std::nullopt;
  return Bytes(static_cast<char *>(v), vsz);
}

struct HashFamily {
  static constexpr bool kListOrder = false;  // walk in bucket order
  sc_hash *t = sc_hash_construct(8, ht::record_destroyed);
  ~HashFamily() { sc_hash_destruct(t); }
  bool insert(const Bytes &k, const Bytes &v, size_t) {
    return sc_hash_insert(t, k.data(), k.size(), v.data(), v.size()) == 0;
  }
  bool erase(const Bytes &k) {
    return sc_hash_delete(t, k.data(), k.size()) == 0;
  }
  std::optional<Bytes> find(const Bytes &k) {
    void *v = nullptr;
    uint32_t vsz = 0;
    int rc = sc_hash_find(t, k.data(), k.size(), &v, &vsz);
    return value(rc, v, vsz);
  }
  uint32_t index(const Bytes &k) { return sc_hash_hash(t, k.data(), k.size()); }
  uint32_t size() { return sc_hash_nelements(t); }
  void clear() { sc_hash_delete_all(t); }
  void resize(std::mt19937 &) {}
  S walk() {
    return ht::walk(t, sc_hash_iter_construct, sc_hash_iter_next,
                    sc_hash_iter_destruct);
  }
};

struct OhashFamily {
  static constexpr bool kListOrder = true;  // walk in insertion order
  sc_ohash *t = sc_ohash_construct(2, "model", ht::record_destroyed);
  ~OhashFamily() { sc_ohash_destruct(t); }
  // The value is split at `split` into value and extra bytes.
  bool insert(const Bytes &k, const Bytes &v, size_t split) {
    return sc_ohash_internal_insert(t, k.data(), k.size(), v.data(), split,
                                    v.data() + split, v.size() - split);
  }
  bool erase(const Bytes &k) {
    return sc_ohash_delete(t, k.data(), k.size()) == 0;
  }
  std::optional<Bytes> find(const Bytes &k) {
    void *v = nullptr;
    uint32_t vsz = 0;
    int rc = sc_ohash_find(t, k.data(), k.size(), &v, &vsz);
    return value(rc, v, vsz);
  }
  uint32_t index(const Bytes &k) {
    return sc_ohash_hash(t, k.data(), k.size());
  }
  uint32_t size() { return sc_ohash_nelements(t); }
  void clear() { sc_ohash_delete_all(t); }
  void resize(std::mt19937 &rng) {
    if (rng() % 2)
      EXPECT_EQ(sc_ohash_grow(t, rng() % 200), 0);
    else
      EXPECT_EQ(sc_ohash_shrink(t, 1u << (rng() % 6)), 0);
  }
  S walk() {
    return ht::walk(t, sc_ohash_iter_construct, sc_ohash_iter_next,
                    sc_ohash_iter_destruct);
  }
};

struct KhashFamily {
  static constexpr bool kListOrder = false;
  th::Ctx ctx{256};
  sc_khash *t = sc_khash_construct(8, ctx, ht::record_destroyed);
  ~KhashFamily() { sc_khash_destruct(t); }
  bool insert(const Bytes &k, const Bytes &v, size_t split) {
    return sc_khash_internal_insert(t, k.data(), k.size(), v.data(), split,
                                    v.data() + split, v.size() - split);
  }
  bool erase(const Bytes &k) {
    sc_khash_element *e = *sc_khash_findp(t, k.data(), k.size());
    if (e) sc_khash_internal_delete(e);
    return e;
  }
  std::optional<Bytes> find(const Bytes &k) {
    sc_khash_element *e = *sc_khash_findp(t, k.data(), k.size());
    if (!e) return std::nullopt;
    return Bytes(static_cast<char *>(sc_khash_element_val(e)), e->vsz);
  }
  uint32_t index(const Bytes &k) {
    sc_khash_element **link = sc_khash_findp(t, k.data(), k.size());
    while (link < t->buckets || link >= t->buckets + t->n_buckets)
      link = reinterpret_cast<sc_khash_element *>(link)->pprev;
    return uint32_t(link - t->buckets);
  }
  uint32_t size() { return t->nelements; }
  void clear() { sc_khash_delete_all(t); }
  void resize(std::mt19937 &) {}
  S walk() {
    return ht::walk(t, sc_khash_iter_construct, sc_khash_iter_next,
                    sc_khash_iter_destruct);
  }
};

template <class F>
class ModelTest : public HostTest {};
using Families = ::testing::Types<HashFamily, OhashFamily, KhashFamily>;
TYPED_TEST_SUITE(ModelTest, Families);

TYPED_TEST(ModelTest, RandomOperationsMatchAReferenceMap) {
  for (unsigned seed = 1; seed <= 4; seed++) {
    destroyed().clear();
    std::mt19937 rng(seed);
    struct Entry {
      Bytes value;
      uint64_t seq;  // walk position within a bucket (or the whole list)
    };
    std::map<Bytes, Entry> model;
    uint64_t seq = 0, stored = 0;
    auto random_bytes = [&](size_t max_len) {
      Bytes s(rng() % (max_len + 1), '\0');
      for (char &c : s) c = "ab\0\xff"[rng() % 4];
      return s;
    };
    {
      TypeParam f;
      ASSERT_TRUE(f.t);
      auto check_walk = [&] {
        std::vector<std::pair<std::pair<uint64_t, uint64_t>, Bytes>> order;
        for (auto &[k, e] : model)
          order.push_back({{TypeParam::kListOrder ? 0 : f.index(k), e.seq},
                           k + "=" + e.value});
        std::sort(order.begin(), order.end());
        S expect;
        for (auto &o : order) expect.push_back(o.second);
        EXPECT_EQ(f.walk(), expect) << "seed " << seed;
      };
      for (int step = 0; step < 3000; step++) {
        Bytes key = random_bytes(6);
        auto it = model.find(key);
        switch (rng() % 10) {
          case 0:
          case 1:
          case 2:
          case 3:
          case 4: {
            Bytes v = random_bytes(9);
            bool fail = rng() % 8 == 0;
            if (fail) th::fail_nth(1);
            bool ok = f.insert(key, v, rng() % (v.size() + 1));
            ASSERT_EQ(ok, !fail) << "seed " << seed << " step " << step;
            if (!ok) break;
            stored++;
            if (it != model.end()) {
              EXPECT_EQ(destroyed().back(), it->second.value);
              it->second.value = v;
              if (TypeParam::kListOrder) it->second.seq = seq++;
            } else {
              model[key] = Entry{v, seq++};
            }
            break;
          }
          case 5:
          case 6:
            EXPECT_EQ(f.erase(key), it != model.end());
            if (it != model.end()) {
              EXPECT_EQ(destroyed().back(), it->second.value);
              model.erase(it);
            }
            break;
          case 7:
          case 8:
            EXPECT_EQ(f.find(key), it == model.end() ? std::nullopt
                                                     : std::optional<Bytes>(
                                                           it->second.value));
            break;
          default:
            if (rng() % 8 == 0) {
              f.clear();
              model.clear();
            } else {
              f.resize(rng);
            }
        }
        ASSERT_EQ(f.size(), model.size());
        ASSERT_EQ(destroyed().size(), stored - model.size());
        if (step % 100 == 0) check_walk();
      }
      check_walk();
    }
    EXPECT_EQ(destroyed().size(), stored);  // destruct released the rest
    th::expect_clean();
    th::reset();
  }
}

}  // namespace

#include "sc_ohash.h"

#include <inttypes.h>
#include <string.h>

#include "hash_test_util.h"

namespace {

using ht::Bytes;
using ht::destroyed;
using S = std::vector<std::string>;

constexpr const char *kModule = "lib/re/ds/src/sc_ohash";

class OhashTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    destroyed().clear();
  }
  static S chains(sc_ohash *t) {
    return ht::chains(t, [](sc_ohash *o, const Bytes &k) {
      return sc_ohash_hash(o, k.data(), k.size());
    });
  }
  static void put(sc_ohash *t, const Bytes &k, const Bytes &v) {
    ASSERT_EQ(sc_ohash_insert(t, k.data(), k.size(), v.data(), v.size()), 0);
  }
  static Bytes next(sc_ohash_iter *it) {
    void *k, *v;
    uint32_t ksz, vsz;
    if (sc_ohash_iter_next(it, &k, &ksz, &v, &vsz) != 0) return "<end>";
    return Bytes(static_cast<char *>(k), ksz) + "=" +
           Bytes(static_cast<char *>(v), vsz);
  }
  // The iteration order, checked against the list's own length.
  static S walk(sc_ohash *t) {
    S out = ht::walk(t, sc_ohash_iter_construct, sc_ohash_iter_next,
                     sc_ohash_iter_destruct);
    EXPECT_EQ(out.size(), sc_elist_get_size(t->element_list));
    return out;
  }
};

TEST_F(OhashTest, ReplacedKeyMovesToTheEndOfTheWalkButKeepsItsChainPlace) {
  sc_ohash *t = sc_ohash_construct(16, "flows", ht::record_destroyed);
  ASSERT_TRUE(t);
  EXPECT_STREQ(t->element_list->name, "flows");
  put(t, "k1", "a");
  put(t, "k2", "b");
  put(t, "k3", "c");
  put(t, "k1", "A");
  EXPECT_EQ(walk(t), (S{"k2=b", "k3=c", "k1=A"}));
  EXPECT_EQ(chains(t), (S{"0:k1=A", "0:k2=b", "0:k3=c"}));
  EXPECT_EQ(destroyed(), S{"a"});
  EXPECT_EQ(sc_ohash_nelements(t), 3u);

  // The stored value is the value bytes followed by the extra bytes.
  sc_ohash_element *e =
      sc_ohash_internal_insert(t, "x", 1, "\1\2", 2, "\3\4\5", 3);
  ASSERT_TRUE(e);
  EXPECT_EQ(*sc_ohash_findp(t, "x", 1), e);
  void *v;
  uint32_t vsz;
  ASSERT_EQ(sc_ohash_find(t, "x", 1, &v, &vsz), 0);
  EXPECT_EQ(Bytes(static_cast<char *>(v), vsz), "\1\2\3\4\5");
  // Refused before allocating: extra missing, element over a 32-bit size.
  long attempts = th::alloc_attempts();
  EXPECT_EQ(sc_ohash_internal_insert(t, "y", 1, "v", 1, nullptr, 2), nullptr);
  EXPECT_EQ(
      sc_ohash_internal_insert(t, "y", 1, nullptr, UINT32_MAX - 8, "e", 1),
      nullptr);
  EXPECT_EQ(th::diag_text(),
            "sc_ohash_internal_insert: extra is NULL but extra_sz is 2\n"
            "sc_ohash_internal_insert: ksz 1 or vsz " +
                std::to_string(UINT32_MAX - 8) + " + extra_sz 1 too large\n");
  EXPECT_EQ(th::alloc_attempts(), attempts);

  sc_ohash_element **absent = sc_ohash_findp(t, "zz", 2);
  EXPECT_EQ(*absent, nullptr);
  EXPECT_EQ(sc_ohash_delete(t, "zz", 2), -1);
  EXPECT_EQ(sc_ohash_delete(t, "k2", 2), 0);
  EXPECT_EQ(walk(t), (S{"k3=c", "k1=A", "x=\1\2\3\4\5"}));

  destroyed().clear();
  sc_ohash_delete_all(t);
  EXPECT_EQ(destroyed().size(), 3u);
  EXPECT_EQ(walk(t), S{});
  put(t, "new", "n");
  EXPECT_EQ(walk(t), S{"new=n"});
  sc_ohash_destruct(t);
  sc_ohash_destruct(nullptr);
}

TEST_F(OhashTest, GrowAndShrinkRebuildChainsFromTheList) {
  sc_ohash *t = sc_ohash_construct(8, "g", nullptr);
  ASSERT_TRUE(t);
  S order;
  for (int i = 0; i < 6; i++) {
    Bytes k = "key" + std::to_string(i * 37);
    put(t, k, std::to_string(i));
    order.push_back(k + "=" + std::to_string(i));
  }
  sc_ohash_element *first = *sc_ohash_findp(t, "key0", 4);
  sc_ohash_iter *it = sc_ohash_iter_construct(t);
  EXPECT_EQ(next(it), order[0]);

  EXPECT_EQ(sc_ohash_grow(t, 76), 0);  // load 75 is below 76
  EXPECT_EQ(t->n_buckets, 8u);
  EXPECT_EQ(sc_ohash_grow(t, 75), 0);
  EXPECT_EQ(t->n_buckets, 16u);
  EXPECT_EQ(th::blocks().back().alloc, th::Alloc::kcalloc);
  EXPECT_EQ(th::blocks().back().size, 16 * sizeof(void *));
  EXPECT_EQ(next(it), order[1]);  // the walk goes on across resizing
  EXPECT_EQ(sc_ohash_grow(t, 0), 0);
  EXPECT_EQ(sc_ohash_grow(t, 0), 0);
  EXPECT_EQ(t->n_buckets, 64u);
  EXPECT_EQ(next(it), order[2]);
  S grown = chains(t);
  EXPECT_EQ(walk(t), order);
  EXPECT_EQ(*sc_ohash_findp(t, "key0", 4), first);  // elements never move

  EXPECT_EQ(sc_ohash_shrink(t, 64), 0);
  EXPECT_EQ(sc_ohash_shrink(t, 128), 0);
  EXPECT_EQ(chains(t), grown);
  EXPECT_EQ(sc_ohash_shrink(t, 1), 0);
  EXPECT_EQ(next(it), order[3]);
  // One chain, in list order.
  S one;
  for (auto &kv : order) one.push_back("0:" + kv);
  EXPECT_EQ(chains(t), one);

  for (uint32_t bad : {0u, 3u, 96u}) EXPECT_EQ(sc_ohash_shrink(t, bad), -1);
  EXPECT_EQ(th::diag_text(),
            "sc_ohash_shrink: bucket count 0 is not a power of two\n"
            "sc_ohash_shrink: bucket count 3 is not a power of two\n"
            "sc_ohash_shrink: bucket count 96 is not a power of two\n");
  th::clear_output();
  // Doubling past a 32-bit array size is refused before allocating.
  uint32_t n = t->n_buckets;
  t->n_buckets = uint32_t((1ull << 31) / sizeof(void *));
  long attempts = th::alloc_attempts();
  EXPECT_EQ(sc_ohash_grow(t, 0), -1);
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(th::diag_text(), "sc_ohash_grow: cannot double " +
                                 std::to_string(t->n_buckets) + " buckets\n");
  t->n_buckets = n;
  EXPECT_EQ(chains(t), one);
  EXPECT_EQ(next(it), order[4]);
  sc_ohash_iter_destruct(it);
  sc_ohash_destruct(t);
}

TEST_F(OhashTest, DumpWalksTheBucketsAndCorruptionIsLeftAlone) {
  sc_ohash *t = sc_ohash_construct(1, "d", ht::record_destroyed);
  ASSERT_TRUE(t);
  put(t, "abcd", "wxyz");
  put(t, "e", "f");
  auto hex = [](const void *p) {
    char s[32];
    snprintf(s, sizeof s, "%" PRIxPTR, reinterpret_cast<uintptr_t>(p));
    return std::string(s);
  };
  sc_ohash_element *a = *sc_ohash_findp(t, "abcd", 4);
  sc_ohash_element *e = *sc_ohash_findp(t, "e", 1);
  sc_ohash_debug(t);
  EXPECT_EQ(th::console(), "hash " + hex(t) + ":\n  elp " + hex(a) +
                               ": key=61626364, val=7778797a\n  elp " + hex(e) +
                               ": ksz or vsz != 4!\n");
  sc_ohash_element **pprev = e->pprev;
  e->pprev = nullptr;
  sc_ohash_internal_delete(e);
  EXPECT_EQ(th::diag_text(),
            "sc_ohash_internal_delete: corrupted bucket " + hex(e) + "\n");
  EXPECT_EQ(walk(t), (S{"abcd=wxyz", "e=f"}));
  EXPECT_TRUE(destroyed().empty());
  e->pprev = pprev;
  sc_ohash_destruct(t);
  EXPECT_EQ(destroyed().size(), 2u);
}

TEST_F(OhashTest, EveryAllocationFailureIsReportedAndUndone) {
  const std::string rec = ht::num(sizeof(sc_ohash));
  const std::string arr = ht::num(4 * sizeof(void *));
  EXPECT_EQ(ht::failure_texts(kModule,
                              [](auto arm) {
                                arm();
                                sc_ohash *t =
                                    sc_ohash_construct(3, "tbl", nullptr);
                                EXPECT_EQ(t == nullptr, th::failure_injected());
                                sc_ohash_destruct(t);
                              }),
            (S{"sc_ohash_construct: sc_malloc(" + rec + ") failed",
               "sc_ohash_construct: sc_malloc(" + arr + ") failed\n",
               "[lib/re/ds/src/sc_elist] sc_elist_construct[tbl]: sc_malloc(" +
                   ht::num(sizeof(sc_elist)) + ") failed\n"}));

  // Insert (replacing), grow, shrink and iterator construction: each fails
  // at its one allocation and leaves chains, list and values as they were.
  struct Op {
    const char *name;
    int (*run)(sc_ohash *);
    std::string text;
  } ops[] = {
      {"insert",
       [](sc_ohash *t) {
         return sc_ohash_internal_insert(t, "k1", 2, "new", 3, "!", 1) ? 0 : -1;
       },
       "sc_ohash_internal_insert: sc_malloc(" +
           ht::num(sizeof(sc_ohash_element) + 4 + 4) + ") failed"},
      {"grow", [](sc_ohash *t) { return sc_ohash_grow(t, 100); },
       "sc_ohash_grow: sc_calloc(4, " + ht::num(sizeof(void *)) + ") failed\n"},
      {"shrink", [](sc_ohash *t) { return sc_ohash_shrink(t, 1); },
       "sc_ohash_grow: sc_calloc(1, " + ht::num(sizeof(void *)) + ") failed\n"},
      {"iter",
       [](sc_ohash *t) {
         sc_ohash_iter *it = sc_ohash_iter_construct(t);
         sc_ohash_iter_destruct(it);
         return it ? 0 : -1;
       },
       "sc_ohash_iter_construct: sc_malloc(" + ht::num(sizeof(sc_ohash_iter)) +
           ") failed"},
  };
  for (const Op &op : ops) {
    EXPECT_EQ(ht::failure_texts(kModule,
                                [&](auto arm) {
                                  sc_ohash *t = sc_ohash_construct(
                                      2, "t", ht::record_destroyed);
                                  put(t, "k1", "v1");
                                  put(t, "k2", "v2");
                                  S before = chains(t), order = walk(t);
                                  destroyed().clear();
                                  arm();
                                  int rc = op.run(t);
                                  EXPECT_EQ(rc,
                                            th::failure_injected() ? -1 : 0);
                                  if (th::failure_injected()) {
                                    EXPECT_EQ(chains(t), before);
                                    EXPECT_EQ(t->n_buckets, 2u);
                                    EXPECT_TRUE(destroyed().empty());
                                    EXPECT_EQ(walk(t), order);
                                  }
                                  sc_ohash_destruct(t);
                                }),
              S{op.text})
        << op.name;
  }
}

}  // namespace

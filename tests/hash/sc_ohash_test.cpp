// sc_ohash's growth and shrinking.
#include "families.h"

namespace ht {
namespace {

using OhashTest = FamilyTest<OhashFamily>;

TEST_F(OhashTest, GrowAndShrinkKeepElementsAndTheWalk) {
  OhashFamily f;  // 8 buckets
  S order;
  for (int i = 0; i < 6; i++) {
    f.insert("key" + num(i * 37), num(i), 1);
    order.push_back("key" + num(i * 37) + "=" + num(i));
  }
  auto *first = f.element("key0");
  sc_ohash_iter *it = sc_ohash_iter_construct(f.t);
  auto next = [&] {
    void *k, *v;
    uint32_t ksz, vsz;
    if (sc_ohash_iter_next(it, &k, &ksz, &v, &vsz) != 0) return Bytes("<end>");
    return Bytes(static_cast<char *>(k), ksz) + "=" +
           Bytes(static_cast<char *>(v), vsz);
  };
  EXPECT_EQ(next(), order[0]);
  EXPECT_EQ(sc_ohash_grow(f.t, 76), 0);  // load 75 is below 76
  EXPECT_EQ(f.t->n_buckets, 8u);
  EXPECT_EQ(sc_ohash_grow(f.t, 75), 0);
  EXPECT_EQ(f.t->n_buckets, 16u);
  EXPECT_EQ(th::blocks().back().alloc, th::Alloc::kcalloc);
  EXPECT_EQ(next(), order[1]);  // a walk goes on across resizing
  EXPECT_EQ(sc_ohash_grow(f.t, 0), 0);
  EXPECT_EQ(f.t->n_buckets, 32u);
  EXPECT_EQ(sc_ohash_shrink(f.t, 32), 0);  // not above: nothing to do
  EXPECT_EQ(f.t->n_buckets, 32u);
  EXPECT_EQ(sc_ohash_shrink(f.t, 1), 0);
  EXPECT_EQ(next(), order[2]);
  S one_chain;
  for (auto &kv : order) one_chain.push_back("0:" + kv);
  EXPECT_EQ(f.chains(), one_chain);  // in list order
  EXPECT_EQ(f.element("key0"), first);
  EXPECT_EQ(f.walk(), order);
  sc_ohash_iter_destruct(it);

  // Refused, table unchanged: counts that are not powers of two, and
  // doubling past a 32-bit array size (checked before allocating).
  for (uint32_t bad : {0u, 3u, 96u}) EXPECT_EQ(sc_ohash_shrink(f.t, bad), -1);
  f.t->n_buckets = uint32_t((1ull << 31) / sizeof(void *));
  long attempts = th::alloc_attempts();
  EXPECT_EQ(sc_ohash_grow(f.t, 0), -1);
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(th::diag_text(),
            "sc_ohash_shrink: bucket count 0 is not a power of two\n"
            "sc_ohash_shrink: bucket count 3 is not a power of two\n"
            "sc_ohash_shrink: bucket count 96 is not a power of two\n"
            "sc_ohash_grow: cannot double " +
                num(f.t->n_buckets) + " buckets\n");
  f.t->n_buckets = 1;
  EXPECT_EQ(f.chains(), one_chain);
}

TEST_F(OhashTest, FailedResizingLeavesTheTableAsItWas) {
  struct {
    int (*resize)(sc_ohash *);
    uint32_t count;  // of the new array
  } cases[] = {{[](sc_ohash *t) { return sc_ohash_grow(t, 0); }, 16},
               {[](sc_ohash *t) { return sc_ohash_shrink(t, 2); }, 2}};
  for (auto &c : cases) {
    EXPECT_EQ(failure_texts(OhashFamily::kModule,
                            [&](auto arm) {
                              OhashFamily f;
                              for (const char *k : {"a", "bb", "ccc"})
                                f.insert(k, k, 0);
                              S chains = f.chains(), walk = f.walk();
                              arm();
                              int rc = c.resize(f.t);
                              EXPECT_EQ(rc, th::failure_injected() ? -1 : 0);
                              if (rc == 0) return;
                              EXPECT_EQ(f.t->n_buckets, 8u);
                              EXPECT_EQ(f.chains(), chains);
                              EXPECT_EQ(f.walk(), walk);
                            }),
              S{"sc_ohash_grow: sc_calloc(" + num(c.count) + ", " +
                num(sizeof(void *)) + ") failed\n"});
  }
}

}  // namespace
}  // namespace ht

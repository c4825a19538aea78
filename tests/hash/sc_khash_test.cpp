#include "sc_khash.h"

#include <string.h>

#include "hash/key_hash.h"
#include "hash_test_util.h"

namespace {

using ht::Bytes;
using ht::destroyed;
using S = std::vector<std::string>;

constexpr const char *kModule = "lib/pfe/ds/src/sc_khash";

std::string ptr(const void *p) {
  char s[32];
  snprintf(s, sizeof s, "%p", p);
  return s;
}

class KhashTest : public HostTest {
 protected:
  th::Ctx ctx{1u << 20};
  void SetUp() override {
    HostTest::SetUp();
    destroyed().clear();
  }
  static uint32_t bucket_of(sc_khash *t, const Bytes &key) {
    using vds::hash::Fold;
    return vds::hash::key_hash<Fold::kLongKeys>(key.data(), key.size()) &
           (t->n_buckets - 1);
  }
  static S chains(sc_khash *t) { return ht::chains(t, bucket_of); }
  static sc_khash_element *put(sc_khash *t, const Bytes &k, const Bytes &v) {
    sc_khash_element *e = sc_khash_internal_insert(
        t, k.data(), k.size(), v.data(), v.size(), nullptr, 0);
    EXPECT_TRUE(e) << k;
    return e;
  }
  static S walk(sc_khash_iter *it) { return ht::drain(it, sc_khash_iter_next); }
};

TEST_F(KhashTest, BucketArrayComesFromTheSizeClassAllocatorOnlyBelowItsLimit) {
  const uint32_t cases[][2] = {{0, 1}, {1, 1}, {3, 4}, {5, 8}, {1024, 1024}};
  for (auto &c : cases) {
    sc_khash *t = sc_khash_construct(c[0], ctx, nullptr);
    ASSERT_TRUE(t);
    EXPECT_EQ(t->n_buckets, c[1]);
    EXPECT_EQ(t->sz_ctx, ctx.get());
    sc_khash_destruct(t);
  }
  const uint32_t bytes = 8 * sizeof(void *);
  for (uint32_t limit : {bytes, bytes + 1}) {
    th::reset();
    th::Ctx small(limit);
    sc_khash *t = sc_khash_construct(8, small, nullptr);
    ASSERT_TRUE(t);
    ASSERT_EQ(th::blocks().size(), 2u);
    EXPECT_EQ(th::blocks()[0].alloc, th::Alloc::szalloc);
    EXPECT_EQ(th::blocks()[0].size, sizeof(sc_khash));
    EXPECT_EQ(th::blocks()[0].file, kModule);
    EXPECT_EQ(th::blocks()[1].alloc,
              limit > bytes ? th::Alloc::szalloc : th::Alloc::kmalloc);
    EXPECT_EQ(th::blocks()[1].size, bytes);
    sc_khash_destruct(t);
    th::expect_clean();
  }
  th::reset();
  EXPECT_EQ(sc_khash_construct(UINT32_MAX, ctx, nullptr), nullptr);
  EXPECT_EQ(th::alloc_attempts(), 0);
  EXPECT_EQ(th::diag_text(),
            "sc_khash_construct: bucket count 4294967295 too large\n");
  sc_khash_destruct(nullptr);
}

TEST_F(KhashTest, InsertReplaceAndDelete) {
  sc_khash *t = sc_khash_construct(16, ctx, ht::record_destroyed);
  ASSERT_TRUE(t);
  put(t, "\1\2", "a");  // short keys are not folded: bucket 3
  put(t, "ab", "b");
  put(t, "abc", "c");
  put(t, "", "d");
  put(t, "", "D");
  EXPECT_EQ(bucket_of(t, "\1\2"), 3u);
  EXPECT_EQ(bucket_of(t, ""), 0u);
  sc_khash_element *old = *sc_khash_findp(t, "ab", 2);
  // Key and value taken from the element being replaced.
  sc_khash_element *e = sc_khash_internal_insert(
      t, sc_khash_element_key(old), 2, sc_khash_element_val(old), 1, "+", 1);
  ASSERT_TRUE(e);
  EXPECT_EQ(*sc_khash_findp(t, "ab", 2), e);
  EXPECT_EQ(destroyed(), (S{"d", "b"}));
  EXPECT_EQ(t->nelements, 4u);

  // A null value leaves its bytes for the caller to write.
  e = sc_khash_internal_insert(t, "long key", 8, nullptr, 8, nullptr, 0);
  ASSERT_TRUE(e);
  memcpy(sc_khash_element_val(e), "12345678", 8);
  EXPECT_EQ(e->data, nullptr);
  EXPECT_EQ(e->vsz, 8u);
  sc_khash_iter *it = sc_khash_iter_construct(t);
  S all = walk(it);
  EXPECT_NE(std::find(all.begin(), all.end(), "long key=12345678"), all.end());
  EXPECT_NE(std::find(all.begin(), all.end(), "ab=b+"), all.end());
  sc_khash_iter_destruct(it);

  // Sizes that do not fit the 16-bit fields, and a missing extra, are
  // refused before anything is allocated.
  long attempts = th::alloc_attempts();
  std::string big(65536, 'k');
  EXPECT_EQ(sc_khash_internal_insert(t, big.data(), 65536, "v", 1, 0, 0),
            nullptr);
  EXPECT_EQ(sc_khash_internal_insert(t, "k", 1, big.data(), 65535, "x", 1),
            nullptr);
  EXPECT_EQ(sc_khash_internal_insert(t, "k", 1, "v", 1, nullptr, 1), nullptr);
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(th::diag_text(),
            "sc_khash_internal_insert: ksz 65536 or vsz 1 + extra_sz 0 too "
            "large\n"
            "sc_khash_internal_insert: ksz 1 or vsz 65535 + extra_sz 1 too "
            "large\n"
            "sc_khash_internal_insert: extra is NULL but extra_sz is 1\n");
  e = sc_khash_internal_insert(t, big.data(), 65535, big.data(), 65531, "xxxx",
                               4);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->ksz, 65535u);
  EXPECT_EQ(e->vsz, 65535u);
  EXPECT_EQ(th::blocks().back().size, sizeof *e + 65536 + 65535);

  destroyed().clear();
  sc_khash_internal_delete(*sc_khash_findp(t, "abc", 3));
  EXPECT_EQ(*sc_khash_findp(t, "abc", 3), nullptr);
  EXPECT_EQ(destroyed(), S{"c"});
  sc_khash_delete_all(t);
  EXPECT_EQ(t->nelements, 0u);
  EXPECT_EQ(destroyed().size(), 6u);  // "c", then the five left
  put(t, "z", "after");
  sc_khash_destruct(t);
  EXPECT_EQ(destroyed().back(), "after");
}

TEST_F(KhashTest, ResumableIterator) {
  sc_khash *t = sc_khash_construct(16, ctx, nullptr);
  ASSERT_TRUE(t);
  sc_khash_iter *it = sc_khash_iter_construct(t);
  ASSERT_TRUE(it);
  void *k = &k;
  uint32_t ksz = 77;
  EXPECT_EQ(sc_khash_iter_next(it, &k, &ksz, nullptr, nullptr), -1);
  EXPECT_EQ(k, &k);
  EXPECT_EQ(ksz, 77u);

  // Bucket order: 0 (empty key), 3 (01 02, then 01 02 03 04), 7 (07).
  put(t, "\7", "x");
  put(t, "\1\2\3\4", "y");
  put(t, "\1\2", "z");
  put(t, "", "e");
  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  const S order = {"=e", "\1\2\3\4=y", "\1\2=z", "\7=x"};
  EXPECT_EQ(walk(it), order);
  EXPECT_EQ(sc_khash_iter_next(it, &k, &ksz, nullptr, nullptr), -1);
  EXPECT_EQ(k, &k);
  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  EXPECT_EQ(walk(it), order);

  // A key inserted mid-walk is delivered when its bucket is still ahead.
  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  ASSERT_EQ(sc_khash_iter_next(it, nullptr, nullptr, nullptr, nullptr), 0);
  put(t, "\3", "late");        // bucket 3, still ahead: delivered
  put(t, "\1\2\3", "missed");  // bucket 0, already passed
  EXPECT_EQ(walk(it), (S{"\1\2\3\4=y", "\1\2=z", "\3=late", "\7=x"}));

  // Deleting each element just delivered empties the table.
  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  size_t n = 0;
  while (sc_khash_iter_next(it, &k, &ksz, nullptr, nullptr) == 0) {
    sc_khash_internal_delete(*sc_khash_findp(t, k, ksz));
    n++;
  }
  EXPECT_EQ(n, 6u);
  EXPECT_EQ(t->nelements, 0u);

  EXPECT_EQ(sc_khash_iter_reinit(nullptr), -1);
  sc_khash_iter copy = *it;
  it->table = nullptr;
  EXPECT_EQ(sc_khash_iter_reinit(it), -2);
  EXPECT_EQ(it->next_element, copy.next_element);
  EXPECT_EQ(
      th::diag_text(),
      "sc_khash_iter_reinit: kip is NULLsc_khash_iter_reinit: kip is NULL");
  *it = copy;
  sc_khash_iter_destruct(it);
  sc_khash_iter_destruct(nullptr);
  sc_khash_destruct(t);
}

TEST_F(KhashTest, DumpAndCorruptedElement) {
  sc_khash *t = sc_khash_construct(16, ctx, ht::record_destroyed);
  ASSERT_TRUE(t);
  __sc_debug_level = 0;
  sc_khash_debug(t);
  EXPECT_EQ(th::console(), "hash " + ptr(t) + ":\n");
  th::clear_output();
  sc_khash_element *a = put(t, "\1\2\3\4", "\xca\xfe\xba\xbe");
  sc_khash_element *b = put(t, "\1\2\3\4\5", "vv");
  sc_khash_debug(t);
  EXPECT_EQ(th::console(), "hash " + ptr(t) + ":\n  elp " + ptr(a) +
                               ": key=01020304, val=cafebabe\n  elp " + ptr(b) +
                               ": ksz or vsz != 4!\n");
  __sc_debug_level = 2;
  sc_khash_element **pprev = b->pprev;
  b->pprev = nullptr;
  sc_khash_internal_delete(b);
  EXPECT_EQ(th::diag_text(),
            "sc_khash_internal_delete: corrupted bucket " + ptr(b) + "\n");
  EXPECT_EQ(t->nelements, 2u);
  EXPECT_TRUE(destroyed().empty());
  b->pprev = pprev;
  sc_khash_destruct(t);
}

TEST_F(KhashTest, EveryAllocationFailureIsReportedAndUndone) {
  const uint32_t bytes = 8 * sizeof(void *);
  for (uint32_t limit : {bytes, bytes + 1}) {  // array from either allocator
    th::Ctx c(limit);
    EXPECT_EQ(
        ht::failure_texts(kModule,
                          [&](auto arm) {
                            arm();
                            sc_khash *t = sc_khash_construct(8, c, nullptr);
                            EXPECT_EQ(t == nullptr, th::failure_injected());
                            sc_khash_destruct(t);
                          }),
        (S{"sc_khash_construct: sc_szalloc(" + ht::num(sizeof(sc_khash)) +
               ") failed",
           "sc_khash_construct: sc_kmalloc(" + ht::num(bytes) + ") failed\n"}))
        << limit;
  }
  EXPECT_EQ(ht::failure_texts(kModule,
                              [&](auto arm) {
                                sc_khash *t = sc_khash_construct(
                                    2, ctx, ht::record_destroyed);
                                put(t, "key", "old");
                                S before = chains(t);
                                destroyed().clear();
                                arm();
                                sc_khash_element *e = sc_khash_internal_insert(
                                    t, "key", 3, "new", 3, "!", 1);
                                EXPECT_EQ(e == nullptr, th::failure_injected());
                                if (!e) {
                                  EXPECT_EQ(chains(t), before);
                                  EXPECT_TRUE(destroyed().empty());
                                }
                                sc_khash_destruct(t);
                              }),
            S{"sc_khash_internal_insert: sc_szalloc(" +
              ht::num(sizeof(sc_khash_element) + 4 + 4) + ") failed"});
  EXPECT_EQ(
      ht::failure_texts(kModule,
                        [&](auto arm) {
                          sc_khash *t = sc_khash_construct(2, ctx, nullptr);
                          arm();
                          sc_khash_iter *it = sc_khash_iter_construct(t);
                          EXPECT_EQ(it == nullptr, th::failure_injected());
                          sc_khash_iter_destruct(it);
                          sc_khash_destruct(t);
                        }),
      S{"sc_khash_iter_construct: sc_szalloc(" +
        ht::num(sizeof(sc_khash_iter)) + ") failed"});
}

}  // namespace

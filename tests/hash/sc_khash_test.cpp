// sc_khash's allocator choice, size limits and resumable iterator.
#include <string.h>

#include "families.h"

namespace ht {
namespace {

using KhashTest = FamilyTest<KhashFamily>;

// The bucket array is a size-class block only strictly below the limit;
// either way a failure reads the same.
TEST_F(KhashTest, BucketArrayAllocatorAndItsFailures) {
  const uint32_t bytes = 8 * sizeof(void *);
  for (uint32_t limit : {bytes, bytes + 1}) {
    th::Ctx ctx(limit);
    EXPECT_EQ(failure_texts(KhashFamily::kModule,
                            [&](auto arm) {
                              arm();
                              sc_khash *t = sc_khash_construct(8, ctx, nullptr);
                              EXPECT_EQ(!t, th::failure_injected());
                              if (!t) return;
                              EXPECT_EQ(th::blocks()[0].alloc,
                                        th::Alloc::szalloc);
                              EXPECT_EQ(th::blocks()[1].alloc,
                                        limit > bytes ? th::Alloc::szalloc
                                                      : th::Alloc::kmalloc);
                              sc_khash_destruct(t);
                            }),
              KhashFamily::construct_failures(8));
  }
}

TEST_F(KhashTest, SizesMustFitSixteenBits) {
  KhashFamily f;
  const std::string big(65536, 'k');
  EXPECT_EQ(sc_khash_internal_insert(f.t, big.data(), 65536, "v", 1, 0, 0),
            nullptr);
  EXPECT_EQ(sc_khash_internal_insert(f.t, "k", 1, big.data(), 65535, "x", 1),
            nullptr);
  EXPECT_EQ(sc_khash_internal_insert(f.t, "k", 1, "v", 1, nullptr, 1), nullptr);
  EXPECT_EQ(th::diag_text(),
            "sc_khash_internal_insert: ksz 65536 or vsz 1 + extra_sz 0 too "
            "large\nsc_khash_internal_insert: ksz 1 or vsz 65535 + extra_sz 1 "
            "too large\nsc_khash_internal_insert: extra is NULL but extra_sz "
            "is 1\n");
  EXPECT_EQ(th::blocks().size(), 2u);  // the table's record and array only
  sc_khash_element *e = sc_khash_internal_insert(f.t, big.data(), 65535,
                                                 big.data(), 65531, "xxxx", 4);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->ksz, 65535u);
  EXPECT_EQ(e->vsz, 65535u);
  EXPECT_EQ(
      memcmp(static_cast<char *>(sc_khash_element_val(e)) + 65531, "xxxx", 4),
      0);
  // A null value leaves its bytes for the caller to write.
  e = sc_khash_internal_insert(f.t, "n", 1, nullptr, 8, nullptr, 0);
  memcpy(sc_khash_element_val(e), "12345678", 8);
  EXPECT_EQ(f.find("n"), "12345678");
}

TEST_F(KhashTest, IteratorRestartsAndSeesKeysAhead) {
  KhashFamily f;  // 8 buckets
  f.insert("\7", "x", 1);
  f.insert("\1\2\3\4", "y", 1);
  f.insert("\1\2", "z", 1);
  f.insert("", "e", 0);
  sc_khash_iter *it = sc_khash_iter_construct(f.t);
  const S order = {"=e", "\1\2\3\4=y", "\1\2=z", "\7=x"};  // buckets 0, 3, 7
  EXPECT_EQ(drain(it, sc_khash_iter_next), order);
  void *k = &k;
  EXPECT_EQ(sc_khash_iter_next(it, &k, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(k, &k);  // a finished walk writes nothing
  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  EXPECT_EQ(drain(it, sc_khash_iter_next), order);

  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  ASSERT_EQ(sc_khash_iter_next(it, nullptr, nullptr, nullptr, nullptr), 0);
  f.insert("\3", "ahead", 1);       // bucket 3: delivered
  f.insert("\1\2\3", "behind", 1);  // bucket 0: missed
  EXPECT_EQ(drain(it, sc_khash_iter_next),
            (S{"\1\2\3\4=y", "\1\2=z", "\3=ahead", "\7=x"}));

  EXPECT_EQ(sc_khash_iter_reinit(nullptr), -1);
  it->table = nullptr;
  EXPECT_EQ(sc_khash_iter_reinit(it), -2);
  EXPECT_EQ(it->next_element, nullptr);  // untouched
  EXPECT_EQ(th::diag_text(),
            "sc_khash_iter_reinit: kip is NULLsc_khash_iter_reinit: kip is "
            "NULL");
  it->table = f.t;
  sc_khash_iter_destruct(it);
  sc_khash_iter_destruct(nullptr);
  sc_khash_destruct(nullptr);
}

}  // namespace
}  // namespace ht

#include <inttypes.h>
#include <string.h>

#include "hash/sc_hash_private.h"
#include "hash_test_util.h"

namespace {

using ht::bytes;
using ht::Bytes;
using ht::destroyed;
using S = std::vector<std::string>;

constexpr const char *kModule = "lib/re/ds/src/sc_hash";

class HashTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    destroyed().clear();
  }
  static S chains(sc_hash *h) {
    return ht::chains(h, [](sc_hash *t, const Bytes &k) {
      return sc_hash_hash(t, k.data(), k.size());
    });
  }
  static void put(sc_hash *h, const Bytes &k, const Bytes &v) {
    ASSERT_EQ(sc_hash_insert(h, k.data(), k.size(), v.data(), v.size()), 0);
  }
  static Bytes find(sc_hash *h, const Bytes &k) {
    void *v;
    uint32_t vsz;
    if (sc_hash_find(h, k.data(), k.size(), &v, &vsz) != 0) return "<absent>";
    return Bytes(static_cast<char *>(v), vsz);
  }
  static S walk(sc_hash *h) {
    return ht::walk(h, sc_hash_iter_construct, sc_hash_iter_next,
                    sc_hash_iter_destruct);
  }
};

TEST_F(HashTest, BucketCountIsTheNextPowerOfTwo) {
  const uint32_t cases[][2] = {{0, 1},       {1, 1},       {2, 2},      {3, 4},
                               {1000, 1024}, {1024, 1024}, {1025, 2048}};
  for (auto &c : cases) {
    sc_hash *h = sc_hash_construct(c[0], nullptr);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->n_buckets, c[1]);
    EXPECT_EQ(th::blocks().back().size, c[1] * sizeof(void *));
    sc_hash_destruct(h);
  }
  // An array that would not fit a 32-bit size is refused before allocating.
  const uint32_t too_big = uint32_t((1ull << 31) / sizeof(void *) + 1);
  for (uint32_t hint : {too_big, UINT32_MAX}) {
    th::reset();
    EXPECT_EQ(sc_hash_construct(hint, nullptr), nullptr);
    EXPECT_EQ(th::alloc_attempts(), 0);
    EXPECT_EQ(th::diag_text(), "sc_hash_construct: bucket count " +
                                   std::to_string(hint) + " too large\n");
  }
}

// Keys of one to three bytes all share bucket 0, so their chain shows the
// order: new keys at the end, replacements in place.
TEST_F(HashTest, InsertReplaceAndDeleteKeepChainOrder) {
  sc_hash *h = sc_hash_construct(16, ht::record_destroyed);
  ASSERT_TRUE(h);
  put(h, "a", "1");
  put(h, "ab", "2");
  put(h, "abc", "3");
  put(h, "", "empty");
  put(h, "abcd", "4");
  EXPECT_EQ(chains(h),
            (S{"0:a=1", "0:ab=2", "0:abc=3", "0:=empty", "3:abcd=4"}));
  put(h, "ab", "two");
  put(h, "", "e2");
  EXPECT_EQ(chains(h),
            (S{"0:a=1", "0:ab=two", "0:abc=3", "0:=e2", "3:abcd=4"}));
  EXPECT_EQ(destroyed(), (S{"2", "empty"}));
  EXPECT_EQ(sc_hash_nelements(h), 5u);
  EXPECT_EQ(find(h, "ab"), "two");
  EXPECT_EQ(find(h, "abcde"), "<absent>");

  // The value may come from the element it replaces.
  void *old;
  uint32_t vsz;
  ASSERT_EQ(sc_hash_find(h, "abc", 3, &old, &vsz), 0);
  ASSERT_EQ(sc_hash_insert(h, "abc", 3, old, vsz), 0);
  EXPECT_EQ(find(h, "abc"), "3");

  // A null value reserves its bytes; find hands out their address.
  ASSERT_EQ(sc_hash_insert(h, "n", 1, nullptr, 8), 0);
  void *v = nullptr;
  vsz = 0;
  ASSERT_EQ(sc_hash_find(h, "n", 1, &v, &vsz), 0);
  EXPECT_EQ(vsz, 8u);
  sc_hash_element *e = *sc_hash_findp(h, "n", 1);
  EXPECT_EQ(v, reinterpret_cast<char *>(e) + sizeof *e + 4);
  EXPECT_EQ(th::blocks().back().size, sizeof *e + 4 + 8);
  EXPECT_EQ(sc_hash_element_get_data(e), nullptr);
  sc_hash_element_set_data(e, h);
  EXPECT_EQ(sc_hash_element_get_data(e), h);

  destroyed().clear();
  EXPECT_EQ(sc_hash_delete(h, "zz", 2), -1);
  EXPECT_EQ(sc_hash_delete(h, "ab", 2), 0);
  EXPECT_EQ(sc_hash_delete(h, "ab", 2), -1);
  EXPECT_EQ(destroyed(), S{"two"});
  EXPECT_EQ(sc_hash_delete(h, "n", 1), 0);
  EXPECT_EQ(chains(h), (S{"0:a=1", "0:abc=3", "0:=e2", "3:abcd=4"}));

  destroyed().clear();
  sc_hash_delete_all(h);
  EXPECT_EQ(destroyed().size(), 4u);
  EXPECT_EQ(chains(h), S{});
  put(h, "again", "x");
  EXPECT_EQ(find(h, "again"), "x");
  sc_hash_destruct(h);
  EXPECT_EQ(destroyed().back(), "x");
  sc_hash_destruct(nullptr);
}

TEST_F(HashTest, IteratorWalksBucketsAndSurvivesDeletingWhatItGave) {
  sc_hash *h = sc_hash_construct(16, ht::record_destroyed);
  ASSERT_TRUE(h);
  sc_hash_iter *it = sc_hash_iter_construct(h);
  ASSERT_TRUE(it);
  void *k = &k;
  EXPECT_EQ(sc_hash_iter_next(it, &k, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(k, &k);
  sc_hash_iter_destruct(it);
  sc_hash_iter_destruct(nullptr);

  for (const char *key : {"hello", "x", "abcd", "y", "wxyz"}) put(h, key, "v");
  S order = {"x=v", "y=v", "wxyz=v", "abcd=v", "hello=v"};
  EXPECT_EQ(chains(h),
            (S{"0:x=v", "0:y=v", "2:wxyz=v", "3:abcd=v", "14:hello=v"}));
  EXPECT_EQ(walk(h), order);

  it = sc_hash_iter_construct(h);
  uint32_t ksz;
  S seen;
  while (sc_hash_iter_next(it, &k, &ksz, nullptr, nullptr) == 0) {
    Bytes key(static_cast<char *>(k), ksz);
    seen.push_back(key + "=v");
    EXPECT_EQ(sc_hash_delete(h, key.data(), ksz), 0);
  }
  EXPECT_EQ(sc_hash_iter_next(it, &k, &ksz, nullptr, nullptr), -1);
  sc_hash_iter_destruct(it);
  EXPECT_EQ(seen, order);
  EXPECT_EQ(sc_hash_nelements(h), 0u);
  EXPECT_EQ(destroyed().size(), 5u);
  sc_hash_destruct(h);
}

TEST_F(HashTest, SerializedImage) {
  sc_hash *h = sc_hash_construct(4, nullptr);
  ASSERT_TRUE(h);
  void *buf = &buf;
  uint32_t len = 99;
  ASSERT_EQ(sc_hash_serialize(h, &buf, &len), 0);  // empty: a 0-byte buffer
  EXPECT_NE(buf, nullptr);
  EXPECT_EQ(len, 0u);
  __sc_kfree(buf, len);

  put(h, "a", "xyz");
  ASSERT_EQ(sc_hash_serialize(h, &buf, &len), 0);
  EXPECT_EQ(Bytes(static_cast<char *>(buf), len),
            bytes({1, 0, 0, 0, 0x61, 3, 0, 0, 0, 0x78, 0x79, 0x7a}));
  EXPECT_EQ(th::blocks()[th::blocks().size() - 2].size, 12u);  // then iter
  __sc_kfree(buf, len);

  // Records follow the walk: bucket 0 ("a", "") before bucket 2 ("wxyz").
  put(h, "wxyz", Bytes(300, 'q'));
  put(h, "", "");
  ASSERT_EQ(sc_hash_serialize(h, &buf, &len), 0);
  Bytes expect = bytes({1, 0, 0, 0, 'a', 3, 0, 0, 0}) + "xyz" +
                 bytes({0, 0, 0, 0, 0, 0, 0, 0}) + bytes({4, 0, 0, 0}) +
                 "wxyz" + bytes({0x2c, 1, 0, 0}) + Bytes(300, 'q');
  EXPECT_EQ(Bytes(static_cast<char *>(buf), len), expect);
  __sc_kfree(buf, len);
  sc_hash_destruct(h);
}

TEST_F(HashTest, DebugDump) {
  sc_hash *h = sc_hash_construct(16, nullptr);
  ASSERT_TRUE(h);
  __sc_debug_level = 0;  // dumps ignore the debug level
  sc_hash_debug(h);
  auto hex = [](const void *p) {
    char s[32];
    snprintf(s, sizeof s, "%" PRIxPTR, reinterpret_cast<uintptr_t>(p));
    return std::string(s);
  };
  EXPECT_EQ(th::console(), "hash " + hex(h) + ":\n");
  th::clear_output();
  put(h, bytes({1, 2, 3, 4}), bytes({0xde, 0xad, 0xbe, 0xef}));
  put(h, "ab", "cd");
  sc_hash_debug(h);
  EXPECT_EQ(th::console(), "hash " + hex(h) + ":\n  elp " +
                               hex(*sc_hash_findp(h, "ab", 2)) +
                               ": ksz or vsz != 4!\n  elp " +
                               hex(*sc_hash_findp(h, "\1\2\3\4", 4)) +
                               ": key=01020304, val=deadbeef\n");
  sc_hash_destruct(h);
}

TEST_F(HashTest, CorruptedElementIsReportedAndLeftAlone) {
  sc_hash *h = sc_hash_construct(1, ht::record_destroyed);
  ASSERT_TRUE(h);
  put(h, "k", "v");
  sc_hash_element *e = *sc_hash_findp(h, "k", 1);
  sc_hash_element **pprev = e->pprev;
  e->pprev = nullptr;
  sc_hash_internal_delete(e);
  char addr[32];
  snprintf(addr, sizeof addr, "%" PRIxPTR, reinterpret_cast<uintptr_t>(e));
  EXPECT_EQ(th::diag_text(),
            "sc_hash_internal_delete: corrupted bucket " + Bytes(addr) + "\n");
  EXPECT_EQ(sc_hash_nelements(h), 1u);
  EXPECT_TRUE(destroyed().empty());
  e->pprev = pprev;
  sc_hash_destruct(h);
}

TEST_F(HashTest, EveryAllocationFailureIsReportedAndUndone) {
  const std::string rec = ht::num(sizeof(sc_hash));
  const std::string arr = ht::num(8 * sizeof(void *));
  EXPECT_EQ(ht::failure_texts(kModule,
                              [](auto arm) {
                                arm();
                                sc_hash *h = sc_hash_construct(8, nullptr);
                                EXPECT_EQ(h == nullptr, th::failure_injected());
                                sc_hash_destruct(h);
                              }),
            (S{"sc_hash_construct: sc_malloc(" + rec + ") failed",
               "sc_hash_construct: sc_malloc(" + arr + ") failed\n"}));

  // A failed insert of a present key keeps the old element.
  const std::string elem = ht::num(sizeof(sc_hash_element) + 4 + 5);
  EXPECT_EQ(ht::failure_texts(kModule,
                              [](auto arm) {
                                sc_hash *h =
                                    sc_hash_construct(2, ht::record_destroyed);
                                put(h, "k", "old");
                                S before = chains(h);
                                destroyed().clear();
                                arm();
                                int rc = sc_hash_insert(h, "k", 1, "new!!", 5);
                                if (th::failure_injected()) {
                                  EXPECT_EQ(rc, -1);
                                  EXPECT_EQ(chains(h), before);
                                  EXPECT_TRUE(destroyed().empty());
                                }
                                sc_hash_destruct(h);
                              }),
            S{"sc_hash_internal_insert: sc_malloc(" + elem + ") failed"});

  const std::string iter = ht::num(sizeof(sc_hash_iter));
  EXPECT_EQ(ht::failure_texts(kModule,
                              [](auto arm) {
                                sc_hash *h = sc_hash_construct(2, nullptr);
                                arm();
                                sc_hash_iter *it = sc_hash_iter_construct(h);
                                EXPECT_EQ(it == nullptr,
                                          th::failure_injected());
                                sc_hash_iter_destruct(it);
                                sc_hash_destruct(h);
                              }),
            S{"sc_hash_iter_construct: sc_malloc(" + iter + ") failed"});

  const std::string it_fail = "sc_hash_iter_construct: sc_malloc(" + iter +
                              ") failed" +
                              "sc_hash_serialize: sc_hash_iter_construct() "
                              "failed\n";
  EXPECT_EQ(ht::failure_texts(kModule,
                              [](auto arm) {
                                sc_hash *h = sc_hash_construct(2, nullptr);
                                put(h, "ab", "cde");
                                void *buf = &buf;
                                uint32_t len = 7;
                                arm();
                                int rc = sc_hash_serialize(h, &buf, &len);
                                if (th::failure_injected()) {
                                  EXPECT_EQ(rc, -1);
                                  EXPECT_EQ(buf, nullptr);
                                  EXPECT_EQ(len, 0u);
                                } else {
                                  EXPECT_EQ(len, 13u);
                                  __sc_kfree(buf, len);
                                }
                                sc_hash_destruct(h);
                              }),
            (S{it_fail, "sc_hash_serialize: sc_malloc(13) failed\n", it_fail}));
}

}  // namespace

// Bucket indexes of the three tables' hashes, for the listed keys, and
// independence from the key's address.
#include <string.h>

#include "hash/sc_hash_private.h"
#include "hash_test_util.h"
#include "sc_khash.h"
#include "sc_ohash.h"

namespace {

using ht::bytes;
using ht::Bytes;
using KeyHashTest = HostTest;

struct Expect {
  Bytes key;
  uint32_t buckets, index;
};

// Control-side hash: every key folded, so 1 to 3 trailing bytes only reach
// bits 16 and up.
const Expect kFolded[] = {
    {"", 16, 0},
    {bytes({1, 2, 3, 4}), 16, 3},
    {bytes({1, 2, 3, 4}), 1024, 819},
    {"hello", 16, 14},
    {"hello", 65536, 60286},
    {"hellp", 16, 14},
    {"hellp", 65536, 60286},
    {bytes({0x0a, 0, 0, 1}), 16, 2},
    {bytes({0x0a, 0, 0, 1}), 1048576, 492546},
    {bytes({7}), 16, 0},
    {bytes({7}), 65536, 0},
    {bytes({7}), 1048576, 458752},
    {bytes({1, 2}), 65536, 0},
};

// Forwarding-side hash: keys of up to three bytes are not folded.
const Expect kKhash[] = {
    {"", 16, 0},
    {bytes({1, 2, 3, 4}), 16, 3},
    {bytes({0, 0, 0, 1}), 16, 8},
    {bytes({0, 0, 0, 1}), 1048576, 491784},
    {bytes({7}), 16, 7},
    {bytes({1, 2}), 16, 3},
};

TEST_F(KeyHashTest, ListedIndexes) {
  for (const Expect &x : kFolded) {
    sc_hash *h = sc_hash_construct(x.buckets, nullptr);
    sc_ohash *o = sc_ohash_construct(x.buckets, "o", nullptr);
    ASSERT_TRUE(h && o);
    EXPECT_EQ(sc_hash_hash(h, x.key.data(), x.key.size()), x.index)
        << x.key << " in " << x.buckets;
    EXPECT_EQ(sc_ohash_hash(o, x.key.data(), x.key.size()), x.index)
        << x.key << " in " << x.buckets;
    sc_hash_destruct(h);
    sc_ohash_destruct(o);
  }
  th::Ctx ctx(1u << 16);
  for (const Expect &x : kKhash) {
    sc_khash *k = sc_khash_construct(x.buckets, ctx, nullptr);
    ASSERT_TRUE(k);
    // An absent key's link in an empty table is its bucket head.
    EXPECT_EQ(sc_khash_findp(k, x.key.data(), x.key.size()) - k->buckets,
              ptrdiff_t(x.index))
        << x.key << " in " << x.buckets;
    sc_khash_destruct(k);
  }
}

// Keys of every length up to 11 bytes, copied to each offset of a buffer,
// land in the same bucket and are found.
TEST_F(KeyHashTest, AddressDoesNotMatter) {
  th::Ctx ctx(4096);
  sc_hash *h = sc_hash_construct(1u << 20, nullptr);
  sc_ohash *o = sc_ohash_construct(1u << 20, "o", nullptr);
  sc_khash *k = sc_khash_construct(1u << 20, ctx, nullptr);
  ASSERT_TRUE(h && o && k);
  const Bytes all = "\x81\xfe\x10\x7f\x00\xc3hash\xff\x01";
  for (size_t len = 0; len <= all.size(); len++) {
    const Bytes key = all.substr(0, len);
    ASSERT_EQ(sc_hash_insert(h, key.data(), len, "v", 1), 0);
    ASSERT_EQ(sc_ohash_insert(o, key.data(), len, "v", 1), 0);
    ASSERT_TRUE(sc_khash_internal_insert(k, key.data(), len, "v", 1, 0, 0));
    alignas(8) char buf[24];
    for (int off = 1; off < 8; off++) {
      memcpy(buf + off, key.data(), len);
      EXPECT_EQ(sc_hash_hash(h, buf + off, len),
                sc_hash_hash(h, key.data(), len));
      EXPECT_EQ(sc_ohash_hash(o, buf + off, len),
                sc_ohash_hash(o, key.data(), len));
      EXPECT_EQ(sc_hash_find(h, buf + off, len, nullptr, nullptr), 0);
      EXPECT_EQ(sc_ohash_find(o, buf + off, len, nullptr, nullptr), 0);
      EXPECT_TRUE(*sc_khash_findp(k, buf + off, len)) << len << "@" << off;
    }
  }
  sc_hash_destruct(h);
  sc_ohash_destruct(o);
  sc_khash_destruct(k);
  th::expect_sz_released_by_kfree(0);
}

}  // namespace

// Bucket indexes of the tables' hashes for known keys, and their
// independence from where the key lies.
#include <string.h>

#include "families.h"

namespace ht {
namespace {

struct Expect {
  Bytes key;
  uint32_t buckets, index;
};

using KeyHashTest = HostTest;

TEST_F(KeyHashTest, KnownIndexes) {
  // Control side: every key folded, so 1 to 3 trailing bytes only reach
  // bits 16 and up.
  const Expect folded[] = {{"", 16, 0},
                           {"\1\2\3\4", 16, 3},
                           {"\1\2\3\4", 1024, 819},
                           {"hello", 16, 14},
                           {"hello", 65536, 60286},
                           {"hellp", 65536, 60286},
                           {Bytes("\x0a\0\0\1", 4), 16, 2},
                           {Bytes("\x0a\0\0\1", 4), 1048576, 492546},
                           {"\7", 65536, 0},
                           {"\7", 1048576, 458752},
                           {"\1\2", 65536, 0}};
  for (const Expect &x : folded) {
    sc_hash *h = sc_hash_construct(x.buckets, nullptr);
    sc_ohash *o = sc_ohash_construct(x.buckets, "o", nullptr);
    EXPECT_EQ(sc_hash_hash(h, x.key.data(), x.key.size()), x.index) << x.key;
    EXPECT_EQ(sc_ohash_hash(o, x.key.data(), x.key.size()), x.index) << x.key;
    sc_hash_destruct(h);
    sc_ohash_destruct(o);
  }
  // Forwarding side: keys of up to three bytes are not folded. An absent
  // key's link in an empty table is its bucket head.
  const Expect unfolded[] = {{"", 16, 0},
                             {"\1\2\3\4", 16, 3},
                             {Bytes("\0\0\0\1", 4), 16, 8},
                             {Bytes("\0\0\0\1", 4), 1048576, 491784},
                             {"\7", 16, 7},
                             {"\1\2", 16, 3}};
  th::Ctx ctx(64);
  for (const Expect &x : unfolded) {
    sc_khash *k = sc_khash_construct(x.buckets, ctx, nullptr);
    EXPECT_EQ(sc_khash_findp(k, x.key.data(), x.key.size()) - k->buckets,
              ptrdiff_t(x.index))
        << x.key;
    sc_khash_destruct(k);
  }
}

// Keys of every length up to 11 bytes, copied to each offset of a buffer,
// hash alike and are found.
TYPED_TEST_SUITE(FamilyTest, Families);
TYPED_TEST(FamilyTest, KeyAddressDoesNotMatter) {
  TypeParam f;
  const Bytes all = "\x81\xfe\x10\x7f\x00\xc3hash\xff\x01";
  for (size_t len = 0; len <= all.size(); len++) {
    const Bytes key = all.substr(0, len);
    ASSERT_TRUE(f.insert(key, "v", 1));
    alignas(8) char buf[24];
    for (int off = 1; off < 8; off++) {
      memcpy(buf + off, key.data(), len);
      EXPECT_EQ(f.element(std::string_view(buf + off, len)), f.element(key));
      EXPECT_EQ(f.index(std::string_view(buf + off, len)), f.index(key));
    }
  }
}

}  // namespace
}  // namespace ht

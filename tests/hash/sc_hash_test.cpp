// sc_hash's serialised image and reserved values.
#include "families.h"

namespace ht {
namespace {

using HashTest = FamilyTest<HashFamily>;

Bytes image(HashFamily &f) {
  void *buf = &buf;
  uint32_t len = 99;
  EXPECT_EQ(sc_hash_serialize(f.t, &buf, &len), 0);
  EXPECT_NE(buf, nullptr);  // even for an empty image
  Bytes out(static_cast<char *>(buf), len);
  __sc_kfree(buf, len);
  return out;
}

TEST_F(HashTest, SerializedImageFollowsTheWalk) {
  HashFamily f;
  EXPECT_EQ(image(f), "");
  f.insert("a", "xyz", 3);
  EXPECT_EQ(image(f), Bytes("\1\0\0\0a\3\0\0\0xyz", 12));
  f.insert("wxyz", Bytes(300, 'q'), 0);  // bucket 2, after bucket 0
  f.insert("", "", 0);
  EXPECT_EQ(image(f), Bytes("\1\0\0\0a\3\0\0\0xyz\0\0\0\0\0\0\0\0"
                            "\4\0\0\0wxyz\x2c\1\0\0",
                            32) +
                          Bytes(300, 'q'));
}

TEST_F(HashTest, SerializeFailuresLeaveNothingBehind) {
  const std::string iter = HashFamily::iter_failure() +
                           "sc_hash_serialize: sc_hash_iter_construct() "
                           "failed\n";
  EXPECT_EQ(failure_texts(HashFamily::kModule,
                          [](auto arm) {
                            HashFamily f;
                            f.insert("ab", "cde", 0);
                            void *buf = &buf;
                            uint32_t len = 7;
                            arm();
                            int rc = sc_hash_serialize(f.t, &buf, &len);
                            if (rc == 0) return __sc_kfree(buf, len);
                            EXPECT_TRUE(th::failure_injected());
                            EXPECT_EQ(buf, nullptr);
                            EXPECT_EQ(len, 0u);
                          }),
            (S{iter, "sc_hash_serialize: sc_malloc(13) failed\n", iter}));
}

}  // namespace
}  // namespace ht

// The live table handles of both widths: staged changes seen only after a
// publish, reader slots held and given back by the guards, and every failed
// allocation.
#include "vell/live.hpp"

#include <vector>

#include "test_host.h"

namespace {

// Three nested prefixes, the default route first, and a key in each that
// lies in no longer one: keys[i] is answered by the longest of
// prefixes[0..i] set.
template <typename Live>
struct Net;
template <>
struct Net<vell::live4> {
  static constexpr const char *prefixes[] = {"0.0.0.0/0", "10.0.0.0/8",
                                             "10.1.2.0/24"};
  static constexpr const char *keys[] = {"11.0.0.1", "10.200.0.1", "10.1.2.3"};
};
template <>
struct Net<vell::live6> {
  static constexpr const char *prefixes[] = {"::/0", "2001:db8::/32",
                                             "2001:db8:1::/48"};
  static constexpr const char *keys[] = {"2002::1", "2001:db8:ff::1",
                                         "2001:db8:1::7"};
};

template <typename Live>
class CppLive : public HostTest {
 protected:
  using Reader = typename Live::reader;
  static typename Live::prefix_type prefix(size_t i) {
    return *Live::prefix_type::parse(Net<Live>::prefixes[i]);
  }
  static typename Live::addr_type key(size_t i) {
    return *Live::addr_type::parse(Net<Live>::keys[i]);
  }
  static std::vector<std::optional<uint32_t>> answers(const Reader &r) {
    std::vector<std::optional<uint32_t>> out;
    for (size_t i = 0; i < 3; ++i) out.push_back(r.lookup(key(i)));
    return out;
  }
};
using Lives = ::testing::Types<vell::live4, vell::live6>;
TYPED_TEST_SUITE(CppLive, Lives);

TYPED_TEST(CppLive, ChangesShowAtPublishAndNotBefore) {
  using A = std::vector<std::optional<uint32_t>>;
  auto t = TypeParam::create(4);
  ASSERT_TRUE(t);
  typename TypeParam::reader r(*t);
  ASSERT_TRUE(r);
  for (uint32_t i = 0; i < 3; ++i) ASSERT_TRUE(t->set(this->prefix(i), i));
  EXPECT_EQ(t->size(), 3u);
  EXPECT_EQ(this->answers(r), A(3));
  ASSERT_TRUE(t->publish());
  EXPECT_EQ(this->answers(r), (A{0, 1, 2}));  // a stored 0 is not a miss

  // A removal staged once is not present to a second; a replaced word
  // shows, with the removal, at the next publish.
  EXPECT_EQ(t->remove(this->prefix(2)), vell::removal::removed);
  EXPECT_EQ(t->remove(this->prefix(2)), vell::removal::not_present);
  ASSERT_TRUE(t->set(this->prefix(1), 100));
  EXPECT_EQ(t->size(), 2u);
  EXPECT_EQ(this->answers(r), (A{0, 1, 2}));
  ASSERT_TRUE(t->publish());
  EXPECT_EQ(this->answers(r), (A{0, 100, 100}));
  EXPECT_GT(t->memory_usage(), 0u);

  th::clear_output();
  EXPECT_FALSE(t->set(this->prefix(0), TypeParam::max_data + 1));
  EXPECT_EQ(th::diag_text(),
            "vell: data word 4294967295 is reserved (at most 4294967294)\n");
}

TYPED_TEST(CppLive, ReaderGuardsHoldTheirSlotsUntilDestroyed) {
  using Reader = typename TypeParam::reader;
  auto t = TypeParam::create(2);
  ASSERT_TRUE(t);
  Reader a(*t), b(*t);
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.slot(), b.slot());
  Reader full(*t);  // every slot taken: empty, and said
  EXPECT_FALSE(full);
  EXPECT_EQ(full.slot(), -1);
  EXPECT_NE(th::diag_text(), "");

  // A move hands the slot over; assigning over a guard gives its own back.
  int slot = a.slot();
  Reader moved = std::move(a);
  EXPECT_FALSE(a);
  EXPECT_EQ(moved.slot(), slot);
  moved = std::move(b);
  EXPECT_TRUE(Reader(*t));
  b = Reader(*t);
  EXPECT_EQ(b.slot(), slot);
  b.reset();
  EXPECT_FALSE(b);
  EXPECT_TRUE(Reader(*t));
}

// What the writer unlinks is reused once every reader has said it is
// quiescent since: republishing then takes no more memory.
TYPED_TEST(CppLive, AQuiescentReaderLetsTheWriterReuseWhatItUnlinked) {
  auto t = TypeParam::create(1);
  ASSERT_TRUE(t);
  typename TypeParam::reader r(*t);
  size_t settled = 0;
  for (uint32_t v = 0; v < 40; ++v) {
    ASSERT_TRUE(t->set(this->prefix(v % 3), v) && t->publish());
    r.quiescent();
    if (v == 9) settled = t->memory_usage();
  }
  EXPECT_EQ(t->memory_usage(), settled);
}

TYPED_TEST(CppLive, FailedAllocationsChangeNothingAndRetrySucceeds) {
  th::Ctx ctx(4096);
  for (void *sz_ctx : {static_cast<void *>(nullptr), ctx.get()}) {
    int points = th::sweep([&](long) {
      auto t = TypeParam::create(1, sz_ctx);
      if (!t) return;
      typename TypeParam::reader r(*t);
      ASSERT_TRUE(r);
      // Version v adds prefixes[v]: keys[i] then answers min(i, v).
      for (uint32_t v = 0; v < 3; ++v) {
        auto before = this->answers(r);
        if (!t->set(this->prefix(v), v)) {
          EXPECT_EQ(t->size(), v);
          ASSERT_TRUE(t->set(this->prefix(v), v));
        }
        if (!t->publish()) {
          EXPECT_EQ(this->answers(r), before);
          ASSERT_TRUE(t->publish());
        }
        for (uint32_t i = 0; i < 3; ++i)
          EXPECT_EQ(r.lookup(this->key(i)), std::min(i, v));
        r.quiescent();
      }
    });
    EXPECT_GT(points, 2);
  }
}

}  // namespace

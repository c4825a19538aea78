// The live table handles of both widths: staged changes seen only after a
// publish, reader slots held and given back by the guards, every failed
// allocation, and a reader thread looking up while the writer publishes.
#include "vell/live.hpp"

#include <atomic>
#include <thread>
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

  // Bulk lookups over more than one batch answer as single ones.
  std::vector<typename TypeParam::addr_type> keys;
  A single, bulk(201);
  for (size_t i = 0; i < 200; ++i) keys.push_back(this->key(i % 3));
  for (auto &k : keys) single.push_back(r.lookup(k));
  r.lookup(keys, bulk);
  EXPECT_FALSE(bulk.back());  // no key for it: untouched
  bulk.pop_back();
  EXPECT_EQ(bulk, single);

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

// A reader thread looks up while the writer publishes a new word for the
// nested prefix each time, its nodes written anew and, as the pool fills,
// whole versions replaced and given back. No answer goes back to an older
// version, and a lookup begun after a publish returned sees it: the writer
// waits for the reader after every fourth version.
TYPED_TEST(CppLive, AReaderThreadSeesEachPublishAndNoneUndone) {
  using Reader = typename TypeParam::reader;
  constexpr uint32_t kVersions = 1000;
  auto t = TypeParam::create(2);
  ASSERT_TRUE(t);
  std::atomic<bool> started{false}, stop{false};
  std::atomic<uint32_t> batches{0};  // of the reader thread
  uint32_t went_back = 0;
  std::vector<bool> seen(kVersions + 1);
  std::thread reader_thread([&] {
    Reader r(*t);
    started = true;
    std::vector<typename TypeParam::addr_type> keys(64, this->key(2));
    std::vector<std::optional<uint32_t>> bulk(keys.size());
    std::optional<uint32_t> last;
    auto check = [&](std::optional<uint32_t> a) {
      went_back += a < last || a > kVersions;
      if (a && *a <= kVersions) seen[*a] = true;
      last = a;
    };
    while (r && !stop) {
      check(r.lookup(keys[0]));
      r.lookup(keys, bulk);
      for (auto &a : bulk) check(a);
      r.quiescent();
      ++batches;
    }
  });
  {
    struct Joiner {  // also when an assertion returns early
      std::atomic<bool> &stop;
      std::thread &thread;
      ~Joiner() {
        stop = true;
        thread.join();
      }
    } joiner{stop, reader_thread};
    while (!started) std::this_thread::yield();
    Reader w(*t);
    ASSERT_TRUE(w);
    for (uint32_t i = 0; i < 3; ++i) ASSERT_TRUE(t->set(this->prefix(i), 0));
    for (uint32_t v = 1; v <= kVersions; ++v) {
      // Every third version removes the nested prefix and sets it again
      // within one publish.
      if (v % 3 == 0) {
        ASSERT_EQ(t->remove(this->prefix(2)), vell::removal::removed);
      }
      ASSERT_TRUE(t->set(this->prefix(2), v));
      ASSERT_TRUE(t->publish());
      ASSERT_EQ(w.lookup(this->key(2)), v);
      w.quiescent();
      // Two more batches: the second began after this publish.
      for (uint32_t b = batches + 2; v % 4 == 0 && batches < b;)
        std::this_thread::yield();
    }
  }
  EXPECT_EQ(went_back, 0u);
  for (uint32_t v = 4; v <= kVersions; v += 4) EXPECT_TRUE(seen[v]) << v;
}

}  // namespace

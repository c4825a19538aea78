// Every allocation of construction and iteration failed in turn, with and
// without a size-class context and on both sides of its limit; rejected
// input; node positions beyond the index.
#include <regex>
#include <string>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

template <class F>
class TrieFailure : public HostTest {};
TYPED_TEST_SUITE(TrieFailure, tt::Families);

struct Expected {
  std::string text;
  int level;
  bool trie_returned;
};

// The failures of the reference set with a duplicate (6 entries, 3 leaves, 2
// prefixes, an estimate of 115 nodes, 7 used), in allocation order. Some
// IPv6 messages name the IPv4 operation.
template <class F>
std::vector<Expected> expected_failures() {
  const std::string own = F::kName, v4 = "sc_btrie_construct";
  const std::string late = F::kWords == 4 ? own : v4;
  const size_t entry = sizeof(typename F::Entry);
  auto failed = [](const std::string &op, size_t size, const char *end) {
    return op + ": sc_kmalloc(" + std::to_string(size) + ") failed" + end;
  };
  return {{own + ": sc_kmalloc(1, " + std::to_string(sizeof(typename F::Trie)) +
               ") failed\n",
           2, false},
          {failed(own, entry * 6, ""), 2, false},
          {failed(v4, 12 * 6, ""), 2, false},
          {failed(v4, 4 * 115, ""), 2, false},
          {failed(v4, entry * 3, "\n"), 4, true},
          {failed(late, 12 * 2, "\n"), 4, true},
          {failed(late, 4 * 7, "\n"), 2, true}};
}

template <class F>
void sweep_construction(void *ctx, uint32_t max_alloc) {
  auto in = tt::reference_set<F>();
  in.push_back(in[2]);  // a duplicate, so that every array is trimmed
  auto expected = expected_failures<F>();
  int points = th::sweep([&](long k) {
    __sc_debug_level = 4;
    typename F::Trie *t = F::construct(ctx, in.data(), 6, 50, 0);
    for (const th::Block &b : th::blocks())
      EXPECT_EQ(b.alloc, ctx && b.size <= max_alloc ? th::Alloc::szalloc
                                                    : th::Alloc::kmalloc)
          << b.size << " bytes";
    if (th::failure_injected()) {
      ASSERT_LE(k, long(expected.size()));
      const Expected &e = expected[k - 1];
      ASSERT_EQ(th::diags().size(), 1u) << "allocation " << k;
      EXPECT_EQ(th::diags()[0].text, e.text);
      EXPECT_EQ(th::diags()[0].level, e.level);
      EXPECT_EQ(th::diags()[0].file, F::kModule);
      ASSERT_EQ(t != nullptr, e.trie_returned) << "allocation " << k;
    } else {
      EXPECT_TRUE(th::diags().empty());
    }
    if (!t) return;
    // Whatever trim failed, the trie answers as a trimmed one, counts the
    // bytes it holds and releases each block with its size.
    for (auto &[key, data] : tt::reference_lookups<F>())
      EXPECT_EQ(F::lpmatch(t, key), data);
    EXPECT_EQ(F::memory(t), th::live_bytes());
    static int calls;
    calls = 0;
    F::set_destructor(t, [](uint32_t) { ++calls; });
    F::destruct(t);
    EXPECT_EQ(calls, 5);
  });
  EXPECT_EQ(points, 7);
}

TYPED_TEST(TrieFailure, EveryConstructionAllocationFailsCleanly) {
  using F = TypeParam;
  sweep_construction<F>(nullptr, 0);
  // Limits on both sides of the entry array's size, and above everything.
  const uint32_t entries = 6 * sizeof(typename F::Entry);
  for (uint32_t max : {entries - 1, entries, 1u << 20}) {
    SCOPED_TRACE(::testing::Message() << "size-class limit " << max);
    th::Ctx ctx(max);
    sweep_construction<F>(ctx, max);
  }
}

TYPED_TEST(TrieFailure, IteratorAllocationFailsCleanly) {
  using F = TypeParam;
  auto in = tt::reference_set<F>();
  const uint32_t size = sizeof(typename F::Iter);
  for (uint32_t max : {0u, size - 1, size}) {
    th::Ctx ctx(max);
    th::reset();
    typename F::Trie *t =
        F::construct(max ? ctx.get() : nullptr, in.data(), 5, 50, 0);
    th::fail_nth(1);
    EXPECT_EQ(F::iter(t), nullptr);
    ASSERT_EQ(th::diags().size(), 1u);
    EXPECT_EQ(th::diags()[0].text, "sc_btrie_iter_construct: sc_kmalloc(1, " +
                                       std::to_string(size) + ") failed");
    EXPECT_EQ(th::diags()[0].level, 2);
    th::fail_nth(0);
    typename F::Iter *it = F::iter(t);
    EXPECT_EQ(th::blocks().back().alloc,
              max == size ? th::Alloc::szalloc : th::Alloc::kmalloc);
    F::iter_destruct(it);
    F::destruct(t);
    th::expect_clean();
  }
}

// A fill factor above 100 makes the node estimate fall short: the array
// grows, and each growth is an allocation that can fail.
TYPED_TEST(TrieFailure, NodeArrayGrowsAndItsGrowthFailsCleanly) {
  using F = TypeParam;
  std::vector<typename F::Entry> in;
  for (uint32_t i = 0; i < 400; ++i)
    in.push_back(F::entry({i * 0x9E3779B1u, i * 7, i, i}, F::kBits, i + 1));
  const uint32_t estimate = (400 * 200 + 100) / 1000 + 1 + 100;
  const std::regex failed("sc_btrie_construct: sc_kmalloc\\((\\d+)\\) failed");
  int growths = 0;
  th::sweep([&](long k) {
    typename F::Trie *t = F::construct(nullptr, in.data(), 400, 1000, 0);
    if (!th::failure_injected()) {
      ASSERT_TRUE(t);
      EXPECT_GT(t->n_nodes, estimate);
      for (auto &e : in) EXPECT_EQ(F::lpmatch(t, F::addr(e)), e.data);
    }
    if (t || k <= 4) return F::destruct(t);  // not a growth
    ++growths;
    std::smatch m;
    ASSERT_EQ(th::diags().size(), 1u);
    ASSERT_TRUE(std::regex_match(th::diags()[0].text, m, failed));
    EXPECT_GT(std::stoul(m[1]), 4ul * estimate);
  });
  EXPECT_GT(growths, 0);
}

TYPED_TEST(TrieFailure, InvalidInputIsRejectedBeforeAnythingIsTaken) {
  using F = TypeParam;
  const std::string op = F::kName;
  auto reject = [&](std::vector<typename F::Entry> in, uint32_t fill,
                    uint32_t root, const std::string &text) {
    th::reset();
    EXPECT_EQ(F::construct(nullptr, in.data(), in.size(), fill, root), nullptr);
    ASSERT_EQ(th::diags().size(), 1u) << text;
    EXPECT_EQ(th::diags()[0].text, text);
    EXPECT_EQ(th::diags()[0].level, 2);
    EXPECT_TRUE(th::blocks().empty());
  };
  std::vector<typename F::Entry> good = {F::entry({0x80000000}, 1, 1),
                                         F::entry({}, 1, 2)};
  const bool v4 = F::kWords == 1;
  const tt::Addr low = v4 ? tt::Addr{1} : tt::Addr{0, 0, 0, 1};
  const std::string low_text =
      v4 ? "00000001/" : "00000000 00000000 00000000 00000001/";
  reject(good, 0, 0, op + ": fill_factor must be at least 1\n");
  const std::string wide = std::to_string(F::kMaxBranch + 1);
  reject(good, 50, F::kMaxBranch + 1,
         op + ": root_branch " + wide + " exceeds " +
             std::to_string(F::kMaxBranch) + "\n");
  auto bad = good;
  bad.push_back(F::entry(low, F::kBits + 1, 3));
  reject(bad, 50, 0,
         op + ": entry 2 (" + low_text + std::to_string(F::kBits + 1) +
             ") is longer than the address\n");
  bad = good;
  bad.insert(bad.begin() + 1, F::entry(low, F::kBits - 1, 3));
  reject(bad, 50, 0,
         op + ": entry 1 (" + low_text + std::to_string(F::kBits - 1) +
             ") has address bits set beyond its length\n");

  // The root's branch bits must come from one address word; these two
  // entries share their first 22 bits.
  std::vector<typename F::Entry> close = {F::entry({0x100}, 32, 1),
                                          F::entry({0x200}, 32, 2)};
  th::reset();
  EXPECT_EQ(F::construct(nullptr, close.data(), 2, 50, 11), nullptr);
  EXPECT_EQ(th::diag_text(), op + ": root_branch 11 does not fit the address "
                                  "after 22 common bits\n");
  th::expect_clean();
  typename F::Trie *t = F::construct(nullptr, close.data(), 2, 50, 10);
  ASSERT_TRUE(t);
  EXPECT_EQ(F::lpmatch(t, {0x200}), 2u);
  F::destruct(t);
}

TYPED_TEST(TrieFailure, TooManyEntriesIsRefused) {
  using F = TypeParam;
  const std::string text = std::string(F::kName) + ": too many entries (" +
                           std::to_string(F::kMaxEntries + 1) + " > " +
                           std::to_string(F::kMaxEntries) + ")\n";
  __sc_debug_level = F::kWords == 4 ? 0 : 2;  // IPv6: on the console always
  EXPECT_EQ(F::construct(nullptr, nullptr, F::kMaxEntries + 1, 50, 0), nullptr);
  EXPECT_EQ(F::kWords == 4 ? th::console() : th::diag_text(), text);
  EXPECT_TRUE(th::blocks().empty());
}

// A root whose children would pass the 22-bit node index fails instead of
// writing nodes no index can reach; one bit narrower fits.
TEST(TrieNodeLimit, NodesBeyondTheIndexFail) {
  th::reset();
  auto in = tt::reference_set<tt::V4>();
  EXPECT_EQ(sc_btrie_construct(nullptr, in.data(), 5, 50, 22), nullptr);
  EXPECT_EQ(th::diag_text(),
            "sc_btrie_construct: more than 4194304 nodes needed\n");
  th::expect_clean();
  sc_btrie *t = sc_btrie_construct(nullptr, in.data(), 5, 50, 21);
  ASSERT_TRUE(t);
  EXPECT_EQ(sc_btrie_lpmatch(t, 0xC0A80101), 0xDu);
  sc_btrie_destruct(t);
  th::expect_clean();
}

}  // namespace

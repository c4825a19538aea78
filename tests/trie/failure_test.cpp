// Every allocation of construction and iteration failed in turn, with and
// without a size-class context and on both sides of its limit; rejected
// input; node positions beyond the index.
#include <regex>
#include <string>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class TrieFailure : public HostTest {};
using Families = ::testing::Types<tt::V4, tt::V6>;
TYPED_TEST_SUITE(TrieFailure, Families);

// The documentation's example plus a duplicate: every array is trimmed.
template <class F>
std::vector<typename F::Entry> example() {
  auto at = [](uint32_t w0, uint32_t w1) { return Addr{w0, w1, 0, 0}; };
  if (F::kWords == 1)
    return {
        F::entry(at(0x0A000000, 0), 8, 1),  F::entry(at(0x0A010000, 0), 16, 2),
        F::entry(at(0x0A020000, 0), 16, 3), F::entry(at(0xC0A80100, 0), 24, 4),
        F::entry(at(0, 0), 0, 5),           F::entry(at(0x0A020000, 0), 16, 3)};
  return {F::entry(at(0x20010DB8, 0), 32, 1),
          F::entry(at(0x20010DB8, 0x10000), 48, 2),
          F::entry(at(0x20010DB8, 0x20000), 48, 3),
          F::entry(at(0xFE800000, 0), 10, 4),
          F::entry(at(0, 0), 0, 5),
          F::entry(at(0x20010DB8, 0x20000), 48, 3)};
}

template <class F>
std::vector<Addr> example_keys() {
  if (F::kWords == 1)
    return {{0x0A010203}, {0x0A030001}, {0x0B000000}, {0xC0A80107}};
  return {{0x20010DB8, 0x10000, 0, 5},
          {0x20010DB8, 0x30000, 0, 1},
          {0x20010DB9, 0, 0, 1},
          {0xFE800000, 0, 0, 1}};
}

// The messages of one family, in allocation order.
struct Expected {
  std::string text;
  int level;
  bool trie_returned;
};

template <class F>
std::vector<Expected> expected_failures(uint32_t n, uint32_t leaves,
                                        uint32_t prefixes, uint32_t estimate,
                                        uint32_t used) {
  const bool v6 = F::kWords == 4;
  const std::string own = v6 ? "sc_btrie6_construct" : "sc_btrie_construct";
  const std::string v4 = "sc_btrie_construct";
  const size_t esize = sizeof(typename F::Entry);
  auto failed = [](const std::string &op, size_t size, bool nl) {
    return op + ": sc_kmalloc(" + std::to_string(size) + ") failed" +
           (nl ? "\n" : "");
  };
  return {
      {own + ": sc_kmalloc(1, " + std::to_string(sizeof(typename F::Trie)) +
           ") failed\n",
       2, false},
      {failed(own, esize * n, false), 2, false},
      {failed(v4, 12 * n, false), 2, false},
      {failed(v4, 4 * estimate, false), 2, false},
      {failed(v4, esize * leaves, true), 4, true},
      {failed(v6 ? own : v4, 12 * prefixes, true), 4, true},
      {failed(v6 ? own : v4, 4 * used, true), 2, true},
  };
}

// A trie whose trims may have failed answers, iterates and releases as a
// trimmed one, and counts the bytes it really holds.
template <class F>
void check_usable(typename F::Trie *t, const std::vector<uint32_t> &want) {
  auto keys = example_keys<F>();
  for (size_t i = 0; i < keys.size(); ++i)
    EXPECT_EQ(F::lpmatch(t, keys[i]), want[i]);
  EXPECT_EQ(F::memory(t), th::live_bytes());
  static int calls;
  calls = 0;
  F::set_destructor(t, [](uint32_t) { ++calls; });
  F::destruct(t);
  EXPECT_EQ(calls, 5);
}

template <class F>
void sweep_construction(void *ctx, uint32_t max_alloc) {
  auto in = example<F>();
  const std::vector<uint32_t> want = {2, 1, 5, 4};
  auto expected = expected_failures<F>(6, 3, 2, 115, 7);
  int points = th::sweep([&](long k) {
    __sc_debug_level = 4;
    typename F::Trie *t = F::construct(ctx, in.data(), 6, 50, 0);
    for (const th::Block &b : th::blocks()) {
      bool sz = ctx && b.size <= max_alloc;
      EXPECT_EQ(b.alloc, sz ? th::Alloc::szalloc : th::Alloc::kmalloc)
          << b.size << " bytes";
    }
    if (!th::failure_injected()) {
      ASSERT_TRUE(t);
      EXPECT_EQ(th::diags().size(), 0u);
      check_usable<F>(t, want);
      return;
    }
    ASSERT_LE(k, long(expected.size()));
    const Expected &e = expected[k - 1];
    ASSERT_EQ(th::diags().size(), 1u) << "allocation " << k;
    EXPECT_EQ(th::diags()[0].text, e.text);
    EXPECT_EQ(th::diags()[0].level, e.level);
    EXPECT_EQ(th::diags()[0].file, F::kModule);
    EXPECT_EQ(t != nullptr, e.trie_returned) << "allocation " << k;
    if (t) check_usable<F>(t, want);
  });
  EXPECT_EQ(points, 7);
}

TYPED_TEST(TrieFailure, EveryConstructionAllocationFailsCleanly) {
  using F = TypeParam;
  {
    SCOPED_TRACE("general heap only");
    sweep_construction<F>(nullptr, 0);
  }
  // Limits around the entry array's size (the largest block but the
  // estimated node array), and one that takes everything.
  const uint32_t entries = 6 * sizeof(typename F::Entry);
  for (uint32_t max : {entries - 1, entries, 1u << 20}) {
    SCOPED_TRACE(::testing::Message() << "size-class limit " << max);
    th::Ctx ctx(max);
    sweep_construction<F>(ctx, max);
  }
}

// Below the second level a failed trim is only a trace.
TYPED_TEST(TrieFailure, FailedTrimIsSilentAtLevelTwo) {
  using F = TypeParam;
  auto in = example<F>();
  th::fail_nth(5);
  typename F::Trie *t = F::construct(nullptr, in.data(), 6, 50, 0);
  ASSERT_TRUE(t);
  EXPECT_TRUE(th::diags().empty());
  F::destruct(t);
}

TYPED_TEST(TrieFailure, EveryIteratorAllocationFailsCleanly) {
  using F = TypeParam;
  auto in = example<F>();
  for (uint32_t max : {0u, uint32_t(sizeof(typename F::Iter)) - 1,
                       uint32_t(sizeof(typename F::Iter))}) {
    th::Ctx ctx(max);
    void *c = max ? ctx.get() : nullptr;
    th::reset();
    typename F::Trie *t = F::construct(c, in.data(), 6, 50, 0);
    ASSERT_TRUE(t);
    th::fail_nth(1);
    EXPECT_EQ(F::iter(t), nullptr);
    ASSERT_EQ(th::diags().size(), 1u);
    EXPECT_EQ(th::diags()[0].text,
              "sc_btrie_iter_construct: sc_kmalloc(1, " +
                  std::to_string(sizeof(typename F::Iter)) + ") failed");
    EXPECT_EQ(th::diags()[0].level, 2);
    th::fail_nth(0);
    typename F::Iter *it = F::iter(t);
    ASSERT_TRUE(it);
    EXPECT_EQ(th::blocks().back().alloc, max >= sizeof(typename F::Iter)
                                             ? th::Alloc::szalloc
                                             : th::Alloc::kmalloc);
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
    in.push_back(F::entry(Addr{i * 0x9E3779B1u, i * 7, i, i}, F::kBits, i + 1));
  const uint32_t n = in.size();
  const uint32_t estimate = (n * 200 + 100) / 1000 + 1 + 100;
  const std::string nodes_failed =
      "sc_btrie_construct: sc_kmalloc\\((\\d+)\\) failed";
  int growths = 0;
  th::sweep([&](long k) {
    typename F::Trie *t = F::construct(nullptr, in.data(), n, 1000, 0);
    if (!th::failure_injected()) {
      ASSERT_TRUE(t);
      EXPECT_GT(t->n_nodes, estimate);
      for (auto &e : in) EXPECT_EQ(F::lpmatch(t, F::addr(e)), e.data);
      F::destruct(t);
      return;
    }
    if (k <= 4 || t) {  // the fixed allocations and the trims
      if (t) F::destruct(t);
      return;
    }
    ++growths;
    ASSERT_EQ(th::diags().size(), 1u);
    std::smatch m;
    ASSERT_TRUE(
        std::regex_match(th::diags()[0].text, m, std::regex(nodes_failed)))
        << th::diags()[0].text;
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
    EXPECT_EQ(th::diags()[0].file, F::kModule);
    EXPECT_TRUE(th::blocks().empty());
  };
  Addr top = {0x80000000, 0, 0, 0};
  std::vector<typename F::Entry> good = {F::entry(top, 1, 1),
                                         F::entry({}, 1, 2)};
  const std::string addr_text =
      F::kWords == 1 ? "00000001" : "00000000 00000000 00000000 00000001";
  Addr low = F::kWords == 1 ? Addr{1, 0, 0, 0} : Addr{0, 0, 0, 1};

  reject(good, 0, 0, op + ": fill_factor must be at least 1\n");
  reject(good, 50, F::kMaxBranch + 1,
         op + ": root_branch " + std::to_string(F::kMaxBranch + 1) +
             " exceeds " + std::to_string(F::kMaxBranch) + "\n");
  auto too_long = good;
  too_long.push_back(F::entry(low, F::kBits + 1, 3));
  reject(too_long, 50, 0,
         op + ": entry 2 (" + addr_text + "/" + std::to_string(F::kBits + 1) +
             ") is longer than the address\n");
  auto stray = good;
  stray.insert(stray.begin() + 1, F::entry(low, F::kBits - 1, 3));
  reject(stray, 50, 0,
         op + ": entry 1 (" + addr_text + "/" + std::to_string(F::kBits - 1) +
             ") has address bits set beyond its length\n");
}

// The root's branch bits come from one address word: a forced root branch
// that would run past the word's end is refused once the common bits are
// known, and everything taken so far goes back.
TYPED_TEST(TrieFailure, RootBranchPastTheWordIsRefused) {
  using F = TypeParam;
  std::vector<typename F::Entry> in = {F::entry({0x00000100}, 32, 1),
                                       F::entry({0x00000200}, 32, 2)};
  // The two entries share their first 22 bits.
  EXPECT_EQ(F::construct(nullptr, in.data(), 2, 50, 11), nullptr);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text,
            std::string(F::kName) +
                ": root_branch 11 does not fit the address after 22 common "
                "bits\n");
  th::reset();
  typename F::Trie *t = F::construct(nullptr, in.data(), 2, 50, 10);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->nodes[0].branch, 10u);
  EXPECT_EQ(F::lpmatch(t, {0x00000200}), 2u);
  F::destruct(t);
}

TYPED_TEST(TrieFailure, TooManyEntriesIsRefused) {
  using F = TypeParam;
  __sc_debug_level = 0;
  EXPECT_EQ(F::construct(nullptr, nullptr, F::kMaxEntries + 1, 50, 0), nullptr);
  std::string text = std::string(F::kName) + ": too many entries (" +
                     std::to_string(F::kMaxEntries + 1) + " > " +
                     std::to_string(F::kMaxEntries) + ")\n";
  if (F::kWords == 4) {  // printed at every debug level
    EXPECT_EQ(th::console(), text);
  } else {
    EXPECT_TRUE(th::diags().empty());
    __sc_debug_level = 2;
    EXPECT_EQ(F::construct(nullptr, nullptr, F::kMaxEntries + 1, 50, 0),
              nullptr);
    ASSERT_EQ(th::diags().size(), 1u);
    EXPECT_EQ(th::diags()[0].text, text);
  }
  EXPECT_TRUE(th::blocks().empty());
}

// Node positions must fit the index field: a root whose children would
// pass it fails with a diagnostic instead of writing unaddressable nodes.
TEST(TrieNodeLimit, NodesBeyondTheIndexFail) {
  th::reset();
  sc_btrie_entry in[2] = {};
  in[0].addr = 0;
  in[0].len = 32;
  in[1].addr = 0xFFFFFFFF;
  in[1].len = 32;
  EXPECT_EQ(sc_btrie_construct(nullptr, in, 2, 50, 22), nullptr);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text,
            "sc_btrie_construct: more than 4194304 nodes needed\n");
  th::expect_clean();
  th::reset();
  sc_btrie *t = sc_btrie_construct(nullptr, in, 2, 50, 21);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->n_nodes, (1u << 21) + 1);
  EXPECT_EQ(sc_btrie_lpmatch(t, 0xFFFFFFFF), 0u);  // data 0 of in[1]
  sc_btrie_destruct(t);
  th::expect_clean();
}

}  // namespace

// The compiled forwarding table against the trie it was compiled from and a
// brute-force match: every answer, the miss value, its blocks and failures.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class Fib : public HostTest {};
TYPED_TEST_SUITE(Fib, tt::both<::testing::Types>);

// Builds the trie and the table, destructs the trie, and checks every
// key's single and bulk answer (all batch lengths up to 97) against what the
// trie answered: its data where a prefix covers the key, else miss.
template <class F>
void check_table(const std::vector<typename F::entry> &in, uint32_t miss,
                 uint32_t fill, uint32_t root, std::mt19937 &rng) {
  SCOPED_TRACE(::testing::Message() << in.size() << " prefixes, miss " << miss
                                    << ", fill " << fill << ", root " << root);
  typename F::trie *t =
      F::construct(nullptr, in.data(), uint32_t(in.size()), fill, root);
  ASSERT_NE(t, nullptr);
  typename F::fib *f = F::fib_construct(nullptr, t, miss);
  ASSERT_NE(f, nullptr);
  std::vector<Addr> keys = tt::probe_keys<F>(in, 400, rng);
  std::vector<uint32_t> want;
  const auto stored = tt::stored<F>(in);  // distinct prefixes
  for (const Addr &k : keys) {
    const uint32_t d = tt::lpmatch<F>(t, k);
    const auto *best = tt::longest<F>(stored, k);
    ASSERT_EQ(d, best ? *best->begin() : 0);
    want.push_back(best ? d : miss);
  }
  F::destruct(t);  // the table holds nothing of the trie

  for (size_t i = 0; i < keys.size(); ++i)
    ASSERT_EQ(tt::fib_lookup<F>(f, keys[i]), want[i]) << "key " << i;
  auto all = tt::fib_bulk<F>(f, keys, 0, keys.size());
  ASSERT_EQ(all, want);
  for (size_t len = 0; len <= 97 && len <= keys.size(); ++len) {
    size_t from = (len * 7) % (keys.size() - len + 1);
    auto part = tt::fib_bulk<F>(f, keys, from, len);
    ASSERT_TRUE(std::equal(part.begin(), part.end(), want.begin() + from))
        << "batch of " << len << " from " << from;
  }
  EXPECT_EQ(F::fib_memory_usage(f), th::live_bytes());
  F::fib_destruct(f);
}

TYPED_TEST(Fib, AnswersAsTheTrieOnNestedTablesWithAndWithoutADefaultRoute) {
  using F = TypeParam;
  std::mt19937 rng(7);
  for (uint32_t n : {1u, 2u, 40u, 600u, 3000u}) {
    auto in = tt::prefix_set<F>(rng, n);  // the default route comes first
    for (size_t i = 0; i < in.size(); i += 5) in[i].data = 0;  // stored 0s
    check_table<F>(in, 0, 50, 0, rng);
    check_table<F>(in, 0xFFFFFFFF, 100, 8, rng);
    std::vector<typename F::entry> no_default(in.begin() + 1, in.end());
    if (!no_default.empty()) {
      check_table<F>(no_default, 0, 1, 4, rng);
      check_table<F>(no_default, 0xFFFFFFFF, 50, 0, rng);
    }
  }
}

TYPED_TEST(Fib, PrefixesOfEveryLengthOnOneAddressAndOnItsNeighbours) {
  using F = TypeParam;
  std::mt19937 rng(11);
  for (int round = 0; round < 4; ++round) {
    Addr a = tt::random_addr(rng);
    std::vector<typename F::entry> in;
    for (uint32_t len = round % 2; len <= F::bits; ++len)
      in.push_back(tt::entry<F>(tt::cut<F>(a, len), len, len % 7 ? len : 0));
    // Host routes just outside the chain's deepest prefixes.
    Addr b = tt::step<F>(tt::cut<F>(a, F::bits), 1);
    in.push_back(tt::entry<F>(b, F::bits, 0xB));
    check_table<F>(in, 0x5EED, 50, 0, rng);
  }
}

// A trie of no entries misses every key; a null trie is refused.
TYPED_TEST(Fib, NoEntriesAndNull) {
  using F = TypeParam;
  std::mt19937 rng(1);
  check_table<F>({}, 0x77, 50, 0, rng);
  th::clear_output();
  EXPECT_EQ(F::fib_construct(nullptr, nullptr, 0), nullptr);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].level, 2);
  EXPECT_EQ(th::diags()[0].file, tt::module<F>("_fib"));
  EXPECT_EQ(th::diags()[0].text,
            tt::name<F>("_fib_construct") + ": trie is 0!\n");
  F::fib_destruct(nullptr);
  EXPECT_EQ(F::fib_memory_usage(nullptr), 0u);
}

// Each allocation of the construct fails in turn: a null result, the
// message naming the size asked, and every block taken so far given back
// to its allocator; with a size-class context whose limit splits the
// blocks between the two allocators, and without.
TYPED_TEST(Fib, EveryFailedAllocationIsReportedAndLeavesNothingTaken) {
  using F = TypeParam;
  std::mt19937 rng(5);
  auto in = tt::prefix_set<F>(rng, 300);
  th::Ctx ctx(8192);
  for (void *c : {static_cast<void *>(nullptr), ctx.get()}) {
    auto trie = [&] {
      return F::construct(c, in.data(), uint32_t(in.size()), 50, 0);
    };
    std::vector<uint32_t> sizes;  // the construct's blocks, in order
    th::reset();
    typename F::trie *t = trie();
    size_t before = th::blocks().size();
    typename F::fib *f = F::fib_construct(c, t, 0);
    ASSERT_NE(f, nullptr);
    for (size_t i = before; i < th::blocks().size(); ++i)
      sizes.push_back(th::blocks()[i].size);
    F::fib_destruct(f);
    F::destruct(t);

    int points = th::sweep([&](long k) {
      th::fail_nth(0);
      typename F::trie *t = trie();
      ASSERT_NE(t, nullptr);
      th::clear_output();
      th::fail_nth(k);
      typename F::fib *f = F::fib_construct(c, t, 0);
      if (th::failure_injected()) {
        EXPECT_EQ(f, nullptr);
        ASSERT_LE(size_t(k), sizes.size());
        ASSERT_EQ(th::diags().size(), 1u);
        EXPECT_EQ(th::diags()[0].file, tt::module<F>("_fib"));
        EXPECT_EQ(th::diags()[0].text,
                  tt::name<F>("_fib_construct") + ": sc_kmalloc(" +
                      std::to_string(sizes[k - 1]) + ") failed\n");
      } else {
        ASSERT_NE(f, nullptr);
        F::fib_destruct(f);
      }
      F::destruct(t);
    });
    EXPECT_EQ(points, int(sizes.size()));
  }
}

}  // namespace

// The bulk lookups against the single lookup and a brute-force match, over
// batch sizes around the number of walks kept in flight.
#include <algorithm>
#include <random>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class TrieBulk : public HostTest {};
TYPED_TEST_SUITE(TrieBulk, tt::both<::testing::Types>);

TYPED_TEST(TrieBulk, AgreesWithSingleLookupAndBruteForceForEveryKey) {
  using F = TypeParam;
  std::mt19937 rng(99);
  for (uint32_t n : {1u, 2u, 40u, 600u}) {
    auto in = tt::prefix_set<F>(rng, n);
    for (uint32_t root : {0u, 8u}) {
      typename F::trie *t =
          F::construct(nullptr, in.data(), uint32_t(in.size()), 50, root);
      ASSERT_NE(t, nullptr);
      std::vector<Addr> keys = tt::probe_keys<F>(in, 300, rng);

      auto all = tt::lpmatch_bulk<F>(t, keys, 0, keys.size());
      for (size_t i = 0; i < keys.size(); ++i) {
        uint32_t single = tt::lpmatch<F>(t, keys[i]);
        ASSERT_EQ(single, tt::brute_force<F>(in, keys[i])) << "key " << i;
        ASSERT_EQ(all[i], single) << "key " << i;
      }
      // Batches shorter than, equal to and just past one group, at offsets.
      for (size_t len : {0, 1, 63, 64, 65, 129}) {
        size_t from = len % 5;
        if (from + len > keys.size()) continue;
        auto part = tt::lpmatch_bulk<F>(t, keys, from, len);
        for (size_t i = 0; i < len; ++i) ASSERT_EQ(part[i], all[from + i]);
      }
      F::destruct(t);
    }
  }
}

TYPED_TEST(TrieBulk, ATrieOfNoEntriesAnswersZeroForEveryKey) {
  using F = TypeParam;
  typename F::trie *t = F::construct(nullptr, nullptr, 0, 50, 0);
  ASSERT_NE(t, nullptr);
  std::vector<Addr> keys(20, Addr{1, 2, 3, 4});
  for (uint32_t d : tt::lpmatch_bulk<F>(t, keys, 0, keys.size()))
    EXPECT_EQ(d, 0u);
  EXPECT_TRUE(tt::lpmatch_bulk<F>(t, keys, 0, 0).empty());
  F::destruct(t);
}

}  // namespace

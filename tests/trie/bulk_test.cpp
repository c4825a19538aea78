// The bulk lookups against the single lookup and a brute-force match, over
// batch sizes around the number of walks kept in flight.
#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class TrieBulk : public HostTest {};
TYPED_TEST_SUITE(TrieBulk, tt::Families);

// Calls the family's bulk lookup over four-word test addresses.
template <class F>
std::vector<uint32_t> bulk(const typename F::Trie *t,
                           const std::vector<Addr> &keys, size_t from,
                           size_t n) {
  std::vector<uint32_t> out(n, 0xDEADBEEF);
  if constexpr (F::kWords == 1) {
    std::vector<uint32_t> k;
    for (size_t i = from; i < from + n; ++i) k.push_back(keys[i][0]);
    sc_btrie_lpmatch_bulk(t, k.data(), out.data(), uint32_t(n));
  } else {
    static_assert(sizeof(Addr) == sizeof(uint32_t[4]));
    sc_btrie6_lpmatch_bulk(
        t, reinterpret_cast<const uint32_t(*)[4]>(keys.data() + from),
        out.data(), uint32_t(n));
  }
  return out;
}

// Longest covering prefix by scanning every entry.
template <class F>
uint32_t brute_force(const std::vector<typename F::Entry> &in, const Addr &k) {
  int best_len = -1;
  uint32_t data = 0;
  for (auto &e : in)
    if (int(e.len) > best_len && tt::cut<F>(k, e.len) == F::addr(e)) {
      best_len = int(e.len);
      data = e.data;
    }
  return data;
}

// Distinct prefixes in nested runs (so leaves fall back on prefix chains),
// with the default route and host routes among them.
template <class F>
std::vector<typename F::Entry> prefix_set(std::mt19937 &rng, uint32_t n) {
  std::set<std::pair<Addr, uint32_t>> seen;
  std::vector<typename F::Entry> out;
  auto add = [&](const Addr &a, uint32_t len) {
    Addr c = tt::cut<F>(a, len);
    if (seen.insert({c, len}).second)
      out.push_back(F::entry(c, len, uint32_t(out.size()) + 1));
  };
  add({}, 0);
  if (n >= 40) {
    // Host routes that each differ from one address in one bit: the walk
    // to that address passes a node per bit, deeper than any fixed number
    // of levels.
    Addr a = tt::random_addr(rng);
    add(a, F::kBits);
    for (uint32_t bit = 1; bit < F::kBits; bit += 3) {
      Addr b = a;
      b[bit / 32] ^= 0x80000000u >> (bit % 32);
      add(b, F::kBits);
    }
  }
  while (out.size() < n) {
    Addr a = tt::random_addr(rng);
    uint32_t len = 1 + rng() % F::kBits;
    for (uint32_t l = len; l > 0 && out.size() < n;
         l -= std::min(l, 1 + uint32_t(rng() % 12)))
      add(a, l);
    if (rng() % 8 == 0) add(a, F::kBits);
  }
  return out;
}

TYPED_TEST(TrieBulk, AgreesWithSingleLookupAndBruteForceForEveryKey) {
  using F = TypeParam;
  std::mt19937 rng(99);
  for (uint32_t n : {1u, 2u, 40u, 600u}) {
    auto in = prefix_set<F>(rng, n);
    for (uint32_t root : {0u, 8u}) {
      typename F::Trie *t =
          F::construct(nullptr, in.data(), uint32_t(in.size()), 50, root);
      ASSERT_NE(t, nullptr);
      // Keys inside, at the edges of and just outside each prefix, and
      // random ones, shuffled so walks of different depths share a group.
      std::vector<Addr> keys;
      for (auto &e : in) {
        Addr first = F::addr(e), last = tt::cut<F>(first, e.len, true);
        keys.insert(keys.end(), {first, last, tt::step<F>(first, -1),
                                 tt::step<F>(last, 1)});
      }
      for (int i = 0; i < 300; ++i)
        keys.push_back(tt::cut<F>(tt::random_addr(rng), F::kBits));
      std::shuffle(keys.begin(), keys.end(), rng);

      auto all = bulk<F>(t, keys, 0, keys.size());
      for (size_t i = 0; i < keys.size(); ++i) {
        uint32_t single = F::lpmatch(t, keys[i]);
        ASSERT_EQ(single, brute_force<F>(in, keys[i])) << "key " << i;
        ASSERT_EQ(all[i], single) << "key " << i;
      }
      // Batches shorter than, equal to and just past one group, at offsets.
      for (size_t len : {0, 1, 63, 64, 65, 129}) {
        size_t from = len % 5;
        if (from + len > keys.size()) continue;
        auto part = bulk<F>(t, keys, from, len);
        for (size_t i = 0; i < len; ++i) ASSERT_EQ(part[i], all[from + i]);
      }
      F::destruct(t);
    }
  }
}

TYPED_TEST(TrieBulk, ATrieOfNoEntriesAnswersZeroForEveryKey) {
  using F = TypeParam;
  typename F::Trie *t = F::construct(nullptr, nullptr, 0, 50, 0);
  ASSERT_NE(t, nullptr);
  std::vector<Addr> keys(20, Addr{1, 2, 3, 4});
  for (uint32_t d : bulk<F>(t, keys, 0, keys.size())) EXPECT_EQ(d, 0u);
  EXPECT_TRUE(bulk<F>(t, keys, 0, 0).empty());
  F::destruct(t);
}

}  // namespace

#include <algorithm>
#include <random>
#include <vector>

#include "test_host.h"

namespace {

struct Rec {
  uint32_t key;
  uint32_t tag;
  char pad[13];  // an odd element size exercises byte-wise swapping
};

int by_key(const void *a, const void *b, void *arg) {
  ++*static_cast<long *>(arg);
  uint32_t x = static_cast<const Rec *>(a)->key,
           y = static_cast<const Rec *>(b)->key;
  return x < y ? -1 : x > y;
}

TEST(Qsort, SortsAnyCountAndPassesItsArgumentThrough) {
  std::mt19937 rng(7);
  for (uint32_t n : {0u, 1u, 2u, 3u, 17u, 100u, 1000u, 20000u}) {
    for (int shape = 0; shape < 4; shape++) {
      std::vector<Rec> v(n);
      for (uint32_t i = 0; i < n; i++) {
        uint32_t key = shape == 0   ? rng()
                       : shape == 1 ? i
                       : shape == 2 ? n - i
                                    : rng() % 3;
        v[i] = Rec{key, i, {}};
      }
      std::vector<Rec> ref = v;
      long calls = 0;
      sc_qsort(v.data(), n, sizeof(Rec), by_key, &calls);
      EXPECT_TRUE(std::is_sorted(
          v.begin(), v.end(), [](auto &a, auto &b) { return a.key < b.key; }));
      // Same multiset: every tag still present once.
      std::vector<uint32_t> tags;
      for (auto &r : v) tags.push_back(r.tag);
      std::sort(tags.begin(), tags.end());
      for (uint32_t i = 0; i < n; i++) ASSERT_EQ(tags[i], i);
      if (n < 2) {
        EXPECT_EQ(calls, 0);
      }
    }
  }
}

}  // namespace

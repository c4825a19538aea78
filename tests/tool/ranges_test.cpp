#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "lpm_ranges.h"

namespace {

using namespace lpm;

Addr v4(uint32_t a) { return Addr{{a, 0, 0, 0}}; }

// Fewest aligned blocks covering [first, last] of a 256-address space, by
// trying every block that may start at each position (dynamic programming
// from the end).
unsigned fewest_blocks(unsigned first, unsigned last) {
  unsigned best[258] = {};
  for (unsigned s = last + 1; s-- > first;) {
    best[s] = ~0u;
    for (unsigned k = 0; k <= 8 && s % (1u << k) == 0; ++k)
      if (s + (1u << k) - 1 <= last)
        best[s] = std::min(best[s], 1 + best[s + (1u << k)]);
  }
  return best[first];
}

// Last address a prefix covers.
Addr last_of(Family f, const Prefix &p) {
  Addr a = p.addr;
  for (unsigned pos = p.len; pos < width(f); ++pos)
    a.w[pos / 32] |= 1u << (31 - pos % 32);
  return a;
}

// The prefixes are aligned, lie in order without gaps or overlap, and span
// exactly [first, last].
void expect_exact_cover(Family f, const Addr &first, const Addr &last,
                        const std::vector<Prefix> &ps) {
  ASSERT_FALSE(ps.empty());
  EXPECT_EQ(ps.front().addr, first);
  EXPECT_EQ(last_of(f, ps.back()), last);
  for (size_t i = 0; i < ps.size(); ++i) {
    EXPECT_EQ(mask_to(ps[i].addr, ps[i].len), ps[i].addr);
    if (i == 0) continue;
    Addr next = last_of(f, ps[i - 1]);
    for (unsigned w = (width(f) - 1) / 32 + 1; w-- > 0 && ++next.w[w] == 0;) {
    }
    EXPECT_EQ(ps[i].addr, next) << "gap or overlap before prefix " << i;
  }
}

TEST(RangeToPrefixes, EveryRangeOfASmallWindowIsCoveredByTheFewestPrefixes) {
  const uint32_t base = 0x0A0B0C00;  // 10.11.12.0/24
  for (unsigned first = 0; first < 256; ++first)
    for (unsigned last = first; last < 256; ++last) {
      std::vector<Prefix> ps;
      range_to_prefixes(Family::v4, v4(base + first), v4(base + last), ps);
      expect_exact_cover(Family::v4, v4(base + first), v4(base + last), ps);
      ASSERT_EQ(ps.size(), fewest_blocks(first, last))
          << "range " << first << " to " << last;
    }
}

TEST(RangeToPrefixes, WholeSpacesAndSingleAddresses) {
  std::vector<Prefix> ps;
  range_to_prefixes(Family::v4, v4(0), v4(~0u), ps);
  ASSERT_EQ(ps.size(), 1u);
  EXPECT_EQ(ps[0].len, 0u);

  Addr ones{{~0u, ~0u, ~0u, ~0u}};
  ps.clear();
  range_to_prefixes(Family::v6, Addr{}, ones, ps);
  ASSERT_EQ(ps.size(), 1u);
  EXPECT_EQ(ps[0].len, 0u);

  ps.clear();
  range_to_prefixes(Family::v6, ones, ones, ps);
  ASSERT_EQ(ps.size(), 1u);
  EXPECT_EQ(ps[0].len, 128u);
}

TEST(RangeToPrefixes, IPv6RangesCrossingWordBoundariesStayExact) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 2000; ++i) {
    Addr a, b;
    for (unsigned w = 0; w < 4; ++w) {
      a.w[w] = static_cast<uint32_t>(rng());
      b.w[w] = static_cast<uint32_t>(rng());
    }
    // Share a random number of leading bits so ranges of every size occur.
    unsigned shared = static_cast<unsigned>(rng() % 128);
    b = Addr{{b.w[0], b.w[1], b.w[2], b.w[3]}};
    for (unsigned pos = 0; pos < shared; ++pos) {
      uint32_t m = 1u << (31 - pos % 32);
      b.w[pos / 32] = (b.w[pos / 32] & ~m) | (a.w[pos / 32] & m);
    }
    if (b < a) std::swap(a, b);
    std::vector<Prefix> ps;
    range_to_prefixes(Family::v6, a, b, ps);
    expect_exact_cover(Family::v6, a, b, ps);
    ASSERT_LE(ps.size(), 2u * 128) << "never more than two per bit";
  }
}

}  // namespace

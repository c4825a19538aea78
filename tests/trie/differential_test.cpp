// Random prefix sets against a brute-force longest-prefix match, with the
// trie's structure checked after every build.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class TrieDifferential : public HostTest {};
TYPED_TEST_SUITE(TrieDifferential, tt::Families);

// Longest-prefix match by brute force over the distinct input prefixes:
// for each stored length, longest first, look the key's prefix up.
template <class F>
class Oracle {
 public:
  explicit Oracle(const std::vector<typename F::Entry> &in) {
    for (auto &e : in) {
      table_[{F::addr(e), e.len}].insert(e.data);
      lens_.insert(e.len);
    }
  }
  // Every data word the trie may answer (several for duplicates), or {0}.
  std::set<uint32_t> match(const Addr &key) const {
    for (auto it = lens_.rbegin(); it != lens_.rend(); ++it) {
      auto found = table_.find({tt::cut<F>(key, *it), *it});
      if (found != table_.end()) return found->second;
    }
    return {0};
  }
  size_t distinct() const { return table_.size(); }
  // Lengths of the stored prefixes that enclose (addr, len), longer first,
  // itself excluded.
  std::vector<uint32_t> enclosing(const Addr &a, uint32_t len) const {
    std::vector<uint32_t> out;
    for (auto it = lens_.rbegin(); it != lens_.rend(); ++it)
      if (*it < len && table_.count({tt::cut<F>(a, *it), *it}))
        out.push_back(*it);
    return out;
  }

 private:
  std::map<std::pair<Addr, uint32_t>, std::set<uint32_t>> table_;
  std::set<uint32_t> lens_;
};

// Prefix sets with the shapes that stress the build: nested chains, /0,
// host routes, exact duplicates, dense clusters sharing many leading bits.
template <class F>
std::vector<typename F::Entry> random_set(std::mt19937 &rng, uint32_t n) {
  auto word = [&] { return uint32_t(rng()); };
  auto len_in = [&](uint32_t lo, uint32_t hi) {
    return std::uniform_int_distribution<uint32_t>(lo, hi)(rng);
  };
  Addr cluster = {word(), word(), word(), word()};
  uint32_t cluster_bits = len_in(0, F::kBits - 8);
  std::vector<typename F::Entry> out;
  uint32_t data = 1;
  while (out.size() < n) {
    Addr a = {word(), word(), word(), word()};
    if (rng() % 2) {  // inside the cluster
      Addr c = tt::cut<F>(cluster, cluster_bits);
      Addr rest = tt::cut<F>(a, cluster_bits, false);
      for (int w = 0; w < 4; ++w) a[w] = c[w] | (a[w] & ~rest[w]);
    }
    switch (rng() % 8) {
      case 0: {  // a nested chain
        uint32_t len = len_in(1, F::kBits);
        for (uint32_t l = len; out.size() < n; l -= std::min(l, len_in(1, 9))) {
          out.push_back(F::entry(tt::cut<F>(a, l), l, data++));
          if (l == 0) break;
        }
        break;
      }
      case 1:
        out.push_back(F::entry(Addr{}, 0, data++));
        break;
      case 2:
        out.push_back(F::entry(tt::cut<F>(a, F::kBits), F::kBits, data++));
        break;
      case 3:
        if (!out.empty()) {
          auto dup = out[rng() % out.size()];
          dup.data = data++;
          out.push_back(dup);
        }
        break;
      default: {
        uint32_t len = len_in(cluster_bits / 2, F::kBits);
        out.push_back(F::entry(tt::cut<F>(a, len), len, data++));
      }
    }
  }
  return out;
}

// Walks the node structure from the root: every node is reached exactly
// once, branch bits never cross an address word, below the root no branch
// exceeds the family's widest, and every leaf names a valid entry.
template <class F>
void check_nodes(const typename F::Trie *t, uint32_t used) {
  std::vector<int> seen(used, 0);
  struct Todo {
    uint32_t x, pos;
    bool root;
  };
  std::vector<Todo> todo = {{0, 0, true}};
  while (!todo.empty()) {
    Todo d = todo.back();
    todo.pop_back();
    ASSERT_LT(d.x, used);
    ++seen[d.x];
    auto n = t->nodes[d.x];
    if (n.branch == 0) {
      ASSERT_LT(n.index, t->n_entries);
      continue;
    }
    uint32_t p = d.pos + n.skip;
    EXPECT_LE(p % 32 + n.branch, 32u) << "node " << d.x;
    if (!d.root) {
      EXPECT_LE(n.branch, F::kMaxChosenBranch) << "node " << d.x;
    }
    for (uint32_t i = 0; i < (1u << n.branch); ++i)
      todo.push_back({n.index + i, p + n.branch, false});
  }
  for (uint32_t i = 0; i < used; ++i) EXPECT_EQ(seen[i], 1) << "node " << i;
}

// Leaf entries sorted and non-enclosing; each chain lists exactly the
// stored prefixes that enclose its entry, longest first.
template <class F>
void check_entries(const typename F::Trie *t, const Oracle<F> &oracle) {
  EXPECT_EQ(t->n_entries + t->n_prefixes, oracle.distinct());
  for (uint32_t i = 0; i < t->n_entries; ++i) {
    const auto &e = t->entries[i];
    if (i > 0) {
      const auto &prev = t->entries[i - 1];
      Addr a = F::addr(prev), b = F::addr(e);
      ASSERT_TRUE(a < b || (a == b && prev.len < e.len)) << "entry " << i;
      EXPECT_NE(tt::cut<F>(b, prev.len), a) << prev.len << " encloses " << i;
    }
    std::vector<uint32_t> chain;
    for (uint32_t q = e.prefix; q != F::kNone; q = t->prefixes[q].prefix) {
      ASSERT_LT(q, t->n_prefixes);
      chain.push_back(t->prefixes[q].len);
    }
    EXPECT_EQ(chain, oracle.enclosing(F::addr(e), e.len)) << "entry " << i;
  }
}

// Keys at every prefix's first and last address and one beyond each, plus
// random ones.
template <class F>
std::vector<Addr> probe_keys(const std::vector<typename F::Entry> &in,
                             std::mt19937 &rng) {
  std::vector<Addr> keys;
  for (auto &e : in) {
    Addr first = F::addr(e), last = tt::cut<F>(first, e.len, true);
    for (Addr k : {first, last, tt::step<F>(first, -1), tt::step<F>(last, 1)})
      keys.push_back(k);
  }
  for (int i = 0; i < 200; ++i)
    keys.push_back(tt::cut<F>(
        {uint32_t(rng()), uint32_t(rng()), uint32_t(rng()), uint32_t(rng())},
        F::kBits));
  return keys;
}

TYPED_TEST(TrieDifferential, MatchesBruteForceAndKeepsItsInvariants) {
  using F = TypeParam;
  std::mt19937 rng(12345);
  const uint32_t fills[] = {1, 10, 25, 50, 75, 100, 150, 1000};
  int built = 0;
  for (int round = 0; round < 60; ++round) {
    uint32_t n = 1 + rng() % (round % 4 == 0 ? 3000 : 200);
    auto in = random_set<F>(rng, n);
    uint32_t fill = fills[rng() % 8];
    uint32_t root = rng() % 4 == 0 ? rng() % 9 : 0;
    SCOPED_TRACE(::testing::Message() << "round " << round << " n " << n
                                      << " fill " << fill << " root " << root);
    th::reset();
    typename F::Trie *t = F::construct(nullptr, in.data(), n, fill, root);
    if (!t) {  // a forced root wider than the rest of its address word
      ASSERT_EQ(th::diags().size(), 1u);
      EXPECT_NE(th::diags()[0].text.find("does not fit"), std::string::npos);
      continue;
    }
    ++built;
    Oracle<F> oracle(in);
    check_nodes<F>(t, t->n_nodes);
    check_entries<F>(t, oracle);
    for (const Addr &k : probe_keys<F>(in, rng)) {
      auto want = oracle.match(k);
      uint32_t got = F::lpmatch(t, k);
      ASSERT_TRUE(want.count(got))
          << "key " << std::hex << k[0] << ":" << k[1] << ":" << k[2] << ":"
          << k[3] << " got " << got << " want " << *want.begin();
    }
    F::destruct(t);
    if (this->HasFatalFailure()) return;
  }
  EXPECT_GT(built, 50);
}

}  // namespace

// Build time, memory and lookup rate of both trie families on synthetic
// tables shaped like a full routing table: 500,000 IPv4 and 100,000 IPv6
// prefixes with a realistic length mix, many of them nested.
#include <stdint.h>
#include <stdio.h>

#include <random>
#include <vector>

#include "lpm_clock.h"
#include "sc_host_default.h"
#include "vell/trie_family.hpp"

namespace {

// Picks a prefix length from a weighted mix.
struct LengthMix {
  std::vector<uint32_t> lens;
  std::discrete_distribution<int> pick;
  LengthMix(std::vector<uint32_t> l, std::vector<double> w)
      : lens(std::move(l)), pick(w.begin(), w.end()) {}
  uint32_t operator()(std::mt19937 &rng) { return lens[pick(rng)]; }
};

uint32_t mask(uint32_t len) { return len ? ~0u << (32 - len) : 0; }

// IPv4: about 60% /24, the rest mostly /16-/23; a quarter of the prefixes
// are more specifics of an earlier one, as in real tables.
std::vector<sc_btrie_entry> ipv4_table(uint32_t n, std::mt19937 &rng) {
  LengthMix mix({8, 12, 14, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 28, 32},
                {0.1, 0.3, 0.6, 2, 1, 1.5, 3, 4, 5, 10, 10, 60, 0.5, 0.5, 1.5});
  std::vector<sc_btrie_entry> out;
  while (out.size() < n) {
    uint32_t len = mix(rng), addr = uint32_t(rng());
    if (!out.empty() && rng() % 4 == 0) {  // a more specific of a kept one
      const sc_btrie_entry &base = out[rng() % out.size()];
      if (base.len < 32) {
        len = base.len + 1 + rng() % (32 - base.len < 8 ? 32 - base.len : 8);
        addr = base.addr | (addr & ~mask(base.len));
      }
    } else {
      addr = (addr & 0x00FFFFFF) | ((1 + rng() % 223) << 24);  // unicast
    }
    sc_btrie_entry e{};
    e.addr = addr & mask(len);
    e.len = len;
    e.data = uint32_t(out.size() + 1);
    out.push_back(e);
  }
  return out;
}

// IPv6: mostly /48 and /32-/44 inside 2000::/3.
std::vector<sc_btrie6_entry> ipv6_table(uint32_t n, std::mt19937 &rng) {
  LengthMix mix({19, 24, 28, 29, 32, 36, 40, 44, 46, 47, 48, 56, 64},
                {0.2, 0.5, 1, 3, 12, 3, 5, 8, 2, 2, 55, 3, 3});
  std::vector<sc_btrie6_entry> out;
  while (out.size() < n) {
    uint32_t len = mix(rng);
    sc_btrie6_entry e{};
    e.addr[0] = 0x20000000 | (uint32_t(rng()) & 0x1FFFFFFF);
    e.addr[1] = uint32_t(rng());
    if (!out.empty() && rng() % 4 == 0) {  // a more specific of a kept one
      const sc_btrie6_entry &base = out[rng() % out.size()];
      if (base.len < 56) {
        len = base.len + 4 + rng() % 12;
        for (int w = 0; w < 2; ++w) {
          uint32_t keep = base.len > 32u * w ? base.len - 32 * w : 0;
          uint32_t m = keep >= 32 ? ~0u : mask(keep);
          e.addr[w] = (base.addr[w] & m) | (e.addr[w] & ~m);
        }
      }
    }
    for (int w = 0; w < 2; ++w) {
      uint32_t keep = len > 32u * w ? len - 32 * w : 0;
      e.addr[w] &= keep >= 32 ? ~0u : mask(keep);
    }
    e.len = len;
    e.data = uint32_t(out.size() + 1);
    out.push_back(e);
  }
  return out;
}

struct Result {
  double build_s, random_mlps, table_mlps;
  uint32_t memory, entries, prefixes, nodes, root_branch;
  uint64_t check;
};

template <class F, class Build, class Keys>
Result measure(Build build, const Keys &random_keys, const Keys &table_keys) {
  Result r{};
  typename F::trie *t = nullptr;
  r.build_s = lpm::seconds([&] { t = build(); });
  if (!t) {
    fprintf(stderr, "construction failed\n");
    return r;
  }
  r.entries = t->n_entries;
  r.prefixes = t->n_prefixes;
  r.nodes = t->n_nodes;
  r.root_branch = t->nodes[0].branch;
  for (int pass = 0; pass < 2; ++pass) {
    const Keys &keys = pass ? table_keys : random_keys;
    double best = 1e9;
    for (int rep = 0; rep < 3; ++rep) {
      double e = lpm::seconds([&] {
        for (const auto &k : keys) r.check += F::lpmatch(t, F::c_key(k));
      });
      if (e < best) best = e;
    }
    (pass ? r.table_mlps : r.random_mlps) = keys.size() / best / 1e6;
  }
  r.memory = F::memory_usage(t);
  F::destruct(t);
  return r;
}

void report(const char *name, uint32_t n, uint32_t fill, uint32_t root,
            const Result &r) {
  printf(
      "%-5s %7u prefixes fill %3u root_branch %2u: build %6.1f ms, "
      "%6.2f MB (%4.1f B/prefix; %u entries, %u prefix records, %u nodes, "
      "root branch %u), lookups %5.1f M/s random, %5.1f M/s in-table "
      "[check %llx]\n",
      name, n, fill, root, r.build_s * 1e3, r.memory / 1048576.0,
      double(r.memory) / n, r.entries, r.prefixes, r.nodes, r.root_branch,
      r.random_mlps, r.table_mlps, (unsigned long long)r.check);
}

}  // namespace

int main() {
  std::mt19937 rng(2024);
  void *ctx = sc_host_ctx_create(4096);
  const uint32_t kKeys = 4000000;

  const uint32_t n4 = 500000;
  auto v4 = ipv4_table(n4, rng);
  std::vector<uint32_t> random4(kKeys), table4(kKeys);
  for (auto &k : random4) k = uint32_t(rng());
  for (auto &k : table4) {
    const sc_btrie_entry &e = v4[rng() % n4];
    k = e.addr | (uint32_t(rng()) & ~mask(e.len));
  }
  for (uint32_t root : {0u, 16u}) {
    auto r = measure<vell::trie4_family>(
        [&] { return sc_btrie_construct(ctx, v4.data(), n4, 50, root); },
        random4, table4);
    report("IPv4", n4, 50, root, r);
  }

  const uint32_t n6 = 100000;
  auto v6 = ipv6_table(n6, rng);
  std::vector<vell::trie6_family::key> random6(kKeys), table6(kKeys);
  for (auto &k : random6)
    k = {{0x20000000 | (uint32_t(rng()) & 0x1FFFFFFF), uint32_t(rng()),
          uint32_t(rng()), uint32_t(rng())}};
  for (auto &k : table6) {
    const sc_btrie6_entry &e = v6[rng() % n6];
    k = {{e.addr[0], e.addr[1], uint32_t(rng()), uint32_t(rng())}};
    if (e.len < 64)
      k[1] |= uint32_t(rng()) & ~(e.len > 32 ? mask(e.len - 32) : 0);
  }
  for (uint32_t root : {0u, 12u}) {
    auto r = measure<vell::trie6_family>(
        [&] { return sc_btrie6_construct(ctx, v6.data(), n6, 50, root); },
        random6, table6);
    report("IPv6", n6, 50, root, r);
  }
  sc_host_ctx_destroy(ctx);
  return 0;
}

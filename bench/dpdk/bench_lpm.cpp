// The tries against DPDK's LPM tables, in one process, on the same prefixes
// and the same keys: build time, memory, single and bulk lookup rates, and
// the ratios. Cases: the real address-to-ASN table of both families (the
// embedded one, or the tables given), and 1M synthetic IPv4 prefixes whose
// lengths follow a global routing table's mix. Every key's answer is
// compared between the two libraries.
//
//   bench_lpm [--keys N] [--synthetic N] [TABLE...]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "lpm_keys.h"
#include "lpm_table.h"
#include "lpm_trie.h"
#ifdef VELL_HAVE_DPDK
#include "lpm_peer_dpdk.h"
#endif

namespace {

using namespace lpm;

constexpr uint32_t kFill = 50, kRootBranch4 = 16, kRootBranch6 = 15;
constexpr uint32_t kBatch = 64;  // keys per bulk call, a typical burst
constexpr int kRuns = 3;         // each rate is the best of this many runs

struct Row {
  double build_ms = 0, memory_mb = 0, single = 0, bulk = 0;  // rates in M/s
};

// Best rate over kRuns runs of f, which handles n keys per run.
double rate(size_t n, const std::function<void()> &f) {
  double best = 1e30;
  for (int r = 0; r < kRuns; ++r) {
    double t0 = now_seconds();
    f();
    best = std::min(best, now_seconds() - t0);
  }
  return static_cast<double>(n) / best / 1e6;
}

void print_row(const char *name, const Row &r) {
  printf("  %-10s %10.1f %11.2f %12.2f %12.2f\n", name, r.build_ms, r.memory_mb,
         r.single, r.bulk);
}

// Data words replaced by small dense numbers, so that every library can
// hold them (the peers keep 24 or 21 bits of next hop); 0 stays a miss.
template <class Entry>
void densify(std::vector<Entry> &in) {
  std::unordered_map<uint32_t, uint32_t> id;
  for (Entry &e : in)
    e.data =
        id.emplace(e.data, static_cast<uint32_t>(id.size()) + 1).first->second;
}

template <class Ops>
void run_case(const char *title, std::vector<typename Ops::Entry> in,
              size_t n_keys, bool peer_ready) {
  size_t dropped = keep_first_of_duplicates<Ops>(in);
  densify(in);
  auto keys = draw_keys<Ops>(in, n_keys);
  printf(
      "\n%s: %zu prefixes (%zu repeated ones dropped), %zu keys (half "
      "within the prefixes, half uniform)\n  %-10s %10s %11s %12s %12s\n",
      title, in.size(), dropped, n_keys, "library", "build ms", "memory MB",
      "single M/s", "bulk M/s");
  const uint32_t n = static_cast<uint32_t>(keys.size());
  std::vector<uint32_t> ours_out(n), out(n);

  Row ours;
  double t0 = now_seconds();
  typename Ops::Trie *t =
      Ops::construct(in.data(), static_cast<uint32_t>(in.size()), kFill,
                     Ops::family == Family::v4 ? kRootBranch4 : kRootBranch6);
  ours.build_ms = (now_seconds() - t0) * 1e3;
  if (!t) {
    printf("  trie not built\n");
    return;
  }
  ours.memory_mb = Ops::memory(t) / 1048576.0;
  ours.single = rate(n, [&] {
    for (uint32_t i = 0; i < n; ++i) ours_out[i] = Ops::lookup(t, keys[i]);
  });
  ours.bulk = rate(n, [&] {
    for (uint32_t i = 0; i < n; i += kBatch)
      Ops::lookup_bulk(t, &keys[i], &out[i], std::min(kBatch, n - i));
  });
  size_t differ = 0;
  for (uint32_t i = 0; i < n; ++i) differ += out[i] != ours_out[i];
  print_row("vell-ds", ours);
  Ops::destruct(t);
  if (differ)
    printf("  vell-ds bulk and single lookups differ for %zu keys\n", differ);

#ifdef VELL_HAVE_DPDK
  if (!peer_ready) return;
  using P = peer::Peer<Ops>;
  Row theirs;
  auto their_keys = P::convert(keys);
  uint64_t before = peer::heap_bytes();
  t0 = now_seconds();
  P p;
  std::string why;
  if (!p.build(in, why)) {
    printf("  %s not built: %s\n", P::kName, why.c_str());
    return;
  }
  theirs.build_ms = (now_seconds() - t0) * 1e3;
  theirs.memory_mb =
      static_cast<double>(peer::heap_bytes() - before) / 1048576.0;
  theirs.single = rate(n, [&] { p.lookup(their_keys, out.data(), n); });
  size_t single_differ = 0;
  for (uint32_t i = 0; i < n; ++i) single_differ += out[i] != ours_out[i];
  theirs.bulk =
      rate(n, [&] { p.lookup_bulk(their_keys, out.data(), n, kBatch); });
  differ = 0;
  for (uint32_t i = 0; i < n; ++i) differ += out[i] != ours_out[i];
  print_row(P::kName, theirs);
  printf(
      "  %-10s %10.2f %11.2f %12.2f %12.2f   (vell-ds / %s; lookups: "
      "higher is better, build and memory: lower)\n",
      "ratio", ours.build_ms / theirs.build_ms,
      ours.memory_mb / theirs.memory_mb, ours.single / theirs.single,
      ours.bulk / theirs.bulk, P::kName);
  if (single_differ || differ)
    printf("  ANSWERS DIFFER from %s: %zu single, %zu bulk\n", P::kName,
           single_differ, differ);
  else
    printf("  every answer equals %s's\n", P::kName);
#else
  (void)peer_ready;
#endif
}

// n distinct IPv4 prefixes in unicast space (1.0.0.0 to 223.255.255.255)
// with lengths drawn from the shares of a global routing table: mostly /24,
// then /22, /23, /20, /21, /19, ...
std::vector<sc_btrie_entry> synthetic4(size_t n) {
  static const struct {
    unsigned len;
    double share;
  } mix[] = {{8, 0.0002}, {9, 0.0002}, {10, 0.0005}, {11, 0.0012}, {12, 0.003},
             {13, 0.006}, {14, 0.012}, {15, 0.015},  {16, 0.014},  {17, 0.009},
             {18, 0.016}, {19, 0.029}, {20, 0.045},  {21, 0.045},  {22, 0.11},
             {23, 0.095}, {24, 0.598}};
  std::vector<double> weights;
  for (const auto &m : mix) weights.push_back(m.share);
  std::discrete_distribution<unsigned> pick(weights.begin(), weights.end());
  std::mt19937_64 rng(2);
  std::set<std::pair<uint32_t, unsigned>> seen;
  std::vector<sc_btrie_entry> out;
  out.reserve(n);
  while (out.size() < n) {
    unsigned len = mix[pick(rng)].len;
    uint32_t a = 0x01000000u + static_cast<uint32_t>(rng() % 0xDF000000u);
    a = mask_to(Addr{{a, 0, 0, 0}}, len).w[0];
    if (seen.insert({a, len}).second)
      out.push_back(make_entry4(Addr{{a, 0, 0, 0}}, len,
                                1 + static_cast<uint32_t>(rng() % 65536)));
  }
  return out;
}

}  // namespace

int main(int argc, char **argv) {
  size_t n_keys = 4000000, n_synthetic = 1000000;
  std::vector<std::string> tables;
  for (int i = 1; i < argc; ++i) {
    if (!strcmp(argv[i], "--keys") && i + 1 < argc)
      n_keys = strtoull(argv[++i], nullptr, 10);
    else if (!strcmp(argv[i], "--synthetic") && i + 1 < argc)
      n_synthetic = strtoull(argv[++i], nullptr, 10);
    else if (argv[i][0] == '-') {
      fprintf(stderr,
              "usage: bench_lpm [--keys N] [--synthetic N] [TABLE...]\n");
      return 2;
    } else {
      tables.push_back(argv[i]);
    }
  }
  if (tables.empty()) tables = default_tables();
  Table table;
  for (const std::string &name : tables) {
    FILE *in = fopen(name.c_str(), "r");
    std::string error;
    if (!in || !load_table(in, name, table, error)) {
      fprintf(stderr, "bench_lpm: %s\n",
              in ? error.c_str() : (name + ": cannot open").c_str());
      return 1;
    }
    fclose(in);
  }

  bool peer_ready = false;
#ifdef VELL_HAVE_DPDK
  std::string why;
  peer_ready = peer::start(why);
  if (!peer_ready)
    printf("DPDK could not start (%s): vell-ds alone\n", why.c_str());
#else
  printf(
      "built without DPDK (libdpdk not found at configure time): vell-ds "
      "alone\n");
#endif
  printf(
      "best of %d runs; bulk lookups in batches of %u keys; trie fill %u, "
      "root branch %u (IPv4) / %u (IPv6)\n",
      kRuns, kBatch, kFill, kRootBranch4, kRootBranch6);
  if (!table.v4.empty())
    run_case<Ops4>("IPv4, real table", table.v4, n_keys, peer_ready);
  if (n_synthetic)
    run_case<Ops4>("IPv4, synthetic table", synthetic4(n_synthetic), n_keys,
                   peer_ready);
  if (!table.v6.empty())
    run_case<Ops6>("IPv6, real table", table.v6, n_keys, peer_ready);
  return 0;
}

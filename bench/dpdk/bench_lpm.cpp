// The tries against DPDK's LPM tables, in one process, on the same prefixes
// and the same keys: build time, memory, single and bulk lookup rates, and
// the ratios. The tries are measured, and the forwarding tables (fib)
// compiled from them. Cases: a real routing table with nested prefixes (the
// RouteViews IPv4 table of data/pyasn/, about half of its prefixes inside
// another; --nested FILE for another), the real address-to-ASN table of both
// families (the embedded one, or the tables given; its ranges split into
// disjoint prefixes) and 1M synthetic IPv4 prefixes whose lengths follow a
// global routing table's mix (--synthetic N,N,... for tables of those sizes,
// 0 for none). Every key's answer is compared between the libraries.
// Progress goes to stderr when it is a terminal; --json FILE also writes
// every figure as one JSON document.
//
// Each library is measured on two key sets: keys drawn uniformly over the
// address space and keys inside the table's prefixes. With --threads N the
// lookups run on N threads at once over the same read-only tables.
//
//   bench_lpm [--keys N] [--synthetic N[,N...]] [--threads N]
//             [--nested FILE] [--json FILE] [TABLE...]
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "lpm_bench.h"
#include "lpm_keys.h"
#include "lpm_text.h"
#ifdef VELL_HAVE_DPDK
#include "lpm_peer_dpdk.h"
#endif

namespace {

using namespace lpm;

struct Row {
  const char *name;
  double build_ms = 0, memory_mb = 0;
  Rates uniform, inside;
};

// Every case's rows, for --json.
struct Case : CaseHead {
  std::vector<Row> rows;
};
std::vector<Case> results;

void print_header(unsigned threads) {
  printf("  %-12s %9s %10s | %-21s | %-21s%s\n", "", "build", "memory",
         "keys uniform, M/s", "keys inside, M/s",
         threads > 1 ? "  (all threads together)" : "");
  printf("  %-12s %9s %10s | %10s %10s | %10s %10s\n", "library", "ms", "MB",
         "single", "bulk", "single", "bulk");
}

void print_row(const Row &r) {
  printf("  %-12s %9.1f %10.2f | %10.2f %10.2f | %10.2f %10.2f\n", r.name,
         r.build_ms, r.memory_mb, r.uniform.single, r.uniform.bulk,
         r.inside.single, r.inside.bulk);
}

// a / b for every figure, and the geometric means of the two key sets.
[[maybe_unused]] void print_ratio(const Row &a, const Row &b) {
  char name[64];
  snprintf(name, sizeof name, "%s/%s", a.name, b.name);
  printf("  %-12s %9.3f %10.3f | %10.2f %10.2f | %10.2f %10.2f\n", name,
         a.build_ms / b.build_ms, a.memory_mb / b.memory_mb,
         a.uniform.single / b.uniform.single, a.uniform.bulk / b.uniform.bulk,
         a.inside.single / b.inside.single, a.inside.bulk / b.inside.bulk);
  printf("  %-12s geometric mean of the key sets: single %.2f, bulk %.2f\n", "",
         std::sqrt(a.uniform.single / b.uniform.single * a.inside.single /
                   b.inside.single),
         std::sqrt(a.uniform.bulk / b.uniform.bulk * a.inside.bulk /
                   b.inside.bulk));
}

// Both key sets through one library: measure() on each, into its row.
template <class Key, class One, class Many>
size_t measure_sets(Row &row, const std::vector<Key> &uniform,
                    const std::vector<Key> &inside,
                    std::vector<uint32_t> &want_uniform,
                    std::vector<uint32_t> &want_inside, unsigned threads,
                    One one, Many many) {
  return measure(row.uniform, uniform, want_uniform, threads, one, many) +
         measure(row.inside, inside, want_inside, threads, one, many);
}

template <class F>
void run_case(const char *title, std::vector<typename F::entry> in,
              size_t n_keys, unsigned threads, bool peer_ready) {
  size_t dropped = keep_first_of_duplicates<F>(in);
  densify(in);
  using Keys = std::vector<typename F::key>;
  Keys uniform = draw_keys<F>(in, n_keys, KeyMix::uniform);
  Keys inside = draw_keys<F>(in, n_keys, KeyMix::inside);
  std::vector<uint32_t> want_uniform, want_inside;
  results.push_back({{title, in.size(), nested_pct<F>(in)}, {}});
  Case &c = results.back();
  printf(
      "\n%s: %zu prefixes (%zu repeated ones dropped), %.1f%% of them inside "
      "another, %zu keys a set\n",
      title, in.size(), dropped, c.nested_pct, n_keys);
  print_header(threads);
  progress("%s: building the trie and the fib", title);

  Row trie{"vell trie", 0, 0, {}, {}}, fib{"vell fib", 0, 0, {}, {}};
  double t0 = now_seconds();
  typename F::trie *t =
      F::construct(nullptr, in.data(), static_cast<uint32_t>(in.size()), kFill,
                   kRootBranch<F>);
  trie.build_ms = (now_seconds() - t0) * 1e3;
  if (!t) {
    printf("  trie not built\n");
    return;
  }
  trie.memory_mb = F::memory_usage(t) / 1048576.0;
  t0 = now_seconds();
  typename F::fib *f = F::fib_construct(nullptr, t, 0);
  fib.build_ms = (now_seconds() - t0) * 1e3;
  if (!f) {
    printf("  fib not built\n");
    F::destruct(t);
    return;
  }
  fib.memory_mb = F::fib_memory_usage(f) / 1048576.0;

  using Key = typename F::key;
  size_t differ = measure_sets(
      trie, uniform, inside, want_uniform, want_inside, threads,
      one_by_one<Key>([&](const Key &k) { return F::lpmatch(t, F::c_key(k)); }),
      in_batches<Key>([&](const Key *k, uint32_t *d, uint32_t n) {
        F::lpmatch_bulk(t, F::c_keys(k), d, n);
      }));
  print_row(trie);
  c.rows.push_back(trie);
  progress("%s: timing the fib", title);
  differ +=
      measure_sets(fib, uniform, inside, want_uniform, want_inside, threads,
                   one_by_one<Key>([&](const Key &k) {
                     return F::fib_lookup(f, F::c_key(k));
                   }),
                   in_batches<Key>([&](const Key *k, uint32_t *d, uint32_t n) {
                     F::fib_lookup_bulk(f, F::c_keys(k), d, n);
                   }));
  print_row(fib);
  c.rows.push_back(fib);
  F::fib_destruct(f);
  F::destruct(t);
  if (differ) printf("  ANSWERS DIFFER between vell-ds lookups: %zu\n", differ);

#ifdef VELL_HAVE_DPDK
  if (!peer_ready) return;
  using P = peer::Peer<F>;
  Row theirs{P::kName, 0, 0, {}, {}};
  auto their_uniform = P::convert(uniform), their_inside = P::convert(inside);
  uint64_t before = peer::heap_bytes();
  progress("%s: building %s (up to a minute)", title, P::kName);
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
  progress("%s: timing %s", title, P::kName);
  using PK = typename P::Keys;
  differ = measure_sets(
      theirs, their_uniform, their_inside, want_uniform, want_inside, threads,
      [&](const PK &k, uint32_t *d, uint32_t n) { p.lookup(k, d, n); },
      [&](const PK &k, uint32_t *d, uint32_t n) {
        p.lookup_bulk(k, d, n, kBatch);
      });
  progress("");
  print_row(theirs);
  c.rows.push_back(theirs);
  print_ratio(fib, theirs);
  print_ratio(trie, theirs);
  if (differ)
    printf("  ANSWERS DIFFER from %s for %zu lookups\n", P::kName, differ);
  else
    printf("  every answer equals %s's\n", P::kName);
#else
  (void)peer_ready;
#endif
}

// n distinct IPv4 prefixes in unicast space (1.0.0.0 to 223.255.255.255)
// with lengths drawn from the shares of a global routing table: mostly /24,
// then /22, /23, /20, /21, /19, ...
std::vector<vell::trie4_family::entry> synthetic4(size_t n) {
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
  std::vector<vell::trie4_family::entry> out;
  out.reserve(n);
  while (out.size() < n) {
    unsigned len = mix[pick(rng)].len;
    uint32_t a = 0x01000000u + static_cast<uint32_t>(rng() % 0xDF000000u);
    a = mask_to(Addr{{a, 0, 0, 0}}, len).w[0];
    if (seen.insert({a, len}).second)
      out.push_back(vell::trie4_family::make_entry(
          &a, len, 1 + static_cast<uint32_t>(rng() % 65536)));
  }
  return out;
}

// A comma-separated list of table sizes into `out`; false for text that is
// not one.
bool parse_sizes(const char *text, std::vector<size_t> &out) {
  out.clear();
  for (const char *p = text;; ++p) {
    char *end;
    errno = 0;
    unsigned long long n = strtoull(p, &end, 10);
    if (end == p || errno || (*end && *end != ',')) return false;
    out.push_back(static_cast<size_t>(n));
    if (!*end) return true;
    p = end;
  }
}

// Every case's figures as one JSON document, for plots and comparisons
// across runs.
bool write_json(const std::string &path, size_t n_keys, unsigned threads) {
  char head[128];
  snprintf(head, sizeof head,
           "\"keys\": %zu, \"threads\": %u, \"runs\": %d, \"batch\": %u",
           n_keys, threads, kRuns, kBatch);
  return write_cases(
      "bench_lpm", path, head, results, [](FILE *f, const Case &c) {
        fputs(", \"rows\": [", f);
        for (size_t j = 0; j < c.rows.size(); ++j) {
          const Row &r = c.rows[j];
          fprintf(f,
                  "%s\n  {\"library\": %s, \"build_ms\": %.1f, "
                  "\"memory_mb\": %.2f, \"uniform\": "
                  "{\"single_mps\": %.2f, \"bulk_mps\": %.2f}, "
                  "\"inside\": {\"single_mps\": %.2f, "
                  "\"bulk_mps\": %.2f}}",
                  j ? "," : "", json_string(r.name).c_str(), r.build_ms,
                  r.memory_mb, r.uniform.single, r.uniform.bulk,
                  r.inside.single, r.inside.bulk);
        }
        fputs("]", f);
      });
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<size_t> n_synthetic = {1000000};
  unsigned threads = 1;
  Args a;
  a.nested = VELL_NESTED_TABLE;
  if (!parse_args(argc, argv, a, [&](std::string_view opt, const char *v) {
        if (opt == "--threads")
          threads = static_cast<unsigned>(strtoul(v, nullptr, 10));
        else if (opt == "--synthetic")
          return parse_sizes(v, n_synthetic);
        else
          return false;
        return true;
      })) {
    fprintf(stderr,
            "usage: bench_lpm [--keys N] [--synthetic N[,N...]] [--threads N] "
            "[--nested FILE] [--json FILE] [TABLE...]\n");
    return 2;
  }
  const size_t n_keys = a.keys;
  Table table, nested_table;
  if (!load_tables("bench_lpm", a, table, nested_table)) return 1;
  const bool peer_ready = start_peer("bench_lpm");
  printf(
      "best of %d runs; bulk lookups in batches of %u keys; %u thread(s); "
      "trie fill %u, root branch %u (IPv4) / %u (IPv6); the fib compiled "
      "from the trie (its build time excludes the trie's)\n",
      kRuns, kBatch, threads, kFill, kRootBranch4, kRootBranch6);
  if (!nested_table.v4.empty())
    run_case<vell::trie4_family>("IPv4, real routing table (nested prefixes)",
                                 nested_table.v4, n_keys, threads, peer_ready);
  if (!table.v4.empty())
    run_case<vell::trie4_family>("IPv4, real address-to-ASN table", table.v4,
                                 n_keys, threads, peer_ready);
  for (size_t n : n_synthetic)
    if (n)
      run_case<vell::trie4_family>("IPv4, synthetic table", synthetic4(n),
                                   n_keys, threads, peer_ready);
  if (!table.v6.empty())
    run_case<vell::trie6_family>("IPv6, real address-to-ASN table", table.v6,
                                 n_keys, threads, peer_ready);
  progress("");
  if (!a.json.empty() && !write_json(a.json, n_keys, threads)) return 1;
  return 0;
}

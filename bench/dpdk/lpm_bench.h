// What the benchmarks against DPDK's LPM tables share: their options, the
// table loading and the peer's start, data words every library can hold,
// thread placement, the progress line, best-of-N lookup rates and the
// loops that drive a library's single and bulk lookups over a key set.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "lpm_clock.h"
#include "lpm_formats.h"
#include "lpm_ranges.h"
#include "lpm_table.h"
#include "lpm_text.h"
#include "lpm_trie.h"
#ifdef VELL_HAVE_DPDK
#include "lpm_peer_dpdk.h"
#endif

namespace lpm {

constexpr uint32_t kFill = 50, kRootBranch4 = 16, kRootBranch6 = 15;
constexpr uint32_t kBatch = 64;  // keys per bulk call, a typical burst
constexpr int kRuns = 3;         // each rate is the best of this many runs

// The root branch the benchmarks build a family's trie with.
template <class F>
constexpr uint32_t kRootBranch = F::words == 1 ? kRootBranch4 : kRootBranch6;

// Runs f on a new thread bound to processor `cpu` (modulo their number).
// DPDK's start pins the main thread to one processor, which new threads
// inherit; the creator rebinds the thread at once, since a thread left to
// move itself would first have to run there, and at real-time priority it
// waits behind the creator until that blocks.
template <class Fn>
std::thread start_on(unsigned cpu, Fn f) {
  std::thread t(std::move(f));
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<int>(cpu % sysconf(_SC_NPROCESSORS_ONLN)), &one);
  pthread_setaffinity_np(t.native_handle(), sizeof one, &one);
  return t;
}

// A progress line on stderr, overwritten by the next, when stderr is a
// terminal: the peers' builds take up to a minute. An empty format clears.
inline void progress(const char *fmt, ...) {
  static const bool tty = isatty(STDERR_FILENO);
  if (!tty) return;
  va_list ap;
  va_start(ap, fmt);
  fputs("\r\033[K", stderr);
  vfprintf(stderr, fmt, ap);
  va_end(ap);
  fflush(stderr);
}

// Reads the tables into one, saying why not on stderr after `prog: `.
inline bool load(const char *prog, const std::vector<std::string> &names,
                 Table &table) {
  std::string error;
  std::vector<std::string> warnings;
  bool ok = load_files(names, table, error, warnings);
  for (const std::string &w : warnings)
    fprintf(stderr, "%s: warning: %s\n", prog, w.c_str());
  if (!ok) fprintf(stderr, "%s: %s\n", prog, error.c_str());
  return ok;
}

// Writes a file with body(f), saying on stderr why it could not.
inline bool write_file(const char *prog, const std::string &path,
                       const std::function<void(FILE *)> &body) {
  FILE *f = fopen(path.c_str(), "w");
  if (!f) {
    fprintf(stderr, "%s: %s: %s\n", prog, path.c_str(), strerror(errno));
    return false;
  }
  body(f);
  bool ok = fflush(f) == 0 && !ferror(f);
  ok = fclose(f) == 0 && ok;
  if (!ok)
    fprintf(stderr, "%s: %s: cannot write: %s\n", prog, path.c_str(),
            strerror(errno));
  return ok;
}

// What every case of a benchmark says of its table.
struct CaseHead {
  std::string title;
  size_t prefixes;
  double nested_pct;
};

// Writes the figures of every case as one JSON document: the fields
// `head` (written as they are), then "cases": one object a case with its
// title, prefix count and share of nested prefixes, and whatever body(f,
// case) adds after them (each starting with a comma).
template <class Case, class Body>
bool write_cases(const char *prog, const std::string &path,
                 const std::string &head, const std::vector<Case> &cases,
                 Body body) {
  return write_file(prog, path, [&](FILE *f) {
    fprintf(f, "{%s, \"cases\": [", head.c_str());
    for (size_t i = 0; i < cases.size(); ++i) {
      const Case &c = cases[i];
      fprintf(f, "%s\n {\"title\": %s, \"prefixes\": %zu, \"nested_pct\": %.1f",
              i ? "," : "", json_string(c.title).c_str(), c.prefixes,
              c.nested_pct);
      body(f, c);
      fputs("}", f);
    }
    fputs("\n]}\n", f);
  });
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

// The share of prefixes that lie inside another prefix of the table: in
// address order each prefix follows those that enclose it, which a stack
// of the enclosing chain tracks.
template <class F>
double nested_pct(const std::vector<typename F::entry> &in) {
  std::vector<Prefix> p;
  for (const auto &e : in) p.push_back({record_addr<F>(e), e.len});
  std::sort(p.begin(), p.end(), [](const Prefix &a, const Prefix &b) {
    return a.addr != b.addr ? a.addr < b.addr : a.len < b.len;
  });
  std::vector<Prefix> chain;
  size_t nested = 0;
  for (const Prefix &x : p) {
    while (!chain.empty() &&
           mask_to(x.addr, chain.back().len) != chain.back().addr)
      chain.pop_back();
    nested += !chain.empty();
    chain.push_back(x);
  }
  return p.empty() ? 0
                   : 100.0 * static_cast<double>(nested) /
                         static_cast<double>(p.size());
}

// Best rate in M/s over kRuns runs of f(thread), which handles n keys per
// run on each of `threads` threads at once.
inline double rate(size_t n, unsigned threads,
                   const std::function<void(unsigned)> &f) {
  double best = 1e30;
  for (int r = 0; r < kRuns; ++r) {
    double t0 = now_seconds();
    if (threads <= 1) {
      f(0);
    } else {
      std::vector<std::thread> pool;
      for (unsigned i = 0; i < threads; ++i)
        pool.push_back(start_on(i, [&f, i] { f(i); }));
      for (auto &th : pool) th.join();
    }
    best = std::min(best, now_seconds() - t0);
  }
  return static_cast<double>(n) * std::max(threads, 1u) / best / 1e6;
}

// Best rate in M/s of run(keys, answers, n) on `threads` threads at once,
// adding to `differ` the keys whose answers (the first thread's) are not
// `expected`; an empty `expected` takes them instead.
template <class Key, class Run>
double checked_rate(const std::vector<Key> &keys,
                    std::vector<uint32_t> &expected, size_t &differ,
                    unsigned threads, Run run) {
  const uint32_t n = static_cast<uint32_t>(keys.size());
  std::vector<std::vector<uint32_t>> out(std::max(threads, 1u),
                                         std::vector<uint32_t>(n));
  double r = rate(n, threads, [&](unsigned i) { run(keys, out[i].data(), n); });
  if (expected.empty()) expected = out[0];
  for (uint32_t i = 0; i < n; ++i) differ += out[0][i] != expected[i];
  return r;
}

// A library's single lookup over a key set, and its bulk lookup in batches.
template <class Key, class Lookup>
auto one_by_one(Lookup lookup) {
  return [=](const std::vector<Key> &k, uint32_t *d, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) d[i] = lookup(k[i]);
  };
}
template <class Key, class LookupBulk>
auto in_batches(LookupBulk lookup_bulk) {
  return [=](const std::vector<Key> &k, uint32_t *d, uint32_t n) {
    for (uint32_t i = 0; i < n; i += kBatch)
      lookup_bulk(&k[i], &d[i], std::min(kBatch, n - i));
  };
}

// Lookup rates in M/s on one key set, single and bulk.
struct Rates {
  double single = 0, bulk = 0;
};

// Measures one library on a key set: single lookups with `one`, bulk
// lookups with `many`, checking that both answer as `expected` (filled
// from the first library measured). Returns the number of keys that differ.
template <class Key, class One, class Many>
size_t measure(Rates &r, const std::vector<Key> &keys,
               std::vector<uint32_t> &expected, unsigned threads, One one,
               Many many) {
  size_t differ = 0;
  r.single = checked_rate(keys, expected, differ, threads, one);
  r.bulk = checked_rate(keys, expected, differ, threads, many);
  return differ;
}

// measure() of table t through a family's single and bulk lookup.
template <class F, auto Lookup, auto LookupBulk, class Table>
size_t measure_table(Rates &r, const Table *t,
                     const std::vector<typename F::key> &keys,
                     std::vector<uint32_t> &expected, unsigned threads) {
  using Key = typename F::key;
  return measure(r, keys, expected, threads, one_by_one<Key>([t](const Key &k) {
                   return Lookup(t, F::c_key(k));
                 }),
                 in_batches<Key>([t](const Key *k, uint32_t *d, uint32_t n) {
                   LookupBulk(t, F::c_keys(k), d, n);
                 }));
}

// The options every benchmark against DPDK takes: --keys N, --nested FILE,
// --json FILE and the names of the tables. own(option, value) takes the
// program's other options, which all have a value; false for one it does
// not know.
struct Args {
  size_t keys = 4000000;
  std::string nested, json;
  std::vector<std::string> tables;
};
inline bool parse_args(
    int argc, char **argv, Args &a,
    const std::function<bool(std::string_view, const char *)> &own) {
  for (int i = 1; i < argc; ++i) {
    std::string_view opt = argv[i];
    if (opt.empty() || opt[0] != '-') {
      a.tables.push_back(argv[i]);
      continue;
    }
    if (i + 1 == argc) return false;
    const char *value = argv[++i];
    if (opt == "--keys")
      a.keys = strtoull(value, nullptr, 10);
    else if (opt == "--nested")
      a.nested = value;
    else if (opt == "--json")
      a.json = value;
    else if (!own(opt, value))
      return false;
  }
  return true;
}

// The tables named (the embedded ones when none is) and the nested table
// (none when its name is empty); false, said on stderr, when one cannot be
// read.
inline bool load_tables(const char *prog, const Args &a, Table &table,
                        Table &nested) {
  return load(prog, a.tables.empty() ? default_tables() : a.tables, table) &&
         (a.nested.empty() || load(prog, {a.nested}, nested));
}

// Starts the peer's environment; without it says on stdout that vell-ds is
// measured alone.
inline bool start_peer(const char *prog) {
#ifdef VELL_HAVE_DPDK
  std::string why;
  if (peer::start(prog, why)) return true;
  printf("DPDK could not start (%s): vell-ds alone\n", why.c_str());
#else
  (void)prog;
  printf(
      "built without DPDK (libdpdk not found at configure time): vell-ds "
      "alone\n");
#endif
  return false;
}

}  // namespace lpm

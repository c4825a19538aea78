// What the benchmarks against DPDK's LPM tables share: the table loading,
// data words every library can hold, thread placement, the progress line,
// best-of-N lookup rates and the loops that drive a library's single and
// bulk lookups over a key set.
#pragma once

#include <errno.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "lpm_clock.h"
#include "lpm_formats.h"
#include "lpm_ranges.h"
#include "lpm_table.h"
#include "lpm_trie.h"

namespace lpm {

constexpr uint32_t kFill = 50, kRootBranch4 = 16, kRootBranch6 = 15;
constexpr uint32_t kBatch = 64;  // keys per bulk call, a typical burst
constexpr int kRuns = 3;         // each rate is the best of this many runs

// The root branch the benchmarks build a family's trie with.
template <class F>
constexpr uint32_t kRootBranch = F::words == 1 ? kRootBranch4 : kRootBranch6;

// Puts the calling thread, the i-th of a run, on processor i (modulo
// their number): DPDK's start pins the main thread to one processor, and
// new threads would inherit that.
inline void place(unsigned i) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<int>(i % sysconf(_SC_NPROCESSORS_ONLN)), &one);
  sched_setaffinity(0, sizeof one, &one);
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
        pool.emplace_back([&f, i] {
          place(i);
          f(i);
        });
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

}  // namespace lpm

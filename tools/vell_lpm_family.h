// vell-lpm's per-family state: the trie and the forwarding table compiled
// from it, with the prefix index that names matches, and what the tool
// prints about them.
#pragma once

#include <stdio.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "lpm_clock.h"
#include "lpm_keys.h"
#include "lpm_match.h"
#include "lpm_text.h"
#include "lpm_trie.h"
#include "lpm_words.h"
#include "vell/handle.hpp"
#include "vell_lpm_options.h"

namespace vell_lpm {

using namespace lpm;

// Writes one line to stdout; a failed write ends the tool (write_failed).
inline void put_line(const std::string &line) {
  if (fwrite(line.data(), 1, line.size(), stdout) != line.size() ||
      putchar('\n') == EOF)
    write_failed();
}

// One family's trie and the forwarding table compiled from it, which
// answers the lookups, with what the tool knows beside them. It owns both
// and is move-only.
template <typename F>
struct FamilyTrie {
  static constexpr Family family = family_of<F>;
  const std::vector<typename F::entry> &entries;
  const Words &words;
  vell::handle<typename F::trie, F::destruct> trie;
  vell::handle<typename F::fib, F::fib_destruct> fib;
  uint32_t miss = 0;  // the fib's answer where no prefix matches
  double build_seconds = 0, fib_seconds = 0;
  PrefixIndex index;
  size_t duplicates;  // repeated prefixes dropped before the build

  FamilyTrie(std::vector<typename F::entry> &e, const Options &o,
             const Words &w)
      : entries(e),
        words(w),
        index(family, prefixes_of(e)),
        duplicates(keep_first_of_duplicates<F>(e)) {
    if (e.empty()) return;  // lookups then find nothing
    // The IPv6 constructor refuses a larger table on the console, where the
    // refusal would mix with the answers: refuse it here first.
    if (family == Family::v6 && e.size() > F::max_entries)
      fail("the IPv6 trie takes at most " + std::to_string(F::max_entries) +
           " prefixes; the tables hold " + std::to_string(e.size()));
    double t0 = now_seconds();
    trie = decltype(trie)(F::construct(
        nullptr, e.data(), static_cast<uint32_t>(e.size()), o.fill,
        root_branch(o.root_branch[family == Family::v6], e.size())));
    build_seconds = now_seconds() - t0;
    if (!trie)
      fail("cannot build the " + std::string(family_name(family)) +
           " trie of " + std::to_string(e.size()) +
           " prefixes; the library reports: " + take_library_diagnostics());
    miss = unused_word(e);
    t0 = now_seconds();
    fib = decltype(fib)(F::fib_construct(nullptr, trie.get(), miss));
    fib_seconds = now_seconds() - t0;
    if (!fib)
      fail("cannot compile the " + std::string(family_name(family)) +
           " forwarding table; the library reports: " +
           take_library_diagnostics());
  }

  // A data word no entry holds, so that a miss never reads as a stored
  // word: the largest such.
  static uint32_t unused_word(const std::vector<typename F::entry> &e) {
    std::vector<uint32_t> used;
    used.reserve(e.size());
    for (const auto &x : e) used.push_back(x.data);
    std::sort(used.begin(), used.end(), std::greater<>());
    uint32_t word = UINT32_MAX;
    for (uint32_t u : used) {
      if (u < word) break;
      if (u == word) --word;
    }
    return word;
  }

  static uint32_t root_branch(uint32_t chosen, size_t n) {
    if (chosen != kAutoRootBranch) return chosen;
    uint32_t log2 = static_cast<uint32_t>(std::bit_width(n)) - 1;
    return std::min(
        {log2 > 2 ? log2 - 2 : 0, kMaxAutoRootBranch, max_root_branch<F>});
  }

  static std::vector<Prefix> prefixes_of(
      const std::vector<typename F::entry> &e) {
    std::vector<Prefix> p;
    p.reserve(e.size());
    for (const auto &x : e) p.push_back({record_addr<F>(x), x.len});
    return p;
  }

  static std::string prefix_text(const Addr &a, unsigned len) {
    return format_addr(family, a) + "/" + std::to_string(len);
  }

  // Counts, build time and ignored duplicates, on stderr.
  void status() const {
    const char *name = family_name(family);
    if (!trie) {
      fprintf(stderr, "vell-lpm: %s: no prefixes\n", name);
      return;
    }
    fprintf(stderr,
            "vell-lpm: %s: %zu prefixes, trie built in %.1f ms, %u bytes; "
            "forwarding table compiled in %.1f ms, %u bytes\n",
            name, entries.size(), build_seconds * 1e3,
            F::memory_usage(trie.get()), fib_seconds * 1e3,
            F::fib_memory_usage(fib.get()));
    if (duplicates)
      fprintf(stderr,
              "vell-lpm: %s: %zu repeated prefixes ignored (the first line "
              "of each counts)\n",
              name, duplicates);
  }

  // The same facts as one JSON object.
  std::string json() const {
    return std::string("{\"prefixes\": ") + std::to_string(entries.size()) +
           ", \"duplicates\": " + std::to_string(duplicates) +
           ", \"build_ms\": " + std::to_string(build_seconds * 1e3) +
           ", \"bytes\": " +
           std::to_string(trie ? F::memory_usage(trie.get()) : 0) +
           ", \"fib_build_ms\": " + std::to_string(fib_seconds * 1e3) +
           ", \"fib_bytes\": " +
           std::to_string(fib ? F::fib_memory_usage(fib.get()) : 0) + "}";
  }

  void report(const Options &o) {
    if (!trie) return;
    if (o.stats && !o.json) F::print_stats(trie.get());
    if (o.print) F::print(trie.get());
    if (o.list || o.by_origin) list(o);
    fflush(stdout);
  }

  // Each stored prefix once, in address order. The iterator delivers an
  // enclosing prefix with every entry inside it, so its items are deduplicated.
  void list(const Options &o) {
    struct Item {
      Addr addr;
      unsigned len;
      uint32_t data;
      auto operator<=>(const Item &) const = default;
    };
    std::vector<Item> items;
    bool ok = for_each_item<F>(
        trie.get(), [&](const Addr &a, unsigned len, uint32_t data) {
          if (o.list || data == o.origin)
            items.push_back({mask_to(a, len), len, data});
        });
    if (!ok)
      fail("cannot list the " + std::string(family_name(family)) +
           " trie; the library reports: " + take_library_diagnostics());
    std::sort(items.begin(), items.end());
    items.erase(std::unique(items.begin(), items.end()), items.end());
    for (const Item &i : items)
      put_line(words.item(prefix_text(i.addr, i.len), i.data));
  }

  // Answered by the forwarding table; the index names the matching prefix.
  bool find(const Addr &addr, std::string &prefix, uint32_t &data) const {
    data = fib ? F::fib_lookup(fib.get(), F::word_key(addr.w)) : miss;
    Prefix match;
    bool hit = data != miss;
    if (hit != index.longest(addr, match))
      fail("the forwarding table and the prefix index disagree on " +
           format_addr(family, addr));
    if (hit) prefix = prefix_text(match.addr, match.len);
    return hit;
  }

  // Times n lookups of the trie and of the forwarding table, single and in
  // batches, on the same keys, checking that all four agree (a trie answers
  // 0 where the table answers its miss word). The result as text lines or
  // as one JSON object.
  std::string bench(uint64_t n, bool as_json) const {
    if (!trie) return as_json ? "null" : "";
    auto keys = draw_keys<F>(entries, n);
    struct Rates {
      double single, bulk;
    };
    std::vector<uint32_t> single(n), bulk(n), want(n);
    uint64_t differ = 0, hits = 0;
    auto time = [&](auto one, auto batch) {
      double t0 = now_seconds();
      for (uint64_t i = 0; i < n; ++i) single[i] = one(keys[i]);
      double t1 = now_seconds();
      for (uint64_t i = 0; i < n; i += kBulkBatch)
        batch(&keys[i], &bulk[i],
              static_cast<uint32_t>(std::min<uint64_t>(kBulkBatch, n - i)));
      double t2 = now_seconds();
      for (uint64_t i = 0; i < n; ++i)
        differ += single[i] != bulk[i] || single[i] != want[i];
      double nd = static_cast<double>(n);
      return Rates{nd / (t1 - t0) / 1e6, nd / (t2 - t1) / 1e6};
    };
    for (uint64_t i = 0; i < n; ++i)
      want[i] = F::lpmatch(trie.get(), F::c_key(keys[i]));
    Rates t =
        time([&](const auto &k) { return F::lpmatch(trie.get(), F::c_key(k)); },
             [&](const auto *k, uint32_t *d, uint32_t m) {
               F::lpmatch_bulk(trie.get(), F::c_keys(k), d, m);
             });
    for (uint64_t i = 0; i < n; ++i) {
      want[i] = F::fib_lookup(fib.get(), F::c_key(keys[i]));
      hits += want[i] != miss;
      differ += (want[i] == miss ? 0 : want[i]) != single[i];
    }
    Rates f = time(
        [&](const auto &k) { return F::fib_lookup(fib.get(), F::c_key(k)); },
        [&](const auto *k, uint32_t *d, uint32_t m) {
          F::fib_lookup_bulk(fib.get(), F::c_keys(k), d, m);
        });
    if (differ) fail(std::to_string(differ) + " lookup results differ");
    double nd = static_cast<double>(n),
           np = static_cast<double>(entries.size());
    double tm = F::memory_usage(trie.get()),
           fm = F::fib_memory_usage(fib.get());
    double matched = 100.0 * static_cast<double>(hits) / nd;
    char buf[1024];
    if (as_json)
      snprintf(buf, sizeof buf,
               "{\"lookups\": %llu, \"matched_pct\": %.1f, \"bulk_batch\": "
               "%u, \"trie\": {\"build_ms\": %.1f, \"bytes\": %.0f, "
               "\"single_mps\": %.2f, \"bulk_mps\": %.2f}, \"fib\": "
               "{\"build_ms\": %.1f, \"bytes\": %.0f, \"single_mps\": %.2f, "
               "\"bulk_mps\": %.2f}}",
               static_cast<unsigned long long>(n), matched, kBulkBatch,
               build_seconds * 1e3, tm, t.single, t.bulk, fib_seconds * 1e3, fm,
               f.single, f.bulk);
    else
      snprintf(buf, sizeof buf,
               "%s bench: %llu lookups (half within the table's prefixes, "
               "half uniform), %.1f%% matched; bulk in batches of %u\n"
               "  trie: build %7.1f ms, memory %6.2f MB (%4.1f B per prefix), "
               "single %6.2f M/s, bulk %6.2f M/s\n"
               "  fib:  build %7.1f ms, memory %6.2f MB (%4.1f B per prefix), "
               "single %6.2f M/s, bulk %6.2f M/s\n",
               family_name(family), static_cast<unsigned long long>(n), matched,
               kBulkBatch, build_seconds * 1e3, tm / 1048576.0, tm / np,
               t.single, t.bulk, fib_seconds * 1e3, fm / 1048576.0, fm / np,
               f.single, f.bulk);
    return buf;
  }
};

// The --stats and --bench reports as one JSON document.
template <typename V4, typename V6>
void json_report(const Options &o, const V4 &v4, const V6 &v6) {
  std::string doc = "{";
  auto family = [&](const char *name, const auto &f) {
    doc += std::string(doc.size() > 1 ? ", " : "") + json_string(name) + ": ";
    std::string facts = f.json();
    if (o.bench)
      facts.insert(facts.size() - 1, ", \"bench\": " + f.bench(o.bench, true));
    doc += facts;
  };
  family("IPv4", v4);
  family("IPv6", v6);
  put_line(doc + "}");
}

}  // namespace vell_lpm

// Memory count, statistics report and dump of a trie. They only read it and
// always print through sc_printf.
#pragma once

#include <inttypes.h>
#include <stdint.h>

#include "sc_host.h"
#include "trie/family.h"
#include "trie/untrimmed.h"

namespace vds::trie {

// Bytes the trie's four blocks occupy, as taken (a failed trim counts at
// the size the array kept).
template <Family F>
uint32_t memory_usage(const typename F::Trie *t) {
  if (!t) return 0;
  return sizeof(typename F::Trie) +
         entries_capacity<F>(t) * sizeof(typename F::Entry) +
         prefixes_capacity<F>(t) * sizeof(typename F::Prefix) +
         t->n_nodes * sizeof(typename F::Node);
}

// Expected number of nodes a lookup visits for a key drawn evenly from the
// address space (a leaf counts 1). Children are summed in single precision.
template <class F>
double average_depth(const typename F::Trie *t, uint32_t x) {
  typename F::Node n = t->nodes[x];
  uint32_t b = F::branch(n);
  if (b == 0) return 1;
  float sum = 0;
  for (uint32_t i = 0; i < (1u << b); ++i)
    sum += static_cast<float>(average_depth<F>(t, F::index(n) + i));
  return 1 + static_cast<double>(sum) / static_cast<double>(1u << b);
}

template <class F>
uint32_t max_depth(const typename F::Trie *t, uint32_t x) {
  typename F::Node n = t->nodes[x];
  uint32_t b = F::branch(n), deepest = 0;
  for (uint32_t i = 0; b && i < (1u << b); ++i) {
    uint32_t d = max_depth<F>(t, F::index(n) + i);
    if (d > deepest) deepest = d;
  }
  return 1 + deepest;
}

inline void print_rule() {
  sc_printf("-----------------------------------------------------------\n");
}

inline void print_size_line(const char *what, uint32_t bytes) {
  sc_printf("    %s memory usage: %dB (%.1fKB, %.2fMB)\n", what,
            static_cast<int>(bytes), bytes * 0.0009765625,
            bytes * 9.5367431640625e-07);
}

// The trie's address, in full, and its three counts.
template <class F>
void print_counts(const typename F::Trie *t, const char *format) {
  sc_printf(format, reinterpret_cast<uintptr_t>(t),
            static_cast<int>(t->n_entries), static_cast<int>(t->n_prefixes),
            static_cast<int>(t->n_nodes));
}

// A trie built from no entries has no nodes: its root branch and depths
// print as 0. Without prefix records the path lengths print as 0.00 / 0.
template <Family F>
void print_stats(const typename F::Trie *t) {
  if (!t) return;
  print_rule();
  print_counts<F>(t, "Trie %08" PRIxPTR
                     ": n_entries = %d, n_prefixes = %d, n_nodes = %d\n");
  print_size_line("Total", memory_usage<F>(t));
  print_size_line("Nodes",
                  t->n_nodes * static_cast<uint32_t>(sizeof(typename F::Node)));
  bool nodes = t->nodes != nullptr;
  sc_printf("    Root branch factor: %d\n",
            nodes ? static_cast<int>(F::branch(t->nodes[0])) : 0);
  sc_printf("    Average / Maximum depth (w/o prefixes): %.2f / %d\n",
            nodes ? average_depth<F>(t, 0) : 0.0,
            nodes ? static_cast<int>(max_depth<F>(t, 0)) : 0);
  uint64_t links = 0;
  uint32_t longest = 0;
  for (uint32_t i = 0; i < t->n_prefixes; ++i) {
    uint32_t len = 0;
    for (uint32_t q = t->prefixes[i].prefix; q != F::kNone;
         q = t->prefixes[q].prefix)
      ++len;
    links += len;
    if (len > longest) longest = len;
  }
  sc_printf("    Average / Maximum prefixes path length: %.2f / %d\n",
            t->n_prefixes ? static_cast<double>(links) / t->n_prefixes : 0.0,
            static_cast<int>(longest));
  print_rule();
}

// Nodes first .. first + 2^width - 1, each as its slot number in base 2,
// one dot per skipped bit, then its subtree or the entry it names.
template <class F>
void print_nodes(const typename F::Trie *t, uint32_t indent, uint32_t first,
                 uint32_t width) {
  for (uint32_t i = 0; i < (1u << width); ++i) {
    typename F::Node n = t->nodes[first + i];
    for (uint32_t k = 0; k < indent; ++k) sc_printf(" ");
    for (uint32_t k = width; k-- > 0;) sc_printf("%x", (i >> k) & 1);
    for (uint32_t k = 0; k < F::skip(n); ++k) sc_printf(".");
    if (F::branch(n)) {
      sc_printf("\n");
      print_nodes<F>(t, indent + width + 1, F::index(n), F::branch(n));
    } else {
      sc_printf(" -> %d\n", static_cast<int>(F::index(n)));
    }
  }
}

inline void print_heading(const char *what) {
  sc_printf("--------\n");
  sc_printf("%s\n", what);
  sc_printf("--------\n");
}

template <Family F>
void print(const typename F::Trie *t) {
  if (!t) return;
  print_rule();
  print_counts<F>(
      t, "Trie %" PRIxPTR ", n_entries = %d, n_prefixes = %d, n_nodes = %d\n");
  print_rule();
  print_heading("Entries");
  for (uint32_t i = 0; i < t->n_entries; ++i) F::print_entry(i, t->entries[i]);
  print_heading("Prefixes");
  for (uint32_t i = 0; i < t->n_prefixes; ++i)
    sc_printf("Prefix %d: len %d prefix %d\n", static_cast<int>(i),
              static_cast<int>(t->prefixes[i].len),
              static_cast<int>(t->prefixes[i].prefix));
  print_heading("Nodes");
  if (t->nodes) print_nodes<F>(t, 0, 0, 0);
}

}  // namespace vds::trie

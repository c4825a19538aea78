// Construction and destruction of a trie, shared by both families. F is a
// family: a layout (ipv4.h / ipv6.h) plus kModule, kText and the few
// family-specific reports (too_many, reject_entry); an operation that may
// report or allocate is entered with it tagged by the caller (VDS_AT, diag.h).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "diag.h"
#include "trie/bits.h"
#include "trie/blocks.h"
#include "trie/build.h"
#include "trie/family.h"
#include "trie/prepare.h"
#include "trie/untrimmed.h"

namespace vds::trie {

// Rejects, before anything is taken, what the build cannot honour: a
// fill_factor of 0 (it divides the node estimate), a root_branch wider than
// the branch field, an entry longer than the address or with address bits
// set beyond its length (the split into prefixes relies on those being 0).
template <class F>
bool valid_input(const typename F::Entry *in, uint32_t n, uint32_t fill_factor,
                 uint32_t root_branch) {
  if (fill_factor == 0) {
    VDS_DIAG_AT(kFailure, F, "%s: fill_factor must be at least 1\n",
                F::kText.construct);
    return false;
  }
  if (root_branch > F::kMaxBranch) {
    VDS_DIAG_AT(kFailure, F, "%s: root_branch %u exceeds %u\n",
                F::kText.construct, root_branch, F::kMaxBranch);
    return false;
  }
  for (uint32_t i = 0; i < n; ++i) {
    if (in[i].len > F::kBits) {
      F::reject_entry(i, in[i], "is longer than the address");
      return false;
    }
    if (bits_beyond<F::kWords>(F::addr(in[i]), in[i].len)) {
      F::reject_entry(i, in[i], "has address bits set beyond its length");
      return false;
    }
  }
  return true;
}

// The root's branch bits must come from one address word: its common bits
// within their word plus root_branch may not pass the word's end.
template <class F>
bool root_branch_fits(const typename F::Trie *t, uint32_t root_branch) {
  if (t->n_entries < 2) return true;  // the root is a leaf
  uint32_t s = common_bits<F>(t->entries[0], t->entries[t->n_entries - 1], 0);
  if ((s & 31) + root_branch <= 32) return true;
  VDS_DIAG_AT(
      kFailure, F,
      "%s: root_branch %u does not fit the address after %u common bits\n",
      F::kText.construct, root_branch, s);
  return false;
}

// Gives back the trie record and whichever of its arrays it holds, the
// entry and prefix arrays having room for the given numbers of elements.
// The one release path of a trie, complete or half-built; data words are
// the caller's to hand out first.
template <class F>
void release(typename F::Trie *t, uint32_t entries, uint32_t prefixes) {
  void *ctx = t->sz_ctx;
  if (t->entries) give<F>(ctx, t->entries, entries * sizeof(typename F::Entry));
  if (t->prefixes)
    give<F>(ctx, t->prefixes, prefixes * sizeof(typename F::Prefix));
  if (t->nodes) give<F>(ctx, t->nodes, t->n_nodes * sizeof(typename F::Node));
  give<F>(ctx, t, sizeof(typename F::Trie));
}

// Trims the entry and prefix arrays (taken with n elements) and the node
// array to their used sizes. A trim that cannot get its block leaves that
// array as it was and the trie complete.
template <class F>
void trim(typename F::Trie *t, uint32_t n, uint32_t used_nodes) {
  using Entry = typename F::Entry;
  using Prefix = typename F::Prefix;
  using Node = typename F::Node;
  void *ctx = t->sz_ctx;
  if (n > t->n_entries) {
    uint32_t size = t->n_entries * sizeof(Entry);
    if (!move_block<F>(ctx, t->entries, n * sizeof(Entry), size, size)) {
      VDS_DIAG_AT(kTrace, F, F::kText.entries_trim_failed,
                  static_cast<int>(size));
      mark_untrimmed<F>(t, kEntriesUntrimmed, n);
    }
  }
  if (t->n_prefixes == 0) {
    give<F>(ctx, t->prefixes, n * sizeof(Prefix));
    t->prefixes = nullptr;
  } else if (n > t->n_prefixes) {
    uint32_t size = t->n_prefixes * sizeof(Prefix);
    if (!move_block<F>(ctx, t->prefixes, n * sizeof(Prefix), size, size)) {
      VDS_DIAG_AT(kTrace, F, F::kText.prefixes_trim_failed,
                  static_cast<int>(size));
      mark_untrimmed<F>(t, kPrefixesUntrimmed, n);
    }
  }
  if (t->n_nodes > used_nodes) {
    uint32_t size = used_nodes * sizeof(Node);
    if (move_block<F>(ctx, t->nodes, t->n_nodes * sizeof(Node), size, size))
      t->n_nodes = used_nodes;
    else
      VDS_DIAG_AT(kFailure, F, F::kText.nodes_trim_failed,
                  static_cast<int>(size));
  }
}

template <Family F>
typename F::Trie *construct(void *sz_ctx, const typename F::Entry *in,
                            uint32_t n, uint32_t fill_factor,
                            uint32_t root_branch) {
  using Trie = typename F::Trie;
  if (n > F::kMaxEntries) {
    F::too_many(n);
    return nullptr;
  }
  if (!valid_input<F>(in, n, fill_factor, root_branch)) return nullptr;

  auto *t = static_cast<Trie *>(take<F>(sz_ctx, sizeof(Trie)));
  if (!t) {
    VDS_DIAG_AT(kFailure, F, F::kText.record_failed, sizeof(Trie));
    return nullptr;
  }
  memset(t, 0, sizeof *t);
  t->sz_ctx = sz_ctx;
  // Before the trim, the entry and prefix arrays have room for n each.
  auto fail = [t, n]() -> Trie * {
    release<F>(t, n, n);
    return nullptr;
  };
  if (n == 0) {
    VDS_DIAG_AT(kFailure, F, F::kText.no_entries);
    return t;
  }

  size_t entries_size = size_t{n} * sizeof(typename F::Entry);
  t->entries = static_cast<typename F::Entry *>(take<F>(sz_ctx, entries_size));
  if (!t->entries) {
    VDS_DIAG_AT(kFailure, F, F::kText.entries_failed, entries_size);
    return fail();
  }
  size_t prefixes_size = size_t{n} * sizeof(typename F::Prefix);
  t->prefixes =
      static_cast<typename F::Prefix *>(take<F>(sz_ctx, prefixes_size));
  if (!t->prefixes) {
    VDS_DIAG_AT(kFailure, F, F::kText.prefixes_failed, prefixes_size);
    return fail();
  }

  prepare<F>(t, in, n);
  if (!root_branch_fits<F>(t, root_branch)) return fail();

  // The estimate may fall short (the build then grows the array) but is
  // never more than the node index can address.
  uint64_t estimate = (uint64_t{t->n_entries} * 200 + 100) / fill_factor +
                      (uint64_t{1} << root_branch) + 100;
  uint32_t n_nodes = static_cast<uint32_t>(
      estimate < F::kIndexLimit ? estimate : F::kIndexLimit);
  size_t nodes_size = size_t{n_nodes} * sizeof(typename F::Node);
  t->nodes = static_cast<typename F::Node *>(take<F>(sz_ctx, nodes_size));
  if (!t->nodes) {
    VDS_DIAG_AT(kFailure, F, F::kText.nodes_failed, nodes_size);
    return fail();
  }
  t->n_nodes = n_nodes;

  Builder<F> builder(t, fill_factor);
  if (!builder.build(root_branch)) return fail();
  trim<F>(t, n, builder.used());
  return t;
}

template <Family F>
void destruct(typename F::Trie *t) {
  if (!t) return;
  // Read before the entry array, which holds the marks, goes away.
  uint32_t entries = entries_capacity<F>(t);
  uint32_t prefixes = prefixes_capacity<F>(t);
  if (t->entries) {
    if (auto dd = t->data_destructor) {
      for (uint32_t i = 0; i < t->n_entries; ++i) dd(t->entries[i].data);
      for (uint32_t i = 0; i < t->n_prefixes; ++i) dd(t->prefixes[i].data);
    }
  }
  release<F>(t, entries, prefixes);
}

}  // namespace vds::trie

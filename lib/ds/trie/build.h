// Builds the node array over the sorted leaf entries. Node 0 is the root;
// an internal node's 2^branch children sit side by side from its index on
// and are handed out depth first, so a parent always precedes its children.
#pragma once

#include <stdint.h>

#include <algorithm>

#include "diag.h"
#include "trie/bits.h"
#include "trie/blocks.h"

namespace vds::trie {

// Address bits shared by a group's first and last entry from pos on, never
// beyond the shorter of the two. The group is sorted and agrees on its first
// pos bits, so every entry between them shares these bits too.
template <class L>
uint32_t common_bits(const typename L::Entry &first,
                     const typename L::Entry &last, uint32_t pos) {
  uint32_t shorter = std::min<uint32_t>(first.len, last.len);
  if (shorter <= pos) return 0;
  uint32_t diff =
      first_difference<L::kWords>(L::addr(first), L::addr(last), pos);
  return std::min(diff, shorter) - pos;
}

template <class F>
class Builder {
  using Trie = typename F::Trie;
  using Entry = typename F::Entry;

 public:
  // The trie holds its prepared entries and prefixes and a node array of
  // n_nodes words; the build may move it to a larger block.
  Builder(Trie *t, uint32_t fill_factor) : t_(t), fill_(fill_factor) {}

  // Builds the whole trie; false after a diagnostic when the nodes cannot
  // be had. t->nodes and t->n_nodes always describe the block held.
  bool build(uint32_t root_branch) {
    used_ = 1;
    return node(0, 0, t_->n_entries, 0, root_branch);
  }
  uint32_t used() const { return used_; }

 private:
  const Entry &entry(uint32_t i) const { return t_->entries[i]; }
  uint32_t slot(uint32_t i, uint32_t p, uint32_t b) const {
    return key_bits<F::kWords>(F::addr(entry(i)), p, b);
  }
  void set(uint32_t x, uint32_t branch, uint32_t skip, uint32_t index) {
    t_->nodes[x] = F::make_node(branch, skip, index);
  }

  // Node x over the k >= 1 entries from `first` on, which agree on their
  // first pos bits; `least` is the smallest branch the node may have.
  bool node(uint32_t x, uint32_t first, uint32_t k, uint32_t pos,
            uint32_t least) {
    if (k == 1) {
      set(x, 0, entry(first).len - pos, first);
      return true;
    }
    uint32_t end = first + k;
    uint32_t s = common_bits<F>(entry(first), entry(end - 1), pos);
    uint32_t p = pos + s;
    uint32_t b = std::max(choose_branch(first, k, p), least);
    uint32_t q;
    if (!reserve(1u << b, q)) return false;
    set(x, b, s, q);
    uint32_t i = first;
    for (uint32_t v = 0; v < (1u << b);) {
      uint32_t j = i;
      while (j < end && slot(j, p, b) == v) ++j;
      if (j - i == 1 && entry(i).len - p < b) {
        // A short entry fills every slot it covers.
        uint32_t d = 1u << (b - (entry(i).len - p));
        for (uint32_t u = 0; u < d; ++u) set(q + v + u, 0, 0, i);
        v += d;
      } else {
        if (j > i) {
          if (!node(q + v, i, j - i, p + b, 0)) return false;
        } else {
          set(q + v, 0, 0, empty_slot_entry(first, i, end, p, b, v));
        }
        ++v;
      }
      i = j;
    }
    return true;
  }

  // The widest branch, up to F::kMaxChosenBranch and within one address
  // word, at which at least fill_factor percent of the slots are occupied.
  uint32_t choose_branch(uint32_t first, uint32_t k, uint32_t p) const {
    if (k < 3) return k / 2;
    for (uint32_t b = 2;; ++b) {
      if (b > F::kMaxChosenBranch || (p & 31) + b > 32) return b - 1;
      uint64_t threshold = (uint64_t{fill_} << b) / 100;
      if (k < threshold) return b - 1;
      if (occupied(first, k, p, b, threshold) < threshold) return b - 1;
    }
  }

  // Occupied slots of a b-bit node at p, counted up to `enough`. An entry
  // shorter than p + b counts once, in the first slot it covers.
  uint64_t occupied(uint32_t first, uint32_t k, uint32_t p, uint32_t b,
                    uint64_t enough) const {
    uint64_t count = 0;
    uint32_t last = 0;
    for (uint32_t i = first; i < first + k && count < enough; ++i) {
      uint32_t v = slot(i, p, b);
      if (count == 0 || v != last) ++count;
      last = v;
    }
    return count;
  }

  // An empty slot's leaf names the neighbour (the entry before it or the
  // one after it) whose prefix chain holds the longer prefix covering the
  // whole slot; ties go to the one after. A lookup landing there misses the
  // entry and finds that prefix in its chain.
  uint32_t empty_slot_entry(uint32_t first, uint32_t next, uint32_t end,
                            uint32_t p, uint32_t b, uint32_t v) const {
    if (next == end) return next - 1;
    if (next == first) return next;
    return covering_len(next - 1, p, b, v) > covering_len(next, p, b, v)
               ? next - 1
               : next;
  }

  // Length of the first prefix in entry i's chain that covers all of slot v
  // of a b-bit node at p; 0 when none does.
  uint32_t covering_len(uint32_t i, uint32_t p, uint32_t b, uint32_t v) const {
    const uint32_t *a = F::addr(entry(i));
    for (uint32_t q = entry(i).prefix; q != F::kNone;) {
      const typename F::Prefix &pr = t_->prefixes[q];
      if (pr.len <= p) return pr.len;
      uint32_t r = pr.len - p;
      if (r <= b && key_bits<F::kWords>(a, p, r) == v >> (b - r)) return pr.len;
      q = pr.prefix;
    }
    return 0;
  }

  // Hands out `count` consecutive node positions, growing the node array
  // when the estimate falls short. Fails when the positions would not fit
  // the node index.
  bool reserve(uint32_t count, uint32_t &at) {
    if (count > F::kIndexLimit - used_) {
      VDS_DIAG_AT(kFailure, F, "%s: more than %u nodes needed\n",
                  F::kText.construct, F::kIndexLimit);
      return false;
    }
    if (used_ + count > t_->n_nodes) {
      uint64_t want =
          std::max<uint64_t>(uint64_t{t_->n_nodes} * 2, used_ + count);
      uint32_t cap =
          static_cast<uint32_t>(std::min<uint64_t>(want, F::kIndexLimit));
      uint32_t word = sizeof(typename F::Node);
      if (!move_block<F>(t_->sz_ctx, t_->nodes, t_->n_nodes * word, cap * word,
                         used_ * word)) {
        VDS_DIAG_AT(kFailure, F, F::kText.nodes_failed,
                    static_cast<size_t>(cap) * word);
        return false;
      }
      t_->n_nodes = cap;
    }
    at = used_;
    used_ += count;
    return true;
  }

  Trie *t_;
  uint32_t fill_;
  uint32_t used_ = 0;
};

}  // namespace vds::trie

// Compiles a list of prefixes (prefixes.h order) into a table's root, nodes
// and leaves. The same walk runs twice: first to count the nodes and leaves
// (so each array is taken once, at its exact size), then to write them.
#pragma once

#include <stdint.h>

#include <bit>

#include "fib/prefixes.h"
#include "fib/table.h"

namespace vds::fib {

template <class S>
class Compiler {
 public:
  using Item = Prefix<S::kWords>;

  // Counts only, or also writes t's nodes and leaves (taken at the counted
  // sizes). t->root and t->root_inner are written in both passes.
  Compiler(const Item *items, uint32_t n, Table *t, bool write)
      : items_(items), n_(n), t_(t), write_(write) {}

  void run() {
    uint32_t *root = t_->root;
    if (write_) t_->leaves[0] = t_->miss;
    for (uint32_t c = 0; c < S::kRootSlots; ++c) root[c] = t_->miss;
    for (uint32_t w = 0; w < S::kRootSlots / 32; ++w) t_->root_inner[w] = 0;
    paint(root, 0, S::kRootBits, 0, 0, n_);
    for (uint32_t i = 0; i < n_;) {
      if (items_[i].len <= S::kRootBits) {
        ++i;
        continue;
      }
      uint32_t c = root_slot(items_[i]), j = i + 1;
      while (j < n_ && root_slot(items_[j]) == c) ++j;
      uint32_t at = take_nodes(1), inherited = root[c];
      root[c] = at;
      t_->root_inner[c >> 5] |= 1u << (c & 31);
      node(at, S::kRootBits, i, j, inherited);
      i = j;
    }
  }

  uint64_t nodes() const { return nodes_; }
  uint64_t leaves() const { return leaves_; }

 private:
  static uint32_t root_slot(const Item &it) {
    return it.addr[0] >> (32 - S::kRootBits);
  }
  // kStride address bits at p, 0 past the address's end.
  static uint32_t child(const Item &it, uint32_t p) {
    if constexpr (S::kWords == 1) {
      return stride_bits<1>(it.addr, p);
    } else {
      uint32_t k[2] = {it.addr[p >> 5],
                       (p >> 5) + 1 < S::kWords ? it.addr[(p >> 5) + 1] : 0};
      return stride_bits<2>(k, p & 31);
    }
  }

  // Sets each slot of val (the 2^bits children of the region at p) to the
  // answer of the longest of items [lo, hi) with min_len <= len <= p + bits
  // covering it. Enclosing prefixes come first, so later ones overwrite.
  void paint(uint32_t *val, uint32_t p, uint32_t bits, uint32_t min_len,
             uint32_t lo, uint32_t hi) const {
    for (uint32_t i = lo; i < hi; ++i) {
      const Item &it = items_[i];
      if (it.len < min_len || it.len > p + bits) continue;
      uint32_t first = bits == kStride ? child(it, p) : root_slot(it);
      uint32_t end = first + (1u << (p + bits - it.len));
      for (uint32_t c = first; c < end; ++c) val[c] = it.data;
    }
  }

  uint32_t take_nodes(uint32_t count) {
    uint64_t at = nodes_;
    nodes_ += count;
    return static_cast<uint32_t>(at);
  }

  // Node `at` for the region of the address bits before p, holding items
  // [lo, hi) (some of them may be shorter than p: they are skipped, since
  // `inherited`, the answer the region gets from above, covers them).
  void node(uint32_t at, uint32_t p, uint32_t lo, uint32_t hi,
            uint32_t inherited) {
    uint32_t val[kChildren];
    for (uint32_t &v : val) v = inherited;
    paint(val, p, kStride, p + 1, lo, hi);

    uint64_t inner = 0;
    uint32_t from[kChildren], to[kChildren];
    for (uint32_t i = lo; i < hi; ++i) {
      if (items_[i].len <= p + kStride) continue;
      uint32_t c = child(items_[i], p);
      if (!(inner >> c & 1)) from[c] = i;
      inner |= uint64_t{1} << c;
      to[c] = i + 1;
    }
    uint64_t runs = 0;
    bool first = true;
    uint32_t last = 0;
    for (uint32_t c = 0; c < kChildren; ++c) {
      if (inner >> c & 1) continue;
      if (first || val[c] != last) runs |= uint64_t{1} << c;
      first = false;
      last = val[c];
    }
    uint32_t child_at = take_nodes(static_cast<uint32_t>(std::popcount(inner)));
    uint64_t leaf_at = leaves_;
    leaves_ += static_cast<uint32_t>(std::popcount(runs));
    if (write_) {
      t_->nodes[at] =
          Node{inner, runs, child_at - 1, static_cast<uint32_t>(leaf_at) - 1};
      uint32_t *leaf = t_->leaves + leaf_at;
      for (uint32_t c = 0; c < kChildren; ++c)
        if (runs >> c & 1) *leaf++ = val[c];
    }
    for (uint32_t c = 0; c < kChildren; ++c)
      if (inner >> c & 1) node(child_at++, p + kStride, from[c], to[c], val[c]);
  }

  const Item *items_;
  uint32_t n_;
  Table *t_;
  bool write_;
  // Leaf 0 is never used: a node's leaf_base, stored minus 1, stays
  // unsigned without wrapping (as a child_base does, node 0 being the first
  // root node).
  uint64_t nodes_ = 0, leaves_ = 1;
};

}  // namespace vds::fib

// Compiles a list of prefixes (prefixes.h order) into a table's root and
// node pool. The same walk runs twice: first to count the pool's words (so
// it is taken once, at its exact size), then to write them.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

#include "fib/prefixes.h"
#include "fib/table.h"

namespace vds::fib {

template <class S>
class Compiler {
 public:
  using Item = Prefix<S::kWords>;

  // Counts only, or also writes t's pool (taken at the counted size).
  // t->root and t->root_inner are written in both passes.
  Compiler(const Item *items, uint32_t n, Table *t, bool write)
      : items_(items), n_(n), t_(t), write_(write) {}

  void run() {
    uint32_t *root = t_->root;
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
      uint32_t inherited = root[c];
      root[c] = node(S::kRootBits, i, j, inherited);
      t_->root_inner[c >> 5] |= 1u << (c & 31);
      i = j;
    }
  }

  uint64_t pool_words() const { return words_; }

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

  // Writes the node for the region of the address bits before p, holding
  // items [lo, hi), and returns its pool position. Items shorter than p
  // are skipped: `inherited`, the answer the region gets from above,
  // covers them.
  uint32_t node(uint32_t p, uint32_t lo, uint32_t hi, uint32_t inherited) {
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
    const uint32_t n_runs = static_cast<uint32_t>(std::popcount(runs));
    const uint64_t at = words_;
    words_ += kHeaderWords + n_runs + std::popcount(inner);
    uint32_t *out = write_ ? t_->pool + at : nullptr;
    if (out) {
      memcpy(out, &runs, sizeof runs);
      memcpy(out + 2, &inner, sizeof inner);
      out += kHeaderWords;
      for (uint32_t c = 0; c < kChildren; ++c)
        if (runs >> c & 1) *out++ = val[c];
    }
    for (uint32_t c = 0; c < kChildren; ++c) {
      if (!(inner >> c & 1)) continue;
      uint32_t below = node(p + kStride, from[c], to[c], val[c]);
      if (out) *out++ = below;
    }
    return static_cast<uint32_t>(at);
  }

  const Item *items_;
  uint32_t n_;
  Table *t_;
  bool write_;
  uint64_t words_ = 0;
};

}  // namespace vds::fib

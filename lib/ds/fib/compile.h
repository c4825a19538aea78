// Compiles a list of prefixes (prefixes.h order) into a table's root and
// node pool, in one walk. The pool grows by doubling while the walk writes
// it and is cut to its used size at the end, so it is copied about twice
// in all: cheaper than a second walk to count it first.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

#include "fib/blocks.h"
#include "fib/prefixes.h"
#include "fib/table.h"

namespace vds::fib {

// S is a family (construct.h): the table's shape and its allocation rule.
template <class S>
class Compiler {
 public:
  using Item = Prefix<S::kWords>;

  // t has its root arrays and no pool yet.
  Compiler(const Item *items, uint32_t n, Table *t)
      : items_(items), n_(n), t_(t) {}

  // False (the failure reported) when the pool could not be taken; t then
  // holds what was taken, for its destruct.
  bool run() {
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
      if (failed_) return false;
      t_->root_inner[c >> 5] |= 1u << (c & 31);
      i = j;
    }
    return words_ == t_->pool_words || resize(words_);
  }

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
    uint32_t from[kChildren] = {}, to[kChildren] = {};
    for (uint32_t i = lo; i < hi; ++i) {
      if (items_[i].len <= p + kStride) continue;
      uint32_t c = child(items_[i], p);
      if (!(inner >> c & 1)) from[c] = i;
      inner |= uint64_t{1} << c;
      to[c] = i + 1;
    }
    // A leaf child starts a run where its answer differs from its left
    // neighbour's or that neighbour is a node (child 0 always does).
    uint64_t differs = 1;
    for (uint32_t c = 1; c < kChildren; ++c)
      differs |= uint64_t{val[c] != val[c - 1]} << c;
    const uint64_t runs = ~inner & (differs | inner << 1);
    const uint32_t n_runs = static_cast<uint32_t>(std::popcount(runs));
    const uint32_t size = kHeaderWords + n_runs + std::popcount(inner);
    if (!reserve(size)) return 0;
    const uint64_t at = words_;
    words_ += size;
    uint32_t *out = t_->pool + at;
    memcpy(out, &runs, sizeof runs);
    memcpy(out + 2, &inner, sizeof inner);
    out += kHeaderWords;
    for (uint64_t r = runs; r; r &= r - 1) *out++ = val[std::countr_zero(r)];
    // The pool may move while the children are written: positions, not
    // pointers, from here on.
    uint64_t next = at + kHeaderWords + n_runs;
    for (uint64_t b = inner; b; b &= b - 1) {
      uint32_t c = static_cast<uint32_t>(std::countr_zero(b));
      uint32_t below = node(p + kStride, from[c], to[c], val[c]);
      if (failed_) return 0;
      t_->pool[next++] = below;
    }
    return static_cast<uint32_t>(at);
  }

  // Room for `more` words past the used ones, growing the pool to at least
  // twice its size (at first to an estimate from the number of prefixes).
  bool reserve(uint32_t more) {
    if (words_ + more <= t_->pool_words) return true;
    uint64_t want = 2 * uint64_t{t_->pool_words};
    if (want < 2 * uint64_t{n_} + 64) want = 2 * uint64_t{n_} + 64;
    if (want < words_ + more) want = words_ + more;
    return resize(want);
  }

  // Moves the used words into a pool of `words` words (none: no pool).
  bool resize(uint64_t words) {
    uint32_t *moved = nullptr;
    if (words) {
      moved = static_cast<uint32_t *>(
          take_array<S>(t_->sz_ctx, words, sizeof(uint32_t)));
      if (!moved) {
        failed_ = true;
        return false;
      }
      if (words_) memcpy(moved, t_->pool, words_ * sizeof(uint32_t));
    }
    if (t_->pool) trie::give<S>(t_->sz_ctx, t_->pool, t_->pool_words * 4u);
    t_->pool = moved;
    t_->pool_words = static_cast<uint32_t>(words);
    return true;
  }

  const Item *items_;
  uint32_t n_;
  Table *t_;
  bool failed_ = false;
  uint64_t words_ = 0;
};

}  // namespace vds::fib

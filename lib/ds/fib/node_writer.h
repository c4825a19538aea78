// Writes the nodes of a compiled table (table.h) for a list of prefixes in
// prefixes.h order, into a pool of words that a policy P provides:
//
//   P::kLead          words kept in front of each node for the pool's owner;
//                     the first holds the answer the node's region gets
//                     from above (its inherited answer); lookups never read
//                     them
//   P::words()        the pool's first word (it may move while nodes are
//                     written: positions, not pointers, are kept)
//   P::take(n)        the position of n more words, or false when the pool
//                     cannot give them
//
// The frozen table and the live table write the same nodes through it.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

#include "fib/prefixes.h"
#include "fib/table.h"

namespace vds::fib {

template <class F, class P>
class NodeWriter {
 public:
  using Item = Prefix<F::kWords>;

  NodeWriter(const Item *items, P &pool) : items_(items), pool_(pool) {}

  // Root slot of an address (its top kRootBits bits).
  static uint32_t root_slot(const Item &it) {
    return it.addr[0] >> (32 - F::kRootBits);
  }
  // kStride address bits at p, 0 past the address's end.
  static uint32_t child(const Item &it, uint32_t p) {
    if constexpr (F::kWords == 1) {
      return stride_bits<1>(it.addr, p);
    } else {
      uint32_t k[2] = {it.addr[p >> 5],
                       (p >> 5) + 1 < F::kWords ? it.addr[(p >> 5) + 1] : 0};
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
  // items [lo, hi), and returns its pool position (false() on failure: the
  // pool could not grow). Items shorter than p are skipped: `inherited`,
  // the answer the region gets from above, covers them.
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
    uint32_t at = put(val, inner, inherited);
    if (failed_) return 0;
    // The pool may move while the children are written: positions, not
    // pointers, from here on.
    uint32_t next = first_child(at);
    for (uint64_t b = inner; b; b &= b - 1) {
      uint32_t c = static_cast<uint32_t>(std::countr_zero(b));
      uint32_t below = node(p + kStride, from[c], to[c], val[c]);
      if (failed_) return 0;
      pool_.words()[next++] = below;
    }
    return at;
  }

  // Writes a node whose leaf children answer val and whose children in
  // `inner` are nodes, and returns its position; the inner children's
  // positions are left for the caller at first_child(position) on.
  uint32_t put(const uint32_t *val, uint64_t inner, uint32_t inherited) {
    // A leaf child starts a run where its answer differs from its left
    // neighbour's or that neighbour is a node (child 0 always does).
    uint64_t differs = 1;
    for (uint32_t c = 1; c < kChildren; ++c)
      differs |= uint64_t{val[c] != val[c - 1]} << c;
    const uint64_t runs = ~inner & (differs | inner << 1);
    const uint32_t size =
        P::kLead + kHeaderWords + std::popcount(runs) + std::popcount(inner);
    uint64_t lead;
    if (!pool_.take(size, lead)) {
      failed_ = true;
      return 0;
    }
    uint32_t *out = pool_.words() + lead;
    if constexpr (P::kLead > 0) out[0] = inherited;
    out += P::kLead;
    memcpy(out, &runs, sizeof runs);
    memcpy(out + 2, &inner, sizeof inner);
    out += kHeaderWords;
    for (uint64_t r = runs; r; r &= r - 1) *out++ = val[std::countr_zero(r)];
    return static_cast<uint32_t>(lead + P::kLead);
  }

  // Position of a node's first inner child's pool word.
  uint32_t first_child(uint32_t at) const {
    const uint32_t *n = pool_.words() + at;
    return at + kHeaderWords + static_cast<uint32_t>(std::popcount(runs(n)));
  }

  bool failed() const { return failed_; }

 private:
  const Item *items_;
  P &pool_;
  bool failed_ = false;
};

}  // namespace vds::fib

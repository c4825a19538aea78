// Compiles a list of prefixes (prefixes.h order) into a frozen table's root
// and node pool, in one walk. The pool grows by doubling while the walk
// writes it and is cut to its used size at the end, so it is copied about
// twice in all: cheaper than a second walk to count it first.
#pragma once

#include <stdint.h>

#include "fib/blocks.h"
#include "fib/node_writer.h"
#include "fib/prefixes.h"
#include "fib/table.h"

namespace vds::fib {

// The frozen table's pool: grows by doubling, no words in front of nodes.
template <class F>
class GrowingPool {
 public:
  static constexpr uint32_t kLead = 0;

  // t has no pool yet; n is the number of prefixes, for a first estimate.
  GrowingPool(Table *t, uint32_t n) : t_(t), n_(n) {}

  uint32_t *words() { return t_->pool; }
  bool take(uint32_t size, uint64_t &at) {
    if (!reserve(size)) return false;
    at = used_;
    used_ += size;
    return true;
  }
  // Cuts the pool to its used words.
  bool trim() { return used_ == t_->pool_words || resize(used_); }

 private:
  // Room for `more` words past the used ones, growing the pool to at least
  // twice its size (at first to an estimate from the number of prefixes).
  bool reserve(uint32_t more) {
    if (used_ + more <= t_->pool_words) return true;
    uint64_t want = 2 * uint64_t{t_->pool_words};
    if (want < 2 * uint64_t{n_} + 64) want = 2 * uint64_t{n_} + 64;
    if (want < used_ + more) want = used_ + more;
    return resize(want);
  }

  // Moves the used words into a pool of `words` words (none: no pool).
  bool resize(uint64_t words) {
    return resize_array<F>(t_->sz_ctx, t_->pool, t_->pool_words, words, used_,
                           F::kConstruct);
  }

  Table *t_;
  uint32_t n_;
  uint64_t used_ = 0;
};

// F is a family (construct.h): the table's shape and its allocation rule.
template <class F>
class Compiler {
 public:
  using Item = Prefix<F::kWords>;

  // t has its root arrays and no pool yet.
  Compiler(const Item *items, uint32_t n, Table *t)
      : items_(items), n_(n), t_(t), pool_(t, n), writer_(items, pool_) {}

  // False (the failure reported) when the pool could not be taken; t then
  // holds what was taken, for its destruct.
  bool run() {
    uint32_t *root = t_->root;
    for (uint32_t c = 0; c < F::kRootSlots; ++c) root[c] = t_->miss;
    for (uint32_t w = 0; w < F::kRootSlots / 32; ++w) t_->root_inner[w] = 0;
    writer_.paint(root, 0, F::kRootBits, 0, 0, n_);
    for (uint32_t i = 0; i < n_;) {
      if (items_[i].len <= F::kRootBits) {
        ++i;
        continue;
      }
      uint32_t c = Writer::root_slot(items_[i]), j = i + 1;
      while (j < n_ && Writer::root_slot(items_[j]) == c) ++j;
      uint32_t inherited = root[c];
      root[c] = writer_.node(F::kRootBits, i, j, inherited);
      if (writer_.failed()) return false;
      t_->root_inner[c >> 5] |= 1u << (c & 31);
      i = j;
    }
    return pool_.trim();
  }

 private:
  using Writer = NodeWriter<F, GrowingPool<F>>;

  const Item *items_;
  uint32_t n_;
  Table *t_;
  GrowingPool<F> pool_;
  Writer writer_;
};

}  // namespace vds::fib

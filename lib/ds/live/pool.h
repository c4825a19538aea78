// The node pool of a live table's version, as the node writer
// (fib/node_writer.h) takes words from it. Each node is kept after one
// word holding its inherited answer, which a later publish reads to
// rebuild part of the node's region. A published pool never moves (readers
// hold positions into it): a block is taken from the free blocks of its
// size, else from the unused words at the end, and when those run out the
// take fails (the publish then compacts the table into a new version). A
// version not yet published grows instead, moving to a block twice as
// large. Word 0 is never taken, so 0 names no block.
#pragma once

#include <stdint.h>

#include "fib/blocks.h"
#include "live/version.h"
#include "trie/blocks.h"

namespace vds::live {

// Words in front of each node: its inherited answer.
constexpr uint32_t kLeadWords = 1;

template <class F>
class Pool {
 public:
  static constexpr uint32_t kLead = kLeadWords;

  // free_blocks: the lists to take from, or null (a version not yet
  // published, which grows instead).
  Pool(Version *v, void *ctx, uint32_t *free_blocks, const char *op)
      : v_(v), ctx_(ctx), op_(op), free_(free_blocks) {}

  uint32_t *words() { return v_->pool; }
  bool take(uint32_t size, uint64_t &at) {
    if (free_ && free_[size]) {
      at = free_[size];
      free_[size] = v_->pool[at];
      return true;
    }
    uint64_t want = uint64_t{v_->used} + size;
    if (want > v_->pool_words) {
      if (free_) {
        full_ = true;
        return false;
      }
      uint64_t words = 2 * uint64_t{v_->pool_words};
      if (!resize(words < want ? want : words)) return false;
    }
    at = v_->used;
    v_->used = static_cast<uint32_t>(want);
    return true;
  }
  // Whether a take failed for want of room in a published pool (else for
  // want of memory, reported).
  bool full() const { return full_; }

  // Moves the used words into a block of `words` words; false (reported)
  // when it cannot be taken, the pool then as it was. A block's bytes fit
  // 32 bits, so node positions stay below kNode and a root word holds them.
  bool resize(uint64_t words) {
    return fib::resize_array<F>(ctx_, v_->pool, v_->pool_words, words, v_->used,
                                op_);
  }

 private:
  Version *v_;
  void *ctx_;
  const char *op_;
  uint32_t *free_;
  bool full_ = false;
};

}  // namespace vds::live

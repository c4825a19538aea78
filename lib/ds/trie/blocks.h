// Every block of a trie (record, arrays, iterators) comes from the
// size-class allocator when the trie has a context and the block fits its
// limit inclusive, else from the general heap; the release repeats the test
// with the same size, so each block returns to the allocator it came from.
#pragma once

#include <stdint.h>
#include <string.h>

#include "sz_block.h"

namespace vds::trie {

template <class F>
void *take(void *sz_ctx, uint32_t size) {
  return take_block<SzLimit::kAtMost>(sz_ctx, size, F::kModule, F::kLine);
}

template <class F>
void give(void *sz_ctx, void *block, uint32_t size) {
  give_block<SzLimit::kAtMost>(sz_ctx, block, size, F::kModule, F::kLine);
}

// Moves the first `keep` bytes of `block` into a new block of new_size
// bytes and releases the old one with old_size: how arrays are trimmed to
// their used part and how the node array grows. On failure `block` is left
// as it was.
template <class F, class T>
bool move_block(void *sz_ctx, T *&block, uint32_t old_size, uint32_t new_size,
                uint32_t keep) {
  void *moved = take<F>(sz_ctx, new_size);
  if (!moved) return false;
  memcpy(moved, block, keep);
  give<F>(sz_ctx, block, old_size);
  block = static_cast<T *>(moved);
  return true;
}

}  // namespace vds::trie

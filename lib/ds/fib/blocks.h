// Blocks of a compiled table: taken and given back by the trie's
// allocation rule (trie/blocks.h), every failure reported in the family's
// words.
#pragma once

#include <stdint.h>
#include <string.h>

#include "diag.h"
#include "trie/blocks.h"

namespace vds::fib {

// A block of count elements of the given size, or null (with the failure
// reported as the operation op's) when it cannot be taken or its size does
// not fit 32 bits.
template <class F>
void *take_array(void *ctx, uint64_t count, uint32_t size,
                 const char *op = F::kConstruct) {
  uint64_t bytes = count * size;
  void *block = bytes <= UINT32_MAX
                    ? trie::take<F>(ctx, static_cast<uint32_t>(bytes))
                    : nullptr;
  // The message names sc_kmalloc whichever allocator refused the block: its
  // text is fixed.
  if (!block)
    VDS_DIAG_AT(kFailure, F, "%s: sc_kmalloc(%llu) failed\n", op,
                static_cast<unsigned long long>(bytes));
  return block;
}

// Moves the first `used` elements of `block` (room for `cap`, or null)
// into a block with room for `room` (none when 0) and releases the old one.
// False when it cannot be taken, `block` then as it was: reported as op's
// failure when op is given, else left to the caller.
template <class F, class T>
bool resize_array(void *ctx, T *&block, uint32_t &cap, uint64_t room,
                  uint64_t used, const char *op) {
  T *moved = nullptr;
  if (room) {
    const uint64_t bytes = room * sizeof(T);
    moved = static_cast<T *>(
        op ? take_array<F>(ctx, room, uint32_t{sizeof(T)}, op)
        : bytes <= UINT32_MAX ? trie::take<F>(ctx, static_cast<uint32_t>(bytes))
                              : nullptr);
    if (!moved) return false;
    if (used) memcpy(moved, block, used * sizeof(T));
  }
  if (block) trie::give<F>(ctx, block, cap * uint32_t{sizeof(T)});
  block = moved;
  cap = static_cast<uint32_t>(room);
  return true;
}

// resize_array to twice the room (`first` when there was none).
template <class F, class T>
bool grow_array(void *ctx, T *&block, uint32_t &cap, uint32_t used,
                uint32_t first, const char *op) {
  return resize_array<F>(ctx, block, cap, cap ? 2 * uint64_t{cap} : first, used,
                         op);
}

}  // namespace vds::fib

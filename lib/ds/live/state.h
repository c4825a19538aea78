// Everything a live table holds. Readers touch only `current` and the
// reader slots; the rest is the writer's. F is a family (live.h).
#pragma once

#include <stdint.h>

#include <atomic>

#include "fib/prefixes.h"
#include "fib/table.h"
#include "live/readers.h"
#include "live/record.h"
#include "live/version.h"

namespace vds::live {

// The most words a node takes in a live pool: its inherited answer, the
// bitmaps and one word per child.
constexpr uint32_t kMaxNodeWords = 1 + fib::kHeaderWords + fib::kChildren;

// Pool words unlinked by a publish, reusable once every reader has reached
// the stamp.
struct Garbage {
  uint32_t at, words, stamp;
};

template <class F>
struct State {
  using Item = fib::Prefix<F::kWords>;

  // The version readers answer from, loaded with acquire by every lookup:
  // its root and pool were written before the release store of a publish
  // that compacts the table into a new version.
  std::atomic<Version *> current;
  Readers readers;
  uint32_t miss;
  void *sz_ctx;

  // The writer's side.
  Record<F> record;  // every prefix, staged changes included
  Item *staged;      // the prefixes changed since the last publish
  uint32_t n_staged, staged_cap;
  bool restage_all;  // too many staged: the next publish compiles all
  uint32_t *marks;   // per root slot, one bit: taken by this publish
  Item *scratch;     // a region's prefixes, copied out for the compiler
  uint32_t scratch_cap;
  ReaderSlot *reader_slots;
  Version *retired;  // oldest first
  Version *last_retired;
  // The current pool's unlinked words: waiting for the readers, oldest
  // first (garbage[garbage_first, n_garbage)), then free for reuse, one
  // list per block size linked through each block's first word (0 ends).
  Garbage *garbage;
  uint32_t garbage_first, n_garbage, garbage_cap;
  uint32_t free_blocks[kMaxNodeWords + 1];
  // The current pool's value nodes (values.h): pairs of answer and
  // position, open addressing, position 0 for an empty entry.
  uint32_t *values;
  uint32_t values_cap, n_values;
};

}  // namespace vds::live

// Everything a live table holds. Readers touch only `current` and the
// reader slots; the rest is the writer's. F is a family (live.h).
#pragma once

#include <stdint.h>

#include <atomic>

#include "fib/prefixes.h"
#include "live/readers.h"
#include "live/record.h"
#include "live/version.h"

namespace vds::live {

template <class F>
struct State {
  using Item = fib::Prefix<F::kWords>;

  // The version readers answer from. Replaced with a seq_cst store when a
  // publish compacts the table (see Readers::enter and retire), loaded with
  // acquire by every lookup: the version's root and pool were written before.
  std::atomic<Version *> current;
  Readers readers;
  uint32_t miss;
  void *sz_ctx;

  // The writer's side.
  Record<F> record;  // every prefix, staged changes included
  Item *staged;      // the prefixes changed since the last publish
  uint32_t n_staged, staged_cap;
  bool restage_all;  // too many staged: the next publish compiles all
  uint32_t *base;    // per root slot: the answer of the longest prefix
                     // of at most kRootBits bits covering it, else miss
  uint32_t *marks;   // per root slot, one bit: taken by this publish
  Item *scratch;     // a region's prefixes, copied out for the compiler
  uint32_t scratch_cap;
  ReaderSlot *reader_slots;
  Version *retired;  // oldest first
  Version *last_retired;
};

}  // namespace vds::live

// Reader registration and quiescence for a live table, and the epochs that
// say when a block the writer unlinked can no longer be seen.
//
// Each reader slot holds 0 (free) or the epoch its reader last declared
// itself quiescent at (odd: the epoch starts at 1 and advances by 2, so a
// registered slot is never 0). Whatever the writer unlinks is stamped with
// the epoch after the current one and may be reused or given back once
// every slot is free or holds that epoch or a later one. Epochs are 32-bit,
// lock-free everywhere and compared wrap-safe: the writer never advances
// the epoch more than 2^30 past the oldest a reader holds, so a reader
// that never reports can hold blocks back but never wrap around.
#pragma once

#include <stdint.h>

#include <atomic>
#include <new>

namespace vds::live {

// Whether epoch a is b or later.
inline bool reached(uint32_t a, uint32_t b) {
  return static_cast<int32_t>(a - b) >= 0;
}

struct ReaderSlot {
  std::atomic<uint32_t> seen;
  uint32_t pad[15];  // one slot per cache line: readers do not share lines
};

class Readers {
 public:
  // slots: room for n slots, all made free.
  void init(ReaderSlot *slots, uint32_t n) {
    slots_ = slots;
    n_ = n;
    for (uint32_t i = 0; i < n; ++i)
      new (&slots[i].seen) std::atomic<uint32_t>(0);
    new (&epoch_) std::atomic<uint32_t>(1);
    oldest_ = 1;
  }
  uint32_t count() const { return n_; }

  // A free slot's index, or -1. acq_rel on the claim: a writer's scan that
  // found the slot free did a release RMW on it (oldest()), so everything
  // the writer unlinked before that scan is unreachable to this reader.
  int enter() {
    for (uint32_t i = 0; i < n_; ++i) {
      uint32_t free = 0;
      // acquire: pairs with advance(), as in quiescent().
      uint32_t now = epoch_.load(std::memory_order_acquire);
      if (slots_[i].seen.compare_exchange_strong(free, now,
                                                 std::memory_order_acq_rel))
        return static_cast<int>(i);
    }
    return -1;
  }
  bool registered(int r) const {
    return r >= 0 && static_cast<uint32_t>(r) < n_ &&
           slots_[r].seen.load(std::memory_order_relaxed) != 0;
  }
  // release: every read this reader made before happens before the
  // writer's acquire of the slot in oldest(), and so before any reuse.
  void leave(int r) { slots_[r].seen.store(0, std::memory_order_release); }
  void quiescent(int r) {
    // acquire: having seen epoch e, the reader's later loads see every
    // unlink stamped e or earlier (advance() follows them).
    uint32_t now = epoch_.load(std::memory_order_acquire);
    slots_[r].seen.store(now, std::memory_order_release);
  }

  // Writer: the stamp for what it has just unlinked (made unreachable with
  // release stores): the next epoch. It is started at once unless a
  // reader lags 2^30 behind; then the stamp waits for a later advance.
  uint32_t advance() {
    uint32_t now = epoch_.load(std::memory_order_relaxed);
    uint32_t stamp = now + 2;
    if (reached(oldest_ + (1u << 30), stamp))
      // release: readers that see the new epoch see the unlinks before it.
      epoch_.store(stamp, std::memory_order_release);
    return stamp;
  }
  // Writer: the oldest epoch a registered reader may still hold things
  // from (the current epoch when none does), remembered for advance().
  uint32_t oldest() {
    uint32_t oldest = epoch_.load(std::memory_order_relaxed);
    for (uint32_t i = 0; i < n_; ++i) {
      // acquire: pairs with the reader's release in quiescent() and leave().
      uint32_t seen = slots_[i].seen.load(std::memory_order_acquire);
      if (!seen) {
        // A release RMW on a free slot: a reader that claims it later
        // acquires it (enter()) and so sees what was unlinked before.
        if (slots_[i].seen.compare_exchange_strong(seen, 0,
                                                   std::memory_order_acq_rel))
          continue;
      }
      if (!reached(seen, oldest)) oldest = seen;
    }
    oldest_ = oldest;
    return oldest;
  }

 private:
  ReaderSlot *slots_;
  uint32_t n_;
  uint32_t oldest_;  // the writer's last scan
  std::atomic<uint32_t> epoch_;
};

}  // namespace vds::live

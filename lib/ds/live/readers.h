// Reader registration and quiescence for a live table, and the epochs that
// say when a block a publish replaced can no longer be seen.
//
// Each reader slot holds 0 (free) or the epoch its reader last declared
// itself quiescent at (odd: the epoch starts at 1 and advances by 2, so a
// registered slot is never 0). A retired block is stamped with the epoch
// its retirement began; it may be given back once every slot is free or
// holds that epoch or a later one. Epochs are 32-bit, lock-free everywhere,
// and compared wrap-safe.
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
  // slots: max room for n slots, all free.
  void init(ReaderSlot *slots, uint32_t n) {
    slots_ = slots;
    n_ = n;
    for (uint32_t i = 0; i < n; ++i)
      new (&slots[i].seen) std::atomic<uint32_t>(0);
    new (&epoch_) std::atomic<uint32_t>(1);
  }
  uint32_t count() const { return n_; }

  // A free slot's index, or -1. `current` is the atomic the readers load
  // the published version from: loading it seq_cst after the slot's
  // seq_cst claim makes the Dekker pair with retire(): either the writer's
  // scan sees this slot taken, or this reader's loads of `current` see
  // whatever the writer retired in favour of.
  template <class Current>
  int enter(const Current &current) {
    for (uint32_t i = 0; i < n_; ++i) {
      uint32_t free = 0;
      // acquire: the epoch value pairs with retire()'s increment.
      uint32_t now = epoch_.load(std::memory_order_acquire);
      if (slots_[i].seen.compare_exchange_strong(free, now,
                                                 std::memory_order_seq_cst)) {
        (void)current.load(std::memory_order_seq_cst);
        return static_cast<int>(i);
      }
    }
    return -1;
  }
  bool registered(int r) const {
    return r >= 0 && static_cast<uint32_t>(r) < n_ &&
           slots_[r].seen.load(std::memory_order_relaxed) != 0;
  }
  // release: every read this reader made before (of blocks the writer may
  // give back once it sees this store) happens before the writer's acquire
  // load of the slot in oldest().
  void leave(int r) { slots_[r].seen.store(0, std::memory_order_release); }
  void quiescent(int r) {
    // acquire: having seen epoch e, the reader's later loads of the
    // published version see the one that replaced what e retired.
    uint32_t now = epoch_.load(std::memory_order_acquire);
    slots_[r].seen.store(now, std::memory_order_release);
  }

  // Writer: after publishing a new version (seq_cst), starts the epoch
  // that what it replaced is stamped with. seq_cst: ordered after that
  // store for the readers' enter(), and before the slot scans that follow.
  uint32_t retire() {
    return epoch_.fetch_add(2, std::memory_order_seq_cst) + 2;
  }
  // Writer: the oldest epoch a registered reader may still hold things
  // from (the current epoch when none does).
  uint32_t oldest() const {
    uint32_t oldest = epoch_.load(std::memory_order_relaxed);
    for (uint32_t i = 0; i < n_; ++i) {
      // seq_cst: the scan half of the Dekker pair with enter(); it also
      // acquires the reader's release in quiescent() and leave().
      uint32_t seen = slots_[i].seen.load(std::memory_order_seq_cst);
      if (seen && !reached(seen, oldest)) oldest = seen;
    }
    return oldest;
  }

 private:
  ReaderSlot *slots_;
  uint32_t n_;
  std::atomic<uint32_t> epoch_;
};

}  // namespace vds::live

// A C iterator's items copied into one block from the host's heap: a
// contiguous range, so it is multi-pass, common (begin and end of one
// type) and iterable through a const reference, and it stays valid
// whatever later happens to the table it was read from.
#pragma once

#include <stdint.h>

#include <memory>
#include <type_traits>

#include "vell/handle.hpp"

namespace vell {

// Copies of Value, read once. Tests false (and holds nothing) when the C
// iterator or the block could not be had.
template <typename Value>
class snapshot {
  static_assert(std::is_trivially_destructible_v<Value>);

 public:
  using value_type = Value;
  using iterator = const Value *;
  using const_iterator = const Value *;

  snapshot() = default;

  explicit operator bool() const noexcept { return ok_; }
  const Value *begin() const noexcept { return block_.get(); }
  const Value *end() const noexcept { return block_.get() + n_; }
  uint32_t size() const noexcept { return n_; }
  bool empty() const noexcept { return n_ == 0; }
  const Value &operator[](uint32_t i) const noexcept { return begin()[i]; }

  // Room for at most max values; fails (tests false) when the block cannot
  // be had. Step(value) fills the next one and returns false at the end.
  template <typename Step>
  static snapshot read(uint64_t max, Step step) noexcept {
    snapshot s;
    s.block_ = detail::host_array<Value>(max);
    if (max && !s.block_.get()) return s;
    for (Value *p = s.block_.get(); s.n_ < max; ++s.n_)
      if (!step(*std::construct_at(p + s.n_))) break;
    s.ok_ = true;
    return s;
  }
  // Keeps the first n values.
  void truncate(uint32_t n) noexcept {
    if (n < n_) n_ = n;
  }
  Value *data() noexcept { return block_.get(); }

 private:
  detail::host_array<Value> block_{0};
  uint32_t n_ = 0;
  bool ok_ = false;
};

}  // namespace vell

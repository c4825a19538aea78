// A C iterator as a C++ range: a single pass, owning the iterator.
#pragma once

#include <cstddef>
#include <iterator>

#include "vell/handle.hpp"

namespace vell {

// Step(it, value) advances the C iterator and fills value, returning false
// at the end. The range tests false (and yields nothing) when the C
// iterator could not be made.
template <typename Iter, auto Destruct, typename Value, auto Step>
class walk {
 public:
  class iterator {
   public:
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    iterator() = default;
    explicit iterator(Iter *it) noexcept : it_(it) { ++*this; }
    const Value &operator*() const noexcept { return cur_; }
    const Value *operator->() const noexcept { return &cur_; }
    iterator &operator++() noexcept {
      if (it_ && !Step(it_, cur_)) it_ = nullptr;
      return *this;
    }
    void operator++(int) noexcept { ++*this; }
    friend bool operator==(const iterator &i,
                           std::default_sentinel_t) noexcept {
      return !i.it_;
    }

   private:
    Iter *it_ = nullptr;
    Value cur_{};
  };

  explicit walk(Iter *it) noexcept : it_(it) {}
  explicit operator bool() const noexcept { return bool(it_); }
  iterator begin() noexcept { return iterator(it_.get()); }
  std::default_sentinel_t end() const noexcept { return {}; }

 private:
  handle<Iter, Destruct> it_;
};

}  // namespace vell

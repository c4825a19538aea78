// A typed vector over sc_vector: elements stored by value in one contiguous
// block, so the range is contiguous and standard algorithms work on it.
#pragma once

#include <stdint.h>

#include <optional>
#include <type_traits>

#include "sc_vector.h"
#include "vell/handle.hpp"

namespace vell {

// Move-only; tests false after a move, and then reads as empty and refuses
// every addition.
template <typename T>
requires std::is_trivially_copyable_v<T>
class vector {
  static_assert(alignof(T) <= detail::kHostAlignment,
                "elements need more alignment than host blocks have");

 public:
  using value_type = T;
  using iterator = T *;
  using const_iterator = const T *;

  // resize_factor: growth in percent (0 selects 50). Empty when the vector
  // cannot be made.
  [[nodiscard]] static std::optional<vector> create(
      uint32_t initial = 0, int resize_factor = 0,
      void *sz_ctx = nullptr) noexcept {
    return wrap(
        sc_vector_szconstruct(sz_ctx, initial, sizeof(T), resize_factor),
        kUnlimited);
  }
  // A vector that never holds more than capacity elements (the C vector
  // may round its slots up; the handle still refuses the element past
  // capacity).
  [[nodiscard]] static std::optional<vector> create_fixed(
      uint32_t capacity, void *sz_ctx = nullptr) noexcept {
    return wrap(sc_vector_szconstruct_no_grow(sz_ctx, capacity, sizeof(T)),
                capacity);
  }
  // The same elements, growth and capacity in a vector of its own.
  [[nodiscard]] std::optional<vector> copy() const noexcept {
    if (!v_) return std::nullopt;
    return wrap(sc_vector_copy(v_.get()), limit_);
  }

  explicit operator bool() const noexcept { return bool(v_); }

  // False (the vector unchanged) when it is full and cannot grow.
  [[nodiscard]] bool push_back(const T &x) noexcept {
    return room_for(1) && sc_vector_add(v_.get(), &x) == 0;
  }
  // Appends every element of other; false when an addition failed (those
  // before it stay), or, taking nothing, when they pass a fixed capacity.
  [[nodiscard]] bool append(const vector &other) noexcept {
    return room_for(other.size()) &&
           sc_vector_append(v_.get(), other.v_.get()) == 0;
  }
  // Drops the last element; nothing when empty.
  void pop_back() noexcept {
    if (!empty()) --v_.get()->nElements;
  }
  void clear() noexcept {
    if (v_) v_.get()->nElements = 0;
  }
  // Keeps the first n elements, or adds copies of fill up to n; false (the
  // vector unchanged) when it cannot hold n.
  [[nodiscard]] bool resize(uint32_t n, const T &fill = T{}) noexcept {
    uint32_t had = size();
    if (n > had && !room_for(n - had)) return false;
    while (size() < n)
      if (sc_vector_add(v_.get(), &fill) != 0) {
        v_.get()->nElements = had;
        return false;
      }
    if (v_) v_.get()->nElements = n;
    return true;
  }
  // Makes room for n elements without changing them; false when it cannot.
  // sc_vector has no call for that: the slots are grown by additions,
  // which are then dropped.
  [[nodiscard]] bool reserve(uint32_t n) noexcept {
    if (!v_) return false;
    uint32_t had = size();
    if (n <= capacity()) return true;
    bool ok = resize(n);
    v_.get()->nElements = had;
    return ok;
  }
  // Releases the unused slots; false when the smaller block is not had.
  [[nodiscard]] bool shrink_to_fit() noexcept {
    return v_ && sc_vector_compact(v_.get()) == 0;
  }

  T *data() noexcept {
    return v_ ? static_cast<T *>(v_.get()->elements) : nullptr;
  }
  const T *data() const noexcept {
    return v_ ? static_cast<const T *>(v_.get()->elements) : nullptr;
  }
  uint32_t size() const noexcept { return v_ ? v_.get()->nElements : 0; }
  // Slots held, at most a fixed vector's capacity.
  uint32_t capacity() const noexcept {
    uint32_t slots = v_ ? sc_vector_get_nalloc(v_.get()) : 0;
    return slots < limit_ ? slots : limit_;
  }
  bool empty() const noexcept { return size() == 0; }
  T &operator[](uint32_t i) noexcept { return data()[i]; }
  const T &operator[](uint32_t i) const noexcept { return data()[i]; }
  T *begin() noexcept { return data(); }
  T *end() noexcept { return data() + size(); }
  const T *begin() const noexcept { return data(); }
  const T *end() const noexcept { return data() + size(); }

  sc_vector *get() const noexcept { return v_.get(); }

 private:
  static constexpr uint32_t kUnlimited = UINT32_MAX;

  vector(sc_vector *v, uint32_t limit) noexcept : v_(v), limit_(limit) {}
  static std::optional<vector> wrap(sc_vector *v, uint32_t limit) noexcept {
    if (!v) return std::nullopt;
    return vector(v, limit);
  }
  // Whether n more elements stay within a fixed capacity.
  bool room_for(uint32_t n) const noexcept {
    return v_ && n <= limit_ - size();
  }
  handle<sc_vector, sc_vector_destruct> v_;
  uint32_t limit_ = 0;
};

}  // namespace vell

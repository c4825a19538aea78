// A typed vector over sc_vector: elements stored by value in one contiguous
// block, so the range is contiguous and standard algorithms work on it.
#pragma once

#include <stdint.h>

#include <optional>
#include <type_traits>

#include "sc_vector.h"
#include "vell/handle.hpp"

namespace vell {

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
  static std::optional<vector> create(uint32_t initial = 0,
                                      int resize_factor = 0,
                                      void *sz_ctx = nullptr) noexcept {
    return wrap(
        sc_vector_szconstruct(sz_ctx, initial, sizeof(T), resize_factor));
  }
  // A vector that never grows past capacity.
  static std::optional<vector> create_fixed(uint32_t capacity,
                                            void *sz_ctx = nullptr) noexcept {
    return wrap(sc_vector_szconstruct_no_grow(sz_ctx, capacity, sizeof(T)));
  }
  std::optional<vector> copy() const noexcept {
    return wrap(sc_vector_copy(v_.get()));
  }

  // False (the vector unchanged) when it is full and cannot grow.
  bool push_back(const T &x) noexcept {
    return sc_vector_add(v_.get(), &x) == 0;
  }
  // Appends every element of other; false when an addition failed (those
  // before it stay).
  bool append(const vector &other) noexcept {
    return sc_vector_append(v_.get(), other.v_.get()) == 0;
  }
  // Releases the unused slots; false when the smaller block is not had.
  bool shrink_to_fit() noexcept { return sc_vector_compact(v_.get()) == 0; }

  T *data() noexcept { return static_cast<T *>(v_.get()->elements); }
  const T *data() const noexcept {
    return static_cast<const T *>(v_.get()->elements);
  }
  uint32_t size() const noexcept { return v_.get()->nElements; }
  uint32_t capacity() const noexcept { return sc_vector_get_nalloc(v_.get()); }
  bool empty() const noexcept { return size() == 0; }
  T &operator[](uint32_t i) noexcept { return data()[i]; }
  const T &operator[](uint32_t i) const noexcept { return data()[i]; }
  T *begin() noexcept { return data(); }
  T *end() noexcept { return data() + size(); }
  const T *begin() const noexcept { return data(); }
  const T *end() const noexcept { return data() + size(); }

  sc_vector *get() const noexcept { return v_.get(); }

 private:
  explicit vector(sc_vector *v) noexcept : v_(v) {}
  static std::optional<vector> wrap(sc_vector *v) noexcept {
    if (!v) return std::nullopt;
    return vector(v);
  }
  handle<sc_vector, sc_vector_destruct> v_;
};

}  // namespace vell

// Ownership of C records, and the host services the C++ layer itself uses.
#pragma once

#include <inttypes.h>
#include <stdint.h>

#include <cstddef>
#include <utility>

#include "sc_host.h"

namespace vell {

// Owns one C record and releases it with Destruct when it goes out of
// scope. Move-only; an empty handle (after a move) tests false.
template <typename T, auto Destruct>
class handle {
 public:
  handle() = default;
  explicit handle(T *p) noexcept : p_(p) {}
  handle(handle &&o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  handle &operator=(handle &&o) noexcept {
    if (this != &o) {
      reset();
      p_ = std::exchange(o.p_, nullptr);
    }
    return *this;
  }
  ~handle() { reset(); }

  explicit operator bool() const noexcept { return p_ != nullptr; }
  T *get() const noexcept { return p_; }
  [[nodiscard]] T *release() noexcept { return std::exchange(p_, nullptr); }
  void reset() noexcept {
    if (p_) Destruct(std::exchange(p_, nullptr));
  }

 private:
  T *p_ = nullptr;
};

namespace detail {

// The alignment the layer relies on for blocks from the host's heap, the
// default host module's.
constexpr size_t kHostAlignment = 8;

// Reports a failure of the layer itself through the host's diagnostic
// channel, at the library's failure level and under the same gate.
template <typename... A>
void report(const char *fmt, A... args) noexcept {
  constexpr int kFailure = 2;
  if (__sc_debug_level < kFailure) return;
  int printed = __sc_print_prefix(kFailure, "vell", 0);
  __sc_print_val = printed + __sc_print_msg(fmt, args...);
}

// A block of n T's from the host's general heap, released to it with the
// size it was taken with; empty (and reported) when it cannot be had.
template <typename T>
class host_array {
 public:
  explicit host_array(uint64_t n) noexcept {
    uint64_t bytes = n * sizeof(T);
    if (n == 0) return;
    if (bytes / sizeof(T) != n || bytes > UINT32_MAX) {
      report("vell: %" PRIu64 " elements do not fit a 32-bit block\n", n);
      return;
    }
    p_ = static_cast<T *>(__sc_kmalloc(static_cast<uint32_t>(bytes)));
    if (!p_) {
      report("vell: sc_kmalloc(%u) failed\n", static_cast<unsigned>(bytes));
      return;
    }
    size_ = static_cast<uint32_t>(bytes);
  }
  host_array(host_array &&o) noexcept
      : p_(std::exchange(o.p_, nullptr)), size_(std::exchange(o.size_, 0)) {}
  host_array &operator=(host_array &&o) noexcept {
    if (this != &o) {
      release();
      p_ = std::exchange(o.p_, nullptr);
      size_ = std::exchange(o.size_, 0);
    }
    return *this;
  }
  ~host_array() { release(); }
  T *get() const noexcept { return p_; }

 private:
  void release() noexcept {
    if (p_) __sc_kfree(std::exchange(p_, nullptr), size_);
  }
  T *p_ = nullptr;
  uint32_t size_ = 0;
};

}  // namespace detail
}  // namespace vell

// An owning size-class context of the default host module
// (libvell-ds-host.a): the context the forwarding-side tables and the
// timer set draw their small blocks from.
#pragma once

#include <stdint.h>

#include <optional>
#include <utility>

#include "sc_host_default.h"
#include "vell/handle.hpp"

namespace vell {

// Move-only; destroying it destroys the context, which by then must lend no
// block to a table or timer set (the host reports one that does, and keeps
// its blocks valid). Tests false after a move.
class sz_context {
 public:
  // What create() serves by default: room for the timer wheel's records
  // and small hash elements. Larger hash elements and trie blocks come from
  // the general heap.
  static constexpr uint32_t default_max_alloc = 4096;

  sz_context() = default;
  // A context serving blocks of up to max_alloc bytes; empty (reported)
  // when it cannot be made.
  [[nodiscard]] static std::optional<sz_context> create(
      uint32_t max_alloc = default_max_alloc) noexcept {
    void *c = sc_host_ctx_create(max_alloc);
    if (!c) {
      detail::report("vell: sc_host_ctx_create(%u) failed\n", max_alloc);
      return std::nullopt;
    }
    return sz_context(c, sc_host_ctx_destroy);
  }
  sz_context(sz_context &&o) noexcept
      : c_(std::exchange(o.c_, nullptr)),
        destroy_(std::exchange(o.destroy_, nullptr)) {}
  sz_context &operator=(sz_context &&o) noexcept {
    if (this != &o) {
      reset();
      c_ = std::exchange(o.c_, nullptr);
      destroy_ = std::exchange(o.destroy_, nullptr);
    }
    return *this;
  }
  ~sz_context() { reset(); }

  explicit operator bool() const noexcept { return c_ != nullptr; }
  // The sz_ctx argument of the C calls and of the layer's factories.
  void *get() const noexcept { return c_; }
  void reset() noexcept {
    if (c_) destroy_(std::exchange(c_, nullptr));
  }

 private:
  // The destroy call is kept as a pointer, so a program on a host of its
  // own that never makes a context needs no default-host symbol.
  sz_context(void *c, uint64_t (*destroy)(void *)) noexcept
      : c_(c), destroy_(destroy) {}
  void *c_ = nullptr;
  uint64_t (*destroy_)(void *) = nullptr;
};

namespace detail {

// A C record (released with Destruct) and, when it was made on one of its
// own, the context it draws on: the record goes first, on destruction and
// on assignment. Tests false when it holds no record.
template <typename T, auto Destruct>
class record_on_context {
 public:
  record_on_context() = default;
  explicit record_on_context(T *t) noexcept : t_(t) {}
  // The record make(ctx) makes on a new context, which it then keeps;
  // empty when either cannot be made.
  template <typename Make>
  static record_on_context on_own_context(Make make) noexcept {
    std::optional<sz_context> ctx = sz_context::create();
    if (!ctx) return {};
    record_on_context r(make(ctx->get()));
    if (r) r.ctx_ = std::move(*ctx);
    return r;
  }
  record_on_context(record_on_context &&) noexcept = default;
  record_on_context &operator=(record_on_context &&o) noexcept {
    t_ = std::move(o.t_);
    ctx_ = std::move(o.ctx_);
    return *this;
  }

  explicit operator bool() const noexcept { return bool(t_); }
  T *get() const noexcept { return t_.get(); }

 private:
  sz_context ctx_;
  handle<T, Destruct> t_;
};

}  // namespace detail
}  // namespace vell

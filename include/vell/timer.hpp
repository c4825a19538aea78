// The timer wheel: an owning handle of the set, and timers that run any
// callable. A timer's callable lives in one block from the host's general
// heap, taken at arming and released with the timer handle (after its run,
// when the handle goes while the callable runs).
#pragma once

#include <stdint.h>

#include <chrono>
#include <concepts>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "sc_ktimer.h"
#include "vell/context.hpp"
#include "vell/handle.hpp"

namespace vell {

class timer_set;

// A timer and its callable. Move-only; destroying an armed timer cancels
// it. Tests false when arming failed and after a move. A timer must be
// destroyed before its set, which releases the C timers still pending.
// Its own callable may cancel, reset, destroy or reassign it.
class timer {
  struct node {
    sc_ktimers *set;
    sc_ktimer *timer;  // null once fired or cancelled
    uint32_t secs;
    uint32_t size;
    bool running;   // the callable is running
    bool released;  // the handle let go while it ran
    void (*run)(node *);
    void (*destroy)(node *);
  };
  static bool cancel(node *n) noexcept {
    if (!n || !n->timer) return false;
    sc_ktimer_cancel(std::exchange(n->timer, nullptr));
    return true;
  }
  static void free_node(node *n) noexcept {
    uint32_t size = n->size;
    n->destroy(n);
    __sc_kfree(n, size);
  }
  static void release(node *n) noexcept {
    cancel(n);
    if (n->running)
      n->released = true;  // fire() frees it once the callable returns
    else
      free_node(n);
  }

 public:
  timer() = default;

  explicit operator bool() const noexcept { return bool(node_); }
  // Until it fires or is cancelled.
  bool armed() const noexcept { return node_ && node_.get()->timer; }
  // Arms the timer again with its timeout from now, whether it is pending,
  // fired or cancelled; false when the timer tests false or the C timer
  // cannot be made (reported by the library).
  bool reset() noexcept {
    node *n = node_.get();
    if (!n) return false;
    if (n->timer) return sc_ktimer_reset(n->timer) == 0;
    n->timer = sc_ktimer_create(n->set, n->secs, fire, n);
    return n->timer != nullptr;
  }
  // False when not armed.
  bool cancel() noexcept { return cancel(node_.get()); }

 private:
  friend class timer_set;
  template <typename F>
  struct node_with : node {
    F fn;
  };

  template <typename F>
  static timer arm(sc_ktimers *set, uint32_t secs, F &&fn) noexcept {
    using N = node_with<std::decay_t<F>>;
    static_assert(alignof(N) <= detail::kHostAlignment,
                  "the callable needs more alignment than host blocks have");
    void *block = __sc_kmalloc(sizeof(N));
    if (!block) {
      detail::report("vell: sc_kmalloc(%zu) failed\n", sizeof(N));
      return {};
    }
    N *n = new (block)
        N{{set, nullptr, secs, sizeof(N), false, false, run<N>, destroy<N>},
          std::forward<F>(fn)};
    timer t(n);
    if (!t.reset()) t.node_.reset();
    return t;
  }
  // The C timer is gone once it fires: the node forgets it first, so the
  // callable may cancel (false) or reset its own handle.
  static void fire(void *arg) noexcept {
    node *n = static_cast<node *>(arg);
    n->timer = nullptr;
    n->running = true;
    n->run(n);
    n->running = false;
    if (n->released) free_node(n);
  }
  template <typename N>
  static void run(node *n) {
    static_cast<N *>(n)->fn();
  }
  template <typename N>
  static void destroy(node *n) {
    static_cast<N *>(n)->~N();
  }

  explicit timer(node *n) noexcept : node_(n) {}
  handle<node, release> node_;
};

// Move-only; tests false after a move, and then arms nothing and fires
// nothing.
class timer_set {
 public:
  // Timers and their cells come from the size-class context sz_ctx, which
  // must outlive the set. Empty (reported) without a context.
  [[nodiscard]] static std::optional<timer_set> create(void *sz_ctx) noexcept {
    if (!sz_ctx) {
      detail::report("vell: a timer set needs a size-class context\n");
      return std::nullopt;
    }
    return wrap(set(sc_ktimers_construct(sz_ctx)));
  }
  // A set on a size-class context of its own from the default host module
  // (vell/context.hpp), released with the set.
  [[nodiscard]] static std::optional<timer_set> create() noexcept {
    return wrap(set::on_own_context(sc_ktimers_construct));
  }

  explicit operator bool() const noexcept { return bool(s_); }

  // A timer that calls fn() once, timeout from now (whole seconds, at most
  // UINT32_MAX), from a poll. Tests false (reported) when it cannot be
  // armed.
  template <std::invocable F>
  [[nodiscard]] timer add(std::chrono::seconds timeout, F &&fn) noexcept {
    long long secs = timeout.count();
    if (secs < 0 || secs > 0xFFFFFFFFll) {
      detail::report("vell: timeout of %lld s is out of range\n", secs);
      return {};
    }
    if (!s_) return {};
    return timer::arm(s_.get(), static_cast<uint32_t>(secs),
                      std::forward<F>(fn));
  }
  // Fires the due timers, or every pending one with fire_all, at most
  // limit of them (0: no limit); returns how many fired.
  int poll(int limit = 0, bool fire_all = false) noexcept {
    return s_ ? sc_ktimers_poll_ex(s_.get(), limit, fire_all) : 0;
  }
  sc_ktimers *get() const noexcept { return s_.get(); }

 private:
  using set = detail::record_on_context<sc_ktimers, sc_ktimers_destruct>;
  explicit timer_set(set s) noexcept : s_(std::move(s)) {}
  static std::optional<timer_set> wrap(set s) noexcept {
    if (!s) return std::nullopt;
    return timer_set(std::move(s));
  }
  set s_;
};

}  // namespace vell

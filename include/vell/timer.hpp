// The timer wheel: an owning handle of the set, and timers that run any
// callable. A timer's callable lives in one block from the host's general
// heap, taken at arming and released with the timer handle.
#pragma once

#include <stdint.h>

#include <concepts>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "sc_ktimer.h"
#include "vell/handle.hpp"

namespace vell {

class timer_set;

// One armed timer and its callable. Move-only; destroying an armed timer
// cancels it. Tests false when arming failed. A timer must be destroyed
// before its set, which releases the C timers still pending.
class timer {
  struct node {
    sc_ktimer *timer;  // null once fired or cancelled
    void (*run)(node *);
    void (*destroy)(node *);
    uint32_t size;
  };
  static bool cancel(node *n) noexcept {
    if (!n || !n->timer) return false;
    sc_ktimer_cancel(std::exchange(n->timer, nullptr));
    return true;
  }
  static void release(node *n) noexcept {
    cancel(n);
    uint32_t size = n->size;
    n->destroy(n);
    __sc_kfree(n, size);
  }

 public:
  timer() = default;

  explicit operator bool() const noexcept { return bool(node_); }
  // Until it fires or is cancelled.
  bool armed() const noexcept { return node_ && node_.get()->timer; }
  // Re-arms with the same timeout from now; false when not armed.
  bool reset() noexcept {
    return armed() && sc_ktimer_reset(node_.get()->timer) == 0;
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
      detail::report("vell: sc_kmalloc(%u) failed\n",
                     static_cast<unsigned>(sizeof(N)));
      return {};
    }
    N *n = new (block)
        N{{nullptr, run<N>, destroy<N>, sizeof(N)}, std::forward<F>(fn)};
    timer t(n);
    n->timer = sc_ktimer_create(set, secs, fire, n);
    if (!n->timer) t.node_.reset();
    return t;
  }
  // The C timer is gone once it fires: the node forgets it first, so the
  // callable may cancel or reset its own handle (both then return false).
  static void fire(void *arg) noexcept {
    node *n = static_cast<node *>(arg);
    n->timer = nullptr;
    n->run(n);
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

class timer_set {
 public:
  // Timers and their cells come from the size-class context sz_ctx, which
  // the set needs.
  static std::optional<timer_set> create(void *sz_ctx) noexcept {
    sc_ktimers *s = sc_ktimers_construct(sz_ctx);
    if (!s) return std::nullopt;
    return timer_set(s);
  }

  // A timer that calls fn() once, secs seconds from now, from a poll.
  template <std::invocable F>
  timer add(uint32_t secs, F &&fn) noexcept {
    return timer::arm(s_.get(), secs, std::forward<F>(fn));
  }
  // Fires the due timers, or every pending one with fire_all, at most
  // limit of them (0: no limit); returns how many fired.
  int poll(int limit = 0, bool fire_all = false) noexcept {
    return sc_ktimers_poll_ex(s_.get(), limit, fire_all);
  }
  sc_ktimers *get() const noexcept { return s_.get(); }

 private:
  explicit timer_set(sc_ktimers *s) noexcept : s_(s) {}
  handle<sc_ktimers, sc_ktimers_destruct> s_;
};

}  // namespace vell

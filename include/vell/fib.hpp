// Owning handles of the compiled forwarding tables: read-only lookup
// tables compiled from a finished trie, which answer as the trie does
// (std::nullopt for a miss, the data word given at build time otherwise).
#pragma once

#include <stdint.h>

#include <optional>
#include <span>

#include "vell/handle.hpp"
#include "vell/trie.hpp"

namespace vell {

template <typename F>
class basic_fib {
 public:
  using addr_type = typename F::addr;

  // Compiles trie, which may then be destroyed first. Empty when the C
  // compile fails (reported by the library).
  static std::optional<basic_fib> compile(const basic_trie<F> &trie,
                                          void *sz_ctx = nullptr) noexcept {
    // The trie's words are data + 1, so a miss answering 0 decodes as the
    // trie's own lookups do.
    typename F::fib *f = F::fib_construct(sz_ctx, trie.get(), 0);
    if (!f) return std::nullopt;
    return basic_fib(f);
  }

  std::optional<uint32_t> lookup(const addr_type &a) const noexcept {
    return detail::decode(F::fib_lookup(f_.get(), F::key(a)));
  }
  // out[i] = lookup(keys[i]) for every i below the smaller size.
  void lookup(std::span<const addr_type> keys,
              std::span<std::optional<uint32_t>> out) const noexcept {
    detail::lookup_batches<F>(f_.get(), F::fib_lookup_bulk, keys, out);
  }
  uint32_t memory_usage() const noexcept {
    return F::fib_memory_usage(f_.get());
  }
  typename F::fib *get() const noexcept { return f_.get(); }

 private:
  explicit basic_fib(typename F::fib *f) noexcept : f_(f) {}
  handle<typename F::fib, F::fib_destruct> f_;
};

using fib4 = basic_fib<detail::trie4_family>;
using fib6 = basic_fib<detail::trie6_family>;

}  // namespace vell

// Owning handles of the compiled forwarding tables: read-only lookup
// tables compiled from a finished trie, which answer as the trie does
// (std::nullopt for a miss, the data word given at build time otherwise).
#pragma once

#include <stdint.h>

#include <optional>

#include "vell/handle.hpp"
#include "vell/trie.hpp"

namespace vell {
namespace detail {

template <typename F>
using fib_table =
    lookup_table<F, typename F::fib, F::fib_destruct, F::fib_lookup,
                 F::fib_lookup_bulk, F::fib_memory_usage>;

}  // namespace detail

template <trie_family F>
class basic_fib : public detail::fib_table<F> {
 public:
  // Compiles trie, which may then be destroyed first. Empty when the C
  // compile fails (reported by the library).
  [[nodiscard]] static std::optional<basic_fib> compile(
      const basic_trie<F> &trie, void *sz_ctx = nullptr) noexcept {
    // The trie's words are data + 1, so a miss answering 0 decodes as the
    // trie's own lookups do.
    typename F::fib *f = F::fib_construct(sz_ctx, trie.get(), 0);
    if (!f) return std::nullopt;
    return basic_fib(f);
  }

 private:
  explicit basic_fib(typename F::fib *f) noexcept : detail::fib_table<F>(f) {}
};

using fib4 = basic_fib<trie4_family>;
using fib6 = basic_fib<trie6_family>;

}  // namespace vell

// The two trie families named alike: for IPv4 (sc_btrie) and IPv6
// (sc_btrie6), each family's C records, limits and functions under the
// same names, and the conversions between its records, its lookup keys and
// address words (32-bit words in host order, most significant first). Code
// written once over a family type serves both: the C++ handles, the
// vell-lpm tool, the benchmarks and the tests.
#pragma once

#include <stdint.h>
#include <string.h>

#include <array>
#include <concepts>

#include "sc_btrie.h"
#include "sc_btrie6.h"
#include "vell/addr.hpp"

namespace vell {
namespace detail {

// What both families do alike over their Words address words.
template <typename Entry, uint32_t Words, uint32_t NoPrefix>
struct trie_family_words {
  using entry = Entry;
  static constexpr uint32_t words = Words;
  static constexpr uint32_t bits = 32 * Words;
  // The prefix link that names no enclosing prefix.
  static constexpr uint32_t no_prefix = NoPrefix;

  // The entry for the prefix of `len` bits at the address words w. A
  // length past the address stays past it in the narrow len field (as
  // bits + 1), so the build refuses the entry rather than taking a wrapped
  // short prefix.
  static entry make_entry(const uint32_t *w, uint32_t len,
                          uint32_t data) noexcept {
    entry e{};
    memcpy(&e.addr, w, sizeof e.addr);
    e.len = (len <= bits ? len : bits + 1) & (2 * bits - 1);
    e.prefix = no_prefix;
    e.data = data;
    return e;
  }
  // Copies the address words of an entry or an iterator's item to w.
  template <typename Record>
  static void addr_words(const Record &r, uint32_t *w) noexcept {
    memcpy(w, &r.addr, sizeof r.addr);
  }
};

}  // namespace detail

struct trie4_family
    : detail::trie_family_words<sc_btrie_entry, 1, SC_BTRIE_NO_PREFIX> {
  using trie = sc_btrie;
  using iter = sc_btrie_iter;
  using item = sc_btrie_item;
  using fib = sc_btrie_fib;
  using live = sc_btrie_live;
  using addr = ipv4_addr;
  using key = uint32_t;  // one lookup key, as stored by callers
  static constexpr const char *name = "sc_btrie";
  static constexpr uint32_t max_root_branch = SC_BTRIE_MAX_ROOT_BRANCH;
  static constexpr uint32_t max_entries = SC_BTRIE_MAX_ENTRIES;

  static constexpr auto construct = sc_btrie_construct;
  static constexpr auto destruct = sc_btrie_destruct;
  static constexpr auto set_data_destructor = sc_btrie_set_data_destructor;
  static constexpr auto lpmatch = sc_btrie_lpmatch;
  static constexpr auto lpmatch_bulk = sc_btrie_lpmatch_bulk;
  static constexpr auto iter_construct = sc_btrie_iter_construct;
  static constexpr auto iter_next = sc_btrie_iter_next;
  static constexpr auto iter_destruct = sc_btrie_iter_destruct;
  static constexpr auto memory_usage = sc_btrie_memory_usage;
  static constexpr auto print = sc_btrie_print;
  static constexpr auto print_stats = sc_btrie_print_stats;
  static constexpr auto fib_construct = sc_btrie_fib_construct;
  static constexpr auto fib_destruct = sc_btrie_fib_destruct;
  static constexpr auto fib_lookup = sc_btrie_fib_lookup;
  static constexpr auto fib_lookup_bulk = sc_btrie_fib_lookup_bulk;
  static constexpr auto fib_memory_usage = sc_btrie_fib_memory_usage;
  static constexpr auto live_construct = sc_btrie_live_construct;
  static constexpr auto live_destruct = sc_btrie_live_destruct;
  static constexpr auto live_set = sc_btrie_live_set;
  static constexpr auto live_remove = sc_btrie_live_remove;
  static constexpr auto live_publish = sc_btrie_live_publish;
  static constexpr auto live_size = sc_btrie_live_size;
  static constexpr auto live_memory_usage = sc_btrie_live_memory_usage;
  static constexpr auto live_reader_register = sc_btrie_live_reader_register;
  static constexpr auto live_reader_unregister =
      sc_btrie_live_reader_unregister;
  static constexpr auto live_quiescent = sc_btrie_live_quiescent;
  static constexpr auto live_lookup = sc_btrie_live_lookup;
  static constexpr auto live_lookup_bulk = sc_btrie_live_lookup_bulk;

  // The key of the address words w.
  static key make_key(const uint32_t *w) noexcept { return w[0]; }
  // The single lookup's key argument for the address words w, taken in
  // place (no key is made).
  static uint32_t word_key(const uint32_t *w) noexcept { return w[0]; }
  // A key, or an array of keys, as the single and bulk lookups take them.
  static uint32_t c_key(const key &k) noexcept { return k; }
  static const uint32_t *c_keys(const key *k) noexcept { return k; }
};

struct trie6_family
    : detail::trie_family_words<sc_btrie6_entry, 4, SC_BTRIE6_NO_PREFIX> {
  using trie = sc_btrie6;
  using iter = sc_btrie6_iter;
  using item = sc_btrie6_item;
  using fib = sc_btrie6_fib;
  using live = sc_btrie6_live;
  using addr = ipv6_addr;
  using key = std::array<uint32_t, 4>;
  static constexpr const char *name = "sc_btrie6";
  static constexpr uint32_t max_root_branch = SC_BTRIE6_MAX_ROOT_BRANCH;
  static constexpr uint32_t max_entries = SC_BTRIE6_MAX_ENTRIES;

  static constexpr auto construct = sc_btrie6_construct;
  static constexpr auto destruct = sc_btrie6_destruct;
  static constexpr auto set_data_destructor = sc_btrie6_set_data_destructor;
  static constexpr auto lpmatch = sc_btrie6_lpmatch;
  static constexpr auto lpmatch_bulk = sc_btrie6_lpmatch_bulk;
  static constexpr auto iter_construct = sc_btrie6_iter_construct;
  static constexpr auto iter_next = sc_btrie6_iter_next;
  static constexpr auto iter_destruct = sc_btrie6_iter_destruct;
  static constexpr auto memory_usage = sc_btrie6_memory_usage;
  static constexpr auto print = sc_btrie6_print;
  static constexpr auto print_stats = sc_btrie6_print_stats;
  static constexpr auto fib_construct = sc_btrie6_fib_construct;
  static constexpr auto fib_destruct = sc_btrie6_fib_destruct;
  static constexpr auto fib_lookup = sc_btrie6_fib_lookup;
  static constexpr auto fib_lookup_bulk = sc_btrie6_fib_lookup_bulk;
  static constexpr auto fib_memory_usage = sc_btrie6_fib_memory_usage;
  static constexpr auto live_construct = sc_btrie6_live_construct;
  static constexpr auto live_destruct = sc_btrie6_live_destruct;
  static constexpr auto live_set = sc_btrie6_live_set;
  static constexpr auto live_remove = sc_btrie6_live_remove;
  static constexpr auto live_publish = sc_btrie6_live_publish;
  static constexpr auto live_size = sc_btrie6_live_size;
  static constexpr auto live_memory_usage = sc_btrie6_live_memory_usage;
  static constexpr auto live_reader_register = sc_btrie6_live_reader_register;
  static constexpr auto live_reader_unregister =
      sc_btrie6_live_reader_unregister;
  static constexpr auto live_quiescent = sc_btrie6_live_quiescent;
  static constexpr auto live_lookup = sc_btrie6_live_lookup;
  static constexpr auto live_lookup_bulk = sc_btrie6_live_lookup_bulk;

  static key make_key(const uint32_t *w) noexcept {
    return {w[0], w[1], w[2], w[3]};
  }
  static const uint32_t *word_key(const uint32_t *w) noexcept { return w; }
  static const uint32_t *c_key(const key &k) noexcept { return k.data(); }
  static const uint32_t (*c_keys(const key *k) noexcept)[4] {
    static_assert(sizeof(key) == sizeof(uint32_t[4]));
    return reinterpret_cast<const uint32_t(*)[4]>(k);
  }
};

// What the handles (vell/trie.hpp, fib.hpp, live.hpp) ask of a family: a
// family missing a member fails with the requirement it misses.
template <typename F>
concept trie_family = requires(const uint32_t *w, const typename F::key &k) {
  typename F::trie;
  typename F::iter;
  typename F::item;
  typename F::fib;
  typename F::live;
  typename F::addr;
  { F::make_entry(w, 0u, 0u) } -> std::same_as<typename F::entry>;
  F::make_key(w);
  F::word_key(w);
  F::c_key(k);
  F::c_keys(&k);
  F::construct;
  F::destruct;
  F::lpmatch;
  F::lpmatch_bulk;
  F::iter_construct;
  F::iter_next;
  F::iter_destruct;
  F::memory_usage;
  F::fib_construct;
  F::live_construct;
};

static_assert(trie_family<trie4_family> && trie_family<trie6_family>);

}  // namespace vell

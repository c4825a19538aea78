// Owning handles of the IPv4 and IPv6 longest-prefix-match tries.
//
// A C trie answers 0 both for a miss and for a stored data word of 0. To
// tell them apart, these handles store each data word plus one: lookups
// answer std::nullopt for a miss and the data word given at build time
// otherwise, and the iteration hands back the words given. Data words
// therefore range from 0 to max_data (2^32 - 2), and the raw trie behind
// get() holds the shifted words.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <ranges>
#include <span>
#include <utility>

#include "vell/addr.hpp"
#include "vell/handle.hpp"
#include "vell/snapshot.hpp"
#include "vell/trie_family.hpp"

namespace vell {

struct trie_options {
  uint32_t fill_factor = 50;  // node fill in percent, 1 to 100
  uint32_t root_branch = 0;   // least branch of the root
  void *sz_ctx = nullptr;     // size-class context, or the general heap
};

namespace detail {

// Keys handed to a bulk lookup at a time.
constexpr uint32_t kLookupBatch = 64;

// The highest data word a handle stores: it keeps data + 1, so that the
// C tables' 0 is left for a miss.
constexpr uint32_t kMaxData = UINT32_MAX - 1;

// The word stored for data, data + 1; false (reported) above kMaxData.
inline bool stored_word(uint32_t data, uint32_t &word) noexcept {
  if (data > kMaxData) {
    report("vell: data word %u is reserved (at most %u)\n", data, kMaxData);
    return false;
  }
  word = data + 1;
  return true;
}

// A data word a caller may hand to build: a type whose every value
// converts to uint32_t without narrowing (uint64_t, int and double do not).
template <typename W>
concept lossless_word = requires(W w) {
  uint32_t{w};
};

// The type of the second name a structured binding gives an element of a
// route range (its data word).
template <typename E>
auto bound_word(const E &e) {
  const auto &[prefix, data] = e;
  return data;
}

// Lookups through a C table's Single and Bulk calls of the words stored
// as data + 1: std::nullopt for 0, the data word otherwise; a table that
// tests false (moved from) answers std::nullopt for every key.
template <typename F, auto Single, auto Bulk>
struct stored_lookups {
  using addr_type = typename F::addr;

  template <typename Table>
  static std::optional<uint32_t> one(const Table *t,
                                     const addr_type &a) noexcept {
    if (!t) return std::nullopt;
    return decode(Single(t, F::word_key(a.words())));
  }
  // out[i] = one(t, keys[i]) for every i below the smaller size, the walks
  // of each batch interleaved.
  template <typename Table>
  static void many(const Table *t, std::span<const addr_type> keys,
                   std::span<std::optional<uint32_t>> out) noexcept {
    size_t n = keys.size() < out.size() ? keys.size() : out.size();
    if (!t) {
      for (size_t i = 0; i < n; ++i) out[i].reset();
      return;
    }
    typename F::key batch[kLookupBatch];
    uint32_t data[kLookupBatch];
    for (size_t i = 0; i < n; i += kLookupBatch) {
      auto m = static_cast<uint32_t>(std::min<uint64_t>(n - i, kLookupBatch));
      for (uint32_t j = 0; j < m; ++j)
        batch[j] = F::make_key(keys[i + j].words());
      Bulk(t, F::c_keys(batch), data, m);
      for (uint32_t j = 0; j < m; ++j) out[i + j] = decode(data[j]);
    }
  }

 private:
  static std::optional<uint32_t> decode(uint32_t word) noexcept {
    if (!word) return std::nullopt;
    return word - 1;
  }
};

// What a trie and its compiled table share: ownership of the C table, and
// lookups of the words they store, data + 1, so that 0 is a miss.
template <typename F, typename Table, auto Destruct, auto Single, auto Bulk,
          auto Memory>
class lookup_table {
  using lookups = stored_lookups<F, Single, Bulk>;

 public:
  using addr_type = typename F::addr;

  // False after a move; such a table answers every lookup with nullopt.
  explicit operator bool() const noexcept { return bool(t_); }
  // The data word of the longest stored prefix covering a, or nullopt.
  [[nodiscard]] std::optional<uint32_t> lookup(
      const addr_type &a) const noexcept {
    return lookups::one(t_.get(), a);
  }
  // out[i] = lookup(keys[i]) for every i below the smaller size.
  void lookup(std::span<const addr_type> keys,
              std::span<std::optional<uint32_t>> out) const noexcept {
    lookups::many(t_.get(), keys, out);
  }
  uint32_t memory_usage() const noexcept { return t_ ? Memory(t_.get()) : 0; }
  Table *get() const noexcept { return t_.get(); }

 protected:
  explicit lookup_table(Table *t) noexcept : t_(t) {}

 private:
  handle<Table, Destruct> t_;
};

template <typename F>
using trie_table = lookup_table<F, typename F::trie, F::destruct, F::lpmatch,
                                F::lpmatch_bulk, F::memory_usage>;

}  // namespace detail

template <trie_family F>
class basic_trie : public detail::trie_table<F> {
 public:
  using addr_type = typename F::addr;
  using prefix_type = basic_prefix<addr_type>;
  struct route {
    prefix_type prefix;
    uint32_t data;
  };
  static constexpr uint32_t max_data = detail::kMaxData;

  // Builds a trie from a forward range of (prefix, data word) pairs: any
  // element a structured binding splits into a prefix_type and a word whose
  // type converts to uint32_t without loss. Empty when a data word exceeds
  // max_data (reported) or the C build fails (reported by the library).
  template <std::ranges::forward_range R>
  requires detail::lossless_word<decltype(detail::bound_word(
      std::declval<std::ranges::range_reference_t<R>>()))>
  [[nodiscard]] static std::optional<basic_trie> build(
      R &&routes, const trie_options &o = {}) noexcept {
    auto n = static_cast<uint64_t>(std::ranges::distance(routes));
    detail::host_array<typename F::entry> entries(n);
    if (n && !entries.get()) return std::nullopt;
    uint32_t i = 0;
    for (const auto &[prefix, data] : routes) {
      uint32_t word;
      if (!detail::stored_word(data, word)) return std::nullopt;
      entries.get()[i++] =
          F::make_entry(prefix.address().words(), prefix.length(), word);
    }
    typename F::trie *t =
        F::construct(o.sz_ctx, entries.get(), i, o.fill_factor, o.root_branch);
    if (!t) return std::nullopt;
    return basic_trie(t);
  }

  // Every stored route once, in address order (shorter prefixes first at
  // one address), copied out of the trie. Tests false (and is empty) when
  // the trie tests false or memory runs out (reported).
  using route_range = snapshot<route>;
  [[nodiscard]] route_range routes() const noexcept {
    // The C iterator hands each enclosing prefix out again under every
    // stored prefix beneath it: one pass counts, one copies, and sorting
    // brings the repeats together.
    using iter_handle = handle<typename F::iter, F::iter_destruct>;
    if (!*this) return {};
    typename F::item item;
    uint64_t n = 0;
    iter_handle counter(F::iter_construct(this->get()));
    if (!counter) return {};
    while (F::iter_next(counter.get(), &item) == 0) ++n;
    iter_handle it(F::iter_construct(this->get()));
    if (!it) return {};
    route_range r = route_range::read(n, [&](route &out) {
      if (F::iter_next(it.get(), &item) != 0) return false;
      addr_type a = addr_type(item.addr).masked(item.len);
      out = {*prefix_type::make(a, item.len), item.data - 1};
      return true;
    });
    auto before = [](const route &x, const route &y) {
      return x.prefix < y.prefix;
    };
    auto same = [](const route &x, const route &y) {
      return x.prefix == y.prefix;
    };
    std::sort(r.data(), r.data() + r.size(), before);
    r.truncate(static_cast<uint32_t>(
        std::unique(r.data(), r.data() + r.size(), same) - r.data()));
    return r;
  }

 private:
  explicit basic_trie(typename F::trie *t) noexcept
      : detail::trie_table<F>(t) {}
};

using trie4 = basic_trie<trie4_family>;
using trie6 = basic_trie<trie6_family>;

}  // namespace vell

// Owning handles of the live tables: forwarding tables whose prefixes one
// writer changes while readers on other threads look up, without locks.
//
// The writer side is the handle: set and remove stage changes, publish
// makes them visible, none before. A lookup begun after publish returned
// sees every change; one that overlaps it may answer keys under different
// root slots from either version (see sc_btrie.h), and no key's answer
// goes back to an older version. The caller serialises the writer's calls
// (and size, memory_usage and the destructor).
//
// The reader side is a reader guard, one per reader thread: it holds one
// of the table's reader slots from construction to destruction, looks up,
// and calls quiescent() between batches of work to declare that it keeps
// nothing from its earlier lookups; what a publish replaced is given back
// (inside a later publish or the destructor) once every registered reader
// has done so or gone. The table must outlive its guards, and no guard may
// be inside a lookup when the table goes.
//
// As the trie handles do, the table holds each data word plus one and
// answers 0 for a miss: lookups answer std::nullopt for a miss and the
// data word set otherwise. Data words range from 0 to max_data
// (2^32 - 2), and the raw table behind get() holds the shifted words.
#pragma once

#include <stdint.h>

#include <optional>
#include <span>
#include <utility>

#include "vell/addr.hpp"
#include "vell/handle.hpp"
#include "vell/trie.hpp"
#include "vell/trie_family.hpp"

namespace vell {

// What a remove did.
enum class removal {
  removed,      // staged: gone from the table at the next publish
  not_present,  // neither published nor staged; nothing staged
  refused,      // not staged: a bad prefix (reported by the library) or
                // a table that tests false
};

namespace detail {

template <typename F>
using live_table =
    lookup_table<F, typename F::live, F::live_destruct, F::live_lookup,
                 F::live_lookup_bulk, F::live_memory_usage>;

}  // namespace detail

template <trie_family F>
class basic_live : private detail::live_table<F> {
  using lookups =
      detail::stored_lookups<F, F::live_lookup, F::live_lookup_bulk>;

 public:
  using addr_type = typename F::addr;
  using prefix_type = basic_prefix<addr_type>;
  static constexpr uint32_t max_data = detail::kMaxData;

  // An empty table with max_readers reader slots; its blocks come from
  // sz_ctx where they fit, else from the general heap. Empty when the C
  // construct fails (max_readers 0, no memory; reported by the library).
  [[nodiscard]] static std::optional<basic_live> create(
      uint32_t max_readers, void *sz_ctx = nullptr) noexcept {
    typename F::live *t = F::live_construct(sz_ctx, 0, max_readers);
    if (!t) return std::nullopt;
    return basic_live(t);
  }

  // Stages prefix -> data (adding it or replacing its word). False, with
  // nothing staged, when data exceeds max_data (reported) or the library
  // refuses (no memory, reported by it).
  [[nodiscard]] bool set(const prefix_type &prefix, uint32_t data) noexcept {
    uint32_t word;
    if (!*this || !detail::stored_word(data, word)) return false;
    return F::live_set(this->get(), F::word_key(prefix.address().words()),
                       prefix.length(), word) == 0;
  }
  // Stages the removal of prefix, published or staged.
  [[nodiscard]] removal remove(const prefix_type &prefix) noexcept {
    if (!*this) return removal::refused;
    int r = F::live_remove(this->get(), F::word_key(prefix.address().words()),
                           prefix.length());
    return r == 0   ? removal::removed
           : r == 1 ? removal::not_present
                    : removal::refused;
  }
  // Makes every staged change visible. False when memory ran out
  // (reported by the library): readers keep the previous version and the
  // changes stay staged, so a later publish may retry.
  [[nodiscard]] bool publish() noexcept {
    return *this && F::live_publish(this->get()) == 0;
  }
  // Prefixes held, staged changes included.
  uint32_t size() const noexcept {
    return *this ? F::live_size(this->get()) : 0;
  }
  // False after a move; such a table refuses every change.
  using detail::live_table<F>::operator bool;
  using detail::live_table<F>::memory_usage;
  using detail::live_table<F>::get;

  // One registered reader of a table. Move-only; tests false when every
  // slot was taken (reported by the library) and after a move. Lookups
  // and quiescent() are for a guard that tests true, on one thread at a
  // time.
  class reader {
   public:
    reader() = default;
    // Registers with live (from any thread, without locks).
    explicit reader(const basic_live &live) noexcept
        : t_(live.get()), slot_(t_ ? F::live_reader_register(t_) : -1) {
      if (slot_ < 0) t_ = nullptr;
    }
    reader(reader &&o) noexcept
        : t_(std::exchange(o.t_, nullptr)), slot_(std::exchange(o.slot_, -1)) {}
    reader &operator=(reader &&o) noexcept {
      if (this != &o) {
        reset();
        t_ = std::exchange(o.t_, nullptr);
        slot_ = std::exchange(o.slot_, -1);
      }
      return *this;
    }
    ~reader() { reset(); }

    explicit operator bool() const noexcept { return t_ != nullptr; }
    // The reader slot held, or -1.
    int slot() const noexcept { return slot_; }
    // Unregisters; the guard is empty after it.
    void reset() noexcept {
      if (t_) F::live_reader_unregister(std::exchange(t_, nullptr), slot_);
      slot_ = -1;
    }

    // Declares that this reader keeps nothing from its earlier lookups.
    void quiescent() noexcept {
      if (t_) F::live_quiescent(t_, slot_);
    }
    // The data word of the longest published prefix covering a, or
    // nullopt.
    [[nodiscard]] std::optional<uint32_t> lookup(
        const addr_type &a) const noexcept {
      return lookups::one(t_, a);
    }
    // out[i] = lookup(keys[i]) for every i below the smaller size, the
    // walks of each batch interleaved.
    void lookup(std::span<const addr_type> keys,
                std::span<std::optional<uint32_t>> out) const noexcept {
      lookups::many(t_, keys, out);
    }

   private:
    typename F::live *t_ = nullptr;
    int slot_ = -1;
  };

 private:
  explicit basic_live(typename F::live *t) noexcept
      : detail::live_table<F>(t) {}
};

using live4 = basic_live<trie4_family>;
using live6 = basic_live<trie6_family>;

}  // namespace vell

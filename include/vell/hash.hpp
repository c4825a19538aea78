// Typed maps over the three chained hash tables. Keys and values are
// stored as their bytes, as the C tables store them, so both must be
// trivially copyable, and keys must have no padding (equal keys are equal
// bytes). Lookups and the iteration hand out copies.
//
//   hash_map          sc_hash: fixed bucket count, bucket order
//   ordered_hash_map  sc_ohash: insertion order, grow / shrink
//   khash_map         sc_khash: size-class allocator, bucket order
//
// items() copies the elements out in the table's order, so the map may
// change while its copy is walked.
#pragma once

#include <stdint.h>
#include <string.h>

#include <concepts>
#include <optional>
#include <type_traits>
#include <utility>

#include "vell/context.hpp"
#include "vell/handle.hpp"
#include "vell/hash_family.hpp"
#include "vell/snapshot.hpp"

namespace vell {

template <typename T>
concept byte_key = std::is_trivially_copyable_v<T> &&
    std::has_unique_object_representations_v<T>;
template <typename T>
concept byte_value = std::is_trivially_copyable_v<T>;

// What the maps do with a family (vell/hash_family.hpp), on key and value
// bytes, alike for all three: construct with no value destructor, insert
// (true when stored), find (the value's bytes or null), erase (true when
// the key was there). sc_khash goes through its elements where the
// control-side families go by key. The hash benchmark and tests use these
// too.
template <typename F>
struct hash_calls {
  using table = typename F::table;

  // The bucket hint, then sc_ohash's list name ("" when omitted) or
  // sc_khash's size-class context (null when omitted).
  template <typename... A>
  static table *construct(uint32_t hint, A... extra) {
    if constexpr (sizeof...(A) == 0 && std::is_same_v<table, sc_ohash>)
      return F::construct(hint, "", nullptr);
    else if constexpr (sizeof...(A) == 0 && std::is_same_v<table, sc_khash>)
      return F::construct(hint, nullptr, nullptr);
    else
      return F::construct(hint, extra..., nullptr);
  }
  static bool insert(table *t, const void *k, uint32_t ksz, const void *v,
                     uint32_t vsz) {
    if constexpr (keyed_hash_family<F>)
      return F::insert(t, k, ksz, v, vsz) == 0;
    else
      return F::internal_insert(t, k, ksz, v, vsz, nullptr, 0) != nullptr;
  }
  // Also the value's size in *vsz, when vsz is given and the key found.
  static const void *find(table *t, const void *k, uint32_t ksz,
                          uint32_t *vsz = nullptr) {
    if constexpr (keyed_hash_family<F>) {
      void *v;
      return F::find(t, k, ksz, &v, vsz) == 0 ? v : nullptr;
    } else {
      typename F::element *e = *F::findp(t, k, ksz);
      if (!e) return nullptr;
      if (vsz) *vsz = e->vsz;
      return sc_khash_element_val(e);
    }
  }
  static bool erase(table *t, const void *k, uint32_t ksz) {
    if constexpr (keyed_hash_family<F>) {
      return F::delete_key(t, k, ksz) == 0;
    } else {
      typename F::element *e = *F::findp(t, k, ksz);
      if (e) F::internal_delete(e);
      return e != nullptr;
    }
  }
};

// Move-only; tests false after a move, and then reads as empty and refuses
// every change.
template <typename F, byte_key K, byte_value V>
class basic_hash_map {
  static constexpr bool sized_classes = std::is_same_v<F, khash_family>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

  // The family's construct arguments: hash_map (bucket-count hint),
  // ordered_hash_map (hint, list name), khash_map (bucket count,
  // size-class context). Empty when the table cannot be made.
  template <typename... A>
  requires(!sized_classes || sizeof...(A) != 1)
      [[nodiscard]] static std::optional<basic_hash_map> create(
          A... args) noexcept {
    return wrap(table(hash_calls<F>::construct(args...)));
  }
  // A khash_map of n_buckets on a size-class context of its own from the
  // default host module (vell/context.hpp), released with the map.
  [[nodiscard]] static std::optional<basic_hash_map> create(
      uint32_t n_buckets) noexcept requires sized_classes {
    return wrap(table::on_own_context(
        [&](void *ctx) { return F::construct(n_buckets, ctx, nullptr); }));
  }

  explicit operator bool() const noexcept { return bool(t_); }

  // Stores value under key, replacing an earlier value; false (the map
  // unchanged) when the element cannot be allocated.
  [[nodiscard]] bool insert_or_assign(const K &key, const V &value) noexcept {
    return t_ && hash_calls<F>::insert(t_.get(), &key, sizeof key, &value,
                                       sizeof value);
  }
  // Calls fn(value) on the value under key and stores the result in place;
  // a value-initialised V is inserted first when the key is absent. False
  // (the map unchanged) when that insert fails.
  template <std::invocable<V &> Fn>
  [[nodiscard]] bool update(const K &key, Fn &&fn) noexcept {
    void *at = value_bytes(key);
    V v{};
    if (at) memcpy(&v, at, sizeof v);
    fn(v);
    if (!at) return insert_or_assign(key, v);
    memcpy(at, &v, sizeof v);
    return true;
  }
  [[nodiscard]] std::optional<V> find(const K &key) const noexcept {
    const void *at = value_bytes(key);
    if (!at) return std::nullopt;
    V out;
    memcpy(&out, at, sizeof out);
    return out;
  }
  [[nodiscard]] bool contains(const K &key) const noexcept {
    return value_bytes(key) != nullptr;
  }
  // True when the key was there.
  bool erase(const K &key) noexcept {
    return t_ && hash_calls<F>::erase(t_.get(), &key, sizeof key);
  }
  void clear() noexcept {
    if (t_) F::delete_all(t_.get());
  }
  uint32_t size() const noexcept { return t_ ? F::nelements(t_.get()) : 0; }
  bool empty() const noexcept { return size() == 0; }

  // Copies of every element, in the table's order (see snapshot). Tests
  // false (and is empty) when the map tests false or memory runs out.
  using item_range = snapshot<value_type>;
  [[nodiscard]] item_range items() const noexcept {
    if (!t_) return {};
    handle<typename F::iter, F::iter_destruct> it(F::iter_construct(t_.get()));
    if (!it) return {};
    return item_range::read(size(), [&](value_type &kv) {
      void *k, *v;
      if (F::iter_next(it.get(), &k, nullptr, &v, nullptr) != 0) return false;
      memcpy(&kv.first, k, sizeof(K));
      memcpy(&kv.second, v, sizeof(V));
      return true;
    });
  }

  typename F::table *get() const noexcept { return t_.get(); }

 private:
  using table = detail::record_on_context<typename F::table, F::destruct>;
  explicit basic_hash_map(table t) noexcept : t_(std::move(t)) {}
  static std::optional<basic_hash_map> wrap(table t) noexcept {
    if (!t) return std::nullopt;
    return basic_hash_map(std::move(t));
  }
  // The stored value's bytes (as the table holds them, unaligned), or null.
  void *value_bytes(const K &key) const noexcept {
    if (!t_) return nullptr;
    return const_cast<void *>(hash_calls<F>::find(t_.get(), &key, sizeof key));
  }
  table t_;
};

template <byte_key K, byte_value V>
using hash_map = basic_hash_map<hash_family, K, V>;
template <byte_key K, byte_value V>
using ordered_hash_map = basic_hash_map<ohash_family, K, V>;
template <byte_key K, byte_value V>
using khash_map = basic_hash_map<khash_family, K, V>;

}  // namespace vell

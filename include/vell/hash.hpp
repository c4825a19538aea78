// Typed maps over the three chained hash tables. Keys and values are
// stored as their bytes, as the C tables store them, so both must be
// trivially copyable, and keys must have no padding (equal keys are equal
// bytes). Lookups and the iteration hand out copies.
//
//   hash_map          sc_hash: fixed bucket count, bucket order
//   ordered_hash_map  sc_ohash: insertion order, grow / shrink
//   khash_map         sc_khash: size-class allocator, bucket order
//
// In all three, erase of the key just delivered by the iteration is allowed
// while iterating; erasing any other key or inserting during a walk is not.
#pragma once

#include <stdint.h>
#include <string.h>

#include <optional>
#include <type_traits>
#include <utility>

#include "sc_hash.h"
#include "sc_khash.h"
#include "sc_ohash.h"
#include "vell/handle.hpp"
#include "vell/walk.hpp"

namespace vell {

template <typename T>
concept byte_key = std::is_trivially_copyable_v<T> &&
    std::has_unique_object_representations_v<T>;
template <typename T>
concept byte_value = std::is_trivially_copyable_v<T>;

namespace detail {

// Each family as the map needs it: construct, destruct, insert (true when
// stored), find (the value's bytes or null), erase (true when the key was
// there), size, delete_all and the iterator.
// sc_hash and sc_ohash: insert, find and delete by key, with the same
// results.
template <typename Table, auto Insert, auto Find, auto Delete>
struct by_key {
  static bool insert(Table *t, const void *k, uint32_t ksz, const void *v,
                     uint32_t vsz) {
    return Insert(t, k, ksz, v, vsz) == 0;
  }
  static const void *find(Table *t, const void *k, uint32_t ksz) {
    void *v;
    return Find(t, k, ksz, &v, nullptr) == 0 ? v : nullptr;
  }
  static bool erase(Table *t, const void *k, uint32_t ksz) {
    return Delete(t, k, ksz) == 0;
  }
};

struct hash_family
    : by_key<sc_hash, sc_hash_insert, sc_hash_find, sc_hash_delete> {
  using table = sc_hash;
  using iter = sc_hash_iter;
  static table *construct(uint32_t buckets_hint) {
    return sc_hash_construct(buckets_hint, nullptr);
  }
  static constexpr auto destruct = sc_hash_destruct;
  static constexpr auto size = sc_hash_nelements;
  static constexpr auto clear = sc_hash_delete_all;
  static constexpr auto iter_construct = sc_hash_iter_construct;
  static constexpr auto iter_next = sc_hash_iter_next;
  static constexpr auto iter_destruct = sc_hash_iter_destruct;
};

struct ohash_family
    : by_key<sc_ohash, sc_ohash_insert, sc_ohash_find, sc_ohash_delete> {
  using table = sc_ohash;
  using iter = sc_ohash_iter;
  static table *construct(uint32_t buckets_hint, const char *name = "") {
    return sc_ohash_construct(buckets_hint, name, nullptr);
  }
  static constexpr auto destruct = sc_ohash_destruct;
  static constexpr auto size = sc_ohash_nelements;
  static constexpr auto clear = sc_ohash_delete_all;
  static constexpr auto iter_construct = sc_ohash_iter_construct;
  static constexpr auto iter_next = sc_ohash_iter_next;
  static constexpr auto iter_destruct = sc_ohash_iter_destruct;
};

struct khash_family {
  using table = sc_khash;
  using iter = sc_khash_iter;
  static table *construct(uint32_t buckets, void *sz_ctx = nullptr) {
    return sc_khash_construct(buckets, sz_ctx, nullptr);
  }
  static constexpr auto destruct = sc_khash_destruct;
  static bool insert(table *t, const void *k, uint32_t ksz, const void *v,
                     uint32_t vsz) {
    return sc_khash_internal_insert(t, k, ksz, v, vsz, nullptr, 0) != nullptr;
  }
  static const void *find(table *t, const void *k, uint32_t ksz) {
    sc_khash_element *e = *sc_khash_findp(t, k, ksz);
    return e ? sc_khash_element_val(e) : nullptr;
  }
  static bool erase(table *t, const void *k, uint32_t ksz) {
    sc_khash_element *e = *sc_khash_findp(t, k, ksz);
    if (e) sc_khash_internal_delete(e);
    return e != nullptr;
  }
  static uint32_t size(const table *t) { return t->nelements; }
  static constexpr auto clear = sc_khash_delete_all;
  static constexpr auto iter_construct = sc_khash_iter_construct;
  static constexpr auto iter_next = sc_khash_iter_next;
  static constexpr auto iter_destruct = sc_khash_iter_destruct;
};

}  // namespace detail

template <typename F, byte_key K, byte_value V>
class basic_hash_map {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

  // The family's construct arguments: hash_map (bucket-count hint),
  // ordered_hash_map (hint, list name), khash_map (bucket count,
  // size-class context). Empty when the table cannot be made.
  template <typename... A>
  static std::optional<basic_hash_map> create(A... args) noexcept {
    typename F::table *t = F::construct(args...);
    if (!t) return std::nullopt;
    return basic_hash_map(t);
  }

  // Stores value under key, replacing an earlier value; false (the map
  // unchanged) when the element cannot be allocated.
  bool insert_or_assign(const K &key, const V &value) noexcept {
    return F::insert(t_.get(), &key, sizeof key, &value, sizeof value);
  }
  std::optional<V> find(const K &key) const noexcept {
    const void *v = F::find(t_.get(), &key, sizeof key);
    if (!v) return std::nullopt;
    V out;
    memcpy(&out, v, sizeof out);
    return out;
  }
  bool contains(const K &key) const noexcept {
    return F::find(t_.get(), &key, sizeof key) != nullptr;
  }
  bool erase(const K &key) noexcept {
    return F::erase(t_.get(), &key, sizeof key);
  }
  void clear() noexcept { F::clear(t_.get()); }
  uint32_t size() const noexcept { return F::size(t_.get()); }
  bool empty() const noexcept { return size() == 0; }

 private:
  static bool step(typename F::iter *it, value_type &kv) noexcept {
    void *k, *v;
    if (F::iter_next(it, &k, nullptr, &v, nullptr) != 0) return false;
    memcpy(&kv.first, k, sizeof(K));
    memcpy(&kv.second, v, sizeof(V));
    return true;
  }

 public:
  // A single pass over the elements (see walk).
  using item_range = walk<typename F::iter, F::iter_destruct, value_type, step>;
  item_range items() noexcept {
    return item_range(F::iter_construct(t_.get()));
  }

  typename F::table *get() const noexcept { return t_.get(); }

 private:
  explicit basic_hash_map(typename F::table *t) noexcept : t_(t) {}
  handle<typename F::table, F::destruct> t_;
};

template <byte_key K, byte_value V>
using hash_map = basic_hash_map<detail::hash_family, K, V>;
template <byte_key K, byte_value V>
using ordered_hash_map = basic_hash_map<detail::ohash_family, K, V>;
template <byte_key K, byte_value V>
using khash_map = basic_hash_map<detail::khash_family, K, V>;

}  // namespace vell

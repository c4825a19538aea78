// The three chained hash tables under one set of names: each family's C
// records and functions, so that code written once serves all three. The
// typed maps (vell/hash.hpp), the hash benchmark, the unit tests and the
// fuzz target all name the families through these.
//
//   hash_family   sc_hash   control side, fixed bucket count
//   ohash_family  sc_ohash  control side, insertion order, grow / shrink
//   khash_family  sc_khash  forwarding side, size-class allocator
//
// Every family has construct (its own arguments: the bucket hint or count,
// then sc_ohash's list name or sc_khash's size-class context, then the value
// destructor), destruct, delete_all, nelements, debug and the iterator. The
// two control-side families insert, find and delete by key (insert, find,
// delete_key); sc_ohash and sc_khash also reach elements (findp,
// internal_insert with a second value piece, internal_delete). A function
// that only one family has (sc_ohash_grow, sc_hash_serialize, ...) is called
// by its own name.
#pragma once

#include <stdint.h>

#include "sc_hash.h"
#include "sc_khash.h"
#include "sc_ohash.h"

namespace vell {

struct hash_family {
  using table = sc_hash;
  using element = sc_hash_element;
  using iter = sc_hash_iter;
  static constexpr const char *name = "sc_hash";
  static constexpr auto construct = sc_hash_construct;
  static constexpr auto destruct = sc_hash_destruct;
  static constexpr auto insert = sc_hash_insert;
  static constexpr auto find = sc_hash_find;
  static constexpr auto delete_key = sc_hash_delete;
  static constexpr auto delete_all = sc_hash_delete_all;
  static constexpr auto nelements = sc_hash_nelements;
  static constexpr auto iter_construct = sc_hash_iter_construct;
  static constexpr auto iter_next = sc_hash_iter_next;
  static constexpr auto iter_destruct = sc_hash_iter_destruct;
  static constexpr auto debug = sc_hash_debug;
};

struct ohash_family {
  using table = sc_ohash;
  using element = sc_ohash_element;
  using iter = sc_ohash_iter;
  static constexpr const char *name = "sc_ohash";
  static constexpr auto construct = sc_ohash_construct;
  static constexpr auto destruct = sc_ohash_destruct;
  static constexpr auto insert = sc_ohash_insert;
  static constexpr auto internal_insert = sc_ohash_internal_insert;
  static constexpr auto find = sc_ohash_find;
  static constexpr auto findp = sc_ohash_findp;
  static constexpr auto delete_key = sc_ohash_delete;
  static constexpr auto internal_delete = sc_ohash_internal_delete;
  static constexpr auto delete_all = sc_ohash_delete_all;
  static constexpr auto nelements = sc_ohash_nelements;
  static constexpr auto iter_construct = sc_ohash_iter_construct;
  static constexpr auto iter_next = sc_ohash_iter_next;
  static constexpr auto iter_destruct = sc_ohash_iter_destruct;
  static constexpr auto debug = sc_ohash_debug;
};

struct khash_family {
  using table = sc_khash;
  using element = sc_khash_element;
  using iter = sc_khash_iter;
  static constexpr const char *name = "sc_khash";
  static constexpr auto construct = sc_khash_construct;
  static constexpr auto destruct = sc_khash_destruct;
  static constexpr auto internal_insert = sc_khash_internal_insert;
  static constexpr auto findp = sc_khash_findp;
  static constexpr auto internal_delete = sc_khash_internal_delete;
  static constexpr auto delete_all = sc_khash_delete_all;
  // The record's count; sc_khash has no function for it.
  static uint32_t nelements(const sc_khash *t) { return t->nelements; }
  static constexpr auto iter_construct = sc_khash_iter_construct;
  static constexpr auto iter_next = sc_khash_iter_next;
  static constexpr auto iter_destruct = sc_khash_iter_destruct;
  static constexpr auto debug = sc_khash_debug;
};

// A family that inserts, finds and deletes by key (the control-side two).
template <typename F>
concept keyed_hash_family = requires {
  F::delete_key;
};

}  // namespace vell

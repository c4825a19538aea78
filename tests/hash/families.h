// The three hash families as the unit tests and the fuzz target see them:
// each family's adapter (vell/hash_family.hpp) plus what only the tests
// need, and Table<F>, one table read and written with byte strings.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host_record.h"
#include "sc_hash_private.h"
#include "vell/hash.hpp"

namespace ht {

using Bytes = std::string;

// Every value handed to a test table's value destructor, in order.
inline std::vector<Bytes> destroyed;
inline void record(void *v, uint32_t n) {
  destroyed.emplace_back(static_cast<char *>(v), n);
}

// Per family: the module its diagnostics name, whether it walks in list
// (insertion) order rather than bucket order, whether it takes its blocks
// from a size-class context, and make(), a table of n buckets that records
// its values (sc_khash's from the context given, a large one by default).
struct Hash : vell::hash_family {
  static inline const std::string kModule = "lib/re/ds/src/sc_hash";
  static constexpr bool kListOrder = false, kSz = false;
  // Internal to the library; reached through its private header.
  static constexpr auto findp = sc_hash_findp;
  static constexpr auto internal_delete = sc_hash_internal_delete;
  static sc_hash *make(uint32_t n, void * = nullptr) {
    return construct(n, record);
  }
};

struct Ohash : vell::ohash_family {
  static inline const std::string kModule = "lib/re/ds/src/sc_ohash";
  static constexpr bool kListOrder = true, kSz = false;
  static sc_ohash *make(uint32_t n, void * = nullptr) {
    return construct(n, "tbl", record);
  }
};

struct Khash : vell::khash_family {
  static inline const std::string kModule = "lib/pfe/ds/src/sc_khash";
  static constexpr bool kListOrder = false, kSz = true;
  static inline th::Ctx ctx{1 << 18};
  static sc_khash *make(uint32_t n, void *c = &ctx) {
    return construct(n, c, record);
  }
};

// Owns one table (null when it could not be made) and destroys it.
template <class F>
struct Table {
  using calls = vell::hash_calls<F>;
  typename F::table *t;

  explicit Table(typename F::table *table = F::make(8)) : t(table) {}
  ~Table() { F::destruct(t); }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  typename F::element *element(std::string_view k) {
    return *F::findp(t, k.data(), uint32_t(k.size()));
  }
  // The value's bytes before `split`, then the rest as the element's second
  // piece; by key when nothing is left over, and always for sc_hash, which
  // has no second piece.
  bool insert(std::string_view k, std::string_view v, size_t split) {
    const uint32_t ksz = uint32_t(k.size());
    if constexpr (requires { F::internal_insert; }) {
      if (split < v.size())
        return F::internal_insert(t, k.data(), ksz, v.data(), uint32_t(split),
                                  v.data() + split,
                                  uint32_t(v.size() - split)) != nullptr;
    }
    return calls::insert(t, k.data(), ksz, v.data(), uint32_t(v.size()));
  }
  bool erase(std::string_view k) {
    return calls::erase(t, k.data(), uint32_t(k.size()));
  }
  std::optional<Bytes> find(std::string_view k) {
    uint32_t vsz;
    const void *v = calls::find(t, k.data(), uint32_t(k.size()), &vsz);
    if (!v) return std::nullopt;
    return Bytes(static_cast<const char *>(v), vsz);
  }
};

}  // namespace ht

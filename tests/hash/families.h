// The three hash families as the unit tests and the fuzz target see them:
// each family's adapter (vell/hash_family.hpp) plus what only the tests
// need, Table<F>, one table read and written with byte strings, and
// image(), sc_hash's serialised form.
#pragma once

#include <stdint.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hash/key_hash.h"
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
  uint32_t index(std::string_view k) const {
    constexpr auto fold =
        F::kSz ? vds::hash::Fold::kLongKeys : vds::hash::Fold::kAlways;
    return vds::hash::key_hash<fold>(k.data(), uint32_t(k.size())) &
           (t->n_buckets - 1);
  }
  // key=value by `it` or a new iterator ("<no iterator>" when none can be
  // made); each(key) may delete the element just delivered. Once
  // exhausted, a walk returns -1 and writes nothing, or "<walked on>" ends
  // the list.
  std::vector<Bytes> walk(typename F::iter *it = nullptr,
                          const std::function<void(const Bytes &)> &each = {}) {
    typename F::iter *w = it ? it : F::iter_construct(t);
    if (!w) return {"<no iterator>"};
    std::vector<Bytes> out;
    void *k, *v;
    uint32_t ksz, vsz;
    for (Bytes key; F::iter_next(w, &k, &ksz, &v, &vsz) == 0;) {
      key.assign(static_cast<char *>(k), ksz);
      out.push_back(key + "=" + Bytes(static_cast<char *>(v), vsz));
      if (each) each(key);
    }
    void *const untouched = &k;
    k = untouched;
    if (F::iter_next(w, &k, 0, 0, 0) != -1 || k != untouched)
      out.push_back("<walked on>");
    if (!it) F::iter_destruct(w);
    return out;
  }
  // key=value in chain order, bucket by bucket; "<bad link>" for an
  // element whose pprev, table or bucket is wrong, and "<nelements>" last
  // when the count disagrees.
  std::vector<Bytes> chains() {
    std::vector<Bytes> out;
    for (uint32_t b = 0; b < t->n_buckets; b++) {
      for (auto **link = &t->buckets[b]; *link; link = &(*link)->next) {
        Bytes k(reinterpret_cast<char *>(*link + 1), (*link)->ksz);
        const bool sound =
            (*link)->pprev == link && (*link)->table == t && index(k) == b;
        out.push_back(sound ? k + "=" + find(k).value_or("<lost>")
                            : "<bad link>");
      }
    }
    if (out.size() != t->nelements) out.push_back("<nelements>");
    return out;
  }
};

// sc_hash's image; none when serialisation fails, which clears both
// outputs ("<bad outputs>" when it does not).
inline std::optional<Bytes> image(sc_hash *t) {
  void *buf = &buf;
  uint32_t len = 7;
  const bool ok = sc_hash_serialize(t, &buf, &len) == 0;
  if (ok ? buf == nullptr : buf != nullptr || len != 0) return "<bad outputs>";
  if (!ok) return std::nullopt;
  Bytes out(static_cast<char *>(buf), len);
  __sc_kfree(buf, len);
  return out;
}

}  // namespace ht

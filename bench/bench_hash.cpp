// Insert, find and delete rates of the three hash tables, next to
// std::unordered_map<std::string, std::string> in the same run, at 10^4 and
// 10^6 keys of 4, 16 and 64 bytes with 8-byte values. Smaller sets are
// repeated so every figure covers at least 10^6 operations.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "lpm_clock.h"
#include "sc_host_default.h"
#include "vell/hash.hpp"

namespace {

constexpr uint32_t kValueSize = 8;

uint64_t splitmix(uint64_t &s) {
  uint64_t z = (s += 0x9e3779b97f4a7c15ull);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

// n distinct keys of ksz bytes: random bytes, the key's number in the first
// four so no two are equal.
struct Keys {
  uint32_t n, ksz;
  std::vector<unsigned char> bytes;
  Keys(uint32_t n_, uint32_t ksz_)
      : n(n_), ksz(ksz_), bytes(size_t(n_) * ksz_) {
    uint64_t s = 42;
    for (auto &b : bytes) b = uint8_t(splitmix(s));
    for (uint32_t i = 0; i < n; i++) {
      uint32_t mixed = i * 2654435761u;  // a bijection of the key number
      memcpy(&bytes[size_t(i) * ksz], &mixed, 4);
    }
  }
  const unsigned char *operator[](uint32_t i) const {
    return &bytes[size_t(i) * ksz];
  }
};

struct Rates {
  double insert, find, erase;  // millions of operations per second
};

// Any of the three tables through the maps' calls (vell/hash.hpp); every
// table runs the same three phases. sc_khash takes its blocks from a
// context of its own.
template <class F>
struct HashTable {
  using calls = vell::hash_calls<F>;
  void *ctx = nullptr;
  typename F::table *t;
  explicit HashTable(uint32_t n) {
    if constexpr (std::is_same_v<typename F::table, sc_khash>) {
      ctx = sc_host_ctx_create(4096);
      t = calls::construct(n, ctx);
    } else {
      t = calls::construct(n);
    }
  }
  ~HashTable() {
    F::destruct(t);
    if (ctx) sc_host_ctx_destroy(ctx);
  }
  bool insert(const void *k, uint32_t ksz, const void *v) {
    return calls::insert(t, k, ksz, v, kValueSize);
  }
  bool find(const void *k, uint32_t ksz) { return calls::find(t, k, ksz); }
  bool erase(const void *k, uint32_t ksz) { return calls::erase(t, k, ksz); }
};

struct StdTable {
  std::unordered_map<std::string, std::string> m;
  explicit StdTable(uint32_t n) { m.reserve(n); }
  bool insert(const void *k, uint32_t ksz, const void *v) {
    m[std::string(static_cast<const char *>(k), ksz)] =
        std::string(static_cast<const char *>(v), kValueSize);
    return true;
  }
  bool find(const void *k, uint32_t ksz) {
    return m.find(std::string(static_cast<const char *>(k), ksz)) != m.end();
  }
  bool erase(const void *k, uint32_t ksz) {
    return m.erase(std::string(static_cast<const char *>(k), ksz)) == 1;
  }
};

template <class Table>
Rates measure(const Keys &keys) {
  const uint32_t reps = keys.n >= 1000000 ? 1 : 1000000 / keys.n;
  const char value[kValueSize] = "value!!";
  uint64_t misses = 0;
  double ins = 0, fnd = 0, del = 0;
  for (uint32_t rep = 0; rep < reps; rep++) {
    Table t(keys.n);
    ins += lpm::seconds([&] {
      for (uint32_t i = 0; i < keys.n; i++)
        misses += !t.insert(keys[i], keys.ksz, value);
    });
    fnd += lpm::seconds([&] {
      for (uint32_t i = 0; i < keys.n; i++)
        misses += !t.find(keys[i], keys.ksz);
    });
    del += lpm::seconds([&] {
      for (uint32_t i = 0; i < keys.n; i++)
        misses += !t.erase(keys[i], keys.ksz);
    });
  }
  if (misses)
    fprintf(stderr, "unexpected misses: %llu\n", (unsigned long long)misses);
  const double mops = double(keys.n) * reps / 1e6;
  return Rates{mops / ins, mops / fnd, mops / del};
}

}  // namespace

int main() {
  sc_host_set_debug_level(2);
  printf("%-14s %8s %4s %12s %12s %12s   (Mops/s)\n", "table", "keys", "ksz",
         "insert", "find", "delete");
  for (uint32_t n : {10000u, 1000000u}) {
    for (uint32_t ksz : {4u, 16u, 64u}) {
      Keys keys(n, ksz);
      struct Row {
        const char *name;
        Rates r;
      } rows[] = {{vell::hash_family::name,
                   measure<HashTable<vell::hash_family>>(keys)},
                  {vell::ohash_family::name,
                   measure<HashTable<vell::ohash_family>>(keys)},
                  {vell::khash_family::name,
                   measure<HashTable<vell::khash_family>>(keys)},
                  {"unordered_map", measure<StdTable>(keys)}};
      for (const Row &row : rows)
        printf("%-14s %8u %4u %12.1f %12.1f %12.1f\n", row.name, n, ksz,
               row.r.insert, row.r.find, row.r.erase);
    }
  }
  return 0;
}

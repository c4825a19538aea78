// Helpers shared by the hash-table tests.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "test_host.h"

namespace ht {

using Bytes = std::string;

inline Bytes bytes(std::initializer_list<int> v) {
  Bytes s;
  for (int b : v) s.push_back(char(b));
  return s;
}

// Every value the value destructor was handed, as bytes.
inline std::vector<Bytes> &destroyed() {
  static std::vector<Bytes> log;
  return log;
}
inline void record_destroyed(void *val, uint32_t vsz) {
  destroyed().emplace_back(static_cast<char *>(val), vsz);
}

// Everything an iterator delivers, as key=value, until next() reports the
// end.
template <class It, class Next>
std::vector<std::string> drain(It *it, Next next) {
  std::vector<std::string> out;
  void *k, *v;
  uint32_t ksz, vsz;
  while (next(it, &k, &ksz, &v, &vsz) == 0)
    out.push_back(Bytes(static_cast<char *>(k), ksz) + "=" +
                  Bytes(static_cast<char *>(v), vsz));
  return out;
}

// A whole walk with a fresh iterator.
template <class T, class It, class Next>
std::vector<std::string> walk(T *t, It *(*construct)(T *), Next next,
                              void (*destruct)(It *)) {
  It *it = construct(t);
  EXPECT_TRUE(it);
  std::vector<std::string> out = drain(it, next);
  destruct(it);
  return out;
}

// Walks the chains directly (no allocation) and checks the links: every
// pprev names the link holding its element, every element names its table
// and lies in its key's bucket, and nelements counts them. Returns
// "bucket:key=value" per element, in bucket and chain order.
template <class T, class Index>
std::vector<std::string> chains(T *t, Index index) {
  std::vector<std::string> out;
  for (uint32_t b = 0; b < t->n_buckets; b++) {
    for (auto **link = &t->buckets[b]; *link; link = &(*link)->next) {
      auto *e = *link;
      EXPECT_EQ(e->pprev, link);
      EXPECT_EQ(e->table, t);
      const char *key = reinterpret_cast<char *>(e) + sizeof *e;
      const char *val = key + ((e->ksz + 3u) & ~3u);
      EXPECT_EQ(index(t, Bytes(key, e->ksz)), b);
      out.push_back(std::to_string(b) + ":" + Bytes(key, e->ksz) + "=" +
                    Bytes(val, e->vsz));
    }
  }
  EXPECT_EQ(out.size(), t->nelements);
  return out;
}

// Fails, in turn, every allocation the operation bracketed by arm() makes:
// body(arm) sets up without failures, calls arm() just before the operation
// and checks its outcome (th::failure_injected() tells which run it is).
// Returns the diagnostics of each failing run, one string per run; each
// must be at level 2, and one raised by another module than the given one
// is prefixed with that module's name in brackets. Leaks and release errors
// are checked after every run.
template <class Body>
std::vector<std::string> failure_texts(const char *module, Body body) {
  std::vector<std::string> out;
  th::sweep([&](long k) {
    th::fail_nth(0);
    body([k] {
      th::clear_output();
      th::fail_nth(k);
    });
    if (!th::failure_injected()) return;
    std::string all;
    for (const th::Diag &d : th::diags()) {
      EXPECT_EQ(d.level, 2) << d.text;
      if (d.file != module) all += "[" + d.file + "] ";
      all += d.text;
    }
    out.push_back(all);
  });
  return out;
}

inline std::string num(size_t n) { return std::to_string(n); }

}  // namespace ht

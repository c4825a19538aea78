// Helpers shared by the vector tests.
#pragma once

#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "sc_vector.h"
#include "test_host.h"

namespace vt {

using Msgs = std::vector<std::string>;
using V = std::vector<uint32_t>;

// Builds a vector of 4-byte values.
inline sc_vector *make(uint32_t n, int factor, const V &xs) {
  sc_vector *v = sc_vector_construct(n, 4, factor);
  for (uint32_t x : xs) EXPECT_EQ(sc_vector_add(v, &x), 0);
  return v;
}

// The elements of a vector of 4-byte values, read through sc_vector_get.
inline V values(sc_vector *v) {
  V out(v->nElements);
  for (uint32_t i = 0; i < v->nElements; i++) {
    void *p = nullptr;
    EXPECT_EQ(sc_vector_get(v, i, &p), 0);
    memcpy(&out[i], p, 4);
  }
  return out;
}

// The diagnostics since the last reset are level-2 vector messages with
// exactly these texts.
inline void expect_diags(const Msgs &msgs) {
  Msgs texts;
  for (const th::Diag &d : th::diags()) {
    EXPECT_EQ(d.level, 2) << d.text;
    EXPECT_EQ(d.file, "lib/pfe/ds/src/sc_vector") << d.text;
    texts.push_back(d.text);
  }
  EXPECT_EQ(texts, msgs);
}

inline std::string kmalloc_failed(const char *op, size_t size) {
  return std::string(op) + ": sc_kmalloc(" + std::to_string(size) +
         ") failed\n";
}

// Fails each allocation of op(v) in turn on a vector made by setup() with
// failures off. check(v, result, point) sees point 0 in the run where
// nothing failed. Returns the number of allocation points.
template <typename Setup, typename Op, typename Check>
int sweep_op(Setup setup, Op op, Check check) {
  return th::sweep([&](long k) {
    th::fail_nth(0);
    sc_vector *v = setup();
    th::clear_output();
    th::fail_nth(k);
    int r = op(v);
    check(v, r, th::failure_injected() ? k : 0);
    sc_vector_destruct(v);  // releases only, so the sweep sees op's failure
  });
}

}  // namespace vt

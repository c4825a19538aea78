// Helpers shared by the vector tests.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "sc_vector.h"
#include "test_host.h"

namespace vt {

using Msgs = std::vector<std::string>;

// The elements of a vector of 4-byte values, read through sc_vector_get.
inline std::vector<uint32_t> values(sc_vector *v) {
  std::vector<uint32_t> out;
  for (uint32_t i = 0; i < v->nElements; i++) {
    void *p = nullptr;
    EXPECT_EQ(sc_vector_get(v, i, &p), 0);
    uint32_t x;
    memcpy(&x, p, 4);
    out.push_back(x);
  }
  return out;
}

inline void add_all(sc_vector *v, std::initializer_list<uint32_t> xs) {
  for (uint32_t x : xs) ASSERT_EQ(sc_vector_add(v, &x), 0);
}

// Every diagnostic since the last reset is a level-2 vector message; their
// texts are exactly `msgs`.
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

// Fails each allocation of op(v) in turn on a vector made by setup(), with
// the host's failure plan off during setup. check(v, result, point) sees
// point 0 for the run in which nothing failed. The vector is destroyed
// afterwards.
template <typename Setup, typename Op, typename Check>
int sweep_op(Setup setup, Op op, Check check) {
  return th::sweep([&](long k) {
    th::fail_nth(0);
    sc_vector *v = setup();
    ASSERT_NE(v, nullptr);
    th::clear_output();
    th::fail_nth(k);
    int r = op(v);
    check(v, r, th::failure_injected() ? k : 0);
    sc_vector_destruct(v);  // releases only, so the sweep sees op's failure
  });
}

}  // namespace vt

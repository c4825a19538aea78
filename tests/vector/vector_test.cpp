// Vector tests: capacities and their limit, every failed allocation, the
// comparator contract, the dump text, and random sequences against a model.
#include <stdio.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "sc_vector.h"
#include "test_host.h"
#include "vector_model.h"

namespace {

using VectorTest = HostTest;

th::Ctx ctx(64);
const std::string kRoomFailed = "sc_vector_add: sc_vector_make_room() failed\n";

// A vector of the 4-byte values 1 to count, made with n slots.
sc_vector *make(uint32_t n, int factor, uint32_t count) {
  sc_vector *v = sc_vector_construct(n, 4, factor);
  for (uint32_t i = 1; i <= count; i++) EXPECT_EQ(sc_vector_add(v, &i), 0);
  return v;
}

// A vector of 4-byte values, its capacity and any flags: "1 2 3 /4 f2";
// "null" for no vector.
std::string show(sc_vector *v) {
  if (!v) return "null";
  std::vector<uint32_t> xs(v->nElements);
  sc_vector_get_all(v, xs.data());
  std::string s;
  for (uint32_t x : xs) s += std::to_string(x) + " ";
  (s += "/") += std::to_string(v->nAlloc);
  if (v->flags) (s += " f") += std::to_string(v->flags);
  return s;
}

// The diagnostics since the last call, each a level-2 vector message.
std::string diags() {
  std::string all;
  for (const th::Diag &d : th::diags()) {
    EXPECT_EQ(d.file + std::to_string(d.level), "lib/pfe/ds/src/sc_vector2");
    all += d.text;
  }
  th::clear_output();
  return all;
}

// Growth to 150% of what is wanted, rounded down; failed reads leave the
// out pointer alone.
TEST_F(VectorTest, CapacityGrowsByTheFactorWithinThirtyTwoBits) {
  sc_vector *v = make(0, 0, 0);
  EXPECT_EQ(v->elements, nullptr);
  std::string caps;
  for (uint32_t i = 0; i < 11; i++)
    caps += std::to_string(sc_vector_add(v, &i) ? 0 : v->nAlloc) + " ";
  EXPECT_EQ(caps, "1 3 3 6 6 6 10 10 10 10 16 ");
  void *p = nullptr;
  ASSERT_EQ(sc_vector_get(v, 10, &p), 0);
  EXPECT_EQ(sc_vector_get(v, 11, &p), -1);
  EXPECT_EQ(sc_vector_get(v, UINT32_MAX, &p), -1);
  EXPECT_EQ(p, static_cast<uint32_t *>(v->elements) + 10);
  char text[256];
  snprintf(text, sizeof text,
           "sc_vector_get: index 11 out of range 11 for vector %p\n"
           "sc_vector_get: index -1 out of range 11 for vector %p\n",
           static_cast<void *>(v), static_cast<void *>(v));
  EXPECT_EQ(diags(), text);
  sc_vector_destruct(v);

  EXPECT_EQ(sc_vector_construct(UINT32_MAX, 1, 0), nullptr);
  EXPECT_EQ(sc_vector_construct(1 << 16, 1 << 16, 0), nullptr);
  v = sc_vector_construct(1, 0, 0);  // as if 2^32 - 1 empty elements
  v->nElements = v->nAlloc = UINT32_MAX;
  EXPECT_EQ(sc_vector_add(v, ""), -1);
  EXPECT_EQ(diags(),
            "sc_vector_make_room: 6442450942 slots of 1 bytes exceed 32 bits\n"
            "sc_vector_make_room: 98304 slots of 65536 bytes exceed 32 bits\n"
            "sc_vector_make_room: 6442450944 slots of 0 bytes exceed 32 bits\n"
            "sc_vector_add: sc_vector_make_room() failed\n");
  sc_vector_destruct(v);
  sc_vector_destruct(nullptr);
  EXPECT_EQ(sc_vector_copy(nullptr), nullptr);
  EXPECT_EQ(sc_vector_memory_usage(nullptr), 0u);
}

sc_vector *s, *made;  // the subject of a test, and what an operation made
bool contract_kept = true;

int (*const ops[])() = {
    [] { return -!(made = sc_vector_construct(10, 4, 0)); },
    [] { return -!(made = sc_vector_szconstruct(ctx, 10, 4, 0)); },
    [] { return -!(made = sc_vector_construct_no_grow(10, 4)); },
    [] { return -!(made = sc_vector_szconstruct_no_grow(ctx, 10, 4)); },
    [] { return -!(made = sc_vector_szconstruct_no_grow(nullptr, 10, 4)); },
    [] { return sc_vector_add(s, s->elements); },  // from storage it moves
    [] { return sc_vector_append(s, s); },
    [] { return sc_vector_compact(s); },
    [] { return -!(made = sc_vector_copy(s)); }};

// Every allocation of each operation failed in turn, then none. A run reads
// "result subject made", then the diagnostics: a failure leaves the subject
// as it was (but for what append added before it) and leaks nothing.
TEST_F(VectorTest, EveryFailedAllocationReportsAndChangesNothing) {
  const std::string rec = std::to_string(sizeof(sc_vector)) + ") failed\n",
                    km = "sc_vector_construct: sc_kmalloc(" + rec,
                    sz = "sc_vector_construct: sc_szalloc(" + rec,
                    room = "sc_vector_make_room: sc_kmalloc(",
                    copy = "sc_vector_copy: sc_vector_construct() failed\n";
  auto ctor = [&](const std::string &record, const std::string &then) {
    return "-1 null null\n" + record + then + "-1 null null\n" + room +
           "60) failed\n" + then + "0 null /15" + (then.empty() ? "" : " f2") +
           "\n";
  };
  auto ng = [](std::string f) { return f + "_no_grow: " + f + "() failed\n"; };
  auto add_failed = [&](const char *subject, int bytes) {
    return "-1 " + std::string(subject) + " null\n" + room +
           std::to_string(bytes) + ") failed\n" + kRoomFailed;
  };
  struct {
    int op, n, factor, count, flags;  // the subject if n >= 0, with flags
    std::string runs;
  } cases[] = {
      {0, -1, 0, 0, 0, ctor(km, "")},
      {1, -1, 0, 0, 0, ctor(sz, "")},
      {2, -1, 0, 0, 0, ctor(km, ng("sc_vector_construct"))},
      {3, -1, 0, 0, 0, ctor(sz, ng("sc_vector_szconstruct"))},
      {4, -1, 0, 0, 0, ctor(km, ng("sc_vector_szconstruct"))},
      {5, 2, 0, 3, 0, add_failed("1 2 3 /3", 24) + "0 1 2 3 1 /6 null\n"},
      // A factor with zero low 16 bits is stored as 0: then no growth.
      {5, 1, 1 << 16, 1, 0,
       "-1 1 /1 null\nsc_vector_make_room: resizeFactor is zero!\n" +
           kRoomFailed},
      // Appended to itself with a 1% factor, it grows at every element.
      {6, 3, 1, 3, 0,
       add_failed("1 2 3 /3", 16) + add_failed("1 2 3 1 /4", 20) +
           add_failed("1 2 3 1 2 /5", 24) + "0 1 2 3 1 2 3 /6 null\n"},
      {7, 4, 0, 2, 0,
       "-1 1 2 /6 null\nsc_vector_compact: sc_kmalloc(8) failed\n"
       "0 1 2 /2 null\n"},
      // Exact, nothing is taken; empty, the storage goes back.
      {7, 2, 0, 3, 0, "0 1 2 3 /3 null\n"},
      {7, 5, 0, 0, 0, "0 /0 null\n"},
      // A full no-grow vector refuses, keeping what was added.
      {6, 2, 0, 2, SC_VECTOR_NOGROW,
       "-1 1 2 1 /3 f2 null\nsc_vector_add: vector full (3)\n"},
      // The copy of a sorted no-grow vector is plain, sized for its count.
      {8, 10, 0, 3, SC_VECTOR_SORTED | SC_VECTOR_NOGROW,
       "-1 1 2 3 /15 f3 null\n" + km + copy + "-1 1 2 3 /15 f3 null\n" + room +
           "16) failed\n" + copy + "0 1 2 3 /15 f3 1 2 3 /4\n"},
  };
  for (auto &c : cases) {
    std::string runs;
    th::sweep([&](long k) {
      th::fail_nth(0);
      made = nullptr;
      s = c.n < 0 ? nullptr : make(c.n, c.factor, c.count);
      if (s) s->flags |= c.flags;
      th::fail_nth(k);
      const int r = ops[c.op]();
      runs += std::to_string(r) + " " + show(s) + " " + show(made) + "\n";
      runs += diags();
      for (sc_vector *x : {made, s}) sc_vector_destruct(x);
      // A size-class record, once taken, goes back through __sc_kfree.
      th::expect_sz_released_by_kfree((c.op == 1 || c.op == 3) && k > 1);
    });
    EXPECT_EQ(runs, c.runs);
  }
}

// Orders by the first byte, descending, and checks that every call is
// handed the vector and two of its slots.
int by_first_byte_desc(const void *a, const void *b, void *arg) {
  for (const void *p : {a, b}) {
    const uintptr_t off = uintptr_t(p) - uintptr_t(s->elements);
    contract_kept &= arg == s && off < s->nElements * 4u && off % 4 == 0;
  }
  return *static_cast<const uint8_t *>(b) - *static_cast<const uint8_t *>(a);
}

// 0x101 and 0x201 compare equal but differ, so both stay. Once marked
// sorted, a vector is not sorted again: only neighbours merge.
TEST_F(VectorTest, ComparatorSetsTheOrderButEqualityStaysBytewise) {
  s = make(0, 0, 0);
  for (uint32_t x : {0x101, 0x302, 0x201, 0x302, 0x302}) sc_vector_add(s, &x);
  sc_vector_unique(s, by_first_byte_desc);
  EXPECT_TRUE(contract_kept);
  EXPECT_EQ(std::to_string(s->nElements) + show(s).substr(0, 4), "3770 ");
  memcpy(s->elements, "\3\0\0\0\1\0\0\0\1\0\0\0", 12);
  sc_vector_unique(s, nullptr);
  EXPECT_EQ(show(s), "3 1 /6 f1");
  sc_vector_destruct(s);
}

// Dumps do not depend on the debug level; bytes go in barred groups of four.
TEST_F(VectorTest, DumpText) {
  __sc_debug_level = 0;
  struct {
    uint32_t size;
    const char *bytes, *line;
  } cases[] = {
      {6, "\x00\x11\x22\x33\x44\x55", "    0: |00112233|4455\n"},
      {8, "\x01\x02\x03\x04\xa5\xb6\xc7\xd8", "    0: |01020304|a5b6c7d8|\n"},
      {0, "", "    0: |\n"}};
  std::string want;
  for (auto &c : cases) {
    sc_vector *v = sc_vector_construct(0, c.size, 0);
    ASSERT_EQ(sc_vector_add(v, c.bytes) + sc_vector_add(v, c.bytes), 0);
    sc_vector_debug(v, 0);
    sc_vector_debug(v, 2);
    char header[128];
    snprintf(header, sizeof header,
             "vector %p: nElements=2, nAlloc=3, elementSize=%u\n",
             static_cast<void *>(v), c.size);
    std::string second = c.line;
    second[4] = '1';
    want += header + (header + (c.line + second));
    sc_vector_destruct(v);
  }
  EXPECT_EQ(th::console(), want);
}

// Random sequences through every constructor and element size against
// the model shared with the fuzz target.
TEST_F(VectorTest, RandomOperationsMatchTheModel) {
  std::mt19937 rng(20261122);
  for (int run = 0; run < 40 && !HasFailure(); run++) {
    SCOPED_TRACE(run);
    VectorModel m(
        ctx, [&](uint32_t n) { return uint32_t(rng() % n); },
        [](const char *what, int line) {
          ADD_FAILURE_AT("vector_model.h", line) << what;
        });
    for (int step = 0; m.v && step < 400 && !HasFailure(); step++) {
      m.step();
      m.check();
    }
  }
  th::clear_output();  // refusals of the no-grow vectors
}

}  // namespace

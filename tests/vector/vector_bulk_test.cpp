#include <stdio.h>

#include <algorithm>

#include "vector_support.h"

namespace {

using VectorBulk = HostTest;
using vt::expect_diags;
using vt::V;
using B = std::vector<uint8_t>;

sc_vector *bytes_vector(const B &xs) {
  sc_vector *v = sc_vector_construct(0, 1, 0);
  for (uint8_t x : xs) EXPECT_EQ(sc_vector_add(v, &x), 0);
  return v;
}

B bytes_of(sc_vector *v) {
  B out(v->nElements);
  sc_vector_get_all(v, out.data());
  return out;
}

// Without a comparator the order is that of the element bytes: stored
// little-endian, 0x01000000 (00 00 00 01) comes before 256 (00 01 00 00).
TEST_F(VectorBulk, DefaultSortOrdersByElementBytes) {
  sc_vector *v = vt::make(0, 0, {});
  sc_vector_sort(v, nullptr);  // no storage yet
  EXPECT_EQ(v->flags, SC_VECTOR_SORTED);
  for (uint32_t x : {2, 1, 256, 0x01000000}) ASSERT_EQ(sc_vector_add(v, &x), 0);
  EXPECT_EQ(v->flags, 0);
  sc_vector_sort(v, nullptr);
  EXPECT_EQ(vt::values(v), (V{0x01000000, 256, 1, 2}));
  EXPECT_EQ(v->flags, SC_VECTOR_SORTED);
  sc_vector_destruct(v);
}

const sc_vector *expected_vector;
bool contract_kept = true;

// Orders by the first byte, descending. Every call must receive the vector
// and the addresses of two of its slots.
int by_first_byte_desc(const void *a, const void *b, void *arg) {
  const sc_vector *v = static_cast<const sc_vector *>(arg);
  for (const void *p : {a, b}) {
    size_t off =
        static_cast<const char *>(p) - static_cast<const char *>(v->elements);
    if (off >= size_t{v->nElements} * v->elementSize ||
        off % v->elementSize != 0)
      contract_kept = false;
  }
  if (v != expected_vector) contract_kept = false;
  return *static_cast<const uint8_t *>(b) - *static_cast<const uint8_t *>(a);
}

TEST_F(VectorBulk, ComparatorSetsTheOrderButEqualityStaysBytewise) {
  sc_vector *v = sc_vector_construct(0, 2, 0);
  for (uint16_t x : {0x0101, 0x0302, 0x0201, 0x0302, 0x0302})
    ASSERT_EQ(sc_vector_add(v, &x), 0);
  expected_vector = v;
  sc_vector_unique(v, by_first_byte_desc);
  EXPECT_TRUE(contract_kept);
  // 0x0101 and 0x0201 compare equal but differ, so both stay.
  std::vector<uint16_t> out(v->nElements);
  sc_vector_get_all(v, out.data());
  ASSERT_EQ(out.size(), 3u);
  std::sort(out.begin() + 1, out.end());
  EXPECT_EQ(out, (std::vector<uint16_t>{0x0302, 0x0101, 0x0201}));
  sc_vector_destruct(v);
}

TEST_F(VectorBulk, UniqueSortsUnlessMarkedAndRemoveDupKeepsOrder) {
  sc_vector *u = bytes_vector({3, 1, 3, 2, 1});
  sc_vector *r = bytes_vector({3, 1, 3, 2, 1});
  sc_vector_unique(u, nullptr);
  sc_vector_remove_dup(r);
  EXPECT_EQ(bytes_of(u), (B{1, 2, 3}));
  EXPECT_EQ(u->flags, SC_VECTOR_SORTED);
  EXPECT_EQ(bytes_of(r), (B{3, 1, 2}));
  EXPECT_EQ(r->flags, 0);
  // Marked sorted: only neighbours are merged, nothing is reordered.
  memcpy(u->elements, "\3\1\1", 3);
  sc_vector_unique(u, nullptr);
  EXPECT_EQ(bytes_of(u), (B{3, 1}));
  for (sc_vector *v : {u, r}) sc_vector_destruct(v);

  for (const B &xs : {B{}, B{9}}) {  // nothing to merge, nothing sorted
    sc_vector *v = bytes_vector(xs);
    sc_vector_unique(v, nullptr);
    sc_vector_remove_dup(v);
    EXPECT_EQ(bytes_of(v), xs);
    EXPECT_EQ(v->flags, 0);
    sc_vector_destruct(v);
  }
  for (auto dedup : {+[](sc_vector *v) { sc_vector_unique(v, nullptr); },
                     +[](sc_vector *v) { sc_vector_remove_dup(v); }}) {
    sc_vector *v = sc_vector_construct(0, 0, 0);  // all empty elements equal
    for (int i = 0; i < 5; i++) ASSERT_EQ(sc_vector_add(v, ""), 0);
    dedup(v);
    EXPECT_EQ(v->nElements, 1u);
    sc_vector_destruct(v);
  }
}

TEST_F(VectorBulk, CopyIsAPlainGrowableVectorWithTheSameElements) {
  th::Ctx ctx(64);
  sc_vector *v = sc_vector_szconstruct_no_grow(ctx, 10, 4);
  for (uint32_t x : {4, 3, 2, 1}) ASSERT_EQ(sc_vector_add(v, &x), 0);
  sc_vector_sort(v, nullptr);
  EXPECT_EQ(sc_vector_memory_usage(v), sizeof(sc_vector) + 60);
  th::expect_sz_released_by_kfree(1);
  sc_vector *c = sc_vector_copy(v);
  for (size_t i : {1, 2})  // record and storage
    EXPECT_EQ(th::blocks()[th::blocks().size() - i].alloc, th::Alloc::kmalloc);
  EXPECT_EQ(c->nAlloc, 6u);
  EXPECT_EQ(c->flags, 0);
  EXPECT_EQ(vt::values(c), (V{1, 2, 3, 4}));
  EXPECT_EQ(sc_vector_add(c, "abcd"), 0);
  EXPECT_EQ(sc_vector_copy(nullptr), nullptr);
  EXPECT_EQ(sc_vector_memory_usage(nullptr), 0u);
  EXPECT_TRUE(th::diags().empty());
  for (sc_vector *x : {c, v}) sc_vector_destruct(x);

  int points = vt::sweep_op(
      [] {
        return vt::make(0, 0, {1, 2, 3});
      },
      [](sc_vector *s) {
        sc_vector *copy = sc_vector_copy(s);
        if (copy) {
          EXPECT_EQ(vt::values(copy), (V{1, 2, 3}));
        }
        sc_vector_destruct(copy);
        return copy ? 0 : -1;
      },
      [](sc_vector *s, int r, long point) {
        EXPECT_EQ(r, point ? -1 : 0);
        EXPECT_EQ(vt::values(s), (V{1, 2, 3}));
        if (point)
          expect_diags({point == 1
                            ? vt::kmalloc_failed("sc_vector_construct",
                                                 sizeof(sc_vector))
                            : vt::kmalloc_failed("sc_vector_make_room", 16),
                        "sc_vector_copy: sc_vector_construct() failed\n"});
      });
  EXPECT_EQ(points, 2);
}

TEST_F(VectorBulk, DumpWritesEachElementsBytesInBarredGroupsOfFour) {
  __sc_debug_level = 0;  // dumps do not depend on the debug level
  struct {
    uint32_t size;
    const char *bytes, *line;
  } cases[] = {
      {6, "\x00\x11\x22\x33\x44\x55", "    0: |00112233|4455\n"},
      {8, "\x01\x02\x03\x04\xa5\xb6\xc7\xd8", "    0: |01020304|a5b6c7d8|\n"},
      {0, "", "    0: |\n"}};
  for (auto &c : cases) {
    sc_vector *v = sc_vector_construct(0, c.size, 0);
    ASSERT_EQ(sc_vector_add(v, c.bytes), 0);
    ASSERT_EQ(sc_vector_add(v, c.bytes), 0);
    char header[128];
    snprintf(header, sizeof header,
             "vector %p: nElements=2, nAlloc=3, elementSize=%u\n",
             static_cast<void *>(v), c.size);
    th::clear_output();
    sc_vector_debug(v, 0);
    EXPECT_EQ(th::console(), header);
    th::clear_output();
    sc_vector_debug(v, 2);
    std::string second = c.line;
    second[4] = '1';
    EXPECT_EQ(th::console(), header + std::string(c.line) + second);
    sc_vector_destruct(v);
  }
}

}  // namespace

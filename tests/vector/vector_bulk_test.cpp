#include <stdio.h>

#include <algorithm>

#include "vector_support.h"

namespace {

using VectorBulk = HostTest;
using vt::expect_diags;
using V = std::vector<uint32_t>;

sc_vector *bytes_vector(std::initializer_list<uint8_t> xs) {
  sc_vector *v = sc_vector_construct(0, 1, 0);
  for (uint8_t x : xs) EXPECT_EQ(sc_vector_add(v, &x), 0);
  return v;
}

std::vector<uint8_t> bytes_of(sc_vector *v) {
  std::vector<uint8_t> out(v->nElements);
  sc_vector_get_all(v, out.data());
  return out;
}

using B = std::vector<uint8_t>;

// Without a comparator the order is that of the element bytes, so
// little-endian 256 (00 01 00 00) sorts before 1 (01 00 00 00).
TEST_F(VectorBulk, DefaultSortOrdersByElementBytes) {
  sc_vector *v = sc_vector_construct(0, 4, 0);
  ASSERT_TRUE(v);
  sc_vector_sort(v, nullptr);  // no storage yet
  EXPECT_EQ(v->flags, SC_VECTOR_SORTED);
  vt::add_all(v, {2, 1, 256, 0x01000000});
  EXPECT_EQ(v->flags, 0);
  sc_vector_sort(v, nullptr);
  EXPECT_EQ(vt::values(v), (V{0x01000000, 256, 1, 2}));
  EXPECT_EQ(v->flags, SC_VECTOR_SORTED);
  sc_vector_destruct(v);
}

struct Seen {
  const sc_vector *v;
  bool ok = true;
};
Seen *seen;

// Elements compare by their first byte only; every call must receive the
// vector and two slot addresses inside its storage.
int by_first_byte_desc(const void *a, const void *b, void *arg) {
  const sc_vector *v = static_cast<const sc_vector *>(arg);
  auto in_slot = [v](const void *p) {
    size_t off =
        static_cast<const char *>(p) - static_cast<const char *>(v->elements);
    return off < size_t{v->nElements} * v->elementSize &&
           off % v->elementSize == 0;
  };
  if (v != seen->v || !in_slot(a) || !in_slot(b)) seen->ok = false;
  return *static_cast<const uint8_t *>(b) - *static_cast<const uint8_t *>(a);
}

TEST_F(VectorBulk, ComparatorReceivesTheVectorAndEqualityStaysBytewise) {
  sc_vector *v = sc_vector_construct(0, 2, 0);
  ASSERT_TRUE(v);
  const uint16_t in[] = {0x0101, 0x0302, 0x0201, 0x0302, 0x0302};
  for (uint16_t x : in) ASSERT_EQ(sc_vector_add(v, &x), 0);
  Seen s{v};
  seen = &s;
  sc_vector_unique(v, by_first_byte_desc);
  EXPECT_TRUE(s.ok);
  EXPECT_EQ(v->flags, SC_VECTOR_SORTED);
  // 0x0101 and 0x0201 share a first byte but differ, so both stay (in an
  // order the sort chose); the copies of each are gone.
  ASSERT_EQ(v->nElements, 3u);
  std::vector<uint16_t> out(3);
  sc_vector_get_all(v, out.data());
  EXPECT_EQ(out[0], 0x0302);
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
  EXPECT_EQ(r->nAlloc, 6u);

  // Marked sorted: only neighbours are merged, nothing is reordered.
  memcpy(u->elements, "\3\1\1", 3);
  sc_vector_unique(u, nullptr);
  EXPECT_EQ(bytes_of(u), (B{3, 1}));
  sc_vector_destruct(u);
  sc_vector_destruct(r);

  // Vectors of 0 or 1 elements are left as they are, flags included.
  for (auto xs : {B{}, B{9}}) {
    sc_vector *v = sc_vector_construct(0, 1, 0);
    for (uint8_t x : xs) sc_vector_add(v, &x);
    sc_vector_unique(v, nullptr);
    sc_vector_remove_dup(v);
    EXPECT_EQ(bytes_of(v), xs);
    EXPECT_EQ(v->flags, 0);
    sc_vector_destruct(v);
  }

  // Empty elements are all equal: one is kept.
  for (bool sorted : {true, false}) {
    sc_vector *v = sc_vector_construct(0, 0, 0);
    for (int i = 0; i < 5; i++) ASSERT_EQ(sc_vector_add(v, ""), 0);
    if (sorted)
      sc_vector_unique(v, nullptr);
    else
      sc_vector_remove_dup(v);
    EXPECT_EQ(v->nElements, 1u);
    sc_vector_destruct(v);
  }
}

TEST_F(VectorBulk, CopyIsAGrowableGeneralHeapVectorWithTheSameElements) {
  th::Ctx ctx(64);
  sc_vector *v = sc_vector_szconstruct_no_grow(ctx, 10, 4);
  ASSERT_TRUE(v);
  vt::add_all(v, {4, 3, 2, 1});
  sc_vector_sort(v, nullptr);
  th::expect_sz_released_by_kfree(1);
  size_t before = th::blocks().size();
  sc_vector *c = sc_vector_copy(v);
  ASSERT_TRUE(c);
  EXPECT_EQ(th::blocks()[before].alloc, th::Alloc::kmalloc);
  EXPECT_EQ(c->nAlloc, 6u);
  EXPECT_EQ(c->flags, 0);
  EXPECT_EQ(vt::values(c), vt::values(v));
  vt::add_all(c, {5, 6, 7});
  EXPECT_EQ(c->nAlloc, 10u);
  EXPECT_EQ(sc_vector_copy(nullptr), nullptr);
  EXPECT_TRUE(th::diags().empty());
  sc_vector_destruct(c);
  sc_vector_destruct(v);

  // Each allocation of the copy failed in turn.
  int points = vt::sweep_op(
      [] {
        sc_vector *s = sc_vector_construct(0, 4, 0);
        vt::add_all(s, {1, 2, 3});
        return s;
      },
      [](sc_vector *s) {
        sc_vector *copy = sc_vector_copy(s);
        const bool ok = copy != nullptr;
        if (ok) {
          EXPECT_EQ(vt::values(copy), (V{1, 2, 3}));
        }
        sc_vector_destruct(copy);
        return ok ? 0 : -1;
      },
      [](sc_vector *s, int r, long point) {
        EXPECT_EQ(r, point ? -1 : 0);
        EXPECT_EQ(vt::values(s), (V{1, 2, 3}));
        if (!point) return;
        const std::string first =
            point == 1
                ? vt::kmalloc_failed("sc_vector_construct", sizeof(sc_vector))
                : vt::kmalloc_failed("sc_vector_make_room", 16);
        expect_diags({first, "sc_vector_copy: sc_vector_construct() failed\n"});
      });
  EXPECT_EQ(points, 2);
}

TEST_F(VectorBulk, MemoryUsageCountsEverySlot) {
  sc_vector *v = sc_vector_construct(10, 8, 0);
  ASSERT_TRUE(v);
  EXPECT_EQ(sc_vector_memory_usage(v), sizeof(sc_vector) + 120);
  EXPECT_EQ(sc_vector_memory_usage(nullptr), 0u);
  sc_vector_destruct(v);
}

TEST_F(VectorBulk, DumpWritesTheHeaderAndEachElementsBytesInGroupsOfFour) {
  char header[128];
  const uint8_t six[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  const uint8_t eight[] = {1, 2, 3, 4, 0xa5, 0xb6, 0xc7, 0xd8};
  __sc_debug_level = 0;  // dumps do not depend on the debug level

  sc_vector *v = sc_vector_construct(0, 6, 0);
  ASSERT_TRUE(v);
  ASSERT_EQ(sc_vector_add(v, six), 0);
  ASSERT_EQ(sc_vector_add(v, six), 0);
  snprintf(header, sizeof header,
           "vector %p: nElements=2, nAlloc=3, elementSize=6\n",
           static_cast<void *>(v));
  sc_vector_debug(v, 0);
  EXPECT_EQ(th::console(), header);
  th::clear_output();
  sc_vector_debug(v, 1);
  EXPECT_EQ(th::console(), std::string(header) +
                               "    0: |00112233|4455\n"
                               "    1: |00112233|4455\n");
  sc_vector_destruct(v);

  th::clear_output();
  v = sc_vector_construct(1, 8, 0);
  ASSERT_TRUE(v);
  ASSERT_EQ(sc_vector_add(v, eight), 0);
  sc_vector_debug(v, 7);
  EXPECT_EQ(th::console().substr(th::console().find('\n') + 1),
            "    0: |01020304|a5b6c7d8|\n");
  sc_vector_destruct(v);

  th::clear_output();
  v = sc_vector_construct(0, 0, 0);
  ASSERT_TRUE(v);
  ASSERT_EQ(sc_vector_add(v, ""), 0);
  sc_vector_debug(v, 1);
  EXPECT_EQ(th::console().substr(th::console().find('\n') + 1), "    0: |\n");
  sc_vector_destruct(v);
}

}  // namespace

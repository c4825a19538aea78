#include <stdio.h>

#include "vector_support.h"

namespace {

using VectorCore = HostTest;
using vt::expect_diags;
using vt::kmalloc_failed;
using vt::Msgs;
using V = std::vector<uint32_t>;

const std::string kRoomFailed = "sc_vector_add: sc_vector_make_room() failed\n";

TEST_F(VectorCore, CapacityGrowsByTheResizeFactorOfWhatIsWanted) {
  sc_vector *v = sc_vector_construct(0, 4, 0);
  ASSERT_TRUE(v);
  EXPECT_EQ(v->elements, nullptr);
  EXPECT_EQ(v->nAlloc, 0u);
  EXPECT_EQ(v->resizeFactor, 50);
  V caps;
  for (uint32_t i = 0; i < 11; i++) {
    ASSERT_EQ(sc_vector_add(v, &i), 0);
    caps.push_back(sc_vector_get_nalloc(v));
  }
  EXPECT_EQ(caps, (V{1, 3, 3, 6, 6, 6, 10, 10, 10, 10, 16}));
  EXPECT_EQ(vt::values(v), (V{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  sc_vector_destruct(v);

  struct {
    uint32_t n;
    int factor;
    uint32_t slots;
  } cases[] = {{10, 0, 15}, {10, 100, 20}, {7, 50, 10}, {3, 1 << 16, 3}};
  for (auto &c : cases) {
    v = sc_vector_construct(c.n, 8, c.factor);
    ASSERT_TRUE(v);
    EXPECT_EQ(sc_vector_get_nalloc(v), c.slots) << c.n << "/" << c.factor;
    EXPECT_EQ(sc_vector_get_esize(v), 8u);
    EXPECT_EQ(th::blocks().back().size, c.slots * 8);
    sc_vector_destruct(v);
  }
  sc_vector_destruct(nullptr);
}

// A factor whose low 16 bits are zero is stored as 0: the first storage is
// exactly what is wanted and any later growth is refused.
TEST_F(VectorCore, ZeroStoredFactorAllowsOnlyTheFirstAllocation) {
  sc_vector *v = sc_vector_construct(0, 4, 1 << 16);
  ASSERT_TRUE(v);
  vt::add_all(v, {7});
  EXPECT_EQ(v->nAlloc, 1u);
  uint32_t x = 8;
  EXPECT_EQ(sc_vector_add(v, &x), -1);
  expect_diags({"sc_vector_make_room: resizeFactor is zero!\n", kRoomFailed});
  EXPECT_EQ(vt::values(v), V{7});
  EXPECT_EQ(v->nAlloc, 1u);
  sc_vector_destruct(v);
}

TEST_F(VectorCore, GrowthPastThirtyTwoBitsFailsInsteadOfWrapping) {
  EXPECT_EQ(sc_vector_construct(UINT32_MAX, 1, 0), nullptr);
  EXPECT_EQ(sc_vector_construct(1 << 16, 1 << 16, 0), nullptr);
  expect_diags(
      {"sc_vector_make_room: 6442450942 slots of 1 bytes exceed 32 "
       "bits\n",
       "sc_vector_make_room: 98304 slots of 65536 bytes exceed 32 "
       "bits\n"});
  // An addition to a vector already holding 2^32 - 1 empty elements.
  th::clear_output();
  sc_vector *v = sc_vector_construct(1, 0, 0);
  ASSERT_TRUE(v);
  v->nElements = v->nAlloc = UINT32_MAX;
  EXPECT_EQ(sc_vector_add(v, "x"), -1);
  expect_diags(
      {"sc_vector_make_room: 6442450944 slots of 0 bytes exceed 32 "
       "bits\n",
       kRoomFailed});
  EXPECT_EQ(v->nElements, UINT32_MAX);
  v->nElements = v->nAlloc = 1;
  sc_vector_destruct(v);
}

TEST_F(VectorCore, NoGrowVectorsRefuseAdditionsPastTheirCapacity) {
  th::Ctx ctx(64);
  sc_vector *a = sc_vector_construct_no_grow(10, 4);
  sc_vector *b = sc_vector_szconstruct_no_grow(ctx, 10, 4);
  sc_vector *c = sc_vector_szconstruct_no_grow(nullptr, 10, 4);
  ASSERT_TRUE(a && b && c);
  // Only a record made with a context comes from the size-class allocator.
  ASSERT_EQ(th::blocks().size(), 6u);
  EXPECT_EQ(th::blocks()[0].alloc, th::Alloc::kmalloc);
  EXPECT_EQ(th::blocks()[2].alloc, th::Alloc::szalloc);
  EXPECT_EQ(th::blocks()[2].size, sizeof(sc_vector));
  EXPECT_EQ(th::blocks()[2].file, "lib/pfe/ds/src/sc_vector");
  EXPECT_EQ(th::blocks()[3].alloc, th::Alloc::kmalloc);
  EXPECT_EQ(th::blocks()[4].alloc, th::Alloc::kmalloc);
  th::expect_sz_released_by_kfree(1);
  for (sc_vector *v : {a, b, c}) {
    EXPECT_EQ(v->flags, SC_VECTOR_NOGROW);
    for (uint32_t i = 0; i < 15; i++) ASSERT_EQ(sc_vector_add(v, &i), 0);
    th::clear_output();
    long attempts = th::alloc_attempts();
    uint32_t x = 99;
    EXPECT_EQ(sc_vector_add(v, &x), -1);
    expect_diags({"sc_vector_add: vector full (15)\n"});
    EXPECT_EQ(th::alloc_attempts(), attempts);
    EXPECT_EQ(v->nElements, 15u);
    EXPECT_EQ(v->nAlloc, 15u);
    sc_vector_destruct(v);
  }
}

TEST_F(VectorCore, GetHandsOutSlotsInPlaceAndRejectsIndexesFromTheCount) {
  sc_vector *v = sc_vector_construct(4, 4, 0);
  ASSERT_TRUE(v);
  vt::add_all(v, {10, 11, 12});
  void *p = nullptr;
  ASSERT_EQ(sc_vector_get(v, 2, &p), 0);
  EXPECT_EQ(p, static_cast<char *>(v->elements) + 8);
  void *const sentinel = &p;
  for (uint32_t bad : {3u, 5u, UINT32_MAX}) {
    th::clear_output();
    p = sentinel;
    EXPECT_EQ(sc_vector_get(v, bad, &p), -1);
    EXPECT_EQ(p, sentinel);
    char text[96];
    snprintf(text, sizeof text,
             "sc_vector_get: index %d out of range 3 for vector %p\n",
             static_cast<int>(bad), static_cast<void *>(v));
    expect_diags({text});
  }
  // Below level 2 the failure is silent and the result the same.
  th::clear_output();
  __sc_debug_level = 1;
  __sc_print_val = 5;
  EXPECT_EQ(sc_vector_get(v, 3, &p), -1);
  EXPECT_TRUE(th::diags().empty());
  EXPECT_EQ(__sc_print_val, 5);
  sc_vector_destruct(v);
}

// An element read from the vector itself is added correctly even when the
// addition moves the storage it lies in.
TEST_F(VectorCore, AddingAnElementOfTheSameVectorSurvivesGrowth) {
  sc_vector *v = sc_vector_construct(2, 4, 0);
  ASSERT_TRUE(v);
  vt::add_all(v, {5, 6, 7});
  void *p;
  ASSERT_EQ(sc_vector_get(v, 1, &p), 0);
  ASSERT_EQ(sc_vector_add(v, p), 0);
  EXPECT_EQ(vt::values(v), (V{5, 6, 7, 6}));
  sc_vector_destruct(v);
}

TEST_F(VectorCore, AppendAddsTheSourceAsItWasAtTheCall) {
  sc_vector *a = sc_vector_construct(0, 4, 0);
  sc_vector *b = sc_vector_construct(0, 4, 0);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(sc_vector_append(a, b), 0);
  EXPECT_EQ(a->nAlloc, 0u);
  vt::add_all(a, {1});
  vt::add_all(b, {2, 3});
  sc_vector_sort(a, nullptr);
  EXPECT_EQ(sc_vector_append(a, b), 0);
  EXPECT_EQ(a->flags & SC_VECTOR_SORTED, 0);
  EXPECT_EQ(sc_vector_append(a, a), 0);
  EXPECT_EQ(vt::values(a), (V{1, 2, 3, 1, 2, 3}));
  EXPECT_EQ(vt::values(b), (V{2, 3}));

  // A no-grow destination keeps what fit and reports the addition that
  // did not.
  sc_vector *full = sc_vector_construct_no_grow(1, 4);
  ASSERT_TRUE(full);
  th::clear_output();
  EXPECT_EQ(sc_vector_append(full, a), -1);
  expect_diags({"sc_vector_add: vector full (1)\n"});
  EXPECT_EQ(vt::values(full), V{1});
  for (sc_vector *v : {a, b, full}) sc_vector_destruct(v);
}

TEST_F(VectorCore, CompactShrinksToTheCountAndReleasesEmptyStorage) {
  sc_vector *v = sc_vector_construct_no_grow(4, 4);
  ASSERT_TRUE(v);
  vt::add_all(v, {1, 2, 3});
  long attempts = th::alloc_attempts();
  ASSERT_EQ(sc_vector_compact(v), 0);
  EXPECT_EQ(v->nAlloc, 3u);
  EXPECT_EQ(vt::values(v), (V{1, 2, 3}));
  ASSERT_EQ(sc_vector_compact(v), 0);  // already exact: nothing taken
  EXPECT_EQ(th::alloc_attempts(), attempts + 1);
  uint32_t x = 4;
  EXPECT_EQ(sc_vector_add(v, &x), -1);  // a compacted no-grow vector is full
  sc_vector_destruct(v);

  v = sc_vector_construct(5, 4, 0);
  ASSERT_TRUE(v);
  attempts = th::alloc_attempts();
  ASSERT_EQ(sc_vector_compact(v), 0);
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(v->elements, nullptr);
  EXPECT_EQ(v->nAlloc, 0u);
  vt::add_all(v, {9});
  EXPECT_EQ(vt::values(v), V{9});
  sc_vector_destruct(v);
}

struct Maker {
  const char *name;
  sc_vector *(*make)(void *ctx);
  Msgs first_point;  // messages when the record cannot be taken
  bool no_grow;
};

TEST_F(VectorCore, EveryConstructorReleasesWhatItTookOnEachFailure) {
  const std::string rec = std::to_string(sizeof(sc_vector));
  const std::string ng =
      "sc_vector_construct_no_grow: sc_vector_construct() failed\n";
  const std::string szng =
      "sc_vector_szconstruct_no_grow: sc_vector_szconstruct() failed\n";
  const std::string km =
      kmalloc_failed("sc_vector_construct", sizeof(sc_vector));
  const std::string sz =
      "sc_vector_construct: sc_szalloc(" + rec + ") failed\n";
  const Maker makers[] = {
      {"construct",
       [](void *) { return sc_vector_construct(10, 4, 0); },
       {km},
       false},
      {"szconstruct",
       [](void *c) { return sc_vector_szconstruct(c, 10, 4, 0); },
       {sz},
       false},
      {"szconstruct null",
       [](void *) { return sc_vector_szconstruct(nullptr, 10, 4, 0); },
       {km},
       false},
      {"no_grow",
       [](void *) { return sc_vector_construct_no_grow(10, 4); },
       {km, ng},
       true},
      {"sz no_grow",
       [](void *c) { return sc_vector_szconstruct_no_grow(c, 10, 4); },
       {sz, szng},
       true},
  };
  th::Ctx ctx(64);
  for (const Maker &m : makers) {
    SCOPED_TRACE(m.name);
    const bool sz_record = m.first_point[0] == sz;
    int points = th::sweep([&](long k) {
      sc_vector *v = m.make(ctx);
      if (sz_record && k != 1) th::expect_sz_released_by_kfree(1);
      if (!th::failure_injected()) {
        ASSERT_TRUE(v);
        EXPECT_EQ(v->nAlloc, 15u);
        EXPECT_EQ(v->flags, m.no_grow ? SC_VECTOR_NOGROW : 0);
        sc_vector_destruct(v);
        return;
      }
      EXPECT_EQ(v, nullptr);
      Msgs want = m.first_point;
      if (k == 2) want[0] = kmalloc_failed("sc_vector_make_room", 60);
      expect_diags(want);
    });
    EXPECT_EQ(points, 2);
  }
}

TEST_F(VectorCore, FailedGrowthLeavesTheVectorAsItWas) {
  // add: one allocation point on a full vector.
  vt::sweep_op(
      [] {
        sc_vector *v = sc_vector_construct(2, 4, 0);
        vt::add_all(v, {1, 2, 3});
        return v;
      },
      [](sc_vector *v) {
        uint32_t x = 4;
        return sc_vector_add(v, &x);
      },
      [](sc_vector *v, int r, long point) {
        EXPECT_EQ(r, point ? -1 : 0);
        EXPECT_EQ(vt::values(v), point ? (V{1, 2, 3}) : (V{1, 2, 3, 4}));
        EXPECT_EQ(v->nAlloc, point ? 3u : 6u);
        if (point)
          expect_diags(
              {kmalloc_failed("sc_vector_make_room", 24), kRoomFailed});
      });

  // append: grows at its first and third element; what was added stays.
  sc_vector *src = nullptr;
  int points = vt::sweep_op(
      [&] {
        src = sc_vector_construct(0, 4, 0);
        vt::add_all(src, {2, 3, 4});
        sc_vector *v = sc_vector_construct(1, 4, 0);
        vt::add_all(v, {1});
        return v;
      },
      [&](sc_vector *v) { return sc_vector_append(v, src); },
      [&](sc_vector *v, int r, long point) {
        EXPECT_EQ(r, point ? -1 : 0);
        const V want[] = {{1, 2, 3, 4}, {1}, {1, 2, 3}};
        EXPECT_EQ(vt::values(v), want[point]);
        EXPECT_EQ(vt::values(src), (V{2, 3, 4}));
        if (point)
          expect_diags(
              {kmalloc_failed("sc_vector_make_room", point * 12), kRoomFailed});
        sc_vector_destruct(src);
      });
  EXPECT_EQ(points, 2);

  // compact: one allocation point.
  vt::sweep_op(
      [] {
        sc_vector *v = sc_vector_construct(4, 4, 0);
        vt::add_all(v, {1, 2});
        return v;
      },
      sc_vector_compact,
      [](sc_vector *v, int r, long point) {
        EXPECT_EQ(r, point ? -1 : 0);
        EXPECT_EQ(v->nAlloc, point ? 6u : 2u);
        EXPECT_EQ(vt::values(v), (V{1, 2}));
        if (point) expect_diags({kmalloc_failed("sc_vector_compact", 8)});
      });
}

}  // namespace

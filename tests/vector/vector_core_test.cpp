#include <stdio.h>

#include "vector_support.h"

namespace {

using VectorCore = HostTest;
using vt::expect_diags;
using vt::kmalloc_failed;
using vt::Msgs;
using vt::V;

const std::string kRoomFailed = "sc_vector_add: sc_vector_make_room() failed\n";

TEST_F(VectorCore, CapacityGrowsByTheFactorOfWhatIsWantedWithoutWrapping) {
  sc_vector *v = vt::make(0, 0, {});
  EXPECT_EQ(v->elements, nullptr);
  EXPECT_EQ(v->resizeFactor, 50);
  V caps;
  for (uint32_t i = 0; i < 11; i++) {
    ASSERT_EQ(sc_vector_add(v, &i), 0);
    caps.push_back(sc_vector_get_nalloc(v));
  }
  EXPECT_EQ(caps, (V{1, 3, 3, 6, 6, 6, 10, 10, 10, 10, 16}));
  EXPECT_EQ(vt::values(v), (V{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  sc_vector_destruct(v);

  // {nInitial, factor, slots}; a factor with zero low 16 bits is stored as 0.
  const uint32_t cases[][3] = {{10, 0, 15}, {10, 100, 20}, {3, 1 << 16, 3}};
  for (auto &c : cases) {
    v = vt::make(c[0], int(c[1]), {});
    EXPECT_EQ(sc_vector_get_nalloc(v), c[2]) << c[0] << "/" << c[1];
    EXPECT_EQ(th::blocks().back().size, c[2] * 4);
    sc_vector_destruct(v);
  }
  EXPECT_EQ(sc_vector_construct(UINT32_MAX, 1, 0), nullptr);
  EXPECT_EQ(sc_vector_construct(1 << 16, 1 << 16, 0), nullptr);
  expect_diags(
      {"sc_vector_make_room: 6442450942 slots of 1 bytes exceed 32 bits\n",
       "sc_vector_make_room: 98304 slots of 65536 bytes exceed 32 bits\n"});
  th::clear_output();
  v = sc_vector_construct(1, 0, 0);  // 2^32 - 1 empty elements
  v->nElements = v->nAlloc = UINT32_MAX;
  EXPECT_EQ(sc_vector_add(v, ""), -1);
  expect_diags(
      {"sc_vector_make_room: 6442450944 slots of 0 bytes exceed 32 bits\n",
       kRoomFailed});
  v->nElements = v->nAlloc = 1;
  sc_vector_destruct(v);
  sc_vector_destruct(nullptr);
}

TEST_F(VectorCore, StoredFactorZeroAllowsOnlyTheFirstStorage) {
  sc_vector *v = vt::make(0, 1 << 16, {7});
  EXPECT_EQ(v->nAlloc, 1u);
  uint32_t x = 8;
  EXPECT_EQ(sc_vector_add(v, &x), -1);
  expect_diags({"sc_vector_make_room: resizeFactor is zero!\n", kRoomFailed});
  EXPECT_EQ(vt::values(v), V{7});
  sc_vector_destruct(v);
}

TEST_F(VectorCore, NoGrowVectorsRefuseAdditionsPastTheirCapacity) {
  th::Ctx ctx(64);
  sc_vector *vs[] = {sc_vector_construct_no_grow(10, 4),
                     sc_vector_szconstruct_no_grow(ctx, 10, 4),
                     sc_vector_szconstruct_no_grow(nullptr, 10, 4)};
  // Only the record made with a context is a size-class block.
  for (size_t i = 0; i < th::blocks().size(); i++)
    EXPECT_EQ(th::blocks()[i].alloc,
              i == 2 ? th::Alloc::szalloc : th::Alloc::kmalloc);
  EXPECT_EQ(th::blocks()[2].file, "lib/pfe/ds/src/sc_vector");
  th::expect_sz_released_by_kfree(1);
  for (sc_vector *v : vs) {
    EXPECT_EQ(v->flags, SC_VECTOR_NOGROW);
    for (uint32_t i = 0; i < 15; i++) ASSERT_EQ(sc_vector_add(v, &i), 0);
    th::clear_output();
    EXPECT_EQ(sc_vector_add(v, "abcd"), -1);
    expect_diags({"sc_vector_add: vector full (15)\n"});
    EXPECT_EQ(v->nElements, 15u);
    EXPECT_EQ(v->nAlloc, 15u);
    sc_vector_destruct(v);
  }
}

TEST_F(VectorCore, GetRejectsIndexesFromTheCountAndLeavesTheOutPointer) {
  sc_vector *v = vt::make(4, 0, {10, 11, 12});
  void *p = nullptr;
  ASSERT_EQ(sc_vector_get(v, 2, &p), 0);
  EXPECT_EQ(p, static_cast<char *>(v->elements) + 8);
  for (uint32_t bad : {3u, UINT32_MAX}) {
    th::clear_output();
    EXPECT_EQ(sc_vector_get(v, bad, &p), -1);
    EXPECT_EQ(p, static_cast<char *>(v->elements) + 8);
    char text[96];
    snprintf(text, sizeof text,
             "sc_vector_get: index %d out of range 3 for vector %p\n", int(bad),
             static_cast<void *>(v));
    expect_diags({text});
  }
  sc_vector_destruct(v);
}

// Adding an element of the vector itself, or appending a vector to itself,
// reads elements from storage that the growth moves.
TEST_F(VectorCore, AdditionsFromTheVectorItselfSurviveGrowth) {
  sc_vector *v = vt::make(2, 0, {5, 6, 7});
  void *p;
  ASSERT_EQ(sc_vector_get(v, 1, &p), 0);
  ASSERT_EQ(sc_vector_add(v, p), 0);
  sc_vector_sort(v, nullptr);
  EXPECT_EQ(sc_vector_append(v, v), 0);
  EXPECT_EQ(v->flags, 0);
  EXPECT_EQ(vt::values(v), (V{5, 6, 6, 7, 5, 6, 6, 7}));
  sc_vector *empty = vt::make(0, 0, {});
  EXPECT_EQ(sc_vector_append(v, empty), 0);
  EXPECT_EQ(sc_vector_append(empty, empty), 0);
  EXPECT_EQ(empty->nAlloc, 0u);
  // A no-grow destination keeps what fit and reports the first refusal.
  sc_vector *full = sc_vector_construct_no_grow(2, 4);
  th::clear_output();
  EXPECT_EQ(sc_vector_append(full, v), -1);
  expect_diags({"sc_vector_add: vector full (3)\n"});
  EXPECT_EQ(vt::values(full), (V{5, 6, 6}));
  for (sc_vector *x : {v, empty, full}) sc_vector_destruct(x);
}

TEST_F(VectorCore, CompactShrinksToTheCountAndReleasesEmptyStorage) {
  sc_vector *v = sc_vector_construct_no_grow(4, 4);
  for (uint32_t x : {1, 2, 3}) ASSERT_EQ(sc_vector_add(v, &x), 0);
  ASSERT_EQ(sc_vector_compact(v), 0);
  long attempts = th::alloc_attempts();
  ASSERT_EQ(sc_vector_compact(v), 0);  // already exact: nothing taken
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(v->nAlloc, 3u);
  EXPECT_EQ(vt::values(v), (V{1, 2, 3}));
  EXPECT_EQ(sc_vector_add(v, "abcd"), -1);  // a compacted no-grow is full
  sc_vector_destruct(v);

  v = vt::make(5, 0, {});
  attempts = th::alloc_attempts();
  ASSERT_EQ(sc_vector_compact(v), 0);
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(v->elements, nullptr);
  EXPECT_EQ(v->nAlloc, 0u);
  EXPECT_EQ(sc_vector_add(v, "abcd"), 0);
  sc_vector_destruct(v);
}

TEST_F(VectorCore, EveryConstructorReleasesWhatItTookOnEachFailure) {
  const std::string km =
      kmalloc_failed("sc_vector_construct", sizeof(sc_vector));
  const std::string sz = "sc_vector_construct: sc_szalloc(" +
                         std::to_string(sizeof(sc_vector)) + ") failed\n";
  const std::string ng =
      "sc_vector_construct_no_grow: sc_vector_construct() failed\n";
  const std::string szng =
      "sc_vector_szconstruct_no_grow: sc_vector_szconstruct() failed\n";
  struct {
    sc_vector *(*make)(void *ctx);
    Msgs record_failed;  // when the record cannot be taken
  } makers[] = {
      {[](void *) { return sc_vector_construct(10, 4, 0); }, {km}},
      {[](void *c) { return sc_vector_szconstruct(c, 10, 4, 0); }, {sz}},
      {[](void *) { return sc_vector_szconstruct(nullptr, 10, 4, 0); }, {km}},
      {[](void *) { return sc_vector_construct_no_grow(10, 4); }, {km, ng}},
      {[](void *c) { return sc_vector_szconstruct_no_grow(c, 10, 4); },
       {sz, szng}},
  };
  th::Ctx ctx(64);
  for (auto &m : makers) {
    SCOPED_TRACE(m.record_failed.back());
    int points = th::sweep([&](long k) {
      sc_vector *v = m.make(ctx);
      if (m.record_failed[0] == sz && k != 1)
        th::expect_sz_released_by_kfree(1);
      if (!th::failure_injected()) {
        EXPECT_EQ(v->nAlloc, 15u);
        return sc_vector_destruct(v);
      }
      EXPECT_EQ(v, nullptr);
      Msgs want = m.record_failed;
      if (k == 2) want[0] = kmalloc_failed("sc_vector_make_room", 60);
      expect_diags(want);
    });
    EXPECT_EQ(points, 2);
  }
}

TEST_F(VectorCore, FailedGrowthLeavesTheVectorAsItWas) {
  vt::sweep_op(
      [] {
        return vt::make(2, 0, {1, 2, 3});
      },
      [](sc_vector *v) { return sc_vector_add(v, "\4\0\0\0"); },
      [](sc_vector *v, int r, long point) {
        EXPECT_EQ(r, point ? -1 : 0);
        EXPECT_EQ(vt::values(v), point ? (V{1, 2, 3}) : (V{1, 2, 3, 4}));
        if (point)
          expect_diags(
              {kmalloc_failed("sc_vector_make_room", 24), kRoomFailed});
      });
  // append grows at its first and third element; what was added stays.
  sc_vector *src = nullptr;
  int points = vt::sweep_op(
      [&] {
        src = vt::make(0, 0, {2, 3, 4});
        return vt::make(1, 0, {1});
      },
      [&](sc_vector *v) { return sc_vector_append(v, src); },
      [&](sc_vector *v, int r, long point) {
        const V want[] = {{1, 2, 3, 4}, {1}, {1, 2, 3}};
        EXPECT_EQ(r, point ? -1 : 0);
        EXPECT_EQ(vt::values(v), want[point]);
        if (point)
          expect_diags(
              {kmalloc_failed("sc_vector_make_room", point * 12), kRoomFailed});
        sc_vector_destruct(src);
      });
  EXPECT_EQ(points, 2);
  vt::sweep_op(
      [] {
        return vt::make(4, 0, {1, 2});
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

// The default host module as a program without a host of its own uses it:
// linked beside libvell-ds.so.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "sc_elist.h"
#include "sc_host.h"
#include "sc_host_default.h"
#include "vell/diagnostics.hpp"
#include "vell/hash.hpp"
#include "vell/timer.hpp"

namespace {

// Runs first: the level starts from VELL_DS_DEBUG (CTest sets it to 7).
TEST(DefaultHost, DebugLevelStartsFromTheEnvironment) {
  const char *env = getenv("VELL_DS_DEBUG");
  EXPECT_EQ(__sc_debug_level, env ? atoi(env) : 2);
}

TEST(DefaultHost, HeapAndContextsAccountEveryBlock) {
  sc_host_usage before = sc_host_heap_usage();
  void *a = __sc_kmalloc(10);
  void *b = __sc_kcalloc(4, 8);
  ASSERT_TRUE(a && b);
  for (int i = 0; i < 32; i++) EXPECT_EQ(static_cast<char *>(b)[i], 0);
  EXPECT_EQ(sc_host_heap_usage().blocks, before.blocks + 2);
  EXPECT_EQ(sc_host_heap_usage().bytes, before.bytes + 42);

  void *ctx = sc_host_ctx_create(256);
  ASSERT_TRUE(ctx);
  EXPECT_EQ(sc_sz_get_max_alloc(ctx), 256u);
  EXPECT_EQ(__sc_szalloc(ctx, 257, 0, "f", 1), nullptr);  // above its limit
  void *s = __sc_szalloc(ctx, 256, 0, "f", 2);
  void *r = __sc_szalloc(ctx, 24, 0, "f", 3);
  ASSERT_TRUE(s && r);
  EXPECT_EQ(sc_host_ctx_usage(ctx).blocks, 2u);
  EXPECT_EQ(sc_host_ctx_usage(ctx).bytes, 280u);
  EXPECT_EQ(sc_host_sz_usage().bytes, 280u);

  __sc_szfree(ctx, s, 256, "f", 4);
  __sc_kfree(r, 24);  // a size-class block may go back through __sc_kfree
  __sc_kfree(a, 10);
  __sc_kfree(b, 32);
  EXPECT_EQ(sc_host_ctx_usage(ctx).blocks, 0u);
  EXPECT_EQ(sc_host_heap_usage().blocks, before.blocks);
  EXPECT_EQ(sc_host_heap_usage().bytes, before.bytes);
  EXPECT_EQ(sc_host_ctx_destroy(ctx), 0u);
  EXPECT_EQ(sc_host_release_errors(), 0u);
}

TEST(DefaultHost, ReleaseErrorsAreDetectedAndReported) {
  sc_host_set_abort_on_error(0);
  uint64_t errors = sc_host_release_errors();
  void *ctx = sc_host_ctx_create(64);
  void *other = sc_host_ctx_create(64);
  void *a = __sc_kmalloc(16);
  void *s = __sc_szalloc(ctx, 16, 0, "f", 1);
  void *t = __sc_szalloc(ctx, 16, 0, "f", 1);

  testing::internal::CaptureStderr();
  __sc_kfree(a, 12);
  __sc_szfree(other, s, 16, "lib/x", 77);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(sc_host_release_errors(), errors + 2);
  EXPECT_NE(err.find("size mismatch"), std::string::npos) << err;
  EXPECT_NE(err.find("released with size 12, taken with size 16"),
            std::string::npos);
  EXPECT_NE(err.find("another allocator"), std::string::npos) << err;
  EXPECT_NE(err.find("lib/x:77"), std::string::npos) << err;

  // A context destroyed with a block outstanding reports it.
  testing::internal::CaptureStderr();
  EXPECT_EQ(sc_host_ctx_destroy(ctx), 1u);
  err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("1 blocks (16 bytes) outstanding"), std::string::npos)
      << err;
  __sc_szfree(ctx, t, 16, "f", 2);
  EXPECT_EQ(sc_host_ctx_destroy(ctx), 0u);
  EXPECT_EQ(sc_host_ctx_destroy(other), 0u);
  sc_host_set_abort_on_error(1);
}

TEST(DefaultHost, DiagnosticsGoToStderrAndDumpsToStdout) {
  sc_host_set_debug_level(2);
  EXPECT_EQ(__sc_debug_level, 2);
  testing::internal::CaptureStderr();
  int n = __sc_print_prefix(2, "lib/re/ds/src/sc_elist", 12);
  n += __sc_print_msg("x%dy\n", 5);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "<2> lib/re/ds/src/sc_elist:12: x5y\n");
  EXPECT_EQ(n, int(err.size()));

  testing::internal::CaptureStdout();
  sc_printf("%5d|%08x|%.2f|%s", 42, 0xabcu, 1.5, "z");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "   42|00000abc|1.50|z");
}

// A program's handler receives each diagnostic whole, and nothing reaches
// stderr; captures of the C++ layer nest inside it and give it back;
// clearing the handler restores stderr.
TEST(DefaultHost, DiagnosticsGoToAHandlerWhenOneIsSet) {
  static std::string got;
  got.clear();
  sc_host_set_diag_handler(
      [](int level, const char *file, int line, const char *msg) {
        got = std::to_string(level) + "|" + file + "|" + std::to_string(line) +
              "|" + msg;
      });
  testing::internal::CaptureStderr();
  int n = __sc_print_prefix(4, "lib/pfe/ds/src/sc_btrie", 7);
  n += __sc_print_msg("x%dy\n", 5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(got, "4|lib/pfe/ds/src/sc_btrie|7|x5y\n");
  EXPECT_EQ(n, 4);
  sc_host_diag_handler *program = sc_host_get_diag_handler();
  {
    vell::diag_capture outer;
    {
      vell::diag_capture inner;
      __sc_print_prefix(2, "f", 1);
      __sc_print_msg("first\n");
      EXPECT_EQ(inner.last(), "first");
    }
    __sc_print_prefix(2, "f", 1);
    __sc_print_msg("second %d", 2);
    EXPECT_EQ(outer.count(), 1u);
    EXPECT_EQ(outer.last(), "second 2");
    EXPECT_EQ(outer.level(), 2);
  }
  EXPECT_EQ(sc_host_get_diag_handler(), program);
  sc_host_set_diag_handler(nullptr);
  testing::internal::CaptureStderr();
  __sc_print_prefix(2, "f", 1);
  __sc_print_msg("m");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<2> f:1: m");
}

// The library's allocation failure travels through the default module too:
// an impossible size makes the heap fail and the library reports it.
TEST(DefaultHost, LibraryRunsOnTheDefaultModule) {
  sc_elist *l = sc_elist_construct("default");
  ASSERT_TRUE(l);
  sc_elist_node n{};
  sc_elist_push_back(l, &n);
  EXPECT_EQ(sc_elist_get_size(l), 1u);
  sc_elist_destruct(l);
}

// The C++ layer's defaults draw on contexts of their own: a khash map and
// a timer set made without one work, and give every block back.
TEST(DefaultHost, TheCppLayersDefaultsWork) {
  {
    auto map = vell::khash_map<uint32_t, uint32_t>::create(8);
    auto timers = vell::timer_set::create();
    ASSERT_TRUE(map && timers);
    EXPECT_TRUE(map->insert_or_assign(1, 2) && map->find(1) == 2u);
    EXPECT_GT(sc_host_sz_usage().blocks, 0u);
    int fired = 0;
    vell::timer t = timers->add(std::chrono::minutes(1), [&] { ++fired; });
    EXPECT_EQ(timers->poll(0, true), 1);
    EXPECT_EQ(fired, 1);
    auto moved = std::move(*map);  // the context moves with the table
    EXPECT_EQ(moved.find(1), 2u);
  }
  EXPECT_EQ(sc_host_sz_usage().blocks, 0u);
}

}  // namespace

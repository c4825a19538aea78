#include "diag.h"

#include "test_host.h"

namespace {

using DiagTest = HostTest;

// The gate compares the signed debug level with the level minus one.
TEST_F(DiagTest, EmittedOnlyAtOrAboveItsLevel) {
  struct Case {
    int debug, level;
    bool emitted;
  } cases[] = {{-5, 2, false},      {0, 2, false}, {1, 2, false},
               {2, 2, true},        {2, 4, false}, {3, 4, false},
               {4, 4, true},        {4, 2, true},  {INT32_MIN, 2, false},
               {INT32_MAX, 4, true}};
  for (const Case &c : cases) {
    th::clear_output();
    __sc_debug_level = c.debug;
    __sc_print_val = -77;
    VDS_DIAG(c.level, "lib/x/y", "op: %s(%d) failed", "what", 42);
    if (!c.emitted) {
      EXPECT_TRUE(th::diags().empty()) << c.debug << "/" << c.level;
      EXPECT_EQ(__sc_print_val, -77);
      continue;
    }
    ASSERT_EQ(th::diags().size(), 1u) << c.debug << "/" << c.level;
    EXPECT_EQ(th::diags()[0].level, c.level);
    EXPECT_EQ(th::diags()[0].file, "lib/x/y");
    EXPECT_EQ(th::diags()[0].text, "op: what(42) failed");
    EXPECT_EQ(__sc_print_val, th::last_prefix_result() + th::last_msg_result());
  }
}

}  // namespace

#include "diag.h"

#include "test_host.h"

namespace {

using DiagTest = HostTest;

// Emitted once the debug level reaches the diagnostic's level, whatever its
// sign or size, with the host's two results summed in __sc_print_val; below
// it the host is not called.
TEST_F(DiagTest, EmittedOnlyAtOrAboveItsLevel) {
  for (int level : {vds::kFailure, vds::kTrace})
    for (int debug : {INT32_MIN, level - 1, level, INT32_MAX}) {
      th::clear_output();
      __sc_debug_level = debug;
      __sc_print_val = -77;
      VDS_DIAG(level, "lib/x/y", "op: %s(%d) failed", "what", 42);
      if (debug < level) {
        EXPECT_TRUE(th::diags().empty()) << debug << "/" << level;
        EXPECT_EQ(__sc_print_val, -77);
        continue;
      }
      ASSERT_EQ(th::diags().size(), 1u) << debug << "/" << level;
      EXPECT_EQ(th::diags()[0].level, level);
      EXPECT_EQ(th::diags()[0].file, "lib/x/y");
      EXPECT_EQ(th::diags()[0].text, "op: what(42) failed");
      EXPECT_EQ(__sc_print_val,
                th::last_prefix_result() + th::last_msg_result());
    }
}

}  // namespace

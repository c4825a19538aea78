// Record layouts of the 32-bit x86 target. Other programs are compiled
// against these declarations, so a changed size is an ABI break.
#include <gtest/gtest.h>

#include "sc_btrie.h"
#include "sc_btrie6.h"
#include "sc_elist.h"
#include "sc_hash.h"
#include "sc_khash.h"
#include "sc_ktimer.h"
#include "sc_ohash.h"
#include "sc_vector.h"

namespace {

TEST(RecordSizes, ThirtyTwoBitTarget) {
  if (sizeof(void *) != 4)
    GTEST_SKIP() << "sizes are those of the 32-bit build";
  EXPECT_EQ(sizeof(sc_elist_node), 8u);
  EXPECT_EQ(sizeof(sc_elist), 44u);
  EXPECT_EQ(sizeof(sc_vector), 20u);
  EXPECT_EQ(sizeof(sc_hash_element), 24u);  // six words
  EXPECT_EQ(sizeof(sc_hash), 16u);
  EXPECT_EQ(sizeof(sc_hash_iter), 12u);
  EXPECT_EQ(sizeof(sc_ohash_element), 32u);  // eight words
  EXPECT_EQ(sizeof(sc_ohash), 20u);
  EXPECT_EQ(sizeof(sc_ohash_iter), 8u);
  EXPECT_EQ(sizeof(sc_khash_element), 20u);
  EXPECT_EQ(sizeof(sc_khash), 20u);
  EXPECT_EQ(sizeof(sc_khash_iter), 12u);
  EXPECT_EQ(sizeof(sc_ktimer), 28u);
  EXPECT_EQ(sizeof(sc_ktimer_cell), 16u);
  EXPECT_EQ(sizeof(sc_ktimer_bucket), 12u);
  EXPECT_EQ(sizeof(sc_ktimers), 128u * 12u + 12u);
  EXPECT_EQ(sizeof(sc_btrie_entry), 12u);
  EXPECT_EQ(sizeof(sc_btrie_prefix), 12u);
  EXPECT_EQ(sizeof(sc_btrie_node), 4u);
  EXPECT_EQ(sizeof(sc_btrie), 32u);
  EXPECT_EQ(sizeof(sc_btrie_iter), 12u);
  EXPECT_EQ(sizeof(sc_btrie_item), 12u);
  EXPECT_EQ(sizeof(sc_btrie6_entry), 24u);
  EXPECT_EQ(sizeof(sc_btrie6_prefix), 12u);
  EXPECT_EQ(sizeof(sc_btrie6_node), 4u);
  EXPECT_EQ(sizeof(sc_btrie6), 32u);
  EXPECT_EQ(sizeof(sc_btrie6_iter), 12u);
  EXPECT_EQ(sizeof(sc_btrie6_item), 24u);
}

}  // namespace

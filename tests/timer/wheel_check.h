// Shared by the timer tests: a clock the tests set by hand, and a check of
// every link of a timer set.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <vector>

#include "sc_ktimer.h"

namespace fake_clock {
// The seconds every gettimeofday call of the program returns, and the number
// of calls so far.
extern uint32_t seconds;
extern long reads;
}  // namespace fake_clock

// A poll's markers never outlive the poll, so outside of a callback every
// bucket on the active list has cells, every cell has timers, and every
// timer points at its cell and set. Checks that, the back links, the bucket
// of each cell, uniqueness of timeouts, expiry order within each cell, and
// that inactive buckets are empty. Returns the timers, list order.
inline std::vector<sc_ktimer *> check_links(sc_ktimers *set) {
  std::vector<sc_ktimer *> out;
  std::vector<bool> seen_bucket(128);
  std::vector<uint32_t> secs_seen;
  const sc_ktimer_bucket *prev_b = nullptr;
  for (sc_ktimer_bucket *b = set->active; b; prev_b = b, b = b->next) {
    EXPECT_EQ(b->prev, prev_b);
    long idx = b - set->buckets;
    EXPECT_TRUE(idx >= 0 && idx < 128) << "not a bucket of the set";
    if (idx < 0 || idx >= 128) return out;
    EXPECT_FALSE(seen_bucket[idx]) << "bucket listed twice";
    seen_bucket[idx] = true;
    EXPECT_NE(b->cells, nullptr) << "empty bucket on the active list";
    for (sc_ktimer_cell *c = b->cells; c; c = c->next) {
      EXPECT_EQ(c->secs % 128, static_cast<uint32_t>(idx));
      for (uint32_t s : secs_seen) EXPECT_NE(s, c->secs) << "two cells";
      secs_seen.push_back(c->secs);
      EXPECT_NE(c->head, nullptr) << "empty cell";
      const sc_ktimer *prev_t = nullptr;
      for (sc_ktimer *t = c->head; t; prev_t = t, t = t->next) {
        EXPECT_EQ(t->prev, prev_t);
        EXPECT_EQ(t->cell, c);
        EXPECT_EQ(t->timers, set);
        if (prev_t) {
          EXPECT_LE(prev_t->expires, t->expires) << "out of order";
        }
        out.push_back(t);
      }
      EXPECT_EQ(c->tail, prev_t);
    }
  }
  for (int i = 0; i < 128; i++)
    if (!seen_bucket[i]) {
      EXPECT_EQ(set->buckets[i].cells, nullptr) << i;
    }
  return out;
}

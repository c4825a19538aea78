// Shared by the timer tests: a clock the tests set by hand, and a check of
// every link of a timer set.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <vector>

#include "sc_ktimer.h"

namespace fake_clock {
extern uint32_t seconds;  // what every gettimeofday call returns
extern long reads;        // calls so far
}  // namespace fake_clock

// Outside a poll: every listed bucket has cells, every cell timers, links
// run both ways, cells sit in their bucket with unique timeouts, timers in
// expiry order, and unlisted buckets are empty. Returns the timers in list
// order.
inline std::vector<sc_ktimer *> check_links(sc_ktimers *set) {
  std::vector<sc_ktimer *> out;
  std::vector<int> listed(128);
  std::vector<uint32_t> timeouts;
  const sc_ktimer_bucket *prev_b = nullptr;
  for (sc_ktimer_bucket *b = set->active; b; prev_b = b, b = b->next) {
    long i = b - set->buckets;
    EXPECT_EQ(b->prev, prev_b);
    EXPECT_TRUE(i >= 0 && i < 128 && !listed[i]++ && b->cells) << i;
    for (sc_ktimer_cell *c = b->cells; c; c = c->next) {
      EXPECT_EQ(c->secs % 128, static_cast<uint32_t>(i));
      EXPECT_EQ(std::count(timeouts.begin(), timeouts.end(), c->secs), 0);
      timeouts.push_back(c->secs);
      const sc_ktimer *prev_t = nullptr;
      for (sc_ktimer *t = c->head; t; prev_t = t, t = t->next) {
        EXPECT_TRUE(t->prev == prev_t && t->cell == c && t->timers == set);
        EXPECT_TRUE(!prev_t || prev_t->expires <= t->expires) << "order";
        out.push_back(t);
      }
      EXPECT_TRUE(prev_t && c->tail == prev_t);
    }
  }
  for (int i = 0; i < 128; i++)
    EXPECT_TRUE(listed[i] || !set->buckets[i].cells) << i;
  return out;
}

// Shared by the timer tests: a clock the tests set by hand, a check of
// every link of a timer set, and a fixture holding one set.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <vector>

#include "sc_ktimer.h"
#include "test_host.h"

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

// A set on a size-class context, at second 1000; destroyed with whatever
// the test leaves armed in it.
class TimerSetTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    fake_clock::seconds = 1000;
    ASSERT_NE(set_ = sc_ktimers_construct(ctx_), nullptr);
  }
  void TearDown() override {
    sc_ktimers_destruct(set_);
    HostTest::TearDown();
  }
  th::Ctx ctx_{64};
  sc_ktimers *set_ = nullptr;
};

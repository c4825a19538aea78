// Polling: which timers fire, in what order and how many, and what happens
// when callbacks change the set under the poll.
#include <stdio.h>

#include <functional>
#include <memory>
#include <string>

#include "wheel_check.h"

namespace {

using Names = std::vector<std::string>;

// Timers whose callbacks log their name, then run an optional action.
class KtimerPoll : public TimerSetTest {
 protected:
  struct Entry {
    KtimerPoll *test;
    std::string name;
    std::function<void()> action;
    sc_ktimer *timer;
  };

  static void on_fire(void *arg) {
    auto *e = static_cast<Entry *>(arg);
    e->timer = nullptr;
    e->test->log_.push_back(e->name);
    if (e->action) e->action();
  }
  Entry *arm(uint32_t secs, const char *name,
             std::function<void()> action = nullptr) {
    entries_.push_back(
        std::make_unique<Entry>(Entry{this, name, action, nullptr}));
    Entry *e = entries_.back().get();
    EXPECT_NE(e->timer = sc_ktimer_create(set_, secs, on_fire, e), nullptr);
    return e;
  }
  // Polls, checks the count against the log and the links afterwards.
  Names fired(int limit = 0, int fire_all = 0) {
    log_.clear();
    int n = sc_ktimers_poll_ex(set_, limit, fire_all);
    EXPECT_EQ(n, int(log_.size()));
    check_links(set_);
    return log_;
  }

  std::vector<std::unique_ptr<Entry>> entries_;
  Names log_;
};

// Buckets most recently activated first; cells of a bucket in the order
// they were made; timers of a cell earliest due first.
TEST_F(KtimerPoll, FiringOrderAcrossBucketsCellsAndTimers) {
  Entry *a10 = arm(10, "10a");
  arm(3, "3a");
  arm(131, "131");
  arm(5, "5");
  arm(10, "10b");
  arm(3, "3b");
  fake_clock::seconds = 1001;
  ASSERT_EQ(sc_ktimer_reset(a10->timer), 0);
  fake_clock::seconds = 2000;
  EXPECT_EQ(fired(), (Names{"5", "3a", "3b", "131", "10b", "10a"}));
  EXPECT_EQ(set_->active, nullptr);
}

// Limits and fire_all are checked against the model test's reference.
TEST_F(KtimerPoll, PollForceFiresWhatIsDueAndCountsNullCallbacks) {
  sc_ktimer_create(set_, 0, nullptr, nullptr);
  arm(0, "zero");
  arm(1, "later");
  log_.clear();
  EXPECT_EQ(sc_ktimers_poll_force(set_), 2);
  EXPECT_EQ(log_, Names{"zero"});
  EXPECT_EQ(check_links(set_).size(), 1u);
}

TEST_F(KtimerPoll, EachFiredTimerIsTracedAtLevelFourAfterItsRelease) {
  size_t live = 0;
  Entry *e = arm(6, "t", [&] { live = th::live_blocks(); });
  sc_ktimer *t = e->timer;
  fake_clock::seconds = 1006;
  __sc_debug_level = 4;
  EXPECT_EQ(fired(), Names{"t"});
  EXPECT_EQ(live, 1u);  // only the set: timer and cell went before the call
  char want[160];
  snprintf(want, sizeof want,
           "sc_ktimers_poll: %p expired after 6 secs, calling %p(%p)\n",
           static_cast<void *>(t), reinterpret_cast<void *>(&on_fire),
           static_cast<void *>(e));
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text, want);
  EXPECT_EQ(th::diags()[0].level, 4);
  __sc_debug_level = 3;
  arm(0, "quiet");
  EXPECT_EQ(fired(), Names{"quiet"});
  EXPECT_EQ(th::diags().size(), 1u);
}

// Callbacks cancel or reset the timer the poll visits next, release the
// next cell, and empty the bucket being polled and the one after it.
TEST_F(KtimerPoll, CallbacksRemovingWhatThePollVisitsNext) {
  Entry *b = nullptr, *d = nullptr, *c132 = nullptr, *e8 = nullptr;
  arm(7, "7");
  e8 = arm(8, "8");
  arm(9, "9", [&] { EXPECT_EQ(sc_ktimer_cancel(e8->timer), 0); });
  arm(4, "4", [&] { EXPECT_EQ(sc_ktimer_cancel(c132->timer), 0); });
  c132 = arm(132, "132");
  arm(260, "260");
  arm(1, "a", [&] { EXPECT_EQ(sc_ktimer_cancel(b->timer), 0); });
  b = arm(1, "b");
  arm(1, "c", [&] { EXPECT_EQ(sc_ktimer_reset(d->timer), 0); });
  d = arm(1, "d");
  arm(1, "e");
  fake_clock::seconds = 1300;
  EXPECT_EQ(fired(), (Names{"a", "c", "e", "4", "260", "9", "7"}));
  fake_clock::seconds = 1301;
  EXPECT_EQ(fired(), (Names{"d"}));
}

// A created timer fires in the same poll when the poll has still to reach
// it: ahead in the list, or behind a timer of its cell still to come. One
// behind its cell's last timer, or in a bucket the poll has left, even if
// that bucket comes back to the front, fires once, at the next poll.
TEST_F(KtimerPoll, CallbacksCreatingTimers) {
  arm(0, "z");
  arm(2, "2", [&] { arm(0, "new0"); });  // active list 2, 0
  fake_clock::seconds = 1002;
  EXPECT_EQ(fired(), (Names{"2", "z", "new0"}));
  arm(0, "last", [&] { arm(0, "later"); });
  EXPECT_EQ(fired(), (Names{"last"}));
  EXPECT_EQ(fired(), (Names{"later"}));

  Entry *pending = nullptr;
  arm(7, "7");
  arm(5, "5", [&] {
    EXPECT_EQ(sc_ktimer_cancel(pending->timer), 0);  // bucket 0 leaves
    arm(0, "again");                                 // and comes back
    arm(133, "5back");                               // so does bucket 5
  });
  arm(0, "z2");
  pending = arm(128, "pending");  // active list 0, 5, 7
  fake_clock::seconds = 1009;
  EXPECT_EQ(fired(), (Names{"z2", "5", "7"}));
  EXPECT_EQ(fired(), (Names{"again"}));

  arm(0, "p", [&] { arm(0, "q"); });
  arm(0, "r");
  EXPECT_EQ(fired(), (Names{"p", "r", "q"}));
}

// A dump from a callback shows the same as one after the poll: the poll's
// markers are not in it.
TEST_F(KtimerPoll, DumpInsideACallbackShowsOnlyTheSet) {
  std::string inside;
  arm(1, "a", [&] { sc_ktimers_debug(set_); });
  arm(1, "b");
  arm(129, "c");
  fake_clock::seconds = 1001;
  EXPECT_EQ(fired(1), Names{"a"});
  inside = th::console();
  th::clear_output();
  sc_ktimers_debug(set_);
  EXPECT_EQ(inside, th::console());
  EXPECT_NE(inside.find("(129)"), std::string::npos);
}

}  // namespace

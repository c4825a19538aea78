// Polling: which timers fire, in what order, how many, and what callbacks
// may do to the set while a poll runs.
#include <stdio.h>

#include <functional>
#include <string>
#include <vector>

#include "sc_ktimer.h"
#include "test_host.h"
#include "wheel_check.h"

namespace {

class KtimerPoll : public HostTest {
 protected:
  struct Entry {
    KtimerPoll *test;
    std::string name;
    std::function<void()> action;
    sc_ktimer *timer = nullptr;
  };

  void SetUp() override {
    HostTest::SetUp();
    fake_clock::seconds = 1000;
    set_ = sc_ktimers_construct(ctx_);
    ASSERT_NE(set_, nullptr);
  }
  void TearDown() override {
    sc_ktimers_destruct(set_);
    for (Entry *e : entries_) delete e;
    HostTest::TearDown();
  }

  static void on_fire(void *arg) {
    auto *e = static_cast<Entry *>(arg);
    e->timer = nullptr;
    e->test->log_.push_back(e->name);
    if (e->action) e->action();
  }

  // Arms a named timer; returns its entry, whose `timer` is cleared when it
  // fires.
  Entry *arm(uint32_t secs, const std::string &name,
             std::function<void()> action = nullptr) {
    auto *e = new Entry{this, name, std::move(action)};
    entries_.push_back(e);
    e->timer = sc_ktimer_create(set_, secs, on_fire, e);
    EXPECT_NE(e->timer, nullptr);
    return e;
  }

  std::vector<std::string> fired(int limit = 0, int fire_all = 0) {
    log_.clear();
    int n = sc_ktimers_poll_ex(set_, limit, fire_all);
    EXPECT_EQ(n, static_cast<int>(log_.size()));
    check_links(set_);
    return log_;
  }

  using Names = std::vector<std::string>;
  th::Ctx ctx_{64};
  sc_ktimers *set_ = nullptr;
  std::vector<Entry *> entries_;
  Names log_;
};

TEST_F(KtimerPoll, EmptyPollRecordsTheReading) {
  EXPECT_EQ(sc_ktimers_poll_force(set_), 0);
  EXPECT_EQ(set_->now, 1000u);
  fake_clock::seconds = 4000000000u;
  EXPECT_EQ(sc_ktimers_poll_ex(set_, 3, 1), 0);
  EXPECT_EQ(set_->now, 4000000000u);
}

// Buckets most recently activated first; cells of a bucket in the order
// they were made; timers of a cell earliest due first.
TEST_F(KtimerPoll, FiringOrderAcrossBucketsCellsAndTimers) {
  arm(3, "3a");
  arm(10, "10a");
  arm(131, "131a");
  arm(5, "5a");
  fake_clock::seconds = 1001;
  arm(10, "10b");
  Entry *c10 = arm(10, "10c");
  arm(3, "3b");
  fake_clock::seconds = 1002;
  ASSERT_EQ(sc_ktimer_reset(c10->timer), 0);
  ASSERT_EQ(sc_ktimer_reset(entries_[1]->timer), 0);  // 10a behind 10c
  fake_clock::seconds = 2000;
  EXPECT_EQ(fired(), (Names{"5a", "10b", "10c", "10a", "3a", "3b", "131a"}));
  EXPECT_EQ(set_->active, nullptr);
}

TEST_F(KtimerPoll, OnlyDueTimersFireAndACellStopsAtItsFirstPendingTimer) {
  arm(0, "zero");
  arm(2, "2a");
  fake_clock::seconds = 1001;
  arm(2, "2b");
  arm(130, "130");
  // Timeout 0 is due at once; a timeout of S is due S seconds after arming.
  fake_clock::seconds = 1000;
  EXPECT_EQ(fired(), Names{"zero"});
  fake_clock::seconds = 1001;
  EXPECT_EQ(fired(), Names{});
  fake_clock::seconds = 1002;
  EXPECT_EQ(fired(), Names{"2a"});
  // poll_force fires what is due and leaves the rest in place.
  fake_clock::seconds = 1003;
  log_.clear();
  EXPECT_EQ(sc_ktimers_poll_force(set_), 1);
  EXPECT_EQ(log_, Names{"2b"});
  EXPECT_EQ(check_links(set_).size(), 1u);
  // fire_all fires everything, due or not.
  EXPECT_EQ(fired(0, 1), Names{"130"});
}

TEST_F(KtimerPoll, LimitStopsThePollAndTheRestWait) {
  for (const char *n : {"a", "b", "c", "d", "e"}) arm(1, n);
  fake_clock::seconds = 1001;
  EXPECT_EQ(fired(2), (Names{"a", "b"}));
  EXPECT_EQ(fired(2), (Names{"c", "d"}));
  EXPECT_EQ(fired(2), (Names{"e"}));
  // A negative limit stops after the first timer, across buckets too.
  arm(7, "x");
  arm(8, "y");
  EXPECT_EQ(fired(-1, 1), (Names{"y"}));
  EXPECT_EQ(fired(-5, 1), (Names{"x"}));
}

TEST_F(KtimerPoll, NullCallbackStillCounts) {
  ASSERT_NE(sc_ktimer_create(set_, 0, nullptr, nullptr), nullptr);
  arm(0, "named");
  EXPECT_EQ(sc_ktimers_poll_force(set_), 2);
  EXPECT_EQ(log_, Names{"named"});
}

TEST_F(KtimerPoll, EachFiredTimerIsTracedAtLevelFour) {
  Entry *e = arm(6, "t");
  sc_ktimer *t = e->timer;
  fake_clock::seconds = 1006;
  __sc_debug_level = 3;
  EXPECT_EQ(fired(), Names{"t"});
  EXPECT_TRUE(th::diags().empty());
  e = arm(6, "u");
  t = e->timer;
  fake_clock::seconds = 1012;
  __sc_debug_level = 4;
  EXPECT_EQ(fired(), Names{"u"});
  ASSERT_EQ(th::diags().size(), 1u);
  char want[160];
  snprintf(want, sizeof want,
           "sc_ktimers_poll: %p expired after 6 secs, calling %p(%p)\n",
           static_cast<void *>(t), reinterpret_cast<void *>(&on_fire),
           static_cast<void *>(e));
  EXPECT_EQ(th::diags()[0].text, want);
  EXPECT_EQ(th::diags()[0].level, 4);
  EXPECT_EQ(th::diags()[0].file, "lib/pfe/ds/src/sc_ktimer");
}

// A timer's record is released before its callback runs.
TEST_F(KtimerPoll, TheTimerIsGoneWhenItsCallbackRuns) {
  size_t live = 0;
  arm(1, "t", [&] { live = th::live_blocks(); });
  fake_clock::seconds = 1001;
  EXPECT_EQ(fired(), Names{"t"});
  EXPECT_EQ(live, 1u);  // only the set
}

// What the poll holds across a callback: the next timer of the cell and the
// next cell of the bucket. Callbacks that cancel or reset exactly those
// leave the poll on the right path.
TEST_F(KtimerPoll, CallbackCancelsOrResetsTheNextTimer) {
  Entry *b = nullptr, *d = nullptr;
  arm(1, "a", [&] { EXPECT_EQ(sc_ktimer_cancel(b->timer), 0); });
  b = arm(1, "b");
  arm(1, "c", [&] { EXPECT_EQ(sc_ktimer_reset(d->timer), 0); });
  d = arm(1, "d");
  arm(1, "e");
  fake_clock::seconds = 1001;
  EXPECT_EQ(fired(), (Names{"a", "c", "e"}));
  fake_clock::seconds = 1002;
  EXPECT_EQ(fired(), (Names{"d"}));
}

TEST_F(KtimerPoll, CallbackReleasesTheNextCellOrWholeBuckets) {
  // Bucket 4 holds cells 4, 132, 260; the 4 callback releases cell 132.
  Entry *c132 = nullptr;
  arm(4, "4", [&] { EXPECT_EQ(sc_ktimer_cancel(c132->timer), 0); });
  c132 = arm(132, "132");
  arm(260, "260");
  fake_clock::seconds = 1300;
  EXPECT_EQ(fired(), (Names{"4", "260"}));

  // Active list 9, 8, 7: the 9 callback empties buckets 9 (its own, by
  // creating nothing more) and 8; the poll goes on with 7.
  Entry *e8 = nullptr;
  arm(7, "7");
  e8 = arm(8, "8");
  arm(9, "9", [&] { EXPECT_EQ(sc_ktimer_cancel(e8->timer), 0); });
  fake_clock::seconds = 1400;
  EXPECT_EQ(fired(), (Names{"9", "7"}));
  EXPECT_EQ(set_->active, nullptr);
}

// Timers created by callbacks fire in the same poll when the poll has still
// to reach them, and in the next one otherwise.
TEST_F(KtimerPoll, CallbacksCreatingTimers) {
  // Active list 2, 0: the 2 callback adds a due timer to cell 0, ahead.
  arm(0, "z");
  arm(2, "2", [&] { arm(0, "new0"); });
  fake_clock::seconds = 1002;
  EXPECT_EQ(fired(), (Names{"2", "z", "new0"}));

  // Behind its cell's last timer, in a bucket the poll has left: next poll.
  arm(3, "3");
  arm(0, "last", [&] { arm(0, "later"); });  // active list 0, 3
  fake_clock::seconds = 1005;
  EXPECT_EQ(fired(), (Names{"last", "3"}));
  EXPECT_EQ(fired(), (Names{"later"}));

  // Behind a timer that is not its cell's last: reached at once.
  arm(0, "p", [&] { arm(0, "q"); });
  arm(0, "r");
  EXPECT_EQ(fired(), (Names{"p", "r", "q"}));

  // A periodic timer re-arming itself.
  std::function<void()> rearm;
  rearm = [&] { arm(5, "again", rearm); };
  arm(5, "periodic", rearm);
  fake_clock::seconds = 1010;
  EXPECT_EQ(fired(), Names{"periodic"});
  fake_clock::seconds = 1015;
  EXPECT_EQ(fired(), Names{"again"});
  EXPECT_EQ(check_links(set_).size(), 1u);
}

// The bucket being polled leaves the list and comes back at the front, as
// does one the poll has passed: the poll goes on with the bucket that
// followed, and the passed one's new timer fires once, at the next poll.
TEST_F(KtimerPoll, CallbackReactivatesPassedBuckets) {
  arm(7, "7");
  Entry *pending = nullptr;
  arm(5, "5", [&] {
    EXPECT_EQ(sc_ktimer_cancel(pending->timer), 0);  // bucket 0 leaves
    arm(0, "again");                                 // and comes back
    arm(133, "5back");                               // so does bucket 5
  });
  arm(0, "z");
  pending = arm(128, "pending");  // active list 0, 5, 7
  fake_clock::seconds = 1007;
  EXPECT_EQ(fired(), (Names{"z", "5", "7"}));
  EXPECT_EQ(fired(), (Names{"again"}));
  EXPECT_EQ(check_links(set_).size(), 1u);
}

// The dump from inside a callback shows the set without the poll's markers.
TEST_F(KtimerPoll, DumpInsideACallbackShowsOnlyRealEntries) {
  std::string inside;
  arm(1, "a", [&] {
    th::clear_output();
    sc_ktimers_debug(set_);
    inside = th::console();
  });
  Entry *b = arm(1, "b");
  Entry *c = arm(129, "c");
  fake_clock::seconds = 1001;
  log_.clear();
  EXPECT_EQ(sc_ktimers_poll_ex(set_, 1, 0), 1);
  (void)b;
  char want[400];
  snprintf(want, sizeof want,
           "timers %p\n  bucket %p\n    cell %p(1)\n        %p: expires in "
           "0, call %p(%p)\n    cell %p(129)\n        %p: expires in 128, "
           "call %p(%p)\n\n",
           static_cast<void *>(set_), static_cast<void *>(&set_->buckets[1]),
           static_cast<void *>(b->timer->cell), static_cast<void *>(b->timer),
           reinterpret_cast<void *>(&on_fire), static_cast<void *>(b),
           static_cast<void *>(c->timer->cell), static_cast<void *>(c->timer),
           reinterpret_cast<void *>(&on_fire), static_cast<void *>(c));
  EXPECT_EQ(inside, want);
}

// A poll started from a callback of another poll of the same set.
TEST_F(KtimerPoll, NestedPollOfTheSameSet) {
  arm(1, "a", [&] { EXPECT_EQ(sc_ktimers_poll_force(set_), 4); });
  arm(1, "b");
  arm(1, "c");
  arm(129, "d");
  arm(1, "e");
  fake_clock::seconds = 1200;
  log_.clear();
  EXPECT_EQ(sc_ktimers_poll_force(set_), 1);
  EXPECT_EQ(log_, (Names{"a", "b", "c", "e", "d"}));
  EXPECT_EQ(check_links(set_).size(), 0u);
}

}  // namespace

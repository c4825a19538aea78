// Construction, the operations on one timer, allocation failures and the
// dump.
#include <stdio.h>

#include <string>

#include "sc_ktimer.h"
#include "test_host.h"
#include "wheel_check.h"

namespace {

constexpr char kModule[] = "lib/pfe/ds/src/sc_ktimer";

void noop(void *) {}

class KtimerSet : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    fake_clock::seconds = 1000;
    set_ = sc_ktimers_construct(ctx_);
    ASSERT_NE(set_, nullptr);
  }
  void TearDown() override {
    sc_ktimers_destruct(set_);
    HostTest::TearDown();
  }
  sc_ktimer *create(uint32_t secs, void *arg = nullptr) {
    sc_ktimer *t = sc_ktimer_create(set_, secs, noop, arg);
    EXPECT_NE(t, nullptr);
    return t;
  }
  th::Ctx ctx_{64};
  sc_ktimers *set_ = nullptr;
};

std::string ptr(const void *p) {
  char buf[32];
  snprintf(buf, sizeof buf, "%p", p);
  return buf;
}

TEST_F(KtimerSet, ConstructClearsTheRecordAndTakesItFromTheHeap) {
  EXPECT_EQ(set_->active, nullptr);
  EXPECT_EQ(set_->now, 0u);
  EXPECT_EQ(set_->sz_ctx, ctx_.get());
  for (const sc_ktimer_bucket &b : set_->buckets) {
    EXPECT_EQ(b.cells, nullptr);
    EXPECT_EQ(b.next, nullptr);
    EXPECT_EQ(b.prev, nullptr);
  }
  ASSERT_EQ(th::blocks().size(), 1u);
  EXPECT_EQ(th::blocks()[0].alloc, th::Alloc::kmalloc);
  EXPECT_EQ(th::blocks()[0].size, sizeof(sc_ktimers));
  sc_ktimers_destruct(nullptr);
}

TEST_F(KtimerSet, TimersAndCellsComeFromTheContext) {
  sc_ktimer *t = sc_ktimer_create(set_, 7, noop, &ctx_);
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(th::blocks().size(), 3u);  // set, timer, cell
  for (int i : {1, 2}) {
    EXPECT_EQ(th::blocks()[i].alloc, th::Alloc::szalloc);
    EXPECT_EQ(th::blocks()[i].ctx, ctx_.get());
    EXPECT_EQ(th::blocks()[i].file, kModule);
  }
  EXPECT_EQ(th::blocks()[1].size, sizeof(sc_ktimer));
  EXPECT_EQ(th::blocks()[2].size, sizeof(sc_ktimer_cell));
  EXPECT_EQ(t->expires, 1007u);
  EXPECT_EQ(t->callback, noop);
  EXPECT_EQ(t->arg, &ctx_);
  EXPECT_EQ(t->timers, set_);
  EXPECT_EQ(t->cell->secs, 7u);
  EXPECT_EQ(set_->active, &set_->buckets[7]);
  EXPECT_EQ(sc_ktimer_cancel(t), 0);
  EXPECT_EQ(set_->active, nullptr);
  EXPECT_EQ(set_->buckets[7].cells, nullptr);
  EXPECT_EQ(th::live_blocks(), 1u);
}

// Timeouts equal modulo 128 share a bucket with a cell each, in the order
// the cells were made; a bucket joins the active list at the front.
TEST_F(KtimerSet, BucketsCellsAndTheActiveList) {
  sc_ktimer *a = create(5);
  create(9);
  sc_ktimer *c = create(133);
  sc_ktimer *d = create(5);
  EXPECT_EQ(check_links(set_).size(), 4u);
  sc_ktimer_bucket *b5 = &set_->buckets[5], *b9 = &set_->buckets[9];
  EXPECT_EQ(set_->active, b9);
  EXPECT_EQ(b9->next, b5);
  EXPECT_EQ(b5->cells, a->cell);
  EXPECT_EQ(a->cell, d->cell);
  EXPECT_EQ(a->cell->next, c->cell);
  EXPECT_EQ(c->cell->secs, 133u);

  // Cancelling the 5-second timers releases their cell only.
  EXPECT_EQ(sc_ktimer_cancel(a), 0);
  EXPECT_EQ(sc_ktimer_cancel(d), 0);
  EXPECT_EQ(b5->cells, c->cell);
  EXPECT_EQ(c->cell->next, nullptr);
  EXPECT_EQ(b9->next, b5);
  // A new 5-second cell goes behind the 133 one.
  sc_ktimer *e = create(5);
  EXPECT_EQ(c->cell->next, e->cell);
  // Emptying a bucket takes it off the list; refilling puts it in front.
  EXPECT_EQ(sc_ktimer_cancel(c), 0);
  EXPECT_EQ(sc_ktimer_cancel(e), 0);
  EXPECT_EQ(set_->active, b9);
  EXPECT_EQ(b9->next, nullptr);
  create(133);
  EXPECT_EQ(set_->active, b5);
  EXPECT_EQ(b5->next, b9);
  EXPECT_EQ(check_links(set_).size(), 2u);
  EXPECT_EQ(th::live_blocks(), 1u + 2u + 2u);
}

TEST_F(KtimerSet, ResetMovesTheTimerBehindItsCellWithANewExpiry) {
  sc_ktimer *a = create(10), *b = create(10), *c = create(10);
  fake_clock::seconds = 1004;
  // The tail, and the only timer of a cell, change only their expiry.
  EXPECT_EQ(sc_ktimer_reset(c), 0);
  EXPECT_EQ(c->expires, 1014u);
  EXPECT_EQ(check_links(set_), (std::vector<sc_ktimer *>{a, b, c}));
  sc_ktimer *only = create(20);
  EXPECT_EQ(sc_ktimer_reset(only), 0);
  EXPECT_EQ(only->expires, 1024u);
  EXPECT_EQ(only->cell->head, only);
  EXPECT_EQ(only->cell->tail, only);
  // The head of three moves behind the other two; then a middle one.
  EXPECT_EQ(sc_ktimer_reset(a), 0);
  EXPECT_EQ(a->expires, 1014u);
  EXPECT_EQ(check_links(set_), (std::vector<sc_ktimer *>{only, b, c, a}));
  fake_clock::seconds = 1005;
  EXPECT_EQ(sc_ktimer_reset(c), 0);
  EXPECT_EQ(check_links(set_), (std::vector<sc_ktimer *>{only, b, a, c}));
}

// After a backward step a re-armed timer is due before the ones armed
// earlier; it goes in front of them so the poll is not held up by them.
TEST_F(KtimerSet, ArmingAfterTheClockStepsBackKeepsExpiryOrder) {
  sc_ktimer *a = create(10), *b = create(10);
  fake_clock::seconds = 900;
  sc_ktimer *c = create(10);
  EXPECT_EQ(check_links(set_), (std::vector<sc_ktimer *>{c, a, b}));
  fake_clock::seconds = 1000;
  EXPECT_EQ(sc_ktimer_reset(c), 0);  // same expiry as a and b: behind them
  EXPECT_EQ(check_links(set_), (std::vector<sc_ktimer *>{a, b, c}));
  fake_clock::seconds = 995;
  EXPECT_EQ(sc_ktimer_reset(b), 0);
  EXPECT_EQ(check_links(set_), (std::vector<sc_ktimer *>{b, a, c}));
}

TEST_F(KtimerSet, TheClockIsReadOncePerCreateResetPollAndDump) {
  long before = fake_clock::reads;
  sc_ktimer *t = create(3);
  create(3);
  EXPECT_EQ(fake_clock::reads - before, 2);
  EXPECT_EQ(sc_ktimer_reset(t), 0);
  EXPECT_EQ(fake_clock::reads - before, 3);
  EXPECT_EQ(sc_ktimer_cancel(t), 0);
  EXPECT_EQ(fake_clock::reads - before, 3);
  fake_clock::seconds += 10;
  EXPECT_EQ(sc_ktimers_poll_force(set_), 1);
  EXPECT_EQ(fake_clock::reads - before, 4);
  sc_ktimers_debug(set_);
  EXPECT_EQ(fake_clock::reads - before, 5);
}

TEST_F(KtimerSet, CancelOrResetOfADisarmedRecordIsRejected) {
  sc_ktimer *live = create(4);
  sc_ktimer bogus = {};
  bogus.next = live;
  bogus.expires = 77;
  bogus.timers = set_;
  long reads = fake_clock::reads;
  for (const char *op : {"sc_ktimer_cancel", "sc_ktimer_reset"}) {
    th::clear_output();
    bool cancel = op[10] == 'c';
    EXPECT_EQ(cancel ? sc_ktimer_cancel(&bogus) : sc_ktimer_reset(&bogus), -1);
    ASSERT_EQ(th::diags().size(), 1u);
    EXPECT_EQ(th::diags()[0].level, 2);
    EXPECT_EQ(th::diags()[0].file, kModule);
    EXPECT_EQ(th::diags()[0].text,
              std::string(op) + ": corrupt timer at " + ptr(&bogus));
  }
  EXPECT_EQ(fake_clock::reads, reads);
  EXPECT_EQ(bogus.next, live);
  EXPECT_EQ(bogus.expires, 77u);
  EXPECT_EQ(check_links(set_), std::vector<sc_ktimer *>{live});
  // Below level 2 the rejection is silent and the result the same.
  __sc_debug_level = 1;
  th::clear_output();
  EXPECT_EQ(sc_ktimer_cancel(&bogus), -1);
  EXPECT_TRUE(th::diags().empty());
}

// Every allocation point of construct and create: the exact message, a null
// result, nothing left behind. A create that finds its cell allocates once.
TEST(KtimerAlloc, EveryAllocationFailureIsReportedAndLeavesNothing) {
  th::Ctx ctx(64);
  const std::string size_set = std::to_string(sizeof(sc_ktimers));
  const std::string size_timer = std::to_string(sizeof(sc_ktimer));
  const std::string size_cell = std::to_string(sizeof(sc_ktimer_cell));
  const std::vector<std::string> expected = {
      "sc_ktimers_construct: sc_kmalloc(" + size_set + ") failed",
      "ktimer_create: sc_szalloc(" + size_timer + ") failed",
      "sc_ktimers_cell: sc_szalloc(" + size_cell + ") failed",
      "ktimer_create: sc_szalloc(" + size_timer + ") failed",
  };
  int points = th::sweep([&](long k) {
    sc_ktimers *set = sc_ktimers_construct(ctx);
    sc_ktimer *first = set ? sc_ktimer_create(set, 9, noop, nullptr) : nullptr;
    sc_ktimer *second =
        first ? sc_ktimer_create(set, 9, noop, nullptr) : nullptr;
    if (!th::failure_injected()) {
      EXPECT_TRUE(first && second);
      EXPECT_EQ(check_links(set).size(), 2u);
      EXPECT_TRUE(th::diags().empty());
    } else {
      EXPECT_EQ(k == 1, set == nullptr);
      EXPECT_EQ(k <= 3, first == nullptr);
      EXPECT_EQ(second, nullptr);
      ASSERT_EQ(th::diags().size(), 1u);
      EXPECT_EQ(th::diags()[0].level, 2);
      EXPECT_EQ(th::diags()[0].file, kModule);
      EXPECT_EQ(th::diags()[0].text, expected[k - 1]);
      // The set is as it was before the failing call.
      if (set) {
        EXPECT_EQ(check_links(set).size(), k == 4 ? 1u : 0u);
      }
    }
    sc_ktimers_destruct(set);
  });
  EXPECT_EQ(points, 4);
}

// Destroying a set releases what it still holds, without any callback.
TEST_F(KtimerSet, DestructReleasesPendingTimersAndCells) {
  static int calls;
  calls = 0;
  auto count = [](void *) { ++calls; };
  for (uint32_t s : {1u, 129u, 1u, 2u, 300u})
    ASSERT_NE(sc_ktimer_create(set_, s, count, nullptr), nullptr);
  fake_clock::seconds += 1;
  EXPECT_EQ(sc_ktimers_poll_force(set_), 2);
  calls = 0;
  sc_ktimers_destruct(set_);
  set_ = nullptr;
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(th::live_blocks(), 0u);
}

TEST_F(KtimerSet, DumpListsBucketsCellsAndTimersWithTimeLeft) {
  int x;
  sc_ktimer *a = sc_ktimer_create(set_, 130, noop, &x);
  sc_ktimer *b = sc_ktimer_create(set_, 2, nullptr, nullptr);
  fake_clock::seconds = 1001;
  sc_ktimer *c = sc_ktimer_create(set_, 2, noop, set_);
  fake_clock::seconds = 1004;  // b is overdue
  th::clear_output();
  __sc_debug_level = 0;  // dumps do not depend on the debug level
  sc_ktimers_debug(set_);
  const std::string fn = ptr(reinterpret_cast<void *>(&noop));
  EXPECT_EQ(th::console(),
            "timers " + ptr(set_) + "\n" +                         //
                "  bucket " + ptr(&set_->buckets[2]) + "\n" +      //
                "    cell " + ptr(a->cell) + "(130)\n" +           //
                "        " + ptr(a) + ": expires in 126, call " +  //
                fn + "(" + ptr(&x) + ")\n" +                       //
                "    cell " + ptr(b->cell) + "(2)\n" +             //
                "        " + ptr(b) + ": expires in -2, call " +   //
                ptr(nullptr) + "(" + ptr(nullptr) + ")\n" +        //
                "        " + ptr(c) + ": expires in -1, call " +   //
                fn + "(" + ptr(set_) + ")\n" +                     //
                "\n");
  th::clear_output();
  sc_ktimers *empty = sc_ktimers_construct(nullptr);
  ASSERT_NE(empty, nullptr);
  sc_ktimers_debug(empty);
  EXPECT_EQ(th::console(), "timers " + ptr(empty) + "\n\n");
  sc_ktimers_destruct(empty);
}

}  // namespace

// The set's structure, clock reads, rejection of disarmed records, allocation
// failures, destruction and the dump.
#include <stdio.h>

#include <string>

#include "wheel_check.h"

namespace {

constexpr char kModule[] = "lib/pfe/ds/src/sc_ktimer";
using Timers = std::vector<sc_ktimer *>;

void noop(void *) {}

std::string ptr(const void *p) {
  char buf[32];
  snprintf(buf, sizeof buf, "%p", p);
  return buf;
}

class KtimerSet : public TimerSetTest {
 protected:
  sc_ktimer *create(uint32_t secs, void *arg = nullptr) {
    sc_ktimer *t = sc_ktimer_create(set_, secs, noop, arg);
    EXPECT_NE(t, nullptr);
    return t;
  }
};

// Timeouts equal modulo 128 share a bucket, each with its own cell in the
// order the cells were made; a bucket joins the active list at the front
// and leaves it with its last cell.
TEST_F(KtimerSet, BucketsCellsAndTheActiveList) {
  sc_ktimer *a = create(5), *b = create(9), *c = create(133), *d = create(5);
  sc_ktimer_bucket *b5 = &set_->buckets[5], *b9 = &set_->buckets[9];
  EXPECT_EQ(check_links(set_), (Timers{b, a, d, c}));
  EXPECT_EQ(a->expires, 1005u);
  EXPECT_EQ(c->cell->secs, 133u);
  EXPECT_EQ(sc_ktimer_cancel(a), 0);
  EXPECT_EQ(sc_ktimer_cancel(d), 0);
  EXPECT_EQ(b5->cells, c->cell);  // the 5 cell is gone, the bucket stays
  EXPECT_EQ(set_->active->next, b5);
  sc_ktimer *e = create(5);
  EXPECT_EQ(check_links(set_), (Timers{b, c, e}));
  EXPECT_EQ(sc_ktimer_cancel(c), 0);
  EXPECT_EQ(sc_ktimer_cancel(e), 0);
  EXPECT_EQ(check_links(set_), (Timers{b}));
  create(133);
  EXPECT_EQ(set_->active, b5);
  EXPECT_EQ(b5->next, b9);
  EXPECT_EQ(sc_ktimer_cancel(b), 0);
  EXPECT_EQ(set_->active->next, nullptr);
}

TEST_F(KtimerSet, TheClockIsReadOncePerCreateResetPollAndDump) {
  long before = fake_clock::reads;
  sc_ktimer *t = create(3);
  EXPECT_EQ(sc_ktimer_reset(t), 0);
  EXPECT_EQ(sc_ktimer_cancel(create(3)), 0);
  sc_ktimers_poll_ex(set_, 0, 1);
  sc_ktimers_debug(set_);
  EXPECT_EQ(fake_clock::reads - before, 5);
}

TEST_F(KtimerSet, CancelOrResetOfADisarmedRecordIsRejected) {
  sc_ktimer *live = create(4);
  sc_ktimer bogus = {live, nullptr, 77, nullptr, noop, set_, nullptr};
  long reads = fake_clock::reads;
  EXPECT_EQ(sc_ktimer_cancel(&bogus), -1);
  EXPECT_EQ(sc_ktimer_reset(&bogus), -1);
  ASSERT_EQ(th::diags().size(), 2u);
  EXPECT_EQ(th::diags()[0].text,
            "sc_ktimer_cancel: corrupt timer at " + ptr(&bogus));
  EXPECT_EQ(th::diags()[1].text,
            "sc_ktimer_reset: corrupt timer at " + ptr(&bogus));
  EXPECT_EQ(th::diags()[1].level, 2);
  EXPECT_EQ(th::diags()[1].file, kModule);
  EXPECT_EQ(fake_clock::reads, reads);
  EXPECT_TRUE(bogus.next == live && bogus.expires == 77);
  EXPECT_EQ(check_links(set_), Timers{live});
}

// Every allocation point of construct and of a create that makes its cell
// and one that finds it: exact message, null result, the set unchanged.
TEST(KtimerAlloc, EveryAllocationFailureIsReportedAndLeavesNothing) {
  th::Ctx ctx(64);
  auto failed = [](const char *what, size_t size) {
    return std::string(what) + "(" + std::to_string(size) + ") failed";
  };
  const std::string expected[] = {
      failed("sc_ktimers_construct: sc_kmalloc", sizeof(sc_ktimers)),
      failed("ktimer_create: sc_szalloc", sizeof(sc_ktimer)),
      failed("sc_ktimers_cell: sc_szalloc", sizeof(sc_ktimer_cell)),
      failed("ktimer_create: sc_szalloc", sizeof(sc_ktimer)),
  };
  int points = th::sweep([&](long k) {
    sc_ktimers *set = sc_ktimers_construct(ctx);
    sc_ktimer *first = set ? sc_ktimer_create(set, 9, noop, nullptr) : nullptr;
    if (first) sc_ktimer_create(set, 9, noop, nullptr);
    size_t armed = k < 4 ? 0 : static_cast<size_t>(k - 3);
    if (set) {
      EXPECT_EQ(check_links(set).size(), armed);
    }
    if (!th::failure_injected()) {
      EXPECT_TRUE(th::diags().empty());
      for (size_t i = 1; i < th::blocks().size(); i++) {
        EXPECT_EQ(th::blocks()[i].ctx, ctx.get());
      }
    } else if (th::diags().size() == 1) {
      EXPECT_EQ(th::diags()[0].text, expected[k - 1]);
      EXPECT_EQ(th::diags()[0].level, 2);
      EXPECT_EQ(th::diags()[0].file, kModule);
    } else {
      ADD_FAILURE() << th::diag_text();
    }
    sc_ktimers_destruct(set);
  });
  EXPECT_EQ(points, 4);
}

TEST_F(KtimerSet, DestructReleasesPendingTimersWithoutCallingThem) {
  static int calls;
  for (uint32_t s : {1u, 129u, 1u, 2u})
    sc_ktimer_create(
        set_, s, [](void *) { ++calls; }, nullptr);
  sc_ktimers_destruct(set_);
  set_ = nullptr;
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(th::live_blocks(), 0u);
}

TEST_F(KtimerSet, DumpListsBucketsCellsAndTimersWithTimeLeft) {
  int x;
  sc_ktimer *a = create(130, &x);
  sc_ktimer *b = sc_ktimer_create(set_, 2, nullptr, nullptr);
  fake_clock::seconds = 1004;  // b is overdue
  __sc_debug_level = 0;        // dumps do not depend on it
  sc_ktimers_debug(set_);
  const std::string fn = ptr(reinterpret_cast<void *>(&noop));
  EXPECT_EQ(th::console(), "timers " + ptr(set_) + "\n  bucket " +
                               ptr(&set_->buckets[2]) + "\n    cell " +
                               ptr(a->cell) + "(130)\n        " + ptr(a) +
                               ": expires in 126, call " + fn + "(" + ptr(&x) +
                               ")\n    cell " + ptr(b->cell) + "(2)\n        " +
                               ptr(b) + ": expires in -2, call " +
                               ptr(nullptr) + "(" + ptr(nullptr) + ")\n\n");
}

}  // namespace

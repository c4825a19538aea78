// Timer set: firing order, limits, callbacks changing the set under a poll,
// allocation failures, exact texts, and runs against a reference model.
#include <stdio.h>

#include <deque>
#include <functional>
#include <map>
#include <random>

#include "sc_ktimer.h"
#include "test_host.h"
#include "timer_model.h"

namespace {

using Names = std::vector<std::string>;
constexpr char kMod[] = "lib/pfe/ds/src/sc_ktimer";
void noop(void *) {}

std::string fmt(const char *format, auto... a) {
  char buf[512];
  snprintf(buf, sizeof buf, format, a...);
  return buf;
}
// The captured diagnostics, each as "level file: text|".
std::string diags() {
  std::string all;
  for (auto &d : th::diags())
    all += fmt("%d %s: %s|", d.level, d.file.c_str(), d.text.c_str());
  return all;
}

// A set at second 1000 whose timers log their name when they fire, then run
// an optional action. Destroyed with whatever the test leaves armed.
class Ktimer : public HostTest {
 protected:
  using Entry = std::pair<const char *, std::function<void()>>;
  void SetUp() override {
    HostTest::SetUp();
    clock_now = 1000;
    clock_reads = 0;
    set_ = sc_ktimers_construct(ctx_);
  }
  void TearDown() override {
    sc_ktimers_destruct(set_);
    HostTest::TearDown();
  }
  static void on_fire(void *e) {
    log_.push_back(static_cast<Entry *>(e)->first);
    if (auto &f = static_cast<Entry *>(e)->second) f();
  }
  sc_ktimer *arm(uint32_t s, const char *name, std::function<void()> f = {}) {
    return sc_ktimer_create(set_, s, on_fire, &entries_.emplace_back(name, f));
  }
  // Polls; the count returned must be the callbacks called.
  Names fired(int limit = 0, int fire_all = 0) {
    log_.clear();
    int n = sc_ktimers_poll_ex(set_, limit, fire_all);
    EXPECT_EQ(n, int(log_.size()));
    return log_;
  }
  th::Ctx ctx_{64};
  sc_ktimers *set_;
  std::deque<Entry> entries_;
  static inline Names log_;
};

// Buckets most recently activated first, cells of a bucket in the order they
// were made, timers of a cell earliest due first. A limit stops the poll
// wherever it is, a negative one after one timer; fire_all ignores due times.
TEST_F(Ktimer, FiringOrderAndLimits) {
  sc_ktimer *a10 = arm(10, "10a");
  for (auto [s, name] :
       {std::pair{3, "3a"}, {131, "131"}, {5, "5"}, {10, "10b"}, {3, "3b"}})
    arm(s, name);
  clock_now = 1001;
  ASSERT_EQ(sc_ktimer_reset(a10), 0);  // now due after 10b
  clock_now = 1010;
  EXPECT_EQ(fired(2), (Names{"5", "3a"}));
  EXPECT_EQ(fired(-1), Names{"3b"});
  EXPECT_EQ(fired(), Names{"10b"});
  EXPECT_EQ(fired(0, 1), (Names{"131", "10a"}));
  sc_ktimer_create(set_, 0, nullptr, nullptr);  // counted when it fires
  EXPECT_EQ(sc_ktimers_poll_force(set_), 1);
}

// A created timer fires in the same poll when the poll has still to reach
// it: in a bucket ahead in the list, or behind a timer of its cell still to
// come. One behind its cell's last timer, or in a bucket the poll has left
// that comes back to the front, fires once, at the next poll.
TEST_F(Ktimer, CallbacksCreatingTimers) {
  arm(0, "z");
  arm(2, "2", [&] { arm(0, "new0"); });  // active list 2, 0
  clock_now = 1002;
  EXPECT_EQ(fired(), (Names{"2", "z", "new0"}));
  arm(0, "p", [&] { arm(0, "q", [&] { arm(0, "s"); }); });
  arm(0, "r");
  EXPECT_EQ(fired(), (Names{"p", "r", "q"}));
  EXPECT_EQ(fired(), Names{"s"});
  arm(7, "7");
  sc_ktimer *pending = nullptr, *six = arm(6, "6");
  arm(5, "5", [&] {  // buckets 0, 5 and 6 leave and come back
    EXPECT_EQ(sc_ktimer_cancel(pending) + sc_ktimer_cancel(six), 0);
    arm(0, "again");
    arm(6, "6b");
    arm(133, "5b");
  });
  arm(0, "z2");
  pending = arm(128, "pending");  // active list 0, 5, 6, 7
  clock_now = 1009;
  EXPECT_EQ(fired(), (Names{"z2", "5", "7"}));
  EXPECT_EQ(fired(), Names{"again"});
  // A bucket still to reach keeps its turn when a callback empties and
  // fills it again.
  sc_ktimer *zero = arm(0, "z3");
  arm(1, "1", [&] {
    sc_ktimer_cancel(zero);
    arm(0, "refilled");
  });
  clock_now = 1010;  // active list 1, 0, ...
  EXPECT_EQ(fired(), (Names{"1", "refilled"}));
}

// Every allocation point of construct, of a create that makes its cell and
// of one that finds it: null result, exact message, nothing armed or leaked.
TEST(KtimerAlloc, EveryAllocationFailureIsReportedAndLeavesNothing) {
  th::Ctx ctx(64);
  const std::pair<const char *, size_t> point[] = {
      {"sc_ktimers_construct: sc_kmalloc", sizeof(sc_ktimers)},
      {"ktimer_create: sc_szalloc", sizeof(sc_ktimer)},
      {"sc_ktimers_cell: sc_szalloc", sizeof(sc_ktimer_cell)},
      {"ktimer_create: sc_szalloc", sizeof(sc_ktimer)}};
  int points = th::sweep([&](long k) {
    sc_ktimers *set = sc_ktimers_construct(ctx);
    if (set && sc_ktimer_create(set, 9, noop, nullptr))
      sc_ktimer_create(set, 9, noop, nullptr);
    auto [what, size] = point[std::min(k, 4L) - 1];
    EXPECT_EQ(diags(),
              k > 4 ? "" : fmt("2 %s: %s(%zu) failed|", kMod, what, size));
    for (auto &b : th::blocks())  // the set from the heap, the rest from ctx
      EXPECT_EQ(b.ctx, &b == &th::blocks()[0] ? nullptr : ctx.get());
    EXPECT_EQ(set ? sc_ktimers_poll_ex(set, 0, 1) : 0, k < 4 ? 0 : k - 3);
    sc_ktimers_destruct(set);
  });
  EXPECT_EQ(points, 4);
}

// The dump's exact lines, here from a callback: the fired timer is gone, the
// rest shown as armed. Before the call the fired timer is traced at level 4
// with its timeout. Records that are not armed timers are rejected, without
// a clock read.
TEST_F(Ktimer, DiagnosticsAndDump) {
  sc_ktimer *d = arm(2, "dump", [&] { sc_ktimers_debug(set_); });
  sc_ktimer *b = sc_ktimer_create(set_, 2, nullptr, nullptr);
  sc_ktimer *a = sc_ktimer_create(set_, 130, noop, set_);
  sc_ktimer *c = sc_ktimer_create(set_, 7, noop, nullptr);
  clock_now = 1004;  // b is overdue
  __sc_debug_level = 4;
  EXPECT_EQ(fired(1), Names{"dump"});
  EXPECT_EQ(th::console(),
            fmt("timers %p\n  bucket %p\n    cell %p(7)\n        %p: expires "
                "in 3, call %p(%p)\n  bucket %p\n    cell %p(2)\n        %p: "
                "expires in -2, call %p(%p)\n    cell %p(130)\n        %p: "
                "expires in 126, call %p(%p)\n\n",
                set_, &set_->buckets[7], c->cell, c, (void *)noop, nullptr,
                &set_->buckets[2], b->cell, b, nullptr, nullptr, a->cell, a,
                (void *)noop, set_));
  sc_ktimer bogus = {nullptr, nullptr, 77, nullptr, noop, set_, nullptr};
  long reads = clock_reads;
  EXPECT_EQ(sc_ktimer_cancel(&bogus) + sc_ktimer_reset(&bogus), -2);
  EXPECT_EQ(
      diags(),
      fmt("4 %s: sc_ktimers_poll: %p expired after 2 secs, calling "
          "%p(%p)\n|2 %s: sc_ktimer_cancel: corrupt timer at %p|2 %s: "
          "sc_ktimer_reset: corrupt timer at %p|",
          kMod, d, (void *)on_fire, &entries_[0], kMod, &bogus, kMod, &bogus));
  EXPECT_TRUE(clock_reads == reads && bogus.expires == 77);
}

// Clock steps go both ways, and across 2^32 in the last run. Each run ends
// with every timer not cancelled firing, once, but the last: the set is
// destroyed with its timers pending, calling none and leaking nothing.
TEST_F(Ktimer, MatchesAReferenceMapOfDueTimes) {
  std::mt19937 rng;
  TimerModel m(
      set_, [&](uint32_t n) { return rng() % n; },
      [](const char *what, int line) {
        ADD_FAILURE_AT("timer_model.h", line) << what;
      });
  for (unsigned seed = 1; seed <= 30 && !HasFailure(); seed++) {
    rng.seed(seed);
    clock_now = seed == 30 ? 0xffffff00u : 1000 * seed;
    for (int i = 0; i < 1000 && !HasFailure(); i++) {
      m.step();
      m.check();
    }
    while (seed < 30 && !m.pending.empty() && !HasFailure()) m.poll(0, true);
    EXPECT_TRUE(seed == 30 || !set_->active);
  }
  m.pending.clear();
  sc_ktimers_destruct(set_);
  set_ = nullptr;  // TearDown's destruct is then a no-op
}

}  // namespace

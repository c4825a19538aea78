// Timers with callables: firing when due, cancel and reset through the
// handle (also of a fired timer, and from its own callable), cancel on
// destruction, and every failure.
#include "vell/timer.hpp"

#include <memory>
#include <string>
#include <vector>

#include "fake_clock.h"
#include "test_host.h"

namespace {

using namespace std::chrono_literals;
using CppTimer = HostTest;
th::Ctx ctx(64);

// A timer fires once when due, then is disarmed; reset restarts its count
// from the current second, on a pending timer and on a fired one alike.
TEST_F(CppTimer, CallablesFireOnceWhenDue) {
  clock_now = 1000;
  auto set = vell::timer_set::create(ctx);
  ASSERT_TRUE(set);
  std::string fired;
  auto text = std::make_unique<std::string>("late");  // a move-only capture
  vell::timer soon = set->add(5s, [&] { fired += "soon "; });
  vell::timer late = set->add(10s, [&, s = std::move(text)] { fired += *s; });
  clock_now = 1005;
  EXPECT_EQ(set->poll(), 1);
  EXPECT_FALSE(soon.armed() || soon.cancel());
  clock_now = 1009;
  EXPECT_TRUE(late.reset());  // now due at 1019
  EXPECT_TRUE(soon.reset());  // fired: armed again, due at 1014
  clock_now = 1018;
  EXPECT_EQ(set->poll(), 1);
  clock_now = 1019;
  EXPECT_EQ(set->poll(), 1);
  EXPECT_EQ(fired, "soon soon late");

  // A callable re-arms its own timer, then replaces it with a new one and
  // still touches its captures: it outlives its own run.
  std::string log;
  vell::timer self;
  self = set->add(1min, [&, tag = std::string(40, 'x')] {
    log += "a";
    if (log.size() < 3) {
      EXPECT_TRUE(self.reset());
      return;
    }
    self = set->add(1s, [&] { log += "b"; });
    log += tag.substr(0, 1);
  });
  for (int i = 0; i < 4; ++i) set->poll(0, true);
  EXPECT_EQ(log, "aaaxb");
  EXPECT_FALSE(set->add(-1s, [] {}));  // out of range (reported)
  EXPECT_FALSE(set->add(std::chrono::hours(1u << 21), [] {}));
  th::clear_output();
}

TEST_F(CppTimer, CancelledMovedAndDestroyedTimers) {
  {  // released before the sweep resets the host's records
    // The moved timer fires, and so does one whose callback finds it
    // already disarmed; cancelled and destroyed ones do not.
    auto set = vell::timer_set::create(ctx);
    ASSERT_TRUE(set);
    int fired = 0;
    vell::timer kept = set->add(1s, [&] { ++fired; });
    vell::timer cancelled = set->add(1s, [&] { fired += 100; });
    EXPECT_TRUE(cancelled.cancel());
    {
      vell::timer dropped = set->add(1s, [&] { fired += 10; });
    }
    std::vector<vell::timer> moved;
    moved.push_back(std::move(kept));
    EXPECT_FALSE(kept || kept.reset() || kept.cancel());
    vell::timer self;
    self = set->add(1s, [&] { fired += self.cancel() ? 1000 : 2; });
    EXPECT_EQ(set->poll(0, true), 2);
    EXPECT_EQ(fired, 3);
    // A moved-from set arms and fires nothing; one needs a context.
    vell::timer_set other = std::move(*set);
    EXPECT_FALSE(*set || set->add(1s, [] {}) || set->poll(0, true));
    EXPECT_FALSE(vell::timer_set::create(nullptr));
    th::clear_output();
  }
  // Each allocation fails in turn: a timer that failed to arm tests false
  // and never fires.
  th::sweep([](long) {
    auto set = vell::timer_set::create(ctx);
    int fired = 0;
    if (!set) return;
    vell::timer t = set->add(1s, [&] { ++fired; });
    EXPECT_EQ(set->poll(0, true), t ? 1 : 0);
    EXPECT_EQ(fired, t ? 1 : 0);
  });
}

}  // namespace

// Timers with callables: firing when due, cancel and reset through the
// handle, cancel on destruction, and every failure.
#include "vell/timer.hpp"

#include <sys/time.h>

#include <memory>
#include <string>
#include <vector>

#include "test_host.h"

static uint32_t clock_now;  // what every gettimeofday call returns

// The program's own gettimeofday: the library's clock reads bind to it.
extern "C" int gettimeofday(struct timeval *__restrict tv,
                            void *__restrict) noexcept {
  *tv = {static_cast<time_t>(clock_now), 0};
  return 0;
}

namespace {

using CppTimer = HostTest;
th::Ctx ctx(64);

// A timer fires once when due, then is disarmed; reset restarts its count
// from the current second.
TEST_F(CppTimer, CallablesFireOnceWhenDue) {
  clock_now = 1000;
  auto set = vell::timer_set::create(ctx);
  ASSERT_TRUE(set);
  std::string fired;
  auto text = std::make_unique<std::string>("late");  // a move-only capture
  vell::timer soon = set->add(5, [&] { fired += "soon "; });
  vell::timer late = set->add(10, [&, s = std::move(text)] { fired += *s; });
  clock_now = 1005;
  EXPECT_EQ(set->poll(), 1);
  EXPECT_FALSE(soon.armed() || soon.cancel() || soon.reset());
  clock_now = 1009;
  EXPECT_TRUE(late.reset());  // now due at 1019
  clock_now = 1018;
  EXPECT_EQ(set->poll(), 0);
  clock_now = 1019;
  EXPECT_EQ(set->poll(), 1);
  EXPECT_EQ(fired, "soon late");
}

TEST_F(CppTimer, CancelledMovedAndDestroyedTimers) {
  {  // released before the sweep resets the host's records
    // The moved timer fires, and so does one whose callback finds it
    // already disarmed; cancelled and destroyed ones do not.
    auto set = vell::timer_set::create(ctx);
    ASSERT_TRUE(set);
    int fired = 0;
    vell::timer kept = set->add(1, [&] { ++fired; });
    vell::timer cancelled = set->add(1, [&] { fired += 100; });
    EXPECT_TRUE(cancelled.cancel());
    {
      vell::timer dropped = set->add(1, [&] { fired += 10; });
    }
    std::vector<vell::timer> moved;
    moved.push_back(std::move(kept));
    vell::timer self;
    self = set->add(1, [&] { fired += self.cancel() ? 1000 : 2; });
    EXPECT_EQ(set->poll(0, true), 2);
    EXPECT_EQ(fired, 3);
  }
  // Each allocation fails in turn: a timer that failed to arm tests false
  // and never fires.
  th::sweep([](long) {
    auto set = vell::timer_set::create(ctx);
    int fired = 0;
    if (!set) return;
    vell::timer t = set->add(1, [&] { ++fired; });
    EXPECT_EQ(set->poll(0, true), t ? 1 : 0);
    EXPECT_EQ(fired, t ? 1 : 0);
  });
}

}  // namespace

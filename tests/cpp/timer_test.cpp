// Timers with callables: firing, cancel and reset through the handle,
// cancel on destruction, and every failure.
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

TEST_F(CppTimer, CallablesFireOnceWhenDue) {
  clock_now = 1000;
  auto set = vell::timer_set::create(ctx);
  ASSERT_TRUE(set);
  std::string fired;
  auto big = std::make_unique<std::string>("late");  // a move-only capture
  vell::timer soon = set->add(5, [&] { fired += "soon "; });
  vell::timer late = set->add(10, [&, s = std::move(big)] { fired += *s; });
  ASSERT_TRUE(soon && late);
  clock_now = 1005;
  EXPECT_EQ(set->poll(), 1);
  EXPECT_FALSE(soon.armed());
  EXPECT_FALSE(soon.cancel());
  EXPECT_FALSE(soon.reset());
  clock_now = 1009;
  EXPECT_TRUE(late.reset());  // now due at 1019
  clock_now = 1018;
  EXPECT_EQ(set->poll(), 0);
  clock_now = 1019;
  EXPECT_EQ(set->poll(), 1);
  EXPECT_EQ(fired, "soon late");
}

TEST_F(CppTimer, CancelledMovedAndDestroyedTimersDoNotFire) {
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
  EXPECT_FALSE(kept);
  vell::timer self;
  self = set->add(1, [&] { fired += self.cancel() ? 1000 : 2; });
  EXPECT_EQ(set->poll(0, true), 2);
  EXPECT_EQ(fired, 3);
}

TEST_F(CppTimer, FailuresLeaveNothingTaken) {
  th::sweep([](long) {
    auto set = vell::timer_set::create(ctx);
    if (!set) return;
    int fired = 0;
    vell::timer t = set->add(1, [&] { ++fired; });
    EXPECT_EQ(set->poll(0, true), t ? 1 : 0);
    EXPECT_EQ(fired, t ? 1 : 0);
  });
}

}  // namespace

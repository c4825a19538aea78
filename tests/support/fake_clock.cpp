// The program's own gettimeofday: the library's clock reads bind to it, and
// it returns whatever second clock_now holds.
#include "fake_clock.h"

#include <sys/time.h>

uint32_t clock_now;
long clock_reads;

extern "C" int gettimeofday(struct timeval *__restrict tv,
                            void *__restrict) noexcept {
  ++clock_reads;
  *tv = {static_cast<time_t>(clock_now), 999999};  // microseconds ignored
  return 0;
}

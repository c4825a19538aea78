// The program's own gettimeofday: the library's clock reads bind to it.
#include <sys/time.h>

#include "wheel_check.h"

uint32_t fake_clock::seconds = 1000;
long fake_clock::reads = 0;

extern "C" int gettimeofday(struct timeval *__restrict tv,
                            void *__restrict) noexcept {
  ++fake_clock::reads;
  tv->tv_sec = static_cast<time_t>(fake_clock::seconds);
  tv->tv_usec = 999999;  // must be ignored
  return 0;
}

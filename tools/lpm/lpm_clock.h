// The one clock of the tool and the benchmarks: monotonic seconds, as a
// reading or as the time one call takes.
#pragma once

#include <chrono>

namespace lpm {

inline double now_seconds() {
  return std::chrono::duration<double>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Seconds taken by one call of body().
template <class F>
double seconds(F &&body) {
  const double t0 = now_seconds();
  body();
  return now_seconds() - t0;
}

}  // namespace lpm

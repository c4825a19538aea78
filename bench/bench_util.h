// Timing shared by the benchmark programs.
#pragma once

#include <chrono>

namespace bench {

// Wall-clock seconds, on the monotonic clock, taken by one call of body().
template <class F>
double seconds(F &&body) {
  const auto t0 = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0)
      .count();
}

}  // namespace bench

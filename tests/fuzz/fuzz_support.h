// What every fuzz target shares: a failed check prints itself and aborts,
// so libFuzzer keeps the input as a crash, and each input runs on a clean
// recording host that may fail one allocation and must get every block
// back, with its size, from the allocator it came from.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <stdio.h>
#include <stdlib.h>

#include "host_record.h"

#define FUZZ_CHECK(...) \
  ((__VA_ARGS__) ? (void)0 : fuzz::fail(#__VA_ARGS__, __FILE__, __LINE__))

namespace fuzz {

[[noreturn]] inline void fail(const char *what, const char *file, int line) {
  fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
  abort();
}

// Starts an input: a fresh host whose n-th allocation from now fails, n
// taken from the input (0, the most likely, fails none).
inline void begin(FuzzedDataProvider &in) {
  th::reset();
  long n = in.ConsumeBool() ? in.ConsumeIntegralInRange<long>(1, 64) : 0;
  th::fail_nth(n);
}

// Whether the allocation meant to fail has failed yet.
inline bool failed() { return th::failure_injected(); }

// Ends an input: nothing leaked, no block released wrongly.
inline void end() {
  auto problems = th::problems();
  for (auto &p : problems) fprintf(stderr, "%s\n", p.c_str());
  FUZZ_CHECK(problems.empty());
}

}  // namespace fuzz

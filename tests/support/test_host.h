// Test host: a replacement for the default host module that records every
// allocation and release, can make the n-th allocation fail, and captures
// diagnostics and console output. Test binaries link it instead of
// libvell-ds-host.a.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "sc_host.h"

namespace th {

enum class Alloc { kmalloc, kcalloc, szalloc };

// One block taken from the host.
struct Block {
  Alloc alloc;
  uint32_t size;
  void *ctx;         // size-class context, null for the general heap
  std::string file;  // file string given to __sc_szalloc, empty otherwise
  bool live;
};

struct Diag {
  int level;
  std::string file;
  int line;
  std::string text;  // the formatted message
};

// A size-class context serving blocks of up to max_alloc bytes.
class Ctx {
 public:
  explicit Ctx(uint32_t max_alloc);
  ~Ctx();
  Ctx(const Ctx &) = delete;
  Ctx &operator=(const Ctx &) = delete;
  void *get() { return this; }
  operator void *() { return this; }
  uint32_t max_alloc() const { return max_; }

 private:
  uint32_t magic_;
  uint32_t max_;
};

// Clears every record, the failure plan and the captured text; debug level 2.
void reset();

// The n-th allocation attempt from now (1-based, any allocator) fails;
// 0 switches failure off.
void fail_nth(long n);
// Whether the planned failure has happened since fail_nth.
bool failure_injected();
// Allocation attempts since reset (including failed ones).
long alloc_attempts();

// Every block taken since reset, in order (failed attempts not included).
const std::vector<Block> &blocks();
uint64_t live_bytes();
// Release problems since reset: size mismatches, wrong allocator, unknown or
// double releases, size-class blocks above the context's limit.
const std::vector<std::string> &errors();
// Size-class blocks given back through __sc_kfree. Legal for the host
// contract but counted, so each test states how many it expects.
void expect_sz_released_by_kfree(long n);

const std::vector<Diag> &diags();
std::string diag_text();       // every message concatenated
const std::string &console();  // everything sc_printf wrote
void clear_output();           // drops captured diagnostics and console text

// Results the prefix and message calls of the last diagnostic returned.
int last_prefix_result();
int last_msg_result();

// Adds a gtest failure for every leaked block and every release error.
void expect_clean();

// Calls body() once per allocation point: run k makes the k-th allocation
// fail. Stops after the first run in which no failure was injected (the
// run that succeeds). After every run checks that nothing leaked. Returns
// the number of runs in which a failure was injected.
template <typename Body>
int sweep(Body body) {
  int points = 0;
  for (long k = 1;; ++k) {
    reset();
    fail_nth(k);
    body(k);
    expect_clean();
    if (::testing::Test::HasFatalFailure()) return points;
    if (!failure_injected()) return points;
    ++points;
  }
}

}  // namespace th

// Base fixture: resets the host before each test and checks at the end that
// every block went back once, with its size, to the allocator it came from.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { th::reset(); }
  void TearDown() override { th::expect_clean(); }
};

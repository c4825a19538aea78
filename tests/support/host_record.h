// Recording host: a replacement for the default host module that records
// every allocation and release, can make the n-th allocation fail, and
// captures diagnostics and console output. Free of any test framework, so
// fuzz targets link it as well as the unit tests.
#pragma once

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
// Cancels the planned failure if it has not happened; failure_injected()
// still tells whether it did.
void disarm();
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

// Every leaked block, every release error and a mismatch in the count of
// size-class blocks released through __sc_kfree, as messages; empty when
// every block went back once, with its size, to the allocator it came from.
std::vector<std::string> problems();

// Whether p is a block taken and not yet released, of exactly size bytes.
bool live(const void *p, uint32_t size);

}  // namespace th

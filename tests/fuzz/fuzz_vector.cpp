// The vector against its reference model (tests/vector/vector_model.h):
// every constructor, additions, appends, compaction, sorts,
// de-duplications and copies chosen by the input, with one allocation
// failure planned at any point.
#include "../vector/vector_model.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  th::Ctx ctx(64);
  fuzz::begin(in);
  {
    VectorModel m(
        ctx,
        [&](uint32_t n) {
          return in.ConsumeIntegralInRange<uint32_t>(0, n - 1);
        },
        [](const char *what, int line) {
          fuzz::fail(what, "vector_model.h", line);
        });
    while (m.v && in.remaining_bytes() > 0) {
      m.step();
      m.check();
      if (fuzz::failed()) th::fail_nth(0);  // one failure per input
    }
  }
  fuzz::end();
  return 0;
}

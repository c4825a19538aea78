// The three chained tables against their reference model
// (tests/hash/hash_model.h): inserts, erases, finds, walks, delete-all and
// per family resizing or serialisation chosen by the input, on a table of
// any size hint from a size-class context of any block size, with one
// allocation failure planned at any point.
#include "../hash/hash_model.h"
#include "fuzz_support.h"

namespace {

template <class F>
void run(FuzzedDataProvider &in) {
  th::Ctx ctx(in.ConsumeIntegralInRange<uint32_t>(128, 1024));
  const uint32_t hint = in.ConsumeIntegralInRange<uint32_t>(0, 64);
  fuzz::begin(in);
  if (auto *t = F::make(hint, ctx.get())) {
    HashModel<F> m(
        t,
        [&](uint32_t n) {
          return in.ConsumeIntegralInRange<uint32_t>(0, n - 1);
        },
        [](const char *what, int line) {
          fuzz::fail(what, "hash_model.h", line);
        });
    while (in.remaining_bytes() > 0) {
      m.step();
      m.check();
      if (fuzz::failed()) th::fail_nth(0);  // one failure per input
    }
    m.walk(false);
  } else {
    FUZZ_CHECK(fuzz::failed());
  }
  fuzz::end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
      return run<ht::Hash>(in), 0;
    case 1:
      return run<ht::Ohash>(in), 0;
    default:
      return run<ht::Khash>(in), 0;
  }
}

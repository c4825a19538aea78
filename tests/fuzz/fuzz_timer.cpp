// The timer wheel against its reference model (tests/timer/timer_model.h):
// creates, resets, cancels, dumps and polls chosen by the input, also from
// callbacks, on a clock that steps forward and back and may start just
// below the 2^32 wrap. Ends by polling everything out, or destroying the
// set with timers pending.
#include "../timer/timer_model.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  clock_now = in.ConsumeBool() ? 0xffffff00u + in.ConsumeIntegral<uint8_t>()
                               : in.ConsumeIntegral<uint32_t>();
  clock_reads = 0;
  bool drain = in.ConsumeBool();
  fuzz::begin(in);
  th::Ctx ctx(64);
  sc_ktimers *set = sc_ktimers_construct(ctx);
  if (!set) {
    FUZZ_CHECK(fuzz::failed());
    fuzz::end();
    return 0;
  }
  TimerModel m(
      set,
      [&](uint32_t n) { return in.ConsumeIntegralInRange<uint32_t>(0, n - 1); },
      [](const char *what, int line) {
        fuzz::fail(what, "timer_model.h", line);
      });
  while (in.remaining_bytes() > 0) {
    m.step();
    m.check();
  }
  // With the input used up, callbacks add nothing more.
  while (drain && !m.pending.empty()) m.poll(0, true);
  FUZZ_CHECK(!drain || !set->active);
  sc_ktimers_destruct(set);
  fuzz::end();
  return 0;
}

// Console dump of a timer set. A poll's markers, present when a callback
// dumps the set, are not shown, nor is a bucket or cell that a callback has
// emptied and only a marker still holds.
#include "api.h"
#include "sc_host.h"
#include "sc_ktimer.h"
#include "timer/wheel.h"

using namespace vds::timer;

namespace {

// The first cell of the list that still holds a timer.
sc_ktimer_cell *live_cell(sc_ktimer_cell *c) {
  for (c = skip_markers(c); c && !skip_markers(c->head);)
    c = skip_markers(c->next);
  return c;
}

}  // namespace

VDS_API void sc_ktimers_debug(sc_ktimers *set) {
  uint32_t now = clock_seconds();
  sc_printf("timers %p\n", static_cast<void *>(set));
  for (sc_ktimer_bucket *b = skip_markers(set->active); b;
       b = skip_markers(b->next)) {
    if (!live_cell(b->cells)) continue;
    sc_printf("  bucket %p\n", static_cast<void *>(b));
    for (sc_ktimer_cell *c = skip_markers(b->cells); c;
         c = skip_markers(c->next)) {
      if (!skip_markers(c->head)) continue;
      sc_printf("    cell %p(%d)\n", static_cast<void *>(c),
                static_cast<int>(c->secs));
      for (sc_ktimer *t = skip_markers(c->head); t; t = skip_markers(t->next))
        sc_printf("        %p: expires in %d, call %p(%p)\n",
                  static_cast<void *>(t), static_cast<int>(t->expires - now),
                  reinterpret_cast<void *>(t->callback), t->arg);
    }
  }
  sc_printf("\n");
}

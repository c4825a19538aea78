// Console dump of a timer set.
#include "api.h"
#include "sc_host.h"
#include "sc_ktimer.h"
#include "sc_ktimer_wheel.h"

using namespace vds::timer;

VDS_API void sc_ktimers_debug(sc_ktimers *set) {
  uint32_t now = clock_seconds();
  sc_printf("timers %p\n", static_cast<void *>(set));
  for (sc_ktimer_bucket *b = set->active; b; b = b->next) {
    sc_printf("  bucket %p\n", static_cast<void *>(b));
    for (sc_ktimer_cell *c = b->cells; c; c = c->next) {
      sc_printf("    cell %p(%d)\n", static_cast<void *>(c),
                static_cast<int>(c->secs));
      for (sc_ktimer *t = c->head; t; t = t->next)
        sc_printf("        %p: expires in %d, call %p(%p)\n",
                  static_cast<void *>(t), static_cast<int>(t->expires - now),
                  reinterpret_cast<void *>(t->callback), t->arg);
    }
  }
  sc_printf("\n");
}

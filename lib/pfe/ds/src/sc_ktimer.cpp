// Timer set: construction, destruction and the operations on one timer.
#include "sc_ktimer.h"

#include <string.h>
#include <sys/types.h>

#include "api.h"
#include "diag.h"
#include "sc_ktimer_wheel.h"

using namespace vds::timer;

namespace {

constexpr char kModule[] = "lib/pfe/ds/src/sc_ktimer";

// Finds the cell of a timeout, or makes one at the end of its bucket's chain
// (activating the bucket if the chain was empty).
sc_ktimer_cell *sc_ktimers_cell(sc_ktimers *set, uint32_t secs) {
  sc_ktimer_bucket *b = bucket_of(set, secs);
  sc_ktimer_cell *last = nullptr;
  for (sc_ktimer_cell *c = b->cells; c; last = c, c = c->next)
    if (c->secs == secs) return c;

  auto *c =
      take<sc_ktimer_cell>(set, "sc_ktimers_cell: sc_szalloc(%zd) failed");
  if (!c) return nullptr;
  c->next = nullptr;
  c->secs = secs;
  c->head = c->tail = nullptr;
  if (last) {
    last->next = c;
  } else {
    b->cells = c;
    bucket_push_front(set, b);
  }
  return c;
}

// Rejects a record that is not an armed timer, naming the operation.
bool armed(const sc_ktimer *t, const char *op) {
  if (t->cell) return true;
  VDS_DIAG(vds::kFailure, kModule, "%s: corrupt timer at %p", op,
           static_cast<const void *>(t));
  return false;
}

}  // namespace

namespace vds::timer {

void *take(sc_ktimers *set, uint32_t size, const char *failure) {
  void *p = __sc_szalloc(set->sz_ctx, size, 0, kModule, __LINE__);
  if (!p) VDS_DIAG(kFailure, kModule, failure, static_cast<ssize_t>(size));
  return p;
}

void give(sc_ktimers *set, void *p, uint32_t size) {
  __sc_szfree(set->sz_ctx, p, size, kModule, __LINE__);
}

void trace_expiry(const sc_ktimer *t) {
  VDS_DIAG(kTrace, kModule,
           "sc_ktimers_poll: %p expired after %d secs, calling %p(%p)\n",
           static_cast<const void *>(t), static_cast<int>(t->cell->secs),
           reinterpret_cast<void *>(t->callback), t->arg);
}

}  // namespace vds::timer

VDS_API sc_ktimers *sc_ktimers_construct(void *sz_ctx) {
  auto *set = static_cast<sc_ktimers *>(__sc_kmalloc(sizeof(sc_ktimers)));
  if (!set) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_ktimers_construct: sc_kmalloc(%zd) failed",
             static_cast<ssize_t>(sizeof(sc_ktimers)));
    return nullptr;
  }
  memset(set, 0, sizeof *set);
  set->sz_ctx = sz_ctx;
  return set;
}

// Pending timers are released without their callbacks being called.
VDS_API void sc_ktimers_destruct(sc_ktimers *set) {
  if (!set) return;
  for (sc_ktimer_bucket *b = set->active; b; b = b->next) {
    for (sc_ktimer_cell *c = b->cells, *next_c; c; c = next_c) {
      next_c = c->next;
      for (sc_ktimer *t = c->head, *next_t; t; t = next_t) {
        next_t = t->next;
        timer_free(set, t);
      }
      give(set, c);
    }
  }
  set->sz_ctx = nullptr;
  __sc_kfree(set, sizeof(sc_ktimers));
}

VDS_API sc_ktimer *sc_ktimer_create(sc_ktimers *set, uint32_t secs,
                                    sc_ktimer_callback callback, void *arg) {
  auto *t = take<sc_ktimer>(set, "ktimer_create: sc_szalloc(%zd) failed");
  if (!t) return nullptr;
  memset(t, 0, sizeof *t);
  sc_ktimer_cell *c = sc_ktimers_cell(set, secs);
  if (!c) {
    give(set, t);
    return nullptr;
  }
  t->callback = callback;
  t->arg = arg;
  t->cell = c;
  t->timers = set;
  t->expires = secs + clock_seconds();
  timer_place(c, t);
  return t;
}

// Re-arms the timer for its cell's timeout from now, behind every timer of
// the cell due no later.
VDS_API int sc_ktimer_reset(sc_ktimer *timer) {
  if (!armed(timer, "sc_ktimer_reset")) return -1;
  sc_ktimer_cell *c = timer->cell;
  timer->expires = c->secs + clock_seconds();
  timer_unlink(c, timer);
  timer_place(c, timer);
  return 0;
}

VDS_API int sc_ktimer_cancel(sc_ktimer *timer) {
  if (!armed(timer, "sc_ktimer_cancel")) return -1;
  timer_disarm(timer);
  return 0;
}

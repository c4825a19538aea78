// Polling: fires the due timers, buckets in active-list order, cells in
// chain order, each cell's timers earliest first.
//
// The poll never holds a pointer to a record across a callback, since the
// callback may release it. It holds its place by what a callback cannot
// free: the order of the active list when the poll began, kept on its own
// stack as bucket indices, and the timeout of the cell it is in, unique
// within the set. After each callback it finds the cell again from its
// bucket's chain. Nothing of the poll is ever linked into the set, so the
// records describe exactly the armed timers whenever a callback runs.
#include <stdint.h>

#include "api.h"
#include "sc_ktimer.h"
#include "sc_ktimer_wheel.h"

using namespace vds::timer;

namespace {

constexpr int kBuckets = sizeof(sc_ktimers::buckets) / sizeof(sc_ktimer_bucket);

struct Poll {
  sc_ktimers *set;
  uint32_t now;
  int limit;
  bool fire_all;
  int fired;

  bool due(const sc_ktimer *t) const { return fire_all || now >= t->expires; }

  // Releases t, then calls its callback. True once the limit is reached.
  bool fire(sc_ktimer *t) {
    sc_ktimer_callback callback = t->callback;
    void *arg = t->arg;
    trace_expiry(t);
    timer_disarm(t);
    if (callback) callback(arg);
    ++fired;
    return limit != 0 && fired >= limit;
  }

  // The first cell from c on whose first timer is due.
  sc_ktimer_cell *first_due(sc_ktimer_cell *c) const {
    while (c && !due(c->head)) c = c->next;
    return c;
  }

  // Fires the due timers of c, found again by its timeout after each
  // callback. The last timer of the cell ends the cell's turn.
  bool turn(sc_ktimer_bucket *b, sc_ktimer_cell *c) {
    const uint32_t secs = c->secs;
    do {
      sc_ktimer *t = c->head;
      if (!due(t)) return false;
      bool last = !t->next;
      if (fire(t)) return true;
      if (last) return false;
      c = cell_find(b, secs);
    } while (c);
    return false;
  }

  // After each cell's turn the chain is searched again from its head: the
  // cells already done have a first timer that is not due. Once the poll
  // has reached the chain's last cell, cells added behind it wait.
  bool bucket(sc_ktimer_bucket *b) {
    for (sc_ktimer_cell *c = first_due(b->cells); c; c = first_due(b->cells)) {
      bool last = !c->next;
      if (turn(b, c)) return true;
      if (last) break;
    }
    return false;
  }
};

}  // namespace

VDS_API int sc_ktimers_poll_ex(sc_ktimers *set, int limit, int fire_all) {
  Poll poll{set, clock_seconds(), limit, fire_all != 0, 0};
  set->now = poll.now;
  // Buckets that join the list during the poll wait for the next one.
  uint8_t order[kBuckets];
  int n = 0;
  for (sc_ktimer_bucket *b = set->active; b; b = b->next)
    order[n++] = static_cast<uint8_t>(b - set->buckets);
  for (int i = 0; i < n; i++) {
    sc_ktimer_bucket *b = &set->buckets[order[i]];
    if (b->cells && poll.bucket(b)) break;
  }
  return poll.fired;
}

VDS_API int sc_ktimers_poll_force(sc_ktimers *set) {
  return sc_ktimers_poll_ex(set, 0, 0);
}

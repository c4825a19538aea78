// Polling: fires the due timers, buckets in active-list order, cells in
// chain order, each cell's timers earliest first.
//
// Across every callback the poll holds its place with markers linked into
// the lists (see timer/wheel.h) instead of pointers to the next timer, cell
// or bucket. Whatever a callback cancels, resets or creates, the markers are
// relinked with their neighbours, so the poll never follows a released
// record, never fires a timer twice and never skips one it would otherwise
// have reached.
#include "api.h"
#include "diag.h"
#include "sc_ktimer.h"
#include "timer/wheel.h"

using namespace vds::timer;

// The markers live in the poll's frames and are linked into the set's lists;
// every one is unlinked before its frame ends.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif

namespace {

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
    VDS_DIAG(vds::kTrace, kModule,
             "sc_ktimers_poll: %p expired after %d secs, calling %p(%p)\n",
             static_cast<void *>(t), static_cast<int>(t->cell->secs),
             reinterpret_cast<void *>(callback), arg);
    timer_disarm(t);
    if (callback) callback(arg);
    ++fired;
    return limit != 0 && fired >= limit;
  }

  // Fires the due timers of c. The last timer of the cell ends the cell's
  // turn: timers that its callback adds to the cell wait for the next poll.
  bool cell(sc_ktimer_cell *c) {
    sc_ktimer mark = {};
    timer_link_after(c, nullptr, &mark);
    bool stop = false;
    for (;;) {
      sc_ktimer *t = skip_markers(mark.next);
      if (!t || !due(t)) break;
      if (!t->next) {
        timer_unlink(c, &mark);
        return fire(t);
      }
      if ((stop = fire(t))) break;
    }
    timer_unlink(c, &mark);
    cell_release_if_empty(set, c);  // its callbacks may have emptied it
    return stop;
  }

  // The cells that follow the last one at the moment it is reached are
  // left for the next poll, like the timers behind a cell's last timer.
  bool bucket(sc_ktimer_bucket *b) {
    for (sc_ktimer_cell *c = b->cells; c;) {
      sc_ktimer *first = skip_markers(c->head);
      if (!first || !due(first)) {
        c = c->next;
        continue;
      }
      if (!c->next) return cell(c);
      sc_ktimer_cell guard = {};
      guard.next = c->next;
      c->next = &guard;
      bool stop = cell(c);
      c = guard.next;
      cell_unlink(set, b, &guard);
      if (stop) return true;
    }
    return false;
  }
};

}  // namespace

VDS_API int sc_ktimers_poll_ex(sc_ktimers *set, int limit, int fire_all) {
  Poll poll{set, clock_seconds(), limit, fire_all != 0, 0};
  set->now = poll.now;
  for (sc_ktimer_bucket *b = set->active; b;) {
    if (is_marker(b)) {
      b = b->next;
      continue;
    }
    sc_ktimer_bucket mark = {};
    bucket_link_after(b, &mark);
    bool stop = poll.bucket(b);
    b = mark.next;
    bucket_unlink(set, &mark);
    if (stop) break;
  }
  return poll.fired;
}

VDS_API int sc_ktimers_poll_force(sc_ktimers *set) {
  return sc_ktimers_poll_ex(set, 0, 0);
}

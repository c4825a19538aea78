/* Timer wheel of one-shot timers fired by polling a whole-second clock.
 *
 * Timers sharing a timeout sit on one cell in order of expiry; cells hang off
 * 128 buckets (timeout modulo 128), and only buckets holding cells are on the
 * active list that a poll walks. The clock is gettimeofday's seconds, read
 * once per create, reset, poll and dump.
 *
 * Behaviour a caller can rely on beyond that:
 * - A poll survives whatever its callbacks do to the set, short of
 *   destroying it: cancelling or resetting any timer, emptying the cell or
 *   bucket it is in, re-activating a bucket it has passed, or polling the
 *   set again. No timer fires twice, and every timer that was due when the
 *   poll began fires in it unless a callback cancels or resets it first or
 *   the limit stops the poll.
 * - A timer is released before its callback runs, so whenever a callback
 *   runs the records describe exactly the timers still armed: `active` is
 *   null when none is, every bucket on the active list has cells, every cell
 *   has timers, and every timer on a cell is armed and points at that cell.
 *   The poll keeps its place off the set, by the order of the active list
 *   when it began and the timeout of the cell it is in.
 * - The poll visits the buckets that were on the active list when it began,
 *   in that order, each once, if it holds cells when reached. Within a
 *   bucket it takes the first cell of the chain whose first timer is due and
 *   fires that cell's due timers, then searches the chain again from its
 *   head. The last timer of a cell ends the cell's turn, and the chain's
 *   last cell ends the bucket's. So a timer created or reset by a callback
 *   fires in the same poll when it is due and it is: in a bucket the poll has
 *   still to reach (even one a callback emptied and filled again), in a cell
 *   of the bucket being polled unless the poll is in the chain's last cell,
 *   or behind a timer of its own cell still to come. Otherwise, including in
 *   a bucket that first joins the active list during the poll or one the
 *   poll has passed that comes back, it waits for the next poll.
 * - Cost: a poll walks the active list and each of its chains once, and
 *   after every callback walks the chain of the bucket it is in again, up to
 *   its cell or the next cell with a due timer. A poll that fires k timers
 *   from c cells, at most m on one chain as the chains are after each
 *   callback, costs O(128 + c + k * m), however its callbacks reshape the
 *   set; nested polls cost their own.
 * - sc_ktimers_destruct releases the timers and cells still pending without
 *   calling their callbacks, so destroying a set never leaks.
 * - A clock that steps backwards never makes a timer fire early, and never
 *   holds a due timer back behind one that is not due: create and reset
 *   place a timer behind the timers of its cell due no later than it, so a
 *   cell stays in expiry order whatever the clock does. While the clock does
 *   not step back that place is the cell's tail.
 * - Expiry is the arming reading plus the timeout, modulo 2^32, and a timer
 *   is due when the poll's reading is not below it (unsigned). */
#ifndef SC_KTIMER_H
#define SC_KTIMER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*sc_ktimer_callback)(void *arg);
typedef struct sc_ktimer
    sc_ktimer; /* next, prev, expires, cell, callback, timers, arg */
typedef struct sc_ktimer_cell sc_ktimer_cell; /* next, secs, head, tail */

typedef struct sc_ktimer_bucket {
  sc_ktimer_cell *cells;
  struct sc_ktimer_bucket *next, *prev;
} sc_ktimer_bucket;

typedef struct sc_ktimers {
  sc_ktimer_bucket buckets[128];
  sc_ktimer_bucket *active;
  uint32_t now;
  void *sz_ctx;
} sc_ktimers;

/* All timers of one timeout value, earliest due first. */
struct sc_ktimer_cell {
  sc_ktimer_cell *next; /* following cell of the bucket's chain */
  uint32_t secs;        /* the timeout; unique within the set */
  sc_ktimer *head, *tail;
};

/* One armed timer. A handle is valid until the timer is cancelled or fires. */
struct sc_ktimer {
  sc_ktimer *next, *prev;
  uint32_t expires;     /* second at which the timer is due */
  sc_ktimer_cell *cell; /* null once the timer is no longer armed */
  sc_ktimer_callback callback;
  sc_ktimers *timers;
  void *arg;
};

sc_ktimers *sc_ktimers_construct(void *sz_ctx);
void sc_ktimers_destruct(sc_ktimers *set);
sc_ktimer *sc_ktimer_create(sc_ktimers *set, uint32_t secs,
                            sc_ktimer_callback callback, void *arg);
int sc_ktimer_reset(sc_ktimer *timer);
int sc_ktimer_cancel(sc_ktimer *timer);
int sc_ktimers_poll_ex(sc_ktimers *set, int limit, int fire_all);
int sc_ktimers_poll_force(sc_ktimers *set);
void sc_ktimers_debug(sc_ktimers *set);

#ifdef __cplusplus
}
#endif

#endif /* SC_KTIMER_H */

// Links of the timer wheel: a bucket's chain of cells, a cell's list of
// timers and the set's active-bucket list, shared by the operations and the
// poll so that every structural change goes through one place. Between
// operations, and whenever a poll calls back, the active list holds exactly
// the buckets with cells, every cell has timers and every timer on a cell is
// armed, with `cell` pointing at it.
#pragma once

#include <stdint.h>
#include <string.h>
#include <sys/time.h>

#include "sc_ktimer.h"

namespace vds::timer {

// Whole seconds of the wall clock; the microseconds are ignored.
inline uint32_t clock_seconds() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<uint32_t>(tv.tv_sec);
}

// The module's size-class calls and diagnostics are all made in
// sc_ktimer.cpp, the file its source name points into.

// A record of `size` bytes from the set's size-class context. On failure
// reports `failure`, a format taking the record's size, and returns null.
void *take(sc_ktimers *set, uint32_t size, const char *failure);
void give(sc_ktimers *set, void *p, uint32_t size);
// Traces a due timer about to be disarmed and called back.
void trace_expiry(const sc_ktimer *t);

template <typename T>
T *take(sc_ktimers *set, const char *failure) {
  return static_cast<T *>(take(set, sizeof(T), failure));
}

template <typename T>
void give(sc_ktimers *set, T *p) {
  give(set, p, sizeof(T));
}

inline sc_ktimer_bucket *bucket_of(sc_ktimers *set, uint32_t secs) {
  return &set->buckets[secs % 128];
}

// ---- timers within a cell ---------------------------------------------------

// Links t after `after`, or at the head when `after` is null.
inline void timer_link_after(sc_ktimer_cell *c, sc_ktimer *after,
                             sc_ktimer *t) {
  t->prev = after;
  t->next = after ? after->next : c->head;
  if (t->next)
    t->next->prev = t;
  else
    c->tail = t;
  if (after)
    after->next = t;
  else
    c->head = t;
}

inline void timer_unlink(sc_ktimer_cell *c, sc_ktimer *t) {
  if (t->next)
    t->next->prev = t->prev;
  else
    c->tail = t->prev;
  if (t->prev)
    t->prev->next = t->next;
  else
    c->head = t->next;
}

// Links t after the last timer due no later than it. While the clock does
// not step back that is the tail, so timers of a cell keep the order in
// which they were armed.
inline void timer_place(sc_ktimer_cell *c, sc_ktimer *t) {
  sc_ktimer *after = c->tail;
  while (after && after->expires > t->expires) after = after->prev;
  timer_link_after(c, after, t);
}

// ---- the active-bucket list -------------------------------------------------

inline void bucket_push_front(sc_ktimers *set, sc_ktimer_bucket *b) {
  b->next = set->active;
  b->prev = nullptr;
  if (set->active) set->active->prev = b;
  set->active = b;
}

// Leaves b's own links as they were.
inline void bucket_unlink(sc_ktimers *set, sc_ktimer_bucket *b) {
  if (b->next) b->next->prev = b->prev;
  if (b->prev)
    b->prev->next = b->next;
  else
    set->active = b->next;
}

// ---- cells within a bucket --------------------------------------------------

// The cell of a timeout on b's chain, or null.
inline sc_ktimer_cell *cell_find(sc_ktimer_bucket *b, uint32_t secs) {
  sc_ktimer_cell *c = b->cells;
  while (c && c->secs != secs) c = c->next;
  return c;
}

// Takes c off b's chain, and b off the active list when nothing is left.
inline void cell_unlink(sc_ktimers *set, sc_ktimer_bucket *b,
                        sc_ktimer_cell *c) {
  sc_ktimer_cell **link = &b->cells;
  while (*link != c) link = &(*link)->next;
  *link = c->next;
  if (!b->cells) bucket_unlink(set, b);
}

// Releases c once its last timer has gone.
inline void cell_release_if_empty(sc_ktimers *set, sc_ktimer_cell *c) {
  if (c->head) return;
  cell_unlink(set, bucket_of(set, c->secs), c);
  give(set, c);
}

// Clears and releases a timer already off its cell.
inline void timer_free(sc_ktimers *set, sc_ktimer *t) {
  memset(t, 0, sizeof *t);
  give(set, t);
}

// Disarms and releases an armed timer, with its cell and the cell's bucket
// when they become empty.
inline void timer_disarm(sc_ktimer *t) {
  sc_ktimers *set = t->timers;
  sc_ktimer_cell *c = t->cell;
  timer_unlink(c, t);
  cell_release_if_empty(set, c);
  timer_free(set, t);
}

}  // namespace vds::timer

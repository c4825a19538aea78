/* Timer wheel of one-shot timers fired by polling a whole-second clock. */
#ifndef SC_KTIMER_H
#define SC_KTIMER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*sc_ktimer_callback)(void *arg);
typedef struct sc_ktimer sc_ktimer;           /* next, prev, expires, cell, callback, timers, arg */
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

// Reference model of a timer set, driven by the unit test from a seeded
// generator and by the fuzz target from its input: pending timers with
// timeout, due time and arming order, the clock reads due (one per create,
// reset, poll and dump) and the polls under way. Operations create, cancel,
// reset, dump, poll (also from callbacks) and step the clock. A fault is
// reported through `report`, after which the model stops what it was doing.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "fake_clock.h"
#include "host_record.h"
#include "sc_ktimer.h"

#define KM_CHECK(cond) ((cond) || (report(#cond, __LINE__), false))

struct TimerModel {
  static constexpr uint32_t kSecs[] = {0, 1, 2, 3, 129, 130, 257, 5, 133, 600};
  struct Ref {
    sc_ktimer *timer;
    uint32_t secs, expires;
    long seq;
  };
  TimerModel(sc_ktimers *s, std::function<uint32_t(uint32_t)> pick_below,
             std::function<void(const char *, int)> fault)
      : set(s), pick(std::move(pick_below)), report(std::move(fault)) {
    current = this;
  }
  sc_ktimers *set;
  std::function<uint32_t(uint32_t)> pick;  // a number below its argument
  std::function<void(const char *, int)> report;
  bool fire_all = false;
  std::map<long, Ref> pending;
  long next_id = 1, fired = 0, reads = 0, seq = 0, depth = 0;
  static inline TimerModel *current;

  bool due(const Ref &r) const { return fire_all || clock_now >= r.expires; }
  // Records an arming; a create may fail only where the host failed it.
  void arm(long id, sc_ktimer *t, uint32_t secs) {
    if (!t) {
      KM_CHECK(th::failure_injected());
      th::fail_nth(0);
      return;
    }
    pending[id] = {t, secs, clock_now + secs, ++seq};
    ++reads;
  }
  // One operation; from a callback, no clock step and no poll more than
  // three deep.
  void step() {
    uint32_t what = pick(depth ? 7 : 11), secs = kSecs[pick(10)];
    auto it = std::next(pending.begin(), pick(uint32_t(pending.size()) + 1));
    if (what < 3 || (what < 5 && it == pending.end())) {
      long id = next_id++;
      arm(id, sc_ktimer_create(set, secs, on_fire, (void *)id), secs);
    } else if (what == 3) {
      if (KM_CHECK(sc_ktimer_cancel(it->second.timer) == 0)) pending.erase(it);
    } else if (what == 4) {
      if (KM_CHECK(sc_ktimer_reset(it->second.timer) == 0))
        arm(it->first, it->second.timer, it->second.secs);
    } else if (what == 5) {
      th::clear_output();
      sc_ktimers_debug(set);
      ++reads;
      // Every bucket shown holds a cell and every cell a timer.
      const std::string &out = th::console();
      for (auto [head, child] : {std::pair{"  bucket", "    cell"},
                                 std::pair{"    cell", "        0"}})
        for (size_t i = out.find(head); i != std::string::npos;
             i = out.find(head, i + 1))
          KM_CHECK(out.compare(out.find('\n', i) + 1,
                               std::string_view(child).size(), child) == 0);
    } else if (what == 6) {
      if (depth < 3) poll(int(pick(3)), false);
    } else if (what == 7) {
      clock_now += pick(3) ? pick(200) : -pick(30);
    } else {
      poll(what == 8 ? 0 : int(pick(5)) - 1, what == 10);
    }
  }
  static void on_fire(void *arg) {
    TimerModel &m = *current;
    auto it = m.pending.find(reinterpret_cast<long>(arg));
    auto &report = m.report;
    if (!KM_CHECK(it != m.pending.end())) return;  // fired twice or unarmed
    KM_CHECK(m.due(it->second));
    m.pending.erase(it);
    ++m.fired;
    m.check();
    for (uint32_t n = m.pick(3); n > 0; n--) m.step();
  }
  // Unless its limit stopped it, a poll fires whatever was due when it
  // began that no callback cancelled or re-armed.
  void poll(int limit, bool all) {
    bool outer_all = fire_all;
    long outer_fired = fired, start = seq, cap = limit < 0 ? 1 : limit;
    fire_all = all;
    fired = 0;
    ++depth;
    ++reads;
    long n = limit || all ? sc_ktimers_poll_ex(set, limit, all)
                          : sc_ktimers_poll_force(set);
    KM_CHECK(n == fired && (limit == 0 || n <= cap) && set->now == clock_now);
    for (auto &[id, r] : pending)
      KM_CHECK(!((limit == 0 || n < cap) && r.seq <= start && due(r)));
    fire_all = outer_all;  // the poll this one runs inside, if any
    fired = outer_fired;
    --depth;
  }
  // The set holds exactly the pending timers, each in the cell of its
  // timeout, each cell in order of expiry; checked from every callback too,
  // the last timer's included. The active list holds exactly the buckets
  // with cells, every cell has timers, and every link leads to a live record
  // of the set that links back.
  void check() {
    size_t n = 0, active = 0;
    KM_CHECK((set->active == nullptr) == pending.empty());
    for (sc_ktimer_bucket *b = set->active; b; b = b->next, ++active) {
      if (!KM_CHECK(b >= set->buckets && b < set->buckets + 128 && b->cells) ||
          !KM_CHECK((b->prev ? b->prev->next : set->active) == b))
        return;
      for (sc_ktimer_cell *c = b->cells; c; c = c->next) {
        if (!KM_CHECK(th::live(c, sizeof *c) && c->head && !c->head->prev) ||
            !KM_CHECK(&set->buckets[c->secs % 128] == b))
          return;
        for (sc_ktimer *t = c->head; t; t = t->next, ++n) {
          if (!KM_CHECK(th::live(t, sizeof *t) && t->cell == c &&
                        t->timers == set) ||
              !KM_CHECK((t->next ? t->next->prev : c->tail) == t))
            return;
          auto it = pending.find(reinterpret_cast<long>(t->arg));
          if (!KM_CHECK(it != pending.end() && it->second.timer == t)) return;
          const Ref &r = it->second;
          KM_CHECK(r.secs == c->secs && t->expires == r.expires);
          KM_CHECK(!t->prev || t->prev->expires <= t->expires);
        }
      }
    }
    size_t with_cells = 0;
    for (auto &b : set->buckets) with_cells += b.cells != nullptr;
    KM_CHECK(n == pending.size() && active == with_cells &&
             clock_reads == reads);
  }
};

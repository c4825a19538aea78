// Cost of create, reset and cancel, and of polls over 10^6 pending timers
// spread over 1, 16 and 1,000 distinct timeouts, for the timer wheel and,
// in the same run, a binary-heap timer queue (std::priority_queue with lazy
// cancellation: a reset or cancel leaves the old entry in the heap, and the
// poll drops entries whose generation no longer matches their timer).
//
// The program's gettimeofday is the tests' fake clock (a counter the
// benchmark advances), which the library binds to; both queues read it the
// same way.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>

#include <algorithm>
#include <queue>
#include <random>
#include <vector>

#include "fake_clock.h"
#include "lpm_clock.h"
#include "sc_host_default.h"
#include "sc_ktimer.h"

namespace {

constexpr uint32_t kTimers = 1000000;
constexpr uint32_t kLongest = 5000;  // every timeout is below this

uint32_t read_seconds() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<uint32_t>(tv.tv_sec);
}

uint64_t g_fired;
void bump(void *) { ++g_fired; }

template <class F>
double ns(F body) {
  return lpm::seconds(body) * 1e9;
}

// The peer: a min-heap of (expiry, generation, timer) entries.
class HeapTimers {
 public:
  using Id = uint32_t;
  Id create(uint32_t secs, sc_ktimer_callback cb, void *arg) {
    Id id = static_cast<Id>(timers_.size());
    timers_.push_back({secs, 0, true, cb, arg});
    heap_.push({read_seconds() + secs, 0, id});
    return id;
  }
  void reset(Id id) {
    Timer &t = timers_[id];
    heap_.push({read_seconds() + t.secs, ++t.gen, id});
  }
  void cancel(Id id) {
    timers_[id].armed = false;
    ++timers_[id].gen;
  }
  int poll() {
    uint32_t now = read_seconds();
    int fired = 0;
    while (!heap_.empty() && heap_.top().expires <= now) {
      Entry e = heap_.top();
      heap_.pop();
      Timer &t = timers_[e.id];
      if (!t.armed || t.gen != e.gen) continue;
      t.armed = false;
      t.cb(t.arg);
      ++fired;
    }
    return fired;
  }
  void clear() {
    timers_.clear();
    heap_ = {};
  }

 private:
  struct Timer {
    uint32_t secs, gen;
    bool armed;
    sc_ktimer_callback cb;
    void *arg;
  };
  struct Entry {
    uint32_t expires, gen;
    Id id;
    bool operator<(const Entry &o) const { return expires > o.expires; }
  };
  std::vector<Timer> timers_;
  std::priority_queue<Entry> heap_;
};

struct Row {
  const char *what;
  double wheel, heap;  // nanoseconds per operation
};

void print(uint32_t timeouts, const std::vector<Row> &rows) {
  printf("%u distinct timeout%s, %u timers\n", timeouts,
         timeouts == 1 ? "" : "s", kTimers);
  printf("  %-34s %12s %12s\n", "ns per operation", "wheel", "heap");
  for (const Row &r : rows)
    printf("  %-34s %12.1f %12.1f\n", r.what, r.wheel, r.heap);
}

void run(uint32_t timeouts) {
  std::vector<uint32_t> secs(kTimers);
  for (uint32_t i = 0; i < kTimers; i++)
    secs[i] = 1000 + (i % timeouts) * (kLongest - 1000) / timeouts;
  std::vector<uint32_t> order(kTimers);
  for (uint32_t i = 0; i < kTimers; i++) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(7));

  void *ctx = sc_host_ctx_create(64);
  sc_ktimers *set = sc_ktimers_construct(ctx);
  if (!ctx || !set) abort();
  std::vector<sc_ktimer *> wt(kTimers);
  HeapTimers heap;
  std::vector<HeapTimers::Id> ht(kTimers);
  std::vector<Row> rows;
  const uint32_t start = clock_now;
  const double n = kTimers;

  Row create{"create", 0, 0};
  create.wheel = ns([&] {
                   for (uint32_t i = 0; i < kTimers; i++)
                     wt[i] = sc_ktimer_create(set, secs[i], bump, nullptr);
                 }) /
                 n;
  create.heap = ns([&] {
                  for (uint32_t i = 0; i < kTimers; i++)
                    ht[i] = heap.create(secs[i], bump, nullptr);
                }) /
                n;
  if (wt[0]->expires != start + secs[0]) {
    fprintf(stderr, "the library does not read this program's clock\n");
    abort();
  }
  rows.push_back(create);

  // A poll that finds nothing due, repeated.
  constexpr int kIdlePolls = 1000;
  clock_now += 1;
  rows.push_back({"poll, nothing due", ns([&] {
                                         for (int i = 0; i < kIdlePolls; i++)
                                           sc_ktimers_poll_force(set);
                                       }) / kIdlePolls,
                  ns([&] {
                    for (int i = 0; i < kIdlePolls; i++) heap.poll();
                  }) / kIdlePolls});

  clock_now += 1;
  rows.push_back({"reset (random order)", ns([&] {
                                            for (uint32_t i : order)
                                              sc_ktimer_reset(wt[i]);
                                          }) / n,
                  ns([&] {
                    for (uint32_t i : order) heap.reset(ht[i]);
                  }) / n});

  // Half the timers cancelled, in random order.
  rows.push_back({"cancel (random order, half)",
                  ns([&] {
                    for (uint32_t k = 0; k < kTimers / 2; k++)
                      sc_ktimer_cancel(wt[order[k]]);
                  }) / (n / 2),
                  ns([&] {
                    for (uint32_t k = 0; k < kTimers / 2; k++)
                      heap.cancel(ht[order[k]]);
                  }) / (n / 2)});

  // One poll per second of clock until everything has fired; per fired
  // timer, the idle seconds included.
  g_fired = 0;
  double wheel_drain = 0, heap_drain = 0;
  uint32_t t0 = clock_now;
  for (clock_now = t0; clock_now <= t0 + kLongest; clock_now++)
    wheel_drain += ns([&] { sc_ktimers_poll_force(set); });
  uint64_t wheel_fired = g_fired;
  g_fired = 0;
  for (clock_now = t0; clock_now <= t0 + kLongest; clock_now++)
    heap_drain += ns([&] { heap.poll(); });
  if (wheel_fired != kTimers / 2 || g_fired != kTimers / 2 || set->active) {
    fprintf(stderr, "fired %llu and %llu of %u\n",
            static_cast<unsigned long long>(wheel_fired),
            static_cast<unsigned long long>(g_fired), kTimers / 2);
    abort();
  }
  rows.push_back({"poll once a second until drained", wheel_drain / (n / 2),
                  heap_drain / (n / 2)});
  print(timeouts, rows);

  sc_ktimers_destruct(set);
  heap.clear();
  sc_host_ctx_destroy(ctx);
}

}  // namespace

int main() {
  clock_now = 100000;
  for (uint32_t timeouts : {1u, 16u, 1000u}) run(timeouts);
  return 0;
}

// Randomized runs against a reference that is just a map of pending timers
// with their due times: random creates, cancels, resets, clock steps in both
// directions and polls; then callbacks that do random things to the set.
#include <stdint.h>

#include <algorithm>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "sc_ktimer.h"
#include "test_host.h"
#include "wheel_check.h"

namespace {

struct Ref {
  sc_ktimer *timer;
  uint32_t secs;
  uint32_t expires;
  uint64_t seq;      // when it was last armed; breaks ties of expiry
  bool before_poll;  // armed before the current top-level poll began
};

// Timeouts that collide in buckets, including 0 and a large one.
constexpr uint32_t kSecs[] = {0, 1, 2, 3, 129, 130, 257, 5, 133, 600};

struct Model {
  sc_ktimers *set = nullptr;
  std::mt19937 rng;
  std::map<long, Ref> pending;
  std::vector<long> fired;
  long next_id = 1;
  uint64_t seq = 0;
  bool fire_all = false;
  bool chaos = false;  // callbacks change the set
  int depth = 0;       // polls from callbacks under way
  bool in_poll = false;
  int top_fired = 0;  // fired by the poll that the test itself called

  explicit Model(unsigned seed) : rng(seed) {}

  uint32_t pick(uint32_t n) { return static_cast<uint32_t>(rng() % n); }
  long any_pending() {
    auto it = pending.begin();
    std::advance(it, pick(static_cast<uint32_t>(pending.size())));
    return it->first;
  }

  void create() {
    uint32_t secs = kSecs[pick(std::size(kSecs))];
    long id = next_id++;
    sc_ktimer *t =
        sc_ktimer_create(set, secs, on_fire, reinterpret_cast<void *>(id));
    ASSERT_NE(t, nullptr);
    pending[id] = {t, secs, fake_clock::seconds + secs, ++seq, !in_poll};
  }
  void cancel(long id) {
    ASSERT_EQ(sc_ktimer_cancel(pending[id].timer), 0);
    pending.erase(id);
  }
  void reset(long id) {
    Ref &r = pending[id];
    ASSERT_EQ(sc_ktimer_reset(r.timer), 0);
    r.expires = fake_clock::seconds + r.secs;
    r.seq = ++seq;
    r.before_poll = !in_poll;
  }

  static Model *current;
  static void on_fire(void *arg) {
    Model &m = *current;
    long id = reinterpret_cast<long>(arg);
    auto it = m.pending.find(id);
    ASSERT_NE(it, m.pending.end()) << "fired twice or after its cancel";
    if (!m.fire_all) {
      EXPECT_GE(fake_clock::seconds, it->second.expires);
    }
    m.fired.push_back(id);
    if (m.depth == 0) ++m.top_fired;
    m.pending.erase(it);
    if (m.chaos) m.meddle();
  }

  // What a callback does: anything but destroying the set.
  void meddle() {
    for (int n = pick(4); n > 0; n--) {
      switch (pick(7)) {
        case 0:
        case 1:
          create();
          break;
        case 2:
        case 3:
          if (!pending.empty()) cancel(any_pending());
          break;
        case 4:
          if (!pending.empty()) reset(any_pending());
          break;
        case 5:
          if (depth < 2) {
            ++depth;
            sc_ktimers_poll_ex(set, static_cast<int>(pick(3)), 0);
            --depth;
          }
          break;
        case 6:
          sc_ktimers_debug(set);
          break;
      }
    }
  }

  // The set holds exactly the pending timers, each cell in order of expiry
  // and, for equal expiry, of arming.
  void check_contents() {
    std::vector<sc_ktimer *> links = check_links(set);
    ASSERT_EQ(links.size(), pending.size());
    std::map<sc_ktimer *, const Ref *> by_timer;
    for (auto &[id, r] : pending) by_timer[r.timer] = &r;
    const Ref *prev = nullptr;
    for (sc_ktimer *t : links) {
      ASSERT_EQ(by_timer.count(t), 1u);
      const Ref *r = by_timer[t];
      EXPECT_EQ(t->expires, r->expires);
      if (prev && prev->secs == r->secs) {
        EXPECT_LT(std::tie(prev->expires, prev->seq),
                  std::tie(r->expires, r->seq));
      }
      prev = r;
    }
  }

  void poll(int limit) {
    std::map<long, Ref> before = pending;
    for (auto &[id, r] : pending) r.before_poll = true;
    fired.clear();
    top_fired = 0;
    in_poll = true;
    int n = sc_ktimers_poll_ex(set, limit, fire_all);
    in_poll = false;
    EXPECT_EQ(n, top_fired);
    EXPECT_EQ(set->now, fake_clock::seconds);
    auto due = [&](const Ref &r) {
      return fire_all || fake_clock::seconds >= r.expires;
    };
    if (chaos) {
      // Nothing that was due when the poll began is left behind, unless a
      // callback re-armed it or a limit stopped the poll.
      if (limit != 0) return;
      for (auto &[id, r] : pending) {
        EXPECT_FALSE(r.before_poll && due(r)) << "lost timer " << id;
      }
      return;
    }
    size_t due_before = std::count_if(before.begin(), before.end(),
                                      [&](auto &kv) { return due(kv.second); });
    size_t want = limit == 0
                      ? due_before
                      : std::min<size_t>(due_before, limit < 0 ? 1 : limit);
    EXPECT_EQ(fired.size(), want);
    // Within a cell, the fired timers are the earliest ones.
    for (long id : fired)
      for (auto &[rid, r] : pending)
        if (r.secs == before[id].secs) {
          EXPECT_LT(std::tie(before[id].expires, before[id].seq),
                    std::tie(r.expires, r.seq));
        }
  }

  void step() {
    switch (pick(10)) {
      case 0:
      case 1:
      case 2:
        create();
        break;
      case 3:
        if (!pending.empty()) cancel(any_pending());
        break;
      case 4:
        if (!pending.empty()) reset(any_pending());
        break;
      case 5:
        fake_clock::seconds += pick(4);
        break;
      case 6:
        // Mostly forward, sometimes back, now and then across 2^32.
        fake_clock::seconds += pick(3) == 0 ? -pick(30) : pick(200);
        break;
      case 7:
      case 8:
        poll(0);
        break;
      case 9:
        fire_all = pick(4) == 0;
        poll(static_cast<int>(pick(5)) - 1);
        fire_all = false;
        break;
    }
  }
};

Model *Model::current;

using KtimerModel = HostTest;

TEST_F(KtimerModel, MatchesAListOfDueTimes) {
  th::Ctx ctx(64);
  for (unsigned seed = 1; seed <= 20; seed++) {
    Model m(seed);
    Model::current = &m;
    fake_clock::seconds = seed == 20 ? 0xffffff00u : 1000 * seed;
    m.set = sc_ktimers_construct(ctx);
    ASSERT_NE(m.set, nullptr);
    for (int i = 0; i < 1500 && !HasFailure(); i++) {
      m.step();
      m.check_contents();
    }
    sc_ktimers_destruct(m.set);
    ASSERT_FALSE(HasFailure()) << "seed " << seed;
  }
}

// Callbacks create, cancel and reset timers, poll the set again and dump it.
// No timer fires twice, early or after its cancel, none that was due is
// left behind, and in the end every timer not cancelled has fired.
TEST_F(KtimerModel, CallbacksChangingTheSetLoseAndRepeatNothing) {
  th::Ctx ctx(64);
  for (unsigned seed = 1; seed <= 20; seed++) {
    Model m(seed);
    Model::current = &m;
    m.chaos = true;
    fake_clock::seconds = 5000;
    m.set = sc_ktimers_construct(ctx);
    ASSERT_NE(m.set, nullptr);
    for (int i = 0; i < 800 && !HasFailure(); i++) {
      m.step();
      m.check_contents();
    }
    m.chaos = false;
    fake_clock::seconds += 1000;
    m.poll(0);
    EXPECT_TRUE(m.pending.empty());
    EXPECT_EQ(m.set->active, nullptr);
    sc_ktimers_destruct(m.set);
    ASSERT_FALSE(HasFailure()) << "seed " << seed;
  }
}

}  // namespace

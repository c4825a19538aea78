// Randomized runs against a reference that is a map of pending timers with
// their due times: creates, cancels, resets, clock steps both ways (across
// 2^32 too) and polls with limits; then the same with callbacks that change
// the set, poll it again and dump it.
#include <map>
#include <random>
#include <tuple>

#include "wheel_check.h"

namespace {

struct Ref {
  sc_ktimer *timer;
  uint32_t secs, expires;
  uint64_t seq;      // when last armed: orders timers due at the same second
  bool before_poll;  // armed before the running poll began
  auto key() const { return std::tie(expires, seq); }
};

constexpr uint32_t kSecs[] = {0, 1, 2, 3, 129, 130, 257, 5, 133, 600};

struct Model {
  Model(sc_ktimers *s, unsigned seed, bool c) : set(s), rng(seed), chaos(c) {}
  sc_ktimers *set;
  std::mt19937 rng;
  bool chaos;  // callbacks change the set
  std::map<long, Ref> pending;
  long next_id = 1, top_fired = 0;
  uint64_t seq = 0;
  bool fire_all = false, in_poll = false;
  int depth = 0;  // polls called from callbacks, under way
  static Model *current;

  uint32_t pick(uint32_t n) { return rng() % n; }
  long any() {  // a pending timer's id, 0 when there is none
    if (pending.empty()) return 0;
    return std::next(pending.begin(), pick(pending.size()))->first;
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
    r = {r.timer, r.secs, fake_clock::seconds + r.secs, ++seq, !in_poll};
  }

  static void on_fire(void *arg) {
    Model &m = *current;
    auto it = m.pending.find(reinterpret_cast<long>(arg));
    ASSERT_NE(it, m.pending.end()) << "fired twice or after its cancel";
    EXPECT_TRUE(m.fire_all || fake_clock::seconds >= it->second.expires);
    m.pending.erase(it);
    m.top_fired += m.depth == 0;
    for (int n = m.chaos ? m.pick(4) : 0; n > 0; n--) m.meddle();
  }
  // Creates (0), cancels (1) or resets (2) a timer; creates in an empty set.
  void change(uint32_t what) {
    long id = any();
    if (what == 0 || !id)
      create();
    else if (what == 1)
      cancel(id);
    else
      reset(id);
  }
  void meddle() {
    uint32_t what = pick(6);
    if (what < 3) {
      change(what);
    } else if (what == 3) {
      sc_ktimers_debug(set);
    } else if (depth < 2) {
      ++depth;
      sc_ktimers_poll_ex(set, pick(3), 0);
      --depth;
    }
  }

  void poll(int limit) {
    auto due = [&](const Ref &r) {
      return fire_all || fake_clock::seconds >= r.expires;
    };
    std::map<long, Ref> before = pending;
    size_t was_due = 0;
    for (auto &[id, r] : pending) was_due += due(r), r.before_poll = true;
    top_fired = 0;
    in_poll = true;
    EXPECT_EQ(sc_ktimers_poll_ex(set, limit, fire_all), top_fired);
    in_poll = false;
    EXPECT_EQ(set->now, fake_clock::seconds);
    if (chaos) {
      // What was due when the poll began has fired unless a callback
      // cancelled or re-armed it, or a limit stopped the poll.
      for (auto &[id, r] : pending)
        EXPECT_FALSE(limit == 0 && r.before_poll && due(r)) << id;
      return;
    }
    size_t cap = limit == 0 ? was_due : limit < 0 ? 1 : limit;
    EXPECT_EQ(size_t(top_fired), std::min(was_due, cap));
    // Of each cell, the earliest timers fired.
    for (auto &[id, r] : pending) before.erase(id);
    for (auto &[id, f] : before)
      for (auto &[rid, r] : pending)
        EXPECT_TRUE(r.secs != f.secs || f.key() < r.key()) << id;
  }

  // The set holds exactly the pending timers, each cell in their order.
  void check() {
    std::map<sc_ktimer *, Ref *> of;
    for (auto &[id, r] : pending) of[r.timer] = &r;
    const Ref *prev = nullptr;
    std::vector<sc_ktimer *> links = check_links(set);
    ASSERT_EQ(links.size(), pending.size());
    for (sc_ktimer *t : links) {
      ASSERT_TRUE(of.count(t));
      const Ref *r = of[t];
      EXPECT_EQ(t->expires, r->expires);
      EXPECT_TRUE(!prev || prev->secs != r->secs || prev->key() < r->key());
      prev = r;
    }
  }

  void step() {
    uint32_t what = pick(10);
    if (what < 5) {
      change(what < 3 ? 0 : what - 2);
    } else if (what == 5) {
      fake_clock::seconds += pick(3) ? pick(200) : -pick(30);
    } else {
      fire_all = what == 9;
      poll(what < 8 ? 0 : int(pick(5)) - 1);
      fire_all = false;
    }
    check();
  }
};

Model *Model::current;

using KtimerModel = HostTest;

TEST_F(KtimerModel, MatchesAMapOfDueTimes) {
  th::Ctx ctx(64);
  for (int chaos : {0, 1}) {
    for (unsigned seed = 1; seed <= 20 && !HasFailure(); seed++) {
      fake_clock::seconds = seed == 20 ? 0xffffff00u : 1000 * seed;
      Model m(sc_ktimers_construct(ctx), seed, chaos != 0);
      Model::current = &m;
      for (int i = 0; i < 1000 && !HasFailure(); i++) m.step();
      // In the end every timer not cancelled fires, once.
      m.chaos = false;
      m.fire_all = true;
      m.poll(0);
      EXPECT_TRUE(m.pending.empty() && !m.set->active) << "seed " << seed;
      sc_ktimers_destruct(m.set);
    }
  }
}

}  // namespace

// The live tables under change, against DPDK's rte_lpm / rte_lpm6 changed
// by the same stream, in one process: publish latency, the changes one
// writer absorbs, a session reset, lookups with and without a writer, and
// memory. Cases: the RouteViews IPv4 table of data/pyasn/ (nested
// prefixes; --nested FILE for another) and the address-to-ASN tables of
// both families (the embedded ones, or the tables given).
//
// The change stream is drawn from the table itself with a seeded RNG: in
// equal shares it removes a present prefix, adds back a removed one with a
// new data word, or gives a present prefix a new data word. Each library
// gets the same stream from the same start, so after the same number of
// changes the libraries must answer alike; every check also compares with
// a fib compiled from the prefix set the stream says should be held. Data
// words are kept within 24 bits (IPv4) and 21 bits (IPv6), what rte_lpm
// and rte_lpm6 hold.
//
// Figures, each beside the others' with the ratio first / other:
// - load: construct, set every prefix, publish; DPDK: create and add all;
// - memory: the live table, the fib compiled from a trie of the same
//   prefixes, DPDK's heap; the live table's writer-side bytes a prefix
//   (its memory beyond the fib's); the most the host had given out while
//   publishes ran (sampled from the default host's accounting);
// - lookups without a writer: single and 64-key bulk, and bulk with one
//   quiescent call per 64 keys (DPDK: rte_rcu_qsbr_quiescent);
// - publish latency, one change per publish (DPDK: one add or delete);
// - changes absorbed by a writer publishing every 1 ms;
// - a reader's bulk rate while a writer on the other processor publishes
//   one change every 100 us (DPDK: rte_lpm with its quiescent-state
//   reclamation; rte_lpm6 has none and is not run beside a writer);
// - session reset: remove everything, publish, add everything, publish.
// Rates and the live table's reset are the best of 3 runs.
//
//   bench_live [--keys N] [--changes N] [--seconds S] [--nested FILE]
//              [--json FILE] [TABLE...]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lpm_bench.h"
#include "lpm_keys.h"
#include "lpm_text.h"
#include "sc_host_default.h"
#ifdef VELL_HAVE_DPDK
#include "lpm_peer_dpdk.h"
#endif

namespace {

using namespace lpm;

constexpr const char *kProg = "bench_live";
constexpr uint32_t kReaders = 4;          // reader slots of a live table
constexpr double kPublishPeriod = 1e-3;   // the absorbing writer's
constexpr double kWriterPeriod = 100e-6;  // the writer beside a reader
constexpr uint64_t kSeed = 7;             // of the change stream

// The largest data word: what the peer of the family holds.
template <class F>
constexpr uint32_t kMaxWord = F::words == 1 ? 0xFFFFFF : 0x1FFFFF;

struct Options {
  size_t keys = 4000000;   // a key set's
  size_t changes = 10000;  // published one by one
  double seconds = 0.25;   // one run of a stream or of a reader
};

// ---- figures ----------------------------------------------------------------

struct Value {
  std::string who;
  double v;
};
struct Figure {
  std::string metric, unit;
  std::vector<Value> values;
};
struct Check {
  std::string what;
  size_t keys, differ;
};
struct Case : CaseHead {
  std::vector<Figure> figures;
  std::vector<Check> checks;

  // Prints one figure, the first value beside the others with the ratio
  // first / other, and keeps it for --json.
  void add(std::string metric, std::string unit, std::vector<Value> values) {
    auto text = [](double v) {
      char b[32];
      snprintf(b, sizeof b, v >= 100 ? "%.1f" : v >= 1 ? "%.2f" : "%.3g", v);
      return std::string(b);
    };
    std::string line = "  " + metric + " (" + unit + "):";
    line.resize(std::max<size_t>(line.size(), 48), ' ');
    for (size_t i = 0; i < values.size(); ++i) {
      line += (i ? " | " : " ") + values[i].who + " " + text(values[i].v);
      if (i && values[i].v > 0)
        line += " (" + text(values[0].v / values[i].v) + ")";
    }
    puts(line.c_str());
    figures.push_back({std::move(metric), std::move(unit), std::move(values)});
  }
  // Prints and keeps the outcome of an answer check.
  void agree(const std::string &what, size_t keys, size_t differ) {
    if (differ)
      printf("  ANSWERS DIFFER (%s): %zu of %zu keys\n", what.c_str(), differ,
             keys);
    else
      printf("  answers agree (%s): %zu keys\n", what.c_str(), keys);
    checks.push_back({what, keys, differ});
  }
};
std::vector<Case> results;

// Microseconds at the 50th and 99th percentile and the most, and how many
// took a millisecond or more.
struct Latency {
  double p50 = 0, p99 = 0, max = 0;
  size_t over_1ms = 0;
};
Latency percentiles(std::vector<double> seconds) {
  if (seconds.empty()) return {};
  std::sort(seconds.begin(), seconds.end());
  auto at = [&](double q) {
    return 1e6 * seconds[std::min(seconds.size() - 1,
                                  static_cast<size_t>(q * seconds.size()))];
  };
  size_t fast = static_cast<size_t>(
      std::lower_bound(seconds.begin(), seconds.end(), 1e-3) - seconds.begin());
  return {at(0.5), at(0.99), 1e6 * seconds.back(), seconds.size() - fast};
}

// Nanoseconds one call of f takes, called alone in a loop (best of kRuns).
template <class Call>
double call_ns(Call f) {
  constexpr int kCalls = 1 << 22;
  double best = 1e30;
  for (int r = 0; r < kRuns; ++r)
    best = std::min(best, seconds([&] {
                      for (int i = 0; i < kCalls; ++i) f();
                    }));
  return best / kCalls * 1e9;
}

// ---- the change stream ------------------------------------------------------

// One change to the entry at `entry` of the table: its new data word, or
// 0 to remove it (data words are never 0).
struct Change {
  uint32_t entry, data;
};

// Changes drawn from the table, with the prefix set they leave: which
// entries are present and with what word.
template <class F>
class Stream {
 public:
  using entry = typename F::entry;
  explicit Stream(const std::vector<entry> &table)
      : table_(table), rng_(kSeed) {
    restore();
  }
  // Back to the table as given, the RNG where it was.
  void restore() {
    word_.resize(table_.size());
    pos_.resize(table_.size());
    present_.clear();
    removed_.clear();
    for (uint32_t i = 0; i < table_.size(); ++i) {
      word_[i] = table_[i].data;
      pos_[i] = i;
      present_.push_back(i);
    }
  }

  Change next() {
    unsigned op = static_cast<unsigned>(rng_() % 3);
    if (op == 1 && removed_.empty()) op = rng_() % 2 ? 0 : 2;
    if (op != 1 && present_.empty()) op = 1;
    if (op == 0) {
      uint32_t i = present_[rng_() % present_.size()];
      move(i, present_, removed_);
      word_[i] = 0;
      return {i, 0};
    }
    uint32_t w = 1 + static_cast<uint32_t>(rng_() % kMaxWord<F>);
    uint32_t i;
    if (op == 1) {
      i = removed_[rng_() % removed_.size()];
      move(i, removed_, present_);
    } else {
      i = present_[rng_() % present_.size()];
      if (w == word_[i]) w = w % kMaxWord<F> + 1;
    }
    word_[i] = w;
    return {i, w};
  }
  std::vector<Change> take(size_t n) {
    std::vector<Change> out(n);
    for (Change &c : out) c = next();
    return out;
  }

  const std::vector<uint32_t> &present() const { return present_; }
  // The prefixes held now, with their words.
  std::vector<entry> held() const {
    std::vector<entry> out;
    out.reserve(present_.size());
    for (uint32_t i : present_) {
      out.push_back(table_[i]);
      out.back().data = word_[i];
    }
    return out;
  }

 private:
  // Moves entry i from one list to the other (order is of no account).
  void move(uint32_t i, std::vector<uint32_t> &from,
            std::vector<uint32_t> &to) {
    uint32_t last = from.back();
    from[pos_[i]] = last;
    pos_[last] = pos_[i];
    from.pop_back();
    pos_[i] = static_cast<uint32_t>(to.size());
    to.push_back(i);
  }

  const std::vector<entry> &table_;
  std::mt19937_64 rng_;
  std::vector<uint32_t> word_, pos_, present_, removed_;
};

// ---- the tables -------------------------------------------------------------

// A trie of the prefixes and the fib compiled from it: the answers every
// other table must give.
template <class F>
struct Frozen {
  using Keys = std::vector<typename F::key>;
  std::vector<typename F::entry> in;
  typename F::trie *trie = nullptr;
  typename F::fib *fib = nullptr;

  explicit Frozen(std::vector<typename F::entry> entries)
      : in(std::move(entries)) {
    trie = F::construct(nullptr, in.data(), static_cast<uint32_t>(in.size()),
                        kFill, kRootBranch<F>);
    if (trie) fib = F::fib_construct(nullptr, trie, 0);
  }
  ~Frozen() {
    if (fib) F::fib_destruct(fib);
    if (trie) F::destruct(trie);
  }
  std::vector<uint32_t> answers(const Keys &keys) const {
    std::vector<uint32_t> out(keys.size());
    in_batches<typename F::key>(
        [&](const typename F::key *k, uint32_t *d, uint32_t n) {
          F::fib_lookup_bulk(fib, F::c_keys(k), d, n);
        })(keys, out.data(), static_cast<uint32_t>(keys.size()));
    return out;
  }
};

// The live table, as the writer sees it. Refusals of calls the stream
// says must succeed are counted.
template <class F>
struct Live {
  using entry = typename F::entry;
  using Keys = std::vector<typename F::key>;
  const std::vector<entry> &table;
  typename F::live *t;
  size_t refused = 0;

  explicit Live(const std::vector<entry> &tab)
      : table(tab), t(F::live_construct(nullptr, 0, kReaders)) {}
  ~Live() {
    if (t) F::live_destruct(t);
  }
  bool set(const entry &e, uint32_t data) {
    uint32_t w[F::words];
    F::addr_words(e, w);
    return count(F::live_set(t, F::word_key(w), e.len, data));
  }
  bool remove(const entry &e) {
    uint32_t w[F::words];
    F::addr_words(e, w);
    return count(F::live_remove(t, F::word_key(w), e.len));
  }
  bool apply(const Change &c) {
    return c.data ? set(table[c.entry], c.data) : remove(table[c.entry]);
  }
  bool publish() { return count(F::live_publish(t)); }
  bool count(int r) {
    refused += r != 0;
    return r == 0;
  }

  // A reader slot held for a scope.
  struct Reader {
    typename F::live *t;
    int slot;
    explicit Reader(const Live &l)
        : t(l.t), slot(F::live_reader_register(l.t)) {}
    ~Reader() {
      if (slot >= 0) F::live_reader_unregister(t, slot);
    }
  };
  // One 64-key bulk call, then the reader's quiescent call.
  void read_batch(int slot, const typename F::key *k, uint32_t *d,
                  uint32_t n) const {
    F::live_lookup_bulk(t, F::c_keys(k), d, n);
    F::live_quiescent(t, slot);
  }
  std::vector<uint32_t> answers(const Keys &keys) const {
    Reader r(*this);
    std::vector<uint32_t> out(keys.size());
    in_batches<typename F::key>(
        [&](const typename F::key *k, uint32_t *d, uint32_t n) {
          read_batch(r.slot, k, d, n);
        })(keys, out.data(), static_cast<uint32_t>(keys.size()));
    return out;
  }
};

#ifdef VELL_HAVE_DPDK
// The peer as a writer of the stream: every change is visible when its
// call returns, so a publish does nothing.
template <class F>
struct PeerWriter {
  peer::Peer<F> &p;
  const std::vector<typename F::entry> &table;
  size_t refused = 0;
  bool apply(const Change &c) {
    const auto &e = table[c.entry];
    int r = c.data ? p.add(e, c.data) : p.remove(e);
    refused += r != 0;
    return r == 0;
  }
  bool publish() { return true; }
};
static_assert(kMaxWord<vell::trie4_family> ==
              peer::Peer<vell::trie4_family>::kMaxHop);
static_assert(kMaxWord<vell::trie6_family> ==
              peer::Peer<vell::trie6_family>::kMaxHop);
#endif

// ---- the measurements -------------------------------------------------------

// Compares `got` with `want` over the keys, saying so and naming the first
// keys that differ with both answers.
template <class F>
void check(Case &c, const std::string &what,
           const std::vector<typename F::key> &keys,
           const std::vector<uint32_t> &got,
           const std::vector<uint32_t> &want) {
  size_t differ = 0;
  for (size_t i = 0; i < keys.size(); ++i) {
    if (got[i] == want[i]) continue;
    if (++differ <= 5) {
      Addr a;
      memcpy(a.w, F::c_keys(&keys[i]), sizeof(uint32_t) * F::words);
      printf("  ANSWER DIFFERS (%s): key %s: %u, expected %u\n", what.c_str(),
             format_addr(family_of<F>, a).c_str(), got[i], want[i]);
    }
  }
  c.agree(what, keys.size(), differ);
}

// Applies n changes one by one, each published alone: the time of each.
template <class W>
Latency publish_latency(W &w, std::vector<Change> changes) {
  std::vector<double> took;
  took.reserve(changes.size());
  for (const Change &c : changes)
    took.push_back(seconds([&] {
      if (w.apply(c)) w.publish();
    }));
  return percentiles(std::move(took));
}

// Changes a second absorbed by a writer that applies the stream and
// publishes whenever kPublishPeriod has passed since its last publish,
// over `budget` seconds of work. The stream is drawn in chunks between
// the timed stretches, and the publish clock pauses meanwhile.
template <class F, class W>
double absorb(W &w, Stream<F> &s, double budget) {
  constexpr size_t kChunk = 4096;
  size_t done = 0;
  double busy = 0, since_publish = 0;
  while (busy < budget) {
    std::vector<Change> chunk = s.take(kChunk);
    double t0 = now_seconds(), last = t0 - since_publish;
    for (const Change &c : chunk) {
      w.apply(c);
      double t = now_seconds();
      if (t - last >= kPublishPeriod) {
        w.publish();
        last = now_seconds();
      }
    }
    double t1 = now_seconds();
    since_publish = t1 - last;
    busy += t1 - t0;
    done += chunk.size();
  }
  busy += seconds([&] { w.publish(); });
  return static_cast<double>(done) / busy;
}

// A reader beside a writer: read(seconds) runs on processor 0 and returns
// the keys it looked up, while write() runs on processor 1 once every
// kWriterPeriod (sleeping between; a late writer does not catch up). Best
// reader rate of kRuns runs, with that run's writer figures.
struct Contended {
  double reader_mps = 0, writes_per_s = 0;
  Latency write;
};
template <class Read, class Write>
Contended contended(double budget, Read read, Write write) {
  Contended best;
  for (int run = 0; run < kRuns; ++run) {
    std::atomic<bool> stop{false};
    std::vector<double> took;
    double writer_seconds = 0;
    std::thread writer = start_on(1, [&] {
      prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
      took.reserve(static_cast<size_t>(2 * budget / kWriterPeriod) + 16);
      const double t0 = now_seconds();
      double due = t0;
      while (!stop.load(std::memory_order_relaxed)) {
        // now_seconds() reads CLOCK_MONOTONIC, the clock slept on.
        due = std::max(due + kWriterPeriod, now_seconds());
        timespec ts{};
        ts.tv_sec = static_cast<time_t>(due);
        ts.tv_nsec =
            static_cast<long>((due - static_cast<double>(ts.tv_sec)) * 1e9);
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
        took.push_back(seconds(write));
      }
      writer_seconds = now_seconds() - t0;
    });
    size_t keys = 0;
    double reader_seconds = 0;
    std::thread reader = start_on(
        0, [&] { reader_seconds = seconds([&] { keys = read(budget); }); });
    reader.join();
    stop = true;
    writer.join();
    double mps = static_cast<double>(keys) / reader_seconds / 1e6;
    if (mps > best.reader_mps)
      best = {mps, static_cast<double>(took.size()) / writer_seconds,
              percentiles(took)};
  }
  return best;
}

// Keys looked up by pass() (one pass over n keys) until `budget` seconds
// have passed, in whole passes.
template <class Pass>
size_t passes_for(double budget, size_t n, Pass pass) {
  size_t done = 0;
  const double t0 = now_seconds();
  do {
    pass();
    done += n;
  } while (now_seconds() - t0 < budget);
  return done;
}

// Bytes the host has given out now.
uint64_t host_bytes() {
  return sc_host_heap_usage().bytes + sc_host_sz_usage().bytes;
}

// The most bytes the host had given out at any of the samples a thread on
// processor 1 takes without pause while body() runs.
template <class Body>
uint64_t sampled_peak(Body body) {
  std::atomic<bool> stop{false};
  uint64_t peak = host_bytes();
  std::thread sampler = start_on(1, [&] {
    while (!stop.load(std::memory_order_relaxed))
      peak = std::max(peak, host_bytes());
  });
  body();
  stop = true;
  sampler.join();
  return std::max(peak, host_bytes());
}

// Session reset of the live table: every held prefix removed and
// published, then every prefix of the table set and published. Seconds.
template <class F>
double reset(Live<F> &live, Stream<F> &s) {
  double took = seconds([&] {
    for (uint32_t i : s.present()) live.remove(live.table[i]);
    live.publish();
    for (const auto &e : live.table) live.set(e, e.data);
    live.publish();
  });
  s.restore();
  return took;
}

constexpr double kMB = 1048576.0;
const char *const kSetName[2] = {"uniform keys", "keys inside"};

// One case: the table, its two key sets, the fib compiled from it (the
// answers every table must give), the live table and the peer, each
// changed by its own copy of the stream.
template <class F>
class Bench {
 public:
  using Key = typename F::key;
  using Keys = std::vector<Key>;

  Bench(Case &c, std::vector<typename F::entry> in, const Options &o)
      : c_(c),
        o_(o),
        in_(std::move(in)),
        sets_{draw_keys<F>(in_, o.keys, KeyMix::uniform),
              draw_keys<F>(in_, o.keys, KeyMix::inside)},
        frozen_(in_),
        live_(in_),
        ours_(in_) {}

  void run(bool peer_ready) {
    if (!frozen_.fib || !live_.t) {
      printf("  %s not built\n", frozen_.fib ? "live table" : "fib");
      return;
    }
    want_[0] = frozen_.answers(sets_[0]);
    want_[1] = frozen_.answers(sets_[1]);
    load(peer_ready);
    lookups();
    latency();
    absorbed();
    beside_writer();
    memory_and_reset();
    if (live_.refused)
      printf("  LIVE TABLE REFUSED %zu writer calls\n", live_.refused);
#ifdef VELL_HAVE_DPDK
    if (pw_.refused)
      printf("  %s REFUSED %zu of the stream's changes\n", P::kName,
             pw_.refused);
#endif
  }

 private:
  const char *title() const { return c_.title.c_str(); }

  // Every prefix set and published; the peer created and every prefix
  // added.
  void load(bool peer_ready) {
    progress("%s: loading", title());
    double load_s = seconds([&] {
      for (const auto &e : in_) live_.set(e, e.data);
      live_.publish();
    });
    if (F::live_size(live_.t) != in_.size())
      printf("  LIVE SIZE %u, expected %zu\n", F::live_size(live_.t),
             in_.size());
    const double fib_mb = F::fib_memory_usage(frozen_.fib) / kMB;
    const double live_mb = F::live_memory_usage(live_.t) / kMB;
    std::vector<Value> load_v{{"live", 1e3 * load_s}},
        memory_v{{"live", live_mb}, {"fib", fib_mb}};
#ifdef VELL_HAVE_DPDK
    if (peer_ready) build_peer();
    if (peer_up_) {
      load_v.push_back({P::kName, 1e3 * peer_load_s_});
      memory_v.push_back({P::kName, peer_mb_});
    }
#else
    (void)peer_ready;
#endif
    progress("");
    c_.add("load: set every prefix, publish", "ms", load_v);
    c_.add("memory", "MB", memory_v);
    c_.add(
        "live memory beyond the fib's, a prefix", "bytes",
        {{"live", (live_mb - fib_mb) * kMB / static_cast<double>(in_.size())}});
  }

  // Lookups with no writer, every answer checked against the fib's.
  void lookups() {
    progress("%s: timing lookups", title());
    size_t differ = 0, peer_differ = 0;
    for (int s = 0; s < 2; ++s) {
      const Keys &k = sets_[s];
      std::vector<uint32_t> &want = want_[s];
      Rates fib, live, theirs;
      double live_q = 0, their_q = 0;
      differ += measure_table<F, F::fib_lookup, F::fib_lookup_bulk>(
          fib, frozen_.fib, k, want, 1);
      differ += measure_table<F, F::live_lookup, F::live_lookup_bulk>(
          live, live_.t, k, want, 1);
      typename Live<F>::Reader r(live_);
      live_q = checked_rate(
          k, want, differ, 1,
          in_batches<Key>([&](const Key *x, uint32_t *d, uint32_t n) {
            live_.read_batch(r.slot, x, d, n);
          }));
#ifdef VELL_HAVE_DPDK
      if (peer_up_) their_q = peer_rates(s, theirs, peer_differ);
#endif
      auto row = [&](const char *what, double ours, double fib_v,
                     double their_v) {
        std::vector<Value> v{{"live", ours}};
        if (fib_v > 0) v.push_back({"fib", fib_v});
        if (their_v > 0) v.push_back({peer_name(), their_v});
        c_.add(std::string(what) + ", " + kSetName[s], "M/s", v);
      };
      row("single lookups", live.single, fib.single, theirs.single);
      row("bulk lookups", live.bulk, fib.bulk, theirs.bulk);
      row("bulk + quiescent a call", live_q, 0, their_q);
    }
    std::vector<Value> q;
    {
      typename Live<F>::Reader r(live_);
      q.push_back(
          {"live", call_ns([&] { F::live_quiescent(live_.t, r.slot); })});
    }
#ifdef VELL_HAVE_DPDK
    if constexpr (P::kHasRcu)
      if (peer_up_) {
        p_.reader_online(0);
        q.push_back({P::kName, call_ns([&] { p_.quiescent(0); })});
        p_.reader_offline(0);
      }
#endif
    progress("");
    c_.add("quiescent call alone", "ns", q);
    const size_t keys = 2 * o_.keys;
    c_.agree("live = fib, single, bulk and bulk + quiescent", 3 * keys, differ);
    if (peer_up_)
      c_.agree(std::string(peer_name()) + " = fib, every lookup",
               (peer_has_rcu() ? 3 : 2) * keys, peer_differ);
  }

  // Publish latency, one change a publish, from the same start.
  void latency() {
    progress("%s: publish latency", title());
    std::vector<Value> lat[4];
    auto add = [&](const char *who, Latency l) {
      lat[0].push_back({who, l.p50});
      lat[1].push_back({who, l.p99});
      lat[2].push_back({who, l.max});
      lat[3].push_back({who, static_cast<double>(l.over_1ms)});
    };
    add("live", publish_latency(live_, ours_.take(o_.changes)));
#ifdef VELL_HAVE_DPDK
    if (peer_up_) add(P::kName, publish_latency(pw_, theirs_.take(o_.changes)));
#endif
    progress("");
    c_.add("publish latency p50, one change", "us", lat[0]);
    c_.add("publish latency p99, one change", "us", lat[1]);
    c_.add("publish latency max, one change", "us", lat[2]);
    c_.add("publishes taking 1 ms or more", "count", lat[3]);
    const std::string after =
        "after " + std::to_string(o_.changes) + " changes";
    model_check("live = fib " + after, ours_, live_);
#ifdef VELL_HAVE_DPDK
    if (peer_up_)
      for (int s = 0; s < 2; ++s)
        check<F>(
            c_, std::string(P::kName) + " = live " + after + ", " + kSetName[s],
            sets_[s], peer_answers(sets_[s]), live_.answers(sets_[s]));
#endif
  }

  // Changes absorbed with a publish every 1 ms, best of kRuns.
  void absorbed() {
    progress("%s: changes absorbed", title());
    auto best = [&](auto &writer, Stream<F> &s) {
      double b = 0;
      for (int r = 0; r < kRuns; ++r)
        b = std::max(b, absorb(writer, s, o_.seconds));
      return b / 1e3;
    };
    std::vector<Value> v{{"live", best(live_, ours_)}};
#ifdef VELL_HAVE_DPDK
    if (peer_up_) v.push_back({P::kName, best(pw_, theirs_)});
#endif
    progress("");
    c_.add("changes absorbed, publish every 1 ms", "k changes/s", v);
  }

  // A reader's bulk calls, each followed by its quiescent call, while a
  // writer publishes one change every 100 us.
  void beside_writer() {
    progress("%s: a reader beside a writer", title());
    for (int s = 0; s < 2; ++s) {
      const Keys &k = sets_[s];
      std::vector<uint32_t> out(k.size());
      std::vector<Value> v[4];
      auto add = [&](const char *who, const Contended &r) {
        v[0].push_back({who, r.reader_mps});
        v[1].push_back({who, r.writes_per_s / 1e3});
        v[2].push_back({who, r.write.p50});
        v[3].push_back({who, r.write.p99});
      };
      auto read = [&](double budget) {
        typename Live<F>::Reader r(live_);
        return passes_for(budget, k.size(), [&] {
          in_batches<Key>([&](const Key *x, uint32_t *d, uint32_t n) {
            live_.read_batch(r.slot, x, d, n);
          })(k, out.data(), static_cast<uint32_t>(k.size()));
        });
      };
      add("live", contended(o_.seconds, read, [&] {
            if (live_.apply(ours_.next())) live_.publish();
          }));
#ifdef VELL_HAVE_DPDK
      if constexpr (P::kHasRcu)
        if (peer_up_) add(P::kName, peer_beside_writer(s, out));
#endif
      // The same reader beside a writer that only wakes: what the wakes
      // alone cost a reader on the other hyperthread of the core.
      const double wakes_only = contended(o_.seconds, read, [] {}).reader_mps;
      const std::string set = std::string(", ") + kSetName[s];
      c_.add("bulk + quiescent beside a writer" + set, "M/s", v[0]);
      c_.add("  the same beside a writer that only wakes" + set, "M/s",
             {{"live", wakes_only}});
      c_.add("  writer's changes" + set, "k changes/s", v[1]);
      c_.add("  writer's change + publish p50" + set, "us", v[2]);
      c_.add("  writer's change + publish p99" + set, "us", v[3]);
    }
    progress("");
    model_check("live = fib after the stream", ours_, live_);
#ifdef VELL_HAVE_DPDK
    if (peer_up_) {
      Frozen<F> model(theirs_.held());
      for (int s = 0; s < 2; ++s)
        check<F>(
            c_,
            std::string(P::kName) + " = fib after the stream, " + kSetName[s],
            sets_[s], peer_answers(sets_[s]), model.answers(sets_[s]));
    }
#endif
  }

  // Memory after the stream and the most seen while publishes ran (a
  // stretch of 1 ms batches; a session reset), then the reset's time.
  void memory_and_reset() {
    progress("%s: memory and session reset", title());
    const double stream_mb = F::live_memory_usage(live_.t) / kMB;
    const double others = static_cast<double>(host_bytes()) / kMB - stream_mb;
    const double batch_peak =
        sampled_peak([&] { absorb(live_, ours_, o_.seconds / 2); }) / kMB -
        others;
    double reset_s = 1e30;
    for (int r = 0; r < kRuns; ++r)
      reset_s = std::min(reset_s, reset(live_, ours_));
    const double reset_peak =
        sampled_peak([&] { reset(live_, ours_); }) / kMB - others;
    std::vector<Value> reset_v{{"live", reset_s}};
#ifdef VELL_HAVE_DPDK
    // Adding every prefix to the emptied table is the work of its load,
    // from the same empty state, which is not done twice.
    if (peer_up_)
      reset_v.push_back(
          {P::kName, seconds([&] { p_.clear(); }) + peer_load_s_});
#endif
    progress("");
    c_.add("memory after the stream", "MB", {{"live", stream_mb}});
    c_.add("  most seen while 1 ms batches publish", "MB",
           {{"live", batch_peak}});
    c_.add("  most seen during a session reset", "MB", {{"live", reset_peak}});
    c_.add("session reset: remove all, publish, add all, publish", "s",
           reset_v);
    for (int s = 0; s < 2; ++s)
      check<F>(c_, std::string("live = fib after the reset, ") + kSetName[s],
               sets_[s], live_.answers(sets_[s]), want_[s]);
  }

  // Compares a table's answers with a fib of the prefixes `s` holds.
  template <class Table>
  void model_check(const std::string &what, const Stream<F> &s,
                   const Table &t) {
    Frozen<F> model(s.held());
    for (int k = 0; k < 2; ++k)
      check<F>(c_, what + ", " + kSetName[k], sets_[k], t.answers(sets_[k]),
               model.answers(sets_[k]));
  }

#ifdef VELL_HAVE_DPDK
  using P = peer::Peer<F>;
  static constexpr const char *peer_name() { return P::kName; }
  static constexpr bool peer_has_rcu() { return P::kHasRcu; }

  // The peer made with room for the groups its reclamation defers, and
  // loaded; peer_up_ when it worked.
  void build_peer() {
    progress("%s: loading %s (up to a minute)", title(), P::kName);
    std::string why;
    uint64_t before = peer::heap_bytes();
    double t0 = now_seconds();
    peer_up_ = p_.create(in_, 256, why);
    if constexpr (P::kHasRcu)
      peer_up_ = peer_up_ && p_.attach_rcu(kReaders, why);
    for (size_t i = 0; peer_up_ && i < in_.size(); ++i)
      peer_up_ = pw_.apply({static_cast<uint32_t>(i), in_[i].data});
    peer_load_s_ = now_seconds() - t0;
    peer_mb_ = static_cast<double>(peer::heap_bytes() - before) / kMB;
    if (!peer_up_)
      printf("  %s not built: %s\n", P::kName,
             why.empty() ? "an add was refused" : why.c_str());
    for (int s = 0; peer_up_ && s < 2; ++s)
      peer_keys_[s] = P::convert(sets_[s]);
  }

  // The peer's single and bulk rates into r, and with rte_lpm the rate of
  // bulk calls each followed by the reader's quiescent call (else 0).
  double peer_rates(int s, Rates &r, size_t &differ) {
    using PK = typename P::Keys::value_type;
    const typename P::Keys &k = peer_keys_[s];
    auto batch = [&](const PK *x, uint32_t *d, uint32_t n) {
      p_.lookup_batch(x, d, n);
    };
    differ += measure(
        r, k, want_[s], 1,
        [&](const typename P::Keys &x, uint32_t *d, uint32_t n) {
          p_.lookup(x, d, n);
        },
        in_batches<PK>(batch));
    double q = 0;
    if constexpr (P::kHasRcu) {
      p_.reader_online(0);
      q = checked_rate(
          k, want_[s], differ, 1,
          in_batches<PK>([&](const PK *x, uint32_t *d, uint32_t n) {
            batch(x, d, n);
            p_.quiescent(0);
          }));
      p_.reader_offline(0);
    }
    return q;
  }

  Contended peer_beside_writer(int s, std::vector<uint32_t> &out) {
    using PK = typename P::Keys::value_type;
    const typename P::Keys &k = peer_keys_[s];
    return contended(
        o_.seconds,
        [&](double budget) {
          p_.reader_online(0);
          size_t done = passes_for(budget, k.size(), [&] {
            in_batches<PK>([&](const PK *x, uint32_t *d, uint32_t n) {
              p_.lookup_batch(x, d, n);
              p_.quiescent(0);
            })(k, out.data(), static_cast<uint32_t>(k.size()));
          });
          p_.reader_offline(0);
          return done;
        },
        [&] { pw_.apply(theirs_.next()); });
  }

  std::vector<uint32_t> peer_answers(const Keys &keys) const {
    std::vector<uint32_t> out(keys.size());
    p_.lookup(P::convert(keys), out.data(), out.size());
    return out;
  }
#else
  static constexpr const char *peer_name() { return ""; }
  static constexpr bool peer_has_rcu() { return false; }
#endif

  Case &c_;
  const Options &o_;
  const std::vector<typename F::entry> in_;
  const Keys sets_[2];
  std::vector<uint32_t> want_[2];
  const Frozen<F> frozen_;
  Live<F> live_;
  Stream<F> ours_;
  bool peer_up_ = false;
#ifdef VELL_HAVE_DPDK
  P p_;
  PeerWriter<F> pw_{p_, in_};
  Stream<F> theirs_{in_};
  typename P::Keys peer_keys_[2];
  double peer_load_s_ = 0, peer_mb_ = 0;
#endif
};

template <class F>
void run_case(const char *title, std::vector<typename F::entry> in,
              const Options &o, bool peer_ready) {
  size_t dropped = keep_first_of_duplicates<F>(in);
  densify(in);
  results.push_back({{title, in.size(), nested_pct<F>(in)}, {}, {}});
  Case &c = results.back();
  printf(
      "\n%s: %zu prefixes (%zu repeated ones dropped), %.1f%% of them inside "
      "another, %zu keys a set\n",
      title, in.size(), dropped, c.nested_pct, o.keys);
  Bench<F>(c, std::move(in), o).run(peer_ready);
}

// Every case's figures as one JSON document, for plots and comparisons
// across runs.
bool write_json(const std::string &path, const Options &o) {
  char head[160];
  snprintf(head, sizeof head,
           "\"keys\": %zu, \"changes\": %zu, \"seconds\": %.3f, \"runs\": %d, "
           "\"batch\": %u",
           o.keys, o.changes, o.seconds, kRuns, kBatch);
  return write_cases(kProg, path, head, results, [](FILE *f, const Case &c) {
    fputs(", \"figures\": [", f);
    for (size_t j = 0; j < c.figures.size(); ++j) {
      const Figure &g = c.figures[j];
      fprintf(f, "%s\n  {\"metric\": %s, \"unit\": %s", j ? "," : "",
              json_string(trim(g.metric)).c_str(), json_string(g.unit).c_str());
      for (const Value &v : g.values)
        fprintf(f, ", %s: %.6g", json_string(v.who).c_str(), v.v);
      fputs("}", f);
    }
    fputs("],\n  \"checks\": [", f);
    for (size_t j = 0; j < c.checks.size(); ++j)
      fprintf(f, "%s\n  {\"what\": %s, \"keys\": %zu, \"differ\": %zu}",
              j ? "," : "", json_string(c.checks[j].what).c_str(),
              c.checks[j].keys, c.checks[j].differ);
    fputs("]", f);
  });
}

}  // namespace

int main(int argc, char **argv) {
  Options o;
  Args a;
  a.nested = VELL_NESTED_TABLE;
  bool ok = parse_args(argc, argv, a, [&](std::string_view opt, const char *v) {
    if (opt == "--changes")
      o.changes = strtoull(v, nullptr, 10);
    else if (opt == "--seconds")
      o.seconds = strtod(v, nullptr);
    else
      return false;
    return true;
  });
  o.keys = a.keys;
  if (!ok || o.keys < kBatch || !(o.seconds > 0)) {
    fprintf(stderr,
            "usage: bench_live [--keys N] [--changes N] [--seconds S] "
            "[--nested FILE] [--json FILE] [TABLE...]\n"
            "  (--keys at least %u, --seconds above 0)\n",
            kBatch);
    return 2;
  }
  Table table, nested_table;
  if (!load_tables(kProg, a, table, nested_table)) return 1;
  const bool peer_ready = start_peer(kProg);
  printf(
      "rates best of %d runs of %.2f s; bulk lookups in batches of %u keys; "
      "%zu changes published one by one; (x.xx) is the first figure over "
      "that one; DPDK's session reset is its delete_all plus the adds of its "
      "load\n",
      kRuns, o.seconds, kBatch, o.changes);
  if (!nested_table.v4.empty())
    run_case<vell::trie4_family>("IPv4, real routing table (nested prefixes)",
                                 nested_table.v4, o, peer_ready);
  if (!table.v4.empty())
    run_case<vell::trie4_family>("IPv4, real address-to-ASN table", table.v4, o,
                                 peer_ready);
  if (!table.v6.empty())
    run_case<vell::trie6_family>("IPv6, real address-to-ASN table", table.v6, o,
                                 peer_ready);
  progress("");
  if (!a.json.empty() && !write_json(a.json, o)) return 1;
  return 0;
}

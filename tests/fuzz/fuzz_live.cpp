// Both live table widths against a model of their published and staged
// prefix sets: sets (adding and replacing), removes, publishes, single and
// bulk lookups, reader registration, quiescence and unregistration, in any
// order; malformed prefixes, and a failed allocation planned at any point.
// Lookups answer from the published set only; a refused call and a failed
// publish change nothing, and a publish retried after a failure succeeds.
#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "trie_model.h"

namespace {

using tt::Addr;
using Model = tt::Prefixes<uint32_t>;

// Whether the planned allocation failure happened since it was made.
struct Watch {
  bool before = fuzz::failed();
  bool failed() const { return !before && fuzz::failed(); }
};

template <class F>
struct Live {
  typename F::live *t;
  uint32_t miss, max_readers;
  Model published = {}, staged = {};
  std::set<int> readers = {};
  std::vector<Addr> seen = {};

  uint32_t want(const Addr &key) const {
    const uint32_t *d = tt::longest<F>(published, key);
    return d ? *d : miss;
  }
  // Single and bulk lookups of keys answer from the published set; a
  // reader is registered for them when none is. Only writer-side calls
  // take or give back memory.
  void check(const std::vector<Addr> &keys) {
    long attempts = th::alloc_attempts();
    uint64_t bytes = th::live_bytes();
    int own = readers.empty() ? F::live_reader_register(t) : -1;
    FUZZ_CHECK(!readers.empty() || own >= 0);
    auto bulk = tt::bulk<F>(F::live_lookup_bulk, t, keys, 0, keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
      uint32_t w = want(keys[i]);
      FUZZ_CHECK(F::live_lookup(t, F::word_key(keys[i].data())) == w);
      FUZZ_CHECK(bulk[i] == w);
    }
    if (own >= 0) F::live_reader_unregister(t, own);
    FUZZ_CHECK(th::alloc_attempts() == attempts && th::live_bytes() == bytes);
  }
  // The first and last address of published prefixes (about 64 of them,
  // spread over the set) and the addresses just outside them.
  void check_published() {
    std::vector<Addr> keys;
    size_t i = 0, stride = published.size() / 64 + 1;
    for (auto &[p, data] : published) {
      if (i++ % stride) continue;
      Addr last = tt::cut<F>(p.first, p.second, true);
      keys.insert(keys.end(), {p.first, last, tt::step<F>(p.first, -1),
                               tt::step<F>(last, 1)});
    }
    check(keys);
  }

  // A prefix from the input, well formed unless bad: its length past the
  // width, or an address bit set at or past its length.
  std::pair<Addr, uint32_t> prefix(FuzzedDataProvider &in, bool bad) {
    if (!bad && !staged.empty() && in.ConsumeBool()) {
      auto it = staged.begin();
      std::advance(it, in.ConsumeIntegralInRange<size_t>(0, staged.size() - 1));
      return it->first;
    }
    Addr a = fuzz::make_addr<F>(in, seen);
    uint32_t len = in.ConsumeIntegralInRange<uint32_t>(0, F::bits);
    a = tt::cut<F>(a, len);
    if (bad && (len == F::bits || in.ConsumeBool()))
      len = in.ConsumeIntegralInRange<uint32_t>(F::bits + 1, UINT32_MAX);
    else if (bad)
      a[len / 32] |=
          0x80000000u >> in.ConsumeIntegralInRange<uint32_t>(len % 32, 31);
    seen.push_back(a);
    return {a, len};
  }

  void set(FuzzedDataProvider &in, bool bad) {
    auto [a, len] = prefix(in, bad);
    set(a, len,
        in.ConsumeBool() ? in.ConsumeIntegral<uint32_t>()
                         : in.ConsumeIntegralInRange(0u, 9u),
        bad);
  }
  void set(const Addr &a, uint32_t len, uint32_t data, bool bad) {
    size_t diags = th::diags().size();
    Watch watch;
    int r = F::live_set(t, F::word_key(a.data()), len, data);
    FUZZ_CHECK(bad ? r == -1 : r == 0 || (r == -1 && watch.failed()));
    FUZZ_CHECK(r == 0 || th::diags().size() > diags);
    if (r == 0) staged[{a, len}] = data;
  }

  void remove(FuzzedDataProvider &in, bool bad) {
    auto [a, len] = prefix(in, bad);
    remove(a, len, bad);
  }
  void remove(const Addr &a, uint32_t len, bool bad) {
    size_t diags = th::diags().size();
    int r = F::live_remove(t, F::word_key(a.data()), len);
    // Never refused for memory: without room to list it, the next publish
    // compiles the whole table.
    FUZZ_CHECK(r == (bad ? -1 : staged.count({a, len}) ? 0 : 1));
    FUZZ_CHECK(r != -1 || th::diags().size() > diags);
    if (r == 0) staged.erase({a, len});
  }

  // Up to thousands of changes from a generator the input seeds: prefixes
  // in and around earlier addresses set, and earlier ones removed, so
  // publishes rebuild many slots, fill the pool and restage everything.
  void burst(FuzzedDataProvider &in) {
    std::minstd_rand rng(in.ConsumeIntegral<uint32_t>());
    size_t n = in.ConsumeBool() ? in.ConsumeIntegralInRange<size_t>(1, 64)
                                : in.ConsumeIntegralInRange<size_t>(1, 5000);
    std::vector<std::pair<Addr, uint32_t>> made;
    for (size_t i = 0; i < n; ++i) {
      if (!made.empty() && rng() % 4 == 0) {
        auto [a, len] = made[rng() % made.size()];
        remove(a, len, false);
        continue;
      }
      Addr a = seen.empty() ? Addr{} : seen[rng() % seen.size()];
      for (uint32_t w = 0; w < F::words; ++w)
        if (rng() % 2) a[w] ^= uint32_t(rng()) >> rng() % 32;
      uint32_t len = rng() % (F::bits + 1);
      a = tt::cut<F>(a, len);
      if (rng() % 8 == 0) seen.push_back(a);
      made.push_back({a, len});
      set(a, len, rng() % 4 ? rng() % 16 : uint32_t(rng()) << 1, false);
    }
  }

  void publish() {
    Watch watch;
    int r = F::live_publish(t);
    FUZZ_CHECK(r == 0 || (r == -1 && watch.failed()));
    if (r != 0) {
      check_published();  // the old answers hold
      FUZZ_CHECK(F::live_size(t) == staged.size());
      FUZZ_CHECK(F::live_publish(t) == 0);
    }
    published = staged;
    check_published();
  }

  void lookups(FuzzedDataProvider &in, size_t n) {
    std::vector<Addr> keys;
    while (keys.size() < n && in.remaining_bytes() > 0)
      keys.push_back(tt::cut<F>(fuzz::make_addr<F>(in, seen), F::bits));
    check(keys);
  }

  // Registers a reader (op 0), or makes one quiescent (1) or unregisters
  // it (2); none of them takes or gives back memory.
  void reader(FuzzedDataProvider &in, int op) {
    long attempts = th::alloc_attempts();
    uint64_t bytes = th::live_bytes();
    if (op == 0) {
      int slot = F::live_reader_register(t);
      if (readers.size() == max_readers)
        FUZZ_CHECK(slot == -1);
      else
        FUZZ_CHECK(slot >= 0 && uint32_t(slot) < max_readers &&
                   readers.insert(slot).second);
    } else if (!readers.empty()) {
      auto it = readers.begin();
      std::advance(it,
                   in.ConsumeIntegralInRange<size_t>(0, readers.size() - 1));
      if (op == 1) {
        F::live_quiescent(t, *it);
      } else {
        F::live_reader_unregister(t, *it);
        readers.erase(it);
      }
    }
    FUZZ_CHECK(th::alloc_attempts() == attempts && th::live_bytes() == bytes);
  }
};

template <class F>
void run(FuzzedDataProvider &in) {
  th::Ctx ctx(in.ConsumeIntegralInRange<uint32_t>(0, 1 << 16));
  void *sz_ctx = in.ConsumeBool() ? ctx.get() : nullptr;
  uint32_t miss = in.ConsumeBool() ? 0 : in.ConsumeIntegral<uint32_t>();
  uint32_t max_readers = in.ConsumeIntegralInRange<uint32_t>(0, 5);
  fuzz::begin(in);
  Live<F> live{F::live_construct(sz_ctx, miss, max_readers), miss, max_readers};
  if (!live.t) {
    FUZZ_CHECK(max_readers == 0 || fuzz::failed());
    FUZZ_CHECK(!th::diags().empty());
    return fuzz::end();
  }
  FUZZ_CHECK(max_readers > 0);
  for (int ops = 0; ops < 300 && in.remaining_bytes() > 0; ++ops) {
    switch (in.ConsumeIntegralInRange<int>(0, 14)) {
      case 0:
      case 1:
      case 2:
        live.set(in, in.ConsumeProbability<float>() < 0.05f);
        break;
      case 3:
      case 4:
        live.remove(in, in.ConsumeProbability<float>() < 0.05f);
        break;
      case 5:
        live.publish();
        break;
      case 6:
        live.lookups(in, 1);
        break;
      case 7:
        live.lookups(in, in.ConsumeIntegralInRange<size_t>(0, 150));
        break;
      case 8:
      case 9:
      case 10:
        live.reader(in, in.ConsumeIntegralInRange<int>(0, 2));
        break;
      case 11:
        live.burst(in);
        break;
      case 12:  // a later allocation fails, often the next
        th::fail_nth(in.ConsumeBool() ? 1 : in.ConsumeIntegralInRange(1, 16));
        break;
      default:
        FUZZ_CHECK(F::live_size(live.t) == live.staged.size());
        FUZZ_CHECK(F::live_memory_usage(live.t) > 0);
    }
  }
  F::live_destruct(live.t);
  fuzz::end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  fuzz::either_family(in, [&](auto family) { run<decltype(family)>(in); });
  return 0;
}

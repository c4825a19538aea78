// Readers on other threads while the writer changes and publishes as fast
// as it can. Every data word encodes the version that set it, and every
// publish sets every watched prefix, so each answer names the version it
// came from: it must be one published between the call's start and end,
// and a reader must never see a key go back to an older version. Run under
// ThreadSanitizer, and under AddressSanitizer with the test host poisoning
// every block given back, so a block given back too early shows.
#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class LiveThreads : public HostTest {};
TYPED_TEST_SUITE(LiveThreads, tt::both<::testing::Types>);

constexpr uint32_t kVersions = 200;
constexpr uint32_t kReaders = 2;

uint32_t word(uint32_t version, uint32_t id) { return version << 8 | id; }

TYPED_TEST(LiveThreads, EveryAnswerComesFromAVersionPublishedDuringTheCall) {
  using F = TypeParam;
  std::mt19937 rng(9);
  // The default route first, so no key misses; every third other prefix
  // is there only in even versions, so structure changes too.
  const auto watched = tt::prefix_set<F>(rng, 48);
  const std::vector<Addr> keys = tt::probe_keys<F>(watched, 64, rng);
  // Every 25th version also sets these, past the incremental path's limit,
  // so the table is compiled whole and the old version retired. None
  // covers a key: their words would name older versions.
  std::vector<typename F::entry> filler;
  for (auto &e : tt::prefix_set<F>(rng, 5200))
    if (std::none_of(keys.begin(), keys.end(), [&](const Addr &k) {
          return tt::cut<F>(k, e.len) == tt::addr<F>(e);
        }))
      filler.push_back(e);
  typename F::live *t = F::live_construct(nullptr, ~0u, kReaders + 1);
  ASSERT_NE(t, nullptr);

  std::atomic<uint32_t> started{0}, done{0};
  auto publish = [&](uint32_t v) {
    started.store(v, std::memory_order_seq_cst);
    for (uint32_t i = 0; i < watched.size(); ++i) {
      Addr a = tt::addr<F>(watched[i]);
      if (i % 3 == 1 && v % 2)
        F::live_remove(t, F::word_key(a.data()), watched[i].len);
      else
        F::live_set(t, F::word_key(a.data()), watched[i].len, word(v, i));
    }
    if (v % 25 == 0)
      for (auto &e : filler)
        F::live_set(t, F::word_key(tt::addr<F>(e).data()), e.len, word(v, 255));
    ASSERT_EQ(F::live_publish(t), 0);
    done.store(v, std::memory_order_seq_cst);
  };
  publish(1);

  std::atomic<bool> stop{false};
  std::atomic<uint64_t> wrong{0}, answers{0};
  auto reader = [&](uint32_t seed) {
    int r = F::live_reader_register(t);
    if (r < 0) {
      ++wrong;
      return;
    }
    std::vector<uint32_t> last(keys.size(), 0);
    std::vector<typename F::key> k;
    for (const Addr &a : keys) k.push_back(F::make_key(a.data()));
    std::vector<uint32_t> out(64);
    uint32_t at = seed;
    while (!stop.load(std::memory_order_relaxed)) {
      const uint32_t n = 1 + at % 64, from = at % uint32_t(keys.size() - n);
      const uint32_t lo = done.load(std::memory_order_seq_cst);
      if (at % 2)
        F::live_lookup_bulk(t, F::c_keys(k.data() + from), out.data(), n);
      else
        for (uint32_t i = 0; i < n; ++i)
          out[i] = F::live_lookup(t, F::c_key(k[from + i]));
      const uint32_t hi = started.load(std::memory_order_seq_cst);
      for (uint32_t i = 0; i < n; ++i) {
        uint32_t v = out[i] >> 8;
        if (v < lo || v > hi || v < last[from + i]) ++wrong;
        last[from + i] = v;
      }
      answers += n;
      F::live_quiescent(t, r);
      at = at * 1103515245u + 12345u;
      std::this_thread::yield();  // the writer shares the processors
    }
    F::live_reader_unregister(t, r);
  };
  std::vector<std::thread> readers;
  for (uint32_t i = 0; i < kReaders; ++i) readers.emplace_back(reader, i + 1);
  for (uint32_t v = 2; v <= kVersions && !::testing::Test::HasFailure(); ++v)
    publish(v);
  stop = true;
  for (auto &th : readers) th.join();
  EXPECT_EQ(wrong.load(), 0u) << "of " << answers.load() << " answers";
  EXPECT_GT(answers.load(), 0u);
  EXPECT_EQ(F::live_publish(t), 0);  // no reader left: all given back
  EXPECT_EQ(F::live_memory_usage(t), th::live_bytes());
  F::live_destruct(t);
}

}  // namespace

// A live table under test beside the prefix set it should answer from:
// the changes go to both, and after each publish every probe key's single
// and bulk answers are checked against a frozen table compiled from the
// published set. Shared by the single-threaded and the threaded tests.
#pragma once

#include <stdint.h>

#include <map>
#include <random>
#include <utility>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace tt {

template <class F>
class LiveModel {
 public:
  using Key = std::pair<Addr, uint32_t>;

  LiveModel(void *ctx, uint32_t miss, uint32_t readers = 4)
      : ctx_(ctx), miss_(miss) {
    t_ = F::live_construct(ctx, miss, readers);
  }
  ~LiveModel() { F::live_destruct(t_); }
  typename F::live *get() const { return t_; }

  int set(const Addr &a, uint32_t len, uint32_t data) {
    int r = F::live_set(t_, F::word_key(a.data()), len, data);
    if (r == 0) staged_[{a, len}] = data;
    return r;
  }
  int remove(const Addr &a, uint32_t len) {
    int r = F::live_remove(t_, F::word_key(a.data()), len);
    if (r == 0) staged_.erase({a, len});
    return r;
  }
  int publish() {
    int r = F::live_publish(t_);
    if (r == 0) published_ = staged_;
    return r;
  }
  bool holds(const Addr &a, uint32_t len) const {
    return staged_.count({a, len}) != 0;
  }
  const std::map<Key, uint32_t> &staged() const { return staged_; }

  std::vector<typename F::entry> entries() const {
    std::vector<typename F::entry> out;
    for (auto &[k, data] : published_)
      out.push_back(entry<F>(k.first, k.second, data));
    return out;
  }

  // Every published prefix's edges and neighbours, those of `extra` (the
  // prefixes just removed), and random keys: single and bulk answers equal
  // the frozen table's.
  void check(std::mt19937 &rng, const std::vector<typename F::entry> &extra) {
    auto in = entries();
    auto probes = in;
    probes.insert(probes.end(), extra.begin(), extra.end());
    std::vector<Addr> keys = probe_keys<F>(probes, 200, rng);
    typename F::trie *trie =
        F::construct(nullptr, in.data(), uint32_t(in.size()), 50, 0);
    ASSERT_NE(trie, nullptr);
    typename F::fib *fib = F::fib_construct(nullptr, trie, miss_);
    ASSERT_NE(fib, nullptr);
    std::vector<uint32_t> want;
    for (const Addr &k : keys) want.push_back(fib_lookup<F>(fib, k));
    F::fib_destruct(fib);
    F::destruct(trie);
    for (size_t i = 0; i < keys.size(); ++i)
      ASSERT_EQ(F::live_lookup(t_, F::word_key(keys[i].data())), want[i])
          << "key " << i << " of " << in.size() << " prefixes";
    ASSERT_EQ(bulk<F>(F::live_lookup_bulk, t_, keys, 0, keys.size()), want);
  }

 private:
  void *ctx_;
  uint32_t miss_;
  typename F::live *t_;
  std::map<Key, uint32_t> staged_, published_;
};

}  // namespace tt

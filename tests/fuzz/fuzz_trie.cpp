// Both trie families against a reference model: entry sets with nested
// prefixes, duplicates, bad lengths and stray address bits, any fill factor
// and root branch; then single and bulk lookups of the trie and of its
// compiled forwarding table, and the iterator.
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "trie_model.h"

namespace {

using tt::Addr;

using fuzz::make_addr;

template <class F>
void run(FuzzedDataProvider &in) {
  using Entry = typename F::entry;
  uint32_t fill = in.ConsumeIntegralInRange<uint32_t>(0, 200);
  uint32_t root = in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(0, 12)
                  : in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(
                                           0, F::max_root_branch + 1)
                                     : 0;
  size_t n = in.ConsumeIntegralInRange<size_t>(0, 80);
  th::Ctx ctx(in.ConsumeIntegralInRange<uint32_t>(0, 4096));
  void *sz_ctx = in.ConsumeBool() ? ctx.get() : nullptr;

  std::vector<Entry> entries;
  std::vector<Addr> seen;
  bool valid = fill > 0 && root <= F::max_root_branch;
  for (size_t i = 0; i < n; ++i) {
    Addr a = make_addr<F>(in, seen);
    uint32_t len = in.ConsumeIntegralInRange<uint32_t>(0, F::bits);
    if (in.ConsumeProbability<float>() < 0.02f) len = F::bits + 1;
    bool stray = in.ConsumeProbability<float>() < 0.02f;
    if (!stray || len >= F::bits) a = tt::cut<F>(a, len);
    uint32_t data = in.ConsumeIntegralInRange<uint32_t>(0, 40);
    valid &= len <= F::bits && a == tt::cut<F>(a, len);
    entries.push_back(tt::entry<F>(a, len, data));
    seen.push_back(a);
  }

  fuzz::begin(in);
  auto *t = F::construct(sz_ctx, entries.data(), uint32_t(n), fill, root);
  const std::string said = th::diag_text();
  bool root_too_wide = said.find("root_branch") != std::string::npos ||
                       said.find("nodes needed") != std::string::npos;
  if (!t) {
    // Refused input, a failed allocation, or a forced root wider than the
    // address left after the entries' common bits; always said at level 2.
    FUZZ_CHECK(!valid || fuzz::failed() || root_too_wide);
    FUZZ_CHECK(!th::diags().empty());
    fuzz::end();
    return;
  }
  FUZZ_CHECK(valid);
  auto model = tt::stored<F>(entries);

  // A compiled table, for some inputs: it answers what the trie answers
  // where a prefix covers the key and its miss value elsewhere.
  typename F::fib *fib = nullptr;
  uint32_t miss = in.ConsumeBool() ? 0 : in.ConsumeIntegral<uint32_t>();
  if (in.ConsumeProbability<float>() < 0.05f) {
    fib = F::fib_construct(sz_ctx, t, miss);
    FUZZ_CHECK(fib || fuzz::failed());
  }
  std::vector<Addr> keys;
  for (auto &e : entries) keys.push_back(tt::addr<F>(e));
  while (in.remaining_bytes() > 0 && keys.size() < 300)
    keys.push_back(make_addr<F>(in, seen));
  auto bulk = tt::lpmatch_bulk<F>(t, keys, 0, keys.size());
  auto fib_bulk = fib ? tt::fib_bulk<F>(fib, keys, 0, keys.size())
                      : std::vector<uint32_t>(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    uint32_t got = tt::lpmatch<F>(t, keys[i]);
    const std::set<uint32_t> *want = tt::longest<F>(model, keys[i]);
    FUZZ_CHECK(want ? want->count(got) != 0 : got == 0);
    FUZZ_CHECK(bulk[i] == got);
    if (!fib) continue;
    uint32_t fib_got = tt::fib_lookup<F>(fib, keys[i]);
    FUZZ_CHECK(fib_got == (want ? got : miss) && fib_bulk[i] == fib_got);
  }
  F::fib_destruct(fib);

  // The iterator delivers the leaf entries (those enclosing no other) in
  // address order, each followed by the prefixes enclosing it, longest
  // first, all with the leaf's address.
  std::vector<std::pair<Addr, uint32_t>> walk;
  for (auto &[leaf, data] : model) {
    bool encloses = false;
    for (auto &[other, d] : model)
      encloses |= other.second > leaf.second &&
                  tt::cut<F>(other.first, leaf.second) == leaf.first;
    if (encloses) continue;
    for (int len = leaf.second; len >= 0; --len)
      if (model.count({tt::cut<F>(leaf.first, len), uint32_t(len)}))
        walk.push_back({leaf.first, uint32_t(len)});
  }
  if (auto *it = F::iter_construct(t)) {
    typename F::item item;
    for (auto &[addr, len] : walk) {
      FUZZ_CHECK(F::iter_next(it, &item) == 0);
      FUZZ_CHECK(tt::addr<F>(item) == addr && item.len == len);
      FUZZ_CHECK(model[{tt::cut<F>(addr, len), len}].count(item.data));
    }
    FUZZ_CHECK(F::iter_next(it, &item) == -1);
    F::iter_destruct(it);
  } else {
    FUZZ_CHECK(fuzz::failed());
  }
  F::destruct(t);
  fuzz::end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  fuzz::either_family(in, [&](auto family) { run<decltype(family)>(in); });
  return 0;
}

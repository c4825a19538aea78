// Reference model of a chained table, driven by the unit test from a seeded
// generator and by the fuzz target from its input: each key's value and its
// places on its chain and on the insertion list, and the values handed to
// the value destructor. Each step is one call: inserts (replacing, the value
// in one piece or two), erases, finds, walks that may erase what they
// deliver and resize mid-walk, delete-all, a full comparison of chains and
// walk order, and per family resizing (sc_ohash) or serialisation
// (sc_hash). An allocation fails only where the host failed it, and a
// failure changes nothing. A fault is reported through `report`.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "families.h"

#define HM_CHECK(cond) ((cond) || (report(#cond, __LINE__), false))

template <class F>
struct HashModel {
  using Bytes = ht::Bytes;
  struct Entry {
    Bytes value;
    uint64_t chain, list;  // positions on its chain and on the list
  };

  // Takes over t, which must not be null.
  HashModel(typename F::table *t, std::function<uint32_t(uint32_t)> pick_below,
            std::function<void(const char *, int)> fault)
      : f(t), pick(std::move(pick_below)), report(std::move(fault)) {
    ht::destroyed.clear();
  }
  // Destroying the table hands every value left to the destructor.
  ~HashModel() {
    F::destruct(f.t);
    f.t = nullptr;
    for (auto &[k, e] : model) gone.insert(e.value);
    HM_CHECK(std::multiset<Bytes>(ht::destroyed.begin(), ht::destroyed.end()) ==
             gone);
  }

  ht::Table<F> f;
  std::function<uint32_t(uint32_t)> pick;  // a number below its argument
  std::function<void(const char *, int)> report;
  std::map<Bytes, Entry> model;
  std::multiset<Bytes> gone;  // values that left the table
  uint64_t seq = 0;

  // Few distinct bytes, so keys collide and repeat.
  Bytes bytes(uint32_t most) {
    Bytes s;
    for (uint32_t n = pick(most + 1); n--;) s += "ab\0\xff"[pick(4)];
    return s;
  }
  void leave(typename std::map<Bytes, Entry>::iterator it) {
    gone.insert(it->second.value);
    model.erase(it);
  }
  // key=value rows in chain order (bucket by bucket) or in list order.
  std::vector<Bytes> expect(bool list_order) const {
    std::map<std::pair<uint64_t, uint64_t>, Bytes> rows;
    for (auto &[k, e] : model)
      rows[{list_order ? 0 : f.index(k), list_order ? e.list : e.chain}] =
          k + "=" + e.value;
    std::vector<Bytes> out;
    for (auto &r : rows) out.push_back(r.second);
    return out;
  }
  // sc_ohash: grows when loaded to a threshold, shrinks to a power of two
  // (refusing any other count); a rebuild puts every chain in list order.
  // Growth stops at 4096 buckets, where doubling would only spend memory.
  void resize() {
    if constexpr (F::kListOrder) {
      const uint32_t was = f.t->n_buckets;
      uint32_t want = was;
      bool allowed = true;  // whether the call may succeed
      int r;
      if (pick(2) && was < 4096) {
        const uint32_t threshold = pick(300);
        if (model.size() * 100 / was >= threshold) want = was * 2;
        r = sc_ohash_grow(f.t, threshold);
      } else {
        const uint32_t to = pick(4) ? 1u << pick(7) : pick(100);
        allowed = to && !(to & (to - 1));
        if (allowed && to < was) want = to;
        r = sc_ohash_shrink(f.t, to);
      }
      if (r != 0) {  // refused or failed: unchanged
        HM_CHECK(!allowed || th::failure_injected());
        want = was;
      }
      HM_CHECK(r != 0 || allowed);
      HM_CHECK(f.t->n_buckets == want);
      if (want != was)
        for (auto &kv : model) kv.second.chain = kv.second.list;
    }
  }
  // The image: records of 4-byte little-endian key size, key, value size
  // and value, in chain order.
  void serialize() {
    std::optional<Bytes> got = ht::image(f.t);
    if (!got) {
      HM_CHECK(th::failure_injected());
      return;
    }
    Bytes want;
    auto word = [&](size_t n) {
      for (int i = 0; i < 4; ++i) want += char(n >> 8 * i);
    };
    for (const Bytes &row : expect(false)) {
      const size_t eq = row.find('=');
      word(eq), want += row.substr(0, eq);
      word(row.size() - eq - 1), want += row.substr(eq + 1);
    }
    HM_CHECK(*got == want);
  }
  // Walks the table; erases (and resizes after) each delivered element
  // when asked.
  void walk(bool erase_each) {
    const std::vector<Bytes> order = expect(F::kListOrder);
    std::vector<Bytes> seen = f.walk(nullptr, [&](const Bytes &k) {
      if (!erase_each) return;
      HM_CHECK(f.erase(k));
      if (auto it = model.find(k); HM_CHECK(it != model.end())) leave(it);
      resize();
    });
    HM_CHECK(seen == order || (seen == std::vector<Bytes>{"<no iterator>"} &&
                               th::failure_injected()));
  }

  void step() {
    Bytes key = bytes(9);
    if (!model.empty() && pick(2))
      key = std::next(model.begin(), pick(uint32_t(model.size())))->first;
    auto it = model.find(key);
    const bool present = it != model.end();
    const uint32_t op = pick(20);
    if (op < 9) {
      const Bytes v = bytes(12);
      if (!f.insert(key, v, pick(uint32_t(v.size()) + 1))) {
        HM_CHECK(th::failure_injected());
        return;
      }
      if (present) gone.insert(it->second.value);
      // A replaced key keeps its chain place and moves to the list's end.
      Entry &e = model.try_emplace(key, Entry{v, seq, 0}).first->second;
      e.value = v;
      e.list = seq++;
    } else if (op < 13) {
      HM_CHECK(f.erase(key) == present);
      if (present) leave(it);
    } else if (op < 17) {
      HM_CHECK(f.find(key) ==
               (present ? std::optional(it->second.value) : std::nullopt));
    } else if (op == 17) {
      walk(pick(2));
    } else if (op == 18) {
      if constexpr (F::kListOrder) resize();
      if constexpr (std::is_same_v<F, ht::Hash>) serialize();
    } else if (pick(8) == 0) {
      F::delete_all(f.t);
      while (!model.empty()) leave(model.begin());
    } else {
      HM_CHECK(f.chains() == expect(false));
      walk(false);
    }
  }
  void check() { HM_CHECK(ht::destroyed.size() == gone.size()); }
};

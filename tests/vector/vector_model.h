// Reference model of a vector, driven by the unit test from a seeded
// generator and by the fuzz target from its input: each element's bytes,
// the capacity the growth rule gives and the sorted and no-grow flags. The
// model makes its vector with any constructor; each step is one call:
// additions (also of its own elements), appends (to itself or from a
// copy), compaction, sorts and both de-duplications in either order, and
// copies. An allocation fails only where the host failed it, and a failure
// changes nothing but what an append added before it. A fault is reported
// through `report`.
#pragma once

#include <string.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "host_record.h"
#include "sc_vector.h"

#define VM_CHECK(cond) ((cond) || (report(#cond, __LINE__), false))

struct VectorModel {
  // Sizes on and off the addressing fast path.
  static constexpr uint32_t kSizes[] = {0, 1, 2, 3, 4, 5, 8, 12, 16, 24};
  using Elements = std::vector<std::string>;

  VectorModel(void *ctx, std::function<uint32_t(uint32_t)> pick_below,
              std::function<void(const char *, int)> fault)
      : pick(std::move(pick_below)), report(std::move(fault)) {
    esize = kSizes[pick(10)];
    const uint32_t initial = pick(20), how = pick(4);
    // A factor with zero low 16 bits is stored as 0: no growth once there
    // is storage.
    const int factor = pick(8) ? int(pick(300)) : 1 << 16;
    no_grow = how >= 2;
    v = how == 0   ? sc_vector_construct(initial, esize, factor)
        : how == 1 ? sc_vector_szconstruct(ctx, initial, esize, factor)
        : how == 2 ? sc_vector_construct_no_grow(initial, esize)
                   : sc_vector_szconstruct_no_grow(ctx, initial, esize);
    growth = no_grow || factor == 0 ? 50 : uint32_t(factor) & 0xffff;
    cap = grown(initial);
    VM_CHECK(v || th::failure_injected());
  }
  // A record from the context goes back through __sc_kfree.
  ~VectorModel() {
    sc_vector_destruct(w);
    sc_vector_destruct(v);
    long records = 0;
    for (auto &b : th::blocks()) records += b.alloc == th::Alloc::szalloc;
    th::expect_sz_released_by_kfree(records);
  }

  std::function<uint32_t(uint32_t)> pick;  // a number below its argument
  std::function<void(const char *, int)> report;
  sc_vector *v, *w = nullptr;  // the subject, and a copy appended from
  Elements m, wm;              // their elements
  uint32_t esize, growth, cap;
  bool no_grow, sorted = false;

  // Slots for `wanted` elements by the growth rule; a stored factor of 0
  // reads as the default when a vector is made.
  uint32_t grown(uint64_t wanted, bool made = false) const {
    return uint32_t(((made && !growth ? 50 : growth) + 100) * wanted / 100);
  }
  // Orders elements by their bytes, highest first.
  static int descending(const void *a, const void *b, void *x) {
    return -memcmp(a, b, static_cast<sc_vector *>(x)->elementSize);
  }
  // Records an addition: it takes room by the growth rule when full,
  // which a no-grow vector, a stored factor of 0 and a failed allocation
  // refuse.
  void added(bool ok, const std::string &e) {
    const bool full = m.size() == cap;
    if (!ok) {
      VM_CHECK(full &&
               (no_grow || (v->elements && !growth) || th::failure_injected()));
      return;
    }
    if (full) cap = grown(m.size() + 1);
    m.push_back(e);
    sorted = false;
  }

  void step() {
    const uint32_t n = uint32_t(m.size()), op = pick(10);
    if (op < 3) {
      // Few distinct bytes, so sorts meet ties; an element of its own is
      // read from storage that growth moves.
      const uint32_t i = pick(2) ? pick(n + 1) : n;
      std::string e(esize, '\0');
      for (char &c : e) c = "\0\x7f\xfe\xff"[pick(4)];
      if (i < n) e = m[i];
      added(sc_vector_add(
                v, i < n ? static_cast<char *>(v->elements) + size_t(i) * esize
                         : e.data()) == 0,
            e);
    } else if (op == 3) {
      // The source's elements as they are at the call, so a vector
      // appended to itself doubles once; kept to a size that stays small.
      sc_vector *src = w && pick(2) ? w : v;
      const Elements from = src == v ? m : wm;
      if (from.size() + n > 4096) return;
      const int r = sc_vector_append(v, src);
      const uint32_t got = v->nElements - n;
      VM_CHECK(got <= from.size() && (r == 0) == (got == from.size()));
      for (uint32_t k = 0; k < got && k < from.size(); ++k)
        added(true, from[k]);
      if (r) added(false, {});
    } else if (op == 4) {
      if (sc_vector_compact(v) == 0)
        cap = n;
      else
        VM_CHECK(th::failure_injected());
    } else if (op < 7) {
      // unique sorts unless marked sorted; on fewer than two elements it
      // changes nothing, not even the flag.
      const bool down = pick(2);
      (op == 5 ? sc_vector_sort : sc_vector_unique)(
          v, down ? descending : nullptr);
      if (op == 6 && n < 2) return;
      if (op == 5 || !sorted) {
        std::sort(m.begin(), m.end());
        if (down) std::reverse(m.begin(), m.end());
      }
      if (op == 6) m.erase(std::unique(m.begin(), m.end()), m.end());
      sorted = true;
    } else if (op == 7) {
      // Keeps first occurrences, in order.
      sc_vector_remove_dup(v);
      for (uint32_t k = n; k-- > 1;)
        if (std::count(m.begin(), m.begin() + k, m[k])) m.erase(m.begin() + k);
    } else {
      // A plain growable vector, sized by the construction rule.
      sc_vector_destruct(w);
      w = sc_vector_copy(v);
      wm = m;
      if (!w) {
        VM_CHECK(th::failure_injected());
        return;
      }
      VM_CHECK(w->flags == 0 && w->nAlloc == grown(n, true));
      same(w, wm);
    }
  }

  // x holds exactly the elements want, read in bulk, and counts its
  // memory by its capacity.
  void same(const sc_vector *x, const Elements &want) {
    std::string all(size_t(x->nElements) * esize, '\0');
    sc_vector_get_all(x, all.data());
    VM_CHECK(x->nElements == want.size() &&
             all == std::accumulate(want.begin(), want.end(), std::string()));
    VM_CHECK(sc_vector_memory_usage(x) ==
             sizeof(sc_vector) + size_t(x->nAlloc) * esize);
  }
  void check() {
    same(v, m);
    VM_CHECK(v->nAlloc == cap);
    VM_CHECK(bool(v->flags & SC_VECTOR_SORTED) == sorted &&
             bool(v->flags & SC_VECTOR_NOGROW) == no_grow);
  }
};

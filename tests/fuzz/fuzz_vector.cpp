// The vector against a std::vector of byte strings: every constructor,
// additions (also of its own elements), reads, appends (also to itself),
// compaction, sorting, both de-duplications, copies and bulk reads, with
// growth factors that include the one that refuses to grow.
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "sc_vector.h"

namespace {

using Bytes = std::string;
using Model = std::vector<Bytes>;

// Orders elements by their bytes, highest first.
int descending(const void *a, const void *b, void *v) {
  return -memcmp(a, b, static_cast<sc_vector *>(v)->elementSize);
}

Bytes element(const sc_vector *v, uint32_t i) {
  return Bytes(
      static_cast<const char *>(v->elements) + size_t(i) * v->elementSize,
      v->elementSize);
}

// The vector holds exactly the model's elements, within its capacity.
void same(const sc_vector *v, const Model &m) {
  FUZZ_CHECK(v->nElements == m.size() && v->nElements <= v->nAlloc);
  for (uint32_t i = 0; i < v->nElements; ++i) FUZZ_CHECK(element(v, i) == m[i]);
  FUZZ_CHECK(sc_vector_memory_usage(v) ==
             sizeof(sc_vector) + v->nAlloc * v->elementSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  uint32_t esize = in.ConsumeIntegralInRange<uint32_t>(0, 9);
  uint32_t initial = in.ConsumeIntegralInRange<uint32_t>(0, 20);
  int factor = in.ConsumeBool() ? 65536 : in.ConsumeIntegralInRange(0, 200);
  int how = in.ConsumeIntegralInRange(0, 3);
  th::Ctx ctx(64);
  fuzz::begin(in);
  sc_vector *v = how == 0   ? sc_vector_construct(initial, esize, factor)
                 : how == 1 ? sc_vector_szconstruct(ctx, initial, esize, factor)
                 : how == 2
                     ? sc_vector_construct_no_grow(initial, esize)
                     : sc_vector_szconstruct_no_grow(ctx, initial, esize);
  // A record from the context goes back through __sc_kfree.
  auto done = [] {
    long records = 0;
    for (auto &b : th::blocks()) records += b.alloc == th::Alloc::szalloc;
    th::expect_sz_released_by_kfree(records);
    fuzz::end();
    return 0;
  };
  if (!v) {
    FUZZ_CHECK(fuzz::failed());
    return done();
  }
  const bool no_grow = how >= 2;
  Model m;
  bool sorted = false;
  auto bytes = [&] {
    Bytes b = in.ConsumeBytesAsString(esize);
    return b.resize(esize), b;  // short at the input's end
  };
  // An addition fails only when full with no room to grow, or out of memory.
  auto may_refuse = [&](const sc_vector *d) {
    bool full = d->nElements == d->nAlloc;
    return fuzz::failed() ||
           (full && ((d->flags & 2) || (d->elements && !d->resizeFactor)));
  };
  sc_vector *w = nullptr;  // a second vector: a copy, appended from
  while (in.remaining_bytes() > 0) {
    uint32_t i = in.ConsumeIntegralInRange<uint32_t>(0, uint32_t(m.size()) + 1);
    switch (in.ConsumeIntegralInRange(0, 9)) {
      case 0:
      case 1: {
        bool own = i < m.size() && in.ConsumeBool();
        Bytes e = own ? m[i] : bytes();
        const void *from =
            own ? static_cast<char *>(v->elements) + size_t(i) * esize
                : e.data();
        if (sc_vector_add(v, from) == 0) {
          m.push_back(e);
          sorted = false;
        } else {
          FUZZ_CHECK(may_refuse(v));
        }
        break;
      }
      case 2: {
        void *out = &out;
        bool ok = sc_vector_get(v, i, &out) == 0;
        FUZZ_CHECK(ok == (i < m.size()));
        FUZZ_CHECK(ok ? out ==
                            static_cast<char *>(v->elements) + size_t(i) * esize
                      : out == &out);
        break;
      }
      case 3: {
        // Elements as they are at the call; those added before a failure
        // stay. Appending to itself doubles the vector, so only up to a
        // size that keeps the fuzzer's memory small.
        sc_vector *src = w && in.ConsumeBool() ? w : v;
        if (src->nElements + m.size() > 4096) break;
        Model add;
        for (uint32_t k = 0; k < src->nElements; ++k)
          add.push_back(element(src, k));
        size_t was = m.size();
        int r = sc_vector_append(v, src);
        size_t got = v->nElements - was;
        FUZZ_CHECK(got <= add.size() && (r == 0) == (got == add.size()));
        if (r) FUZZ_CHECK(may_refuse(v));
        m.insert(m.end(), add.begin(), add.begin() + got);
        sorted &= got == 0;
        break;
      }
      case 4:
        if (sc_vector_compact(v) == 0)
          FUZZ_CHECK(v->nAlloc == m.size() && (m.size() || !v->elements));
        else
          FUZZ_CHECK(fuzz::failed());
        break;
      case 5: {
        bool down = in.ConsumeBool();
        sc_vector_sort(v, down ? descending : nullptr);
        std::sort(m.begin(), m.end());
        if (down) std::reverse(m.begin(), m.end());
        sorted = true;
        break;
      }
      case 6: {
        bool down = in.ConsumeBool();
        sc_vector_unique(v, down ? descending : nullptr);
        if (m.size() < 2) break;  // nothing changes, not even the flag
        if (!sorted) {
          std::sort(m.begin(), m.end());
          if (down) std::reverse(m.begin(), m.end());
        }
        m.erase(std::unique(m.begin(), m.end()), m.end());
        sorted = true;
        break;
      }
      case 7: {
        sc_vector_remove_dup(v);
        Model kept;
        for (auto &e : m)
          if (std::find(kept.begin(), kept.end(), e) == kept.end())
            kept.push_back(e);
        m = kept;
        break;
      }
      case 8: {
        sc_vector_destruct(w);
        w = sc_vector_copy(v);
        if (!w) {
          FUZZ_CHECK(fuzz::failed());
          break;
        }
        same(w, m);
        FUZZ_CHECK(w->flags == 0);
        break;
      }
      default: {
        Bytes all(m.size() * esize, '\0');
        sc_vector_get_all(v, all.data());
        Bytes want;
        for (auto &e : m) want += e;
        FUZZ_CHECK(all == want);
      }
    }
    same(v, m);
    FUZZ_CHECK(bool(v->flags & 1) == sorted && bool(v->flags & 2) == no_grow);
    if (fuzz::failed()) th::fail_nth(0);  // one failure per input
  }
  sc_vector_destruct(w);
  sc_vector_destruct(v);
  return done();
}

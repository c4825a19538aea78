// Random operation sequences checked against a plain reference model, for
// element sizes on and off the addressing fast path.
#include <algorithm>
#include <random>

#include "vector_support.h"

namespace {

using VectorModel = HostTest;
using Elem = std::string;  // one element's bytes

struct Model {
  std::vector<Elem> elems;
  uint32_t nAlloc = 0;
  uint32_t factor;
  bool sorted = false;

  void add(const Elem &e) {
    const uint64_t wanted = elems.size() + 1;
    if (wanted > nAlloc) nAlloc = uint32_t((factor + 100) * wanted / 100);
    elems.push_back(e);
    sorted = false;
  }
  void sort() {
    std::sort(elems.begin(), elems.end());  // bytes compared as unsigned
    sorted = true;
  }
};

void expect_same(sc_vector *v, const Model &m) {
  ASSERT_EQ(v->nElements, m.elems.size());
  EXPECT_EQ(v->nAlloc, m.nAlloc);
  EXPECT_EQ((v->flags & SC_VECTOR_SORTED) != 0, m.sorted);
  Elem all(v->nElements * v->elementSize, '\0');
  sc_vector_get_all(v, all.data());
  Elem want;
  for (const Elem &e : m.elems) want += e;
  ASSERT_EQ(all, want);
}

TEST_F(VectorModel, RandomOperationsMatchTheReference) {
  std::mt19937 rng(20261122);
  for (uint32_t size : {0u, 1u, 2u, 3u, 4u, 5u, 8u, 12u, 16u, 24u}) {
    SCOPED_TRACE(size);
    const int factors[] = {0, 1, 25, 100, 300};
    Model m{{}, 0, 0};
    const int f = factors[rng() % 5];
    m.factor = f ? f : 50;
    const uint32_t initial = rng() % 4;
    sc_vector *v = sc_vector_construct(initial, size, f);
    ASSERT_TRUE(v);
    m.nAlloc = (m.factor + 100) * initial / 100;
    auto random_elem = [&] {
      Elem e(size, '\0');
      for (char &c : e) c = char(rng() % 3 * 0x7f);  // few distinct values
      return e;
    };
    for (int step = 0; step < 1500; step++) {
      switch (rng() % 16) {
        case 0: {  // appending to itself doubles the contents once
          if (m.elems.size() > 200) break;
          ASSERT_EQ(sc_vector_append(v, v), 0);
          const std::vector<Elem> before = m.elems;
          for (const Elem &e : before) m.add(e);
          break;
        }
        case 1: {  // a copy holds the same elements
          sc_vector *c = sc_vector_copy(v);
          ASSERT_TRUE(c);
          Model mc{m.elems, uint32_t((m.factor + 100) * m.elems.size() / 100),
                   m.factor};
          expect_same(c, mc);
          sc_vector_destruct(c);
          break;
        }
        case 2:
          ASSERT_EQ(sc_vector_compact(v), 0);
          m.nAlloc = uint32_t(m.elems.size());
          break;
        case 3:
          sc_vector_sort(v, nullptr);
          m.sort();
          break;
        case 4:
          sc_vector_unique(v, nullptr);
          if (m.elems.size() >= 2) {
            if (!m.sorted) m.sort();
            m.elems.erase(std::unique(m.elems.begin(), m.elems.end()),
                          m.elems.end());
          }
          break;
        case 5: {
          sc_vector_remove_dup(v);
          std::vector<Elem> kept;
          for (const Elem &e : m.elems)
            if (std::find(kept.begin(), kept.end(), e) == kept.end())
              kept.push_back(e);
          m.elems = kept;
          break;
        }
        case 6: {
          const uint32_t i = rng() % (m.elems.size() + 2);
          void *p = nullptr;
          __sc_debug_level = 0;
          const int r = sc_vector_get(v, i, &p);
          __sc_debug_level = 2;
          ASSERT_EQ(r, i < m.elems.size() ? 0 : -1);
          if (r == 0) {
            EXPECT_EQ(Elem(static_cast<char *>(p), size), m.elems[i]);
          }
          break;
        }
        default: {
          const Elem e = random_elem();
          ASSERT_EQ(sc_vector_add(v, e.data()), 0);
          m.add(e);
        }
      }
      expect_same(v, m);
      if (HasFatalFailure()) return;
    }
    sc_vector_destruct(v);
  }
  EXPECT_TRUE(th::diags().empty());
}

}  // namespace

// Random operation sequences checked against a plain reference model, for
// element sizes on and off the addressing fast path.
#include <algorithm>
#include <random>

#include "vector_support.h"

namespace {

using VectorModel = HostTest;
using Elems = std::vector<std::string>;  // each string one element's bytes

struct Model {
  Elems elems;
  uint32_t factor, nAlloc;
  bool sorted = false;

  void add(const std::string &e) {
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
  std::string all(v->nElements * v->elementSize, '\0'), want;
  sc_vector_get_all(v, all.data());
  for (const std::string &e : m.elems) want += e;
  ASSERT_EQ(all, want);
}

TEST_F(VectorModel, RandomOperationsMatchTheReference) {
  std::mt19937 rng(20261122);
  for (uint32_t size : {0, 1, 2, 3, 4, 5, 8, 12, 16, 24}) {
    SCOPED_TRACE(size);
    const int f = std::vector<int>{0, 1, 25, 100, 300}[rng() % 5];
    const uint32_t initial = rng() % 4;
    Model m{{}, f ? uint32_t(f) : 50, 0};
    m.nAlloc = (m.factor + 100) * initial / 100;
    sc_vector *v = sc_vector_construct(initial, size, f);
    for (int step = 0; step < 1500 && !HasFatalFailure(); step++) {
      switch (rng() % 14) {
        case 0: {  // appending to itself doubles the contents once
          if (m.elems.size() > 200) break;
          ASSERT_EQ(sc_vector_append(v, v), 0);
          for (const std::string &e : Elems(m.elems)) m.add(e);
          break;
        }
        case 1:
          ASSERT_EQ(sc_vector_compact(v), 0);
          m.nAlloc = uint32_t(m.elems.size());
          break;
        case 2:
          sc_vector_sort(v, nullptr);
          m.sort();
          break;
        case 3:
          sc_vector_unique(v, nullptr);
          if (m.elems.size() < 2) break;
          if (!m.sorted) m.sort();
          m.elems.erase(std::unique(m.elems.begin(), m.elems.end()),
                        m.elems.end());
          break;
        case 4: {
          sc_vector_remove_dup(v);
          Elems kept;
          for (const std::string &e : m.elems)
            if (std::find(kept.begin(), kept.end(), e) == kept.end())
              kept.push_back(e);
          m.elems = kept;
          break;
        }
        case 5: {
          const uint32_t i = rng() % (m.elems.size() + 2);
          void *p = nullptr;
          __sc_debug_level = 0;
          const int r = sc_vector_get(v, i, &p);
          __sc_debug_level = 2;
          ASSERT_EQ(r, i < m.elems.size() ? 0 : -1);
          if (r == 0) {
            EXPECT_EQ(std::string(static_cast<char *>(p), size), m.elems[i]);
          }
          break;
        }
        default: {
          std::string e(size, '\0');
          for (char &c : e) c = char(rng() % 3 * 0x7f);  // few distinct values
          ASSERT_EQ(sc_vector_add(v, e.data()), 0);
          m.add(e);
        }
      }
      expect_same(v, m);
    }
    sc_vector_destruct(v);
  }
  EXPECT_TRUE(th::diags().empty());
}

}  // namespace

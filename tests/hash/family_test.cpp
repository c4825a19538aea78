// Behaviour the three tables share, run against each of them.
#include <algorithm>
#include <map>

#include "families.h"

namespace ht {
namespace {

TYPED_TEST_SUITE(FamilyTest, Families);

// Random operation sequences checked against a reference map: contents,
// lookups, chains, walk order, element count and value-destructor calls,
// with injected allocation failures along the way.
TYPED_TEST(FamilyTest, RandomOperationsMatchAReferenceMap) {
  for (unsigned seed = 1; seed <= 4; seed++) {
    destroyed().clear();
    std::mt19937 rng(seed);
    struct Entry {
      Bytes value;
      uint64_t seq;  // walk position within a bucket (or the whole list)
    };
    std::map<Bytes, Entry> model;
    uint64_t seq = 0, stored = 0;
    auto random_bytes = [&](size_t max_len) {
      Bytes s(rng() % (max_len + 1), '\0');
      for (char &c : s) c = "ab\0\xff"[rng() % 4];
      return s;
    };
    {
      TypeParam f;
      auto check = [&] {
        std::vector<std::pair<std::pair<uint64_t, uint64_t>, Bytes>> order;
        for (auto &[k, e] : model)
          order.push_back({{TypeParam::kListOrder ? 0 : f.index(k), e.seq},
                           k + "=" + e.value});
        std::sort(order.begin(), order.end());
        S expect;
        for (auto &o : order) expect.push_back(o.second);
        EXPECT_EQ(f.walk(), expect) << "seed " << seed;
        EXPECT_EQ(f.chains().size(), model.size());
      };
      for (int step = 0; step < 3000; step++) {
        Bytes key = random_bytes(6);
        auto it = model.find(key);
        uint32_t op = rng() % 10;
        if (op < 5) {
          Bytes v = random_bytes(9);
          bool fail = rng() % 8 == 0;
          if (fail) th::fail_nth(1);
          ASSERT_EQ(f.insert(key, v, rng() % (v.size() + 1)), !fail);
          if (fail) continue;
          stored++;
          if (it == model.end()) {
            model[key] = Entry{v, seq++};
            continue;
          }
          EXPECT_EQ(destroyed().back(), it->second.value);
          it->second.value = v;
          if (TypeParam::kListOrder) it->second.seq = seq++;
        } else if (op < 7) {
          EXPECT_EQ(f.erase(key), it != model.end());
          if (it == model.end()) continue;
          EXPECT_EQ(destroyed().back(), it->second.value);
          model.erase(it);
        } else if (op < 9) {
          EXPECT_EQ(f.find(key), it == model.end()
                                     ? std::nullopt
                                     : std::optional<Bytes>(it->second.value));
        } else if (rng() % 8 == 0) {
          TypeParam::delete_all(f.t);
          model.clear();
        } else if (rng() % 8 == 0) {
          S before = f.walk();
          EXPECT_EQ(f.walk(true), before);
          model.clear();
        } else {
          f.resize(rng);
        }
        ASSERT_EQ(f.size(), model.size());
        ASSERT_EQ(destroyed().size(), stored - model.size());
        if (step % 100 == 0) check();
      }
      check();
    }
    EXPECT_EQ(destroyed().size(), stored);  // destruct released the rest
  }
}

TYPED_TEST(FamilyTest, BucketCountsAndRefusedHints) {
  const uint32_t cases[][2] = {
      {0, 1}, {1, 1}, {3, 4}, {1024, 1024}, {1025, 2048}};
  for (auto &c : cases) {
    auto *t = TypeParam::make(c[0]);
    ASSERT_TRUE(t);
    EXPECT_EQ(t->n_buckets, c[1]);
    TypeParam::destroy(t);
  }
  // An array that would not fit a 32-bit size is refused before allocating.
  th::reset();
  const uint32_t too_big = uint32_t((1ull << 31) / sizeof(void *) + 1);
  EXPECT_EQ(TypeParam::make(too_big), nullptr);
  EXPECT_EQ(th::alloc_attempts(), 0);
  EXPECT_EQ(th::diag_text(), std::string(TypeParam::kName) +
                                 "_construct: bucket count " + num(too_big) +
                                 " too large\n");
}

TYPED_TEST(FamilyTest, DumpAndCorruptedElement) {
  using F = TypeParam;
  F f;
  __sc_debug_level = 0;  // dumps ignore the debug level
  F::dump(f.t);
  EXPECT_EQ(th::console(), "hash " + F::addr(f.t) + ":\n");
  th::clear_output();
  const Bytes odd_key("\0\0", 2);
  f.insert(odd_key, "cd", 1);                   // bucket 0
  f.insert("\1\2\3\4", "\xde\xad\xbe\xef", 2);  // bucket 3
  auto *odd = f.element(odd_key);
  F::dump(f.t);
  EXPECT_EQ(th::console(), "hash " + F::addr(f.t) + ":\n  elp " + F::addr(odd) +
                               ": ksz or vsz != 4!\n  elp " +
                               F::addr(f.element("\1\2\3\4")) +
                               ": key=01020304, val=deadbeef\n");

  // An element on no chain is reported and left where it is.
  __sc_debug_level = 2;
  auto *pprev = odd->pprev;
  odd->pprev = nullptr;
  F::remove(odd);
  EXPECT_EQ(th::diag_text(), std::string(F::kName) +
                                 "_internal_delete: corrupted bucket " +
                                 F::addr(odd) + "\n");
  EXPECT_EQ(f.walk().size(), 2u);
  EXPECT_TRUE(destroyed().empty());
  odd->pprev = pprev;
}

TYPED_TEST(FamilyTest, EveryAllocationFailureIsReportedAndUndone) {
  using F = TypeParam;
  EXPECT_EQ(failure_texts(F::kModule,
                          [](auto arm) {
                            arm();
                            auto *t = F::make(8);
                            EXPECT_EQ(t == nullptr, th::failure_injected());
                            F::destroy(t);
                          }),
            F::construct_failures(8));
  // A failed replacement leaves the old element and calls no destructor.
  EXPECT_EQ(failure_texts(F::kModule,
                          [](auto arm) {
                            F f;
                            f.insert("key", "old", 3);
                            S before = f.chains();
                            destroyed().clear();
                            arm();
                            bool ok = f.insert("key", "new!", 3);
                            EXPECT_EQ(ok, !th::failure_injected());
                            if (ok) return;
                            EXPECT_EQ(f.chains(), before);
                            EXPECT_TRUE(destroyed().empty());
                          }),
            S{F::insert_failure(4 + 4)});
  EXPECT_EQ(failure_texts(F::kModule,
                          [](auto arm) {
                            F f;
                            arm();
                            bool ok = f.iter_works();
                            EXPECT_EQ(ok, !th::failure_injected());
                          }),
            S{F::iter_failure()});
}

}  // namespace
}  // namespace ht

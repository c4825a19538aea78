// The chained tables: what they share, run against each, then each alone.
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "families.h"
#include "hash/key_hash.h"
#include "hash_model.h"
#include "test_host.h"

namespace {

using ht::Bytes, ht::Hash, ht::Ohash, ht::Khash, ht::destroyed, ht::image;
using S = std::vector<std::string>;
std::string num(size_t n) { return std::to_string(n); }
#define D(s) (s).data(), uint32_t((s).size())

// Fails each allocation after arm() in turn: the diagnostics of every failing
// run (another module's prefixed "[module] "); th::sweep checks for leaks.
template <class Body>
S failure_texts(const std::string &module, Body body) {
  S out;
  th::sweep([&](long k) {
    th::fail_nth(0);  // nothing fails before the body arms the k-th
    body([k] {
      th::clear_output();
      th::fail_nth(k);
    });
    std::string all;
    for (const th::Diag &d : th::diags())
      all += (d.file != module ? "[" + d.file + "] " : "") + d.text;
    if (th::failure_injected()) out.push_back(all);
  });
  return out;
}

// An address as dumps and messages print it.
template <class F>
std::string addr(const void *p) {
  char s[32];
  snprintf(s, sizeof s, "%s%zx", F::kSz ? "0x" : "", size_t(p));
  return s;
}

template <class>
class FamilyTest : public HostTest {};
using Families = ::testing::Types<Hash, Ohash, Khash>;
TYPED_TEST_SUITE(FamilyTest, Families);

// Random operations against the model shared with the fuzz target.
TYPED_TEST(FamilyTest, RandomOperationsMatchTheModel) {
  std::mt19937 rng(1);
  HashModel<TypeParam> m(
      TypeParam::make(8), [&](uint32_t n) { return uint32_t(rng() % n); },
      [](const char *what, int line) {
        ADD_FAILURE_AT("hash_model.h", line) << what;
      });
  for (int step = 0; step <= 12000 && !this->HasFailure(); step++) {
    m.step();
    m.check();
  }
}

// The dump prints every element (ignoring the debug level), and deleting an
// element that is on no chain is reported and leaves it alone.
TYPED_TEST(FamilyTest, DumpAndCorruptedElement) {
  using F = TypeParam;
  ht::Table<F> f;
  __sc_debug_level = 0;
  F::debug(f.t);
  f.insert(Bytes(2, '\0'), "cd", 1);            // bucket 0
  f.insert("\1\2\3\4", "\xde\xad\xbe\xef", 2);  // bucket 3
  auto *odd = f.element(Bytes(2, '\0'));
  F::debug(f.t);
  const std::string head = "hash " + addr<F>(f.t) + ":\n";
  EXPECT_EQ(th::console(), head + head + "  elp " + addr<F>(odd) +
                               ": ksz or vsz != 4!\n  elp " +
                               addr<F>(f.element("\1\2\3\4")) +
                               ": key=01020304, val=deadbeef\n");
  __sc_debug_level = 2;
  odd->pprev = nullptr;
  F::internal_delete(odd);
  odd->pprev = &f.t->buckets[0];
  EXPECT_EQ(th::diag_text(), F::name + std::string("_internal_delete: ") +
                                 "corrupted bucket " + addr<F>(odd) + "\n");
}

// Each allocation of construction (sc_khash's array on both sides of its
// limit), replacement, iteration, serialisation and resizing fails in turn,
// undone.
TYPED_TEST(FamilyTest, EveryAllocationFailureIsReportedAndUndone) {
  using F = TypeParam;
  const std::string sz = F::kSz ? "sc_szalloc(" : "sc_malloc(", x = ") failed";
  const uint32_t bytes = 8 * sizeof(void *);
  S made = {
      F::name + ("_construct: " + sz) + num(sizeof(typename F::table)) + x,
      F::name + ("_construct: " + (F::kSz ? "sc_kmalloc(" : sz)) + num(bytes) +
          x + "\n"};
  if (F::kListOrder)
    made.push_back("[lib/re/ds/src/sc_elist] sc_elist_construct[tbl]: " + sz +
                   num(sizeof(sc_elist)) + x + "\n");
  for (uint32_t limit : {bytes, bytes + 1}) {
    th::Ctx ctx(limit);
    auto array =
        F::kSz && limit > bytes ? th::Alloc::szalloc : th::Alloc::kmalloc;
    auto make = [&](auto arm) {
      arm();
      auto *t = F::make(8, &ctx);
      EXPECT_TRUE(t ? th::blocks()[1].alloc == array : th::failure_injected());
      F::destruct(t);
    };
    EXPECT_EQ(failure_texts(F::kModule, make), made);
  }
  const std::string iter = F::name + ("_iter_construct: " + sz) +
                           num(sizeof(typename F::iter)) + x,
                    calloc = ", " + num(sizeof(void *)) + x + "\n",
                    ser = iter + "sc_hash_serialize: sc_hash_iter_construct(" +
                          x + "\n";
  const size_t element = sizeof(typename F::element) + 4 + 4;
  using Op = std::function<bool(ht::Table<F> &)>;
  std::vector<std::pair<Op, S>> cases = {
      {[](ht::Table<F> &f) { return f.insert("bb", "new!", 2); },
       {F::name + ("_internal_insert: " + sz) + num(element) + x}},
      {[](ht::Table<F> &f) { return f.walk() != S{"<no iterator>"}; }, {iter}}};
  if constexpr (F::kListOrder) {
    cases.push_back({[](ht::Table<F> &f) { return !sc_ohash_grow(f.t, 0); },
                     {"sc_ohash_grow: sc_calloc(16" + calloc}});
    cases.push_back({[](ht::Table<F> &f) { return !sc_ohash_shrink(f.t, 2); },
                     {"sc_ohash_grow: sc_calloc(2" + calloc}});
  }
  if constexpr (std::is_same_v<F, Hash>)
    cases.push_back({[](ht::Table<F> &f) { return image(f.t).has_value(); },
                     {ser, "sc_hash_serialize: sc_malloc(36" + x + "\n", ser}});
  for (auto &[op_, texts] : cases) {
    auto &op = op_;  // a lambda may not capture a structured binding in C++20
    auto run = [&](auto arm) {
      ht::Table<F> f;
      for (const char *k : {"a", "bb", "ccc"}) f.insert(k, k, 1);
      S chains = f.chains(), walk = f.walk();
      destroyed.clear();
      arm();
      bool ok = op(f);
      EXPECT_EQ(ok, !th::failure_injected());
      EXPECT_TRUE(ok || (f.chains() == chains && f.walk() == walk &&
                         destroyed.empty()));
    };
    EXPECT_EQ(failure_texts(F::kModule, run), texts);
  }
}

using HashTest = HostTest;
// Bucket indexes, keys at every address remainder modulo 4, hints rounded up.
// sc_khash leaves keys of up to 3 bytes unfolded.
TEST_F(HashTest, KnownIndexes) {
  const struct {
    Bytes key;
    uint32_t hint, folded, unfolded;
  } rows[] = {{"\1\2\3\4", 0, 0, 0},
              {"\1\2\3\4", 1000, 819, 819},
              {"hellp", 65536, 60286, 60286},
              {Bytes("\x0a\0\0\1", 4), 1048576, 492546, 492546},
              {"\7", 3, 0, 3},
              {"\7", 1048576, 458752, 458759},
              {"\1\2", 16, 0, 3}};
  alignas(4) char buf[12];
  for (const auto &x : rows) {
    const char *key =
        static_cast<char *>(memcpy(buf + (&x - rows) % 4, D(x.key)));
    sc_hash *h = sc_hash_construct(x.hint, nullptr);
    sc_ohash *o = sc_ohash_construct(x.hint, "o", nullptr);
    sc_khash *k = sc_khash_construct(x.hint, &Khash::ctx, nullptr);
    EXPECT_EQ(sc_hash_hash(h, key, x.key.size()), x.folded) << x.key;
    EXPECT_EQ(sc_ohash_hash(o, key, x.key.size()), x.folded) << x.key;
    EXPECT_EQ(sc_khash_findp(k, key, x.key.size()) - k->buckets, x.unfolded)
        << x.key;
    sc_hash_destruct(h);
    sc_ohash_destruct(o);
    sc_khash_destruct(k);
  }
}

TEST_F(HashTest, SerializedImageFollowsTheWalk) {
  ht::Table<Hash> f;
  EXPECT_EQ(image(f.t), "");
  f.insert("a", "xyz", 3);
  EXPECT_EQ(image(f.t), Bytes("\1\0\0\0a\3\0\0\0xyz", 12));
  f.insert("wxyz", Bytes(300, 'q'), 0);  // bucket 2, after bucket 0
  EXPECT_EQ(image(f.t),
            Bytes("\1\0\0\0a\3\0\0\0xyz\4\0\0\0wxyz\x2c\1\0\0", 24) +
                Bytes(300, 'q'));
}

// Refusals: the failure result and one diagnostic each, before any
// allocation.
TEST_F(HashTest, RefusalsComeBeforeAnyAllocation) {
  ht::Table<Ohash> o;
  ht::Table<Khash> k;
  const Bytes big(65536, 'k');
  const uint32_t most = uint32_t((1ull << 31) / sizeof(void *));
  const long attempts = th::alloc_attempts();
  EXPECT_FALSE(Hash::make(most + 1));  // the bucket array's size
  EXPECT_FALSE(Ohash::make(most + 1));
  EXPECT_FALSE(Khash::make(most + 1));
  EXPECT_FALSE(sc_ohash_internal_insert(o.t, "k", 1, "v", 1, nullptr, 1));
  EXPECT_TRUE(sc_ohash_shrink(o.t, 0));
  EXPECT_TRUE(sc_ohash_shrink(o.t, 96));
  o.t->n_buckets = most;  // cannot double
  EXPECT_TRUE(sc_ohash_grow(o.t, 0));
  o.t->n_buckets = 8;
  EXPECT_FALSE(sc_khash_internal_insert(k.t, D(big), "v", 1, 0, 0));
  EXPECT_FALSE(sc_khash_internal_insert(k.t, "k", 1, 0, 65535, "x", 1));
  EXPECT_FALSE(sc_khash_internal_insert(k.t, "k", 1, "v", 1, nullptr, 1));
  EXPECT_EQ(th::alloc_attempts(), attempts);
  EXPECT_EQ(th::diags().size(), 10u);
}

// sc_khash stores its largest key and value, and its walk restarts (but
// not without a table) and ends on destruction, null included.
TEST_F(HashTest, KhashLargestSizesAndWalkRestart) {
  ht::Table<Khash> k;
  const Bytes big(65536, 'k');
  sc_khash_internal_insert(k.t, D(big) - 1, D(big) - 5, "xxxx", 4);
  EXPECT_EQ(k.find(big.substr(1)), big.substr(5) + "xxxx");
  sc_khash_iter *it = sc_khash_iter_construct(k.t);
  const S order = k.walk(it);
  ASSERT_EQ(sc_khash_iter_reinit(it), 0);
  EXPECT_EQ(k.walk(it), order);
  sc_khash_iter blank{};  // no table
  EXPECT_EQ(sc_khash_iter_reinit(nullptr), -1);
  EXPECT_EQ(sc_khash_iter_reinit(&blank), -2);
  EXPECT_FALSE(blank.next_element);
  sc_khash_iter_destruct(it);
  sc_khash_iter_destruct(nullptr);
  sc_khash_destruct(nullptr);
}

}  // namespace

// The chained tables: what they share, run against each, then each alone.
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "families.h"
#include "hash/key_hash.h"
#include "test_host.h"

namespace {

using ht::Bytes, ht::Hash, ht::Ohash, ht::Khash, ht::destroyed;
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

// A table of family F with what the tests read back from it.
template <class F>
struct Family : ht::Table<F> {
  using ht::Table<F>::Table;
  using ht::Table<F>::t;
  using ht::Table<F>::find;

  uint32_t index(std::string_view k) {
    constexpr auto fold =
        F::kSz ? vds::hash::Fold::kLongKeys : vds::hash::Fold::kAlways;
    return vds::hash::key_hash<fold>(D(k)) & (t->n_buckets - 1);
  }
  // key=value by `it` or a new iterator; each(key) may delete the element
  // just delivered. Once exhausted, a walk returns -1 and writes nothing.
  S walk(typename F::iter *it = nullptr, std::function<void(Bytes)> each = {}) {
    typename F::iter *w = it ? it : F::iter_construct(t);
    if (!w) return {"<no iterator>"};
    S out;
    void *k, *v;
    uint32_t ksz, vsz;
    for (Bytes key; F::iter_next(w, &k, &ksz, &v, &vsz) == 0;) {
      key.assign(static_cast<char *>(k), ksz);
      out.push_back(key + "=" + Bytes(static_cast<char *>(v), vsz));
      if (each) each(key);
    }
    void *const untouched = &k;  // an exhausted walk must not write the key
    k = untouched;
    EXPECT_EQ(F::iter_next(w, &k, 0, 0, 0), -1);
    EXPECT_EQ(k, untouched);
    if (!it) F::iter_destruct(w);
    return out;
  }
  // key=value in chain order, bucket by bucket, checking each element's
  // pprev, table and bucket, and nelements.
  S chains() {
    S out;
    for (uint32_t b = 0; b < t->n_buckets; b++) {
      for (auto **link = &t->buckets[b]; *link; link = &(*link)->next) {
        Bytes k(reinterpret_cast<char *>(*link + 1), (*link)->ksz);
        EXPECT_TRUE((*link)->pprev == link && (*link)->table == t);
        EXPECT_EQ(index(k), b);
        out.push_back(k + "=" + find(k).value_or("<lost>"));
      }
    }
    EXPECT_EQ(out.size(), t->nelements);
    return out;
  }
};

// sc_hash's image; none when serialisation fails, which clears both outputs.
std::optional<Bytes> image(sc_hash *t) {
  void *buf = &buf;
  uint32_t len = 7;
  bool ok = sc_hash_serialize(t, &buf, &len) == 0;
  EXPECT_TRUE(ok ? buf != nullptr : buf == nullptr && len == 0);
  if (!ok) return std::nullopt;
  Bytes out(static_cast<char *>(buf), len);
  __sc_kfree(buf, len);
  return out;
}

template <class>
class FamilyTest : public HostTest {};
using Families = ::testing::Types<Hash, Ohash, Khash>;
TYPED_TEST_SUITE(FamilyTest, Families);

// Random operations against a reference map: lookups, chains, walk order and
// destructor calls, with erasing walks and (sc_ohash) resizing, also mid-walk.
TYPED_TEST(FamilyTest, RandomOperationsMatchAReferenceMap) {
  using F = TypeParam;
  std::mt19937 rng(1);
  struct Entry {
    Bytes value;
    uint64_t chain, list;  // positions on its chain and on the list
  };
  std::map<Bytes, Entry> model;
  std::multiset<Bytes> gone;  // values that left the table
  uint64_t seq = 0;
  auto bytes = [&](Bytes s = "") {
    for (int n = rng() % 10; n--;) s += "ab\0\xff"[rng() % 4];
    return s;
  };
  auto leave = [&](auto it) {
    gone.insert(it->second.value);
    model.erase(it);
  };
  destroyed.clear();
  Family<F> f;
  auto resize = [&] {
    if constexpr (F::kListOrder) {
      uint32_t was = f.t->n_buckets, to = 1u << rng() % 6, min = rng() % 200;
      bool grow = rng() % 2, up = model.size() * 100 / was >= min;
      ASSERT_EQ(grow ? sc_ohash_grow(f.t, min) : sc_ohash_shrink(f.t, to), 0);
      ASSERT_EQ(f.t->n_buckets, grow ? was << up : std::min(was, to));
      if (f.t->n_buckets != was)  // rebuilt: every chain in list order
        for (auto &kv : model) kv.second.chain = kv.second.list;
    }
  };
  auto expect = [&](bool list_order) {
    std::map<std::pair<uint64_t, uint64_t>, Bytes> rows;
    for (auto &[k, e] : model)
      rows[{list_order ? 0 : f.index(k), list_order ? e.list : e.chain}] =
          k + "=" + e.value;
    S out;
    for (auto &r : rows) out.push_back(r.second);
    return out;
  };
  auto erase_each = [&](const Bytes &k) {  // checked by the count below
    f.erase(k);
    leave(model.find(k));
    resize();
  };
  for (int step = 0; step <= 12000; step++) {
    Bytes key = bytes(), v = bytes();
    if (!model.empty() && rng() % 2)
      key = std::next(model.begin(), rng() % model.size())->first;
    auto it = model.find(key);
    const bool present = it != model.end();
    uint32_t op = rng() % 10, r = rng() % 24;
    if (op < 5) {
      ASSERT_TRUE(f.insert(key, v, rng() % (v.size() + 1)));
      if (present) gone.insert(it->second.value);
      Entry &e = model.try_emplace(key, Entry{v, seq, 0}).first->second;
      e.value = v;  // a replaced key keeps its chain place
      e.list = seq++;
    } else if (op < 7) {
      EXPECT_EQ(f.erase(key), present);
      if (present) leave(it);
    } else if (op < 9) {
      EXPECT_EQ(f.find(key),
                present ? std::optional(it->second.value) : std::nullopt);
    } else if (r == 0) {
      S order = expect(F::kListOrder);
      EXPECT_EQ(f.walk(nullptr, erase_each), order);
    } else {
      resize();
    }
    ASSERT_EQ(destroyed.size(), gone.size());
    if (step % 100) continue;
    EXPECT_EQ(f.chains(), expect(false));
    EXPECT_EQ(f.walk(), expect(F::kListOrder));
  }
  F::delete_all(f.t);  // then the table, empty, is destroyed
  while (!model.empty()) leave(model.begin());
  EXPECT_EQ(std::multiset<Bytes>(destroyed.begin(), destroyed.end()), gone);
}

// The dump prints every element (ignoring the debug level), and deleting an
// element that is on no chain is reported and leaves it alone.
TYPED_TEST(FamilyTest, DumpAndCorruptedElement) {
  using F = TypeParam;
  Family<F> f;
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
  using Op = std::function<bool(Family<F> &)>;
  std::vector<std::pair<Op, S>> cases = {
      {[](Family<F> &f) { return f.insert("bb", "new!", 2); },
       {F::name + ("_internal_insert: " + sz) + num(element) + x}},
      {[](Family<F> &f) { return f.walk() != S{"<no iterator>"}; }, {iter}}};
  if constexpr (F::kListOrder) {
    cases.push_back({[](Family<F> &f) { return !sc_ohash_grow(f.t, 0); },
                     {"sc_ohash_grow: sc_calloc(16" + calloc}});
    cases.push_back({[](Family<F> &f) { return !sc_ohash_shrink(f.t, 2); },
                     {"sc_ohash_grow: sc_calloc(2" + calloc}});
  }
  if constexpr (std::is_same_v<F, Hash>)
    cases.push_back({[](Family<F> &f) { return image(f.t).has_value(); },
                     {ser, "sc_hash_serialize: sc_malloc(36" + x + "\n", ser}});
  for (auto &[op_, texts] : cases) {
    auto &op = op_;  // a lambda may not capture a structured binding in C++20
    auto run = [&](auto arm) {
      Family<F> f;
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
  Family<Hash> f;
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
  Family<Ohash> o;
  Family<Khash> k;
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
  Family<Khash> k;
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

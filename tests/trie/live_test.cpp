// The live table against frozen tables compiled from the same prefix sets
// after every publish, its staging rules, its messages, its failures at
// every allocation point and when it gives blocks back.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "families.h"
#include "live_model.h"
#include "test_host.h"

namespace {

using tt::Addr;

template <class F>
class Live : public HostTest {};
TYPED_TEST_SUITE(Live, tt::both<::testing::Types>);

// Random sets (new data words, 0 among them), removals of present and
// absent prefixes and publishes after batches of 1 to 40 changes, drawn
// from a nested prefix set with the default route and host routes; the
// answers are checked after every publish. A batch of more than a few
// thousand changes and the pool's filling up take the path that compiles
// the whole table, the others rebuild what their changes touch.
template <class F>
void churn(tt::LiveModel<F> &m, std::mt19937 &rng, uint32_t pool_size,
           int publishes) {
  auto pool = tt::prefix_set<F>(rng, pool_size);
  std::vector<typename F::entry> removed;
  for (int p = 0; p < publishes; ++p) {
    int batch = 1 + int(rng() % 40);
    for (int i = 0; i < batch; ++i) {
      const auto &e = pool[rng() % pool.size()];
      Addr a = tt::addr<F>(e);
      if (rng() % 3 == 0) {
        bool held = m.holds(a, e.len);
        ASSERT_EQ(m.remove(a, e.len), held ? 0 : 1);
        if (held) removed.push_back(e);
      } else {
        ASSERT_EQ(m.set(a, e.len, rng() % 4 ? uint32_t(rng()) : 0), 0);
      }
    }
    ASSERT_EQ(m.publish(), 0);
    ASSERT_NO_FATAL_FAILURE(m.check(rng, removed));
    removed.clear();
  }
}

TYPED_TEST(Live, AnswersAsAFrozenTableOfThePublishedPrefixes) {
  using F = TypeParam;
  std::mt19937 rng(3);
  for (uint32_t miss : {0u, 0x5EEDu, 0xFFFFFFFFu}) {
    SCOPED_TRACE(::testing::Message() << "miss " << miss);
    tt::LiveModel<F> m(nullptr, miss);
    ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
    ASSERT_NO_FATAL_FAILURE(churn(m, rng, 400, 60));
    // One batch past the incremental path's limit, then churn on top.
    for (auto &e : tt::prefix_set<F>(rng, 6000))
      ASSERT_EQ(m.set(tt::addr<F>(e), e.len, e.data), 0);
    ASSERT_EQ(m.publish(), 0);
    ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
    ASSERT_NO_FATAL_FAILURE(churn(m, rng, 3000, 40));
  }
}

// Every length on one address, set and removed one at a time in both
// orders: each change ends in a different node of the same path.
TYPED_TEST(Live, PrefixesOfEveryLengthOnOnePath) {
  using F = TypeParam;
  std::mt19937 rng(11);
  tt::LiveModel<F> m(nullptr, 0x77);
  Addr a = tt::random_addr(rng);
  std::vector<typename F::entry> chain;
  for (uint32_t len = 0; len <= F::bits; ++len)
    chain.push_back(tt::entry<F>(tt::cut<F>(a, len), len, len % 5 ? len : 0));
  for (int order = 0; order < 2; ++order) {
    for (auto &e : chain) {
      ASSERT_EQ(m.set(tt::addr<F>(e), e.len, e.data + order), 0);
      ASSERT_EQ(m.publish(), 0);
      ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
    }
    std::reverse(chain.begin(), chain.end());
    for (auto &e : chain) {
      ASSERT_EQ(m.remove(tt::addr<F>(e), e.len), 0);
      ASSERT_EQ(m.publish(), 0);
      ASSERT_NO_FATAL_FAILURE(m.check(rng, {e}));
    }
  }
}

// Changes are invisible until published; size counts them at once;
// remove tells a prefix held (published or staged) from one that is not.
TYPED_TEST(Live, StagedChangesShowOnlyAfterPublish) {
  using F = TypeParam;
  typename F::live *t = F::live_construct(nullptr, 9, 1);
  ASSERT_NE(t, nullptr);
  Addr a = tt::cut<F>({0x0A000000}, 8), b = tt::cut<F>({0x0A010000}, 16);
  auto at = [&](const Addr &k) {
    return F::live_lookup(t, F::word_key(k.data()));
  };
  EXPECT_EQ(F::live_set(t, F::word_key(a.data()), 8, 1), 0);
  EXPECT_EQ(F::live_size(t), 1u);
  EXPECT_EQ(at(a), 9u);
  EXPECT_EQ(F::live_publish(t), 0);
  EXPECT_EQ(at(b), 1u);
  EXPECT_EQ(F::live_set(t, F::word_key(b.data()), 16, 2), 0);
  EXPECT_EQ(F::live_remove(t, F::word_key(b.data()), 16), 0);  // staged only
  EXPECT_EQ(F::live_remove(t, F::word_key(b.data()), 16), 1);
  EXPECT_EQ(F::live_remove(t, F::word_key(a.data()), 8), 0);
  EXPECT_EQ(F::live_size(t), 0u);
  EXPECT_EQ(at(b), 1u);
  EXPECT_EQ(F::live_publish(t), 0);
  EXPECT_EQ(at(b), 9u);
  EXPECT_EQ(F::live_publish(t), 0);  // nothing staged
  EXPECT_TRUE(th::diags().empty());
  EXPECT_EQ(F::live_memory_usage(t), th::live_bytes());
  F::live_destruct(t);
}

TYPED_TEST(Live, BadArgumentsAreReportedAndChangeNothing) {
  using F = TypeParam;
  const std::string module = tt::module<F>("_live");
  auto said = [&](const std::string &op, const std::string &text) {
    ASSERT_EQ(th::diags().size(), 1u);
    EXPECT_EQ(th::diags()[0].level, 2);
    EXPECT_EQ(th::diags()[0].file, module);
    EXPECT_EQ(th::diags()[0].text, tt::name<F>(op.c_str()) + ": " + text);
    th::clear_output();
  };
  EXPECT_EQ(F::live_construct(nullptr, 0, 0), nullptr);
  said("_live_construct", "max_readers is 0!\n");

  typename F::live *t = F::live_construct(nullptr, 0, 2);
  Addr a = tt::cut<F>({0x0A000000}, 8);
  const std::string width = std::to_string(F::bits);
  EXPECT_EQ(F::live_set(t, F::word_key(a.data()), F::bits + 1, 1), -1);
  said("_live_set", "prefix length " + std::to_string(F::bits + 1) + " past " +
                        width + " bits\n");
  EXPECT_EQ(F::live_set(t, F::word_key(a.data()), 4, 1), -1);
  said("_live_set", "address bits set past prefix length 4\n");
  EXPECT_EQ(F::live_remove(t, F::word_key(a.data()), 200), -1);
  said("_live_remove", "prefix length 200 past " + width + " bits\n");
  EXPECT_EQ(F::live_size(t), 0u);

  int r0 = F::live_reader_register(t), r1 = F::live_reader_register(t);
  EXPECT_EQ(r0, 0);
  EXPECT_EQ(r1, 1);
  EXPECT_EQ(F::live_reader_register(t), -1);
  said("_live_reader_register", "all 2 reader slots are taken\n");
  F::live_reader_unregister(t, r0);
  F::live_quiescent(t, r0);
  said("_live_quiescent", "reader 0 is not registered\n");
  F::live_reader_unregister(t, 7);
  said("_live_reader_unregister", "reader 7 is not registered\n");
  EXPECT_EQ(F::live_reader_register(t), 0);  // the freed slot again
  F::live_destruct(t);
}

// A table holding published prefixes and a staged change of each kind: the
// incremental path (a few changes) and the whole compile (a batch past its
// limit).
template <class F>
struct Staged {
  std::vector<typename F::entry> base, more;
  explicit Staged(uint32_t seed, uint32_t extra) {
    std::mt19937 rng(seed);
    base = tt::prefix_set<F>(rng, 300);
    more = tt::prefix_set<F>(rng, extra);
  }
  void fill(tt::LiveModel<F> &m, bool publish_more) const {
    for (auto &e : base) m.set(tt::addr<F>(e), e.len, e.data);
    ASSERT_EQ(m.publish(), 0);
    for (auto &e : more) m.set(tt::addr<F>(e), e.len, e.data + 7);
    m.remove(tt::addr<F>(base[3]), base[3].len);
    if (publish_more) {
      ASSERT_EQ(m.publish(), 0);
    }
  }
};

// Each allocation of construct, set and publish fails in turn, with a
// size-class context whose limit splits the blocks between the allocators
// and without: the result says so, the message names the size asked,
// nothing leaks, readers keep the published answers, and a later publish
// makes every staged change visible.
TYPED_TEST(Live, EveryFailedAllocationLosesNothing) {
  using F = TypeParam;
  th::Ctx ctx(4096);
  std::mt19937 rng(5);
  for (void *c : {static_cast<void *>(nullptr), ctx.get()}) {
    int points = th::sweep([&](long) {
      typename F::live *t = F::live_construct(c, 1, 2);
      if (th::failure_injected()) {
        EXPECT_EQ(t, nullptr);
        ASSERT_EQ(th::diags().size(), 1u);
        EXPECT_NE(th::diags()[0].text.find("_live_construct: sc_kmalloc("),
                  std::string::npos)
            << th::diags()[0].text;
      }
      F::live_destruct(t);
    });
    EXPECT_GE(points, 5);

    for (uint32_t extra : {20u, 5000u}) {
      Staged<F> s(extra, extra);
      points = th::sweep([&](long k) {
        th::fail_nth(0);
        tt::LiveModel<F> m(c, 1);
        ASSERT_NO_FATAL_FAILURE(s.fill(m, false));
        th::clear_output();
        th::fail_nth(k);
        int r = m.publish();
        th::disarm();
        if (th::failure_injected() && r == 0) {
          // Only the list of unlinked nodes failed to grow: they wait for
          // the next compaction, and the publish went through.
          EXPECT_TRUE(th::diags().empty());
        } else if (th::failure_injected()) {
          EXPECT_EQ(r, -1);
          ASSERT_EQ(th::diags().size(), 1u) << th::diag_text();
          EXPECT_NE(th::diags()[0].text.find("_live_publish: sc_kmalloc("),
                    std::string::npos);
          ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));  // the old version
          EXPECT_EQ(m.publish(), 0);
        }
        ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
      });
      EXPECT_GE(points, 1);

      points = th::sweep([&](long k) {
        th::fail_nth(0);
        tt::LiveModel<F> m(c, 1);
        ASSERT_NO_FATAL_FAILURE(s.fill(m, true));
        th::fail_nth(k);
        // Sets that add chunks to the record and grow the staged list.
        for (auto &e : tt::prefix_set<F>(rng, 200)) {
          uint32_t before = F::live_size(m.get());
          int r = m.set(tt::addr<F>(e), e.len, 5);
          if (r == -1) {
            EXPECT_EQ(F::live_size(m.get()), before);
            th::disarm();
          }
        }
        th::disarm();
        ASSERT_EQ(m.publish(), 0);
        ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
      });
      EXPECT_GE(points, 1);
    }
    th::expect_sz_released_by_kfree(0);
  }
}

// Blocks a compile replaced wait for every registered reader to be
// quiescent; unregistering also lets them go; a reader that never reports
// holds them back, and destruct gives everything back.
TYPED_TEST(Live, ReplacedBlocksWaitForEveryReader) {
  using F = TypeParam;
  std::mt19937 rng(2);
  tt::LiveModel<F> m(nullptr, 0);
  auto big = tt::prefix_set<F>(rng, 6000);
  auto compile_all = [&](uint32_t data) {
    for (auto &e : big) m.set(tt::addr<F>(e), e.len, data);
    ASSERT_EQ(m.publish(), 0);
  };
  compile_all(1);
  compile_all(1);  // the writer's lists have grown to what a compile needs
  int a = F::live_reader_register(m.get()),
      b = F::live_reader_register(m.get());
  const uint64_t one = th::live_bytes();
  compile_all(2);
  EXPECT_GT(th::live_bytes(), one);  // the old version is held
  F::live_quiescent(m.get(), a);
  ASSERT_EQ(m.publish(), 0);
  EXPECT_GT(th::live_bytes(), one);  // b has not reported
  F::live_quiescent(m.get(), b);
  ASSERT_EQ(m.publish(), 0);
  EXPECT_EQ(th::live_bytes(), one);
  compile_all(3);
  compile_all(4);
  F::live_quiescent(m.get(), b);
  F::live_reader_unregister(m.get(), a);
  ASSERT_EQ(m.publish(), 0);
  EXPECT_EQ(th::live_bytes(), one);
  EXPECT_EQ(F::live_memory_usage(m.get()), th::live_bytes());
  compile_all(5);  // destructed while b still holds the previous version
  ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
}

// Nodes a publish unlinked are reused only once every reader has passed
// it: with a reader that never reports, changes fill the pool until a
// compile retires whole versions, which stay held; once it reports, the
// memory comes back and stays flat while the unlinked nodes are reused.
TYPED_TEST(Live, UnlinkedNodesWaitForEveryReader) {
  using F = TypeParam;
  std::mt19937 rng(4);
  tt::LiveModel<F> m(nullptr, 0);
  auto in = tt::prefix_set<F>(rng, 300);
  for (auto &e : in) m.set(tt::addr<F>(e), e.len, e.data);
  ASSERT_EQ(m.publish(), 0);
  // New data for the deepest prefixes: each publish unlinks the nodes on
  // one path and needs as many of the same sizes, so reuse alone keeps the
  // pool from growing.
  std::vector<typename F::entry> deep;
  for (auto &e : in)
    if (uint32_t(e.len) + 4 >= F::bits) deep.push_back(e);
  ASSERT_GE(deep.size(), 4u);
  auto churn = [&](int n) {
    for (int i = 0; i < n; ++i) {
      const auto &e = deep[rng() % deep.size()];
      ASSERT_EQ(m.set(tt::addr<F>(e), e.len, uint32_t(rng())), 0);
      ASSERT_EQ(m.publish(), 0);
    }
  };
  ASSERT_NO_FATAL_FAILURE(churn(200));  // no reader: reuse settles
  const uint64_t settled = th::live_bytes();
  int r = F::live_reader_register(m.get());
  ASSERT_NO_FATAL_FAILURE(churn(2000));
  EXPECT_GT(th::live_bytes(), settled + 2 * (1u << 20));  // versions held
  F::live_quiescent(m.get(), r);
  ASSERT_NO_FATAL_FAILURE(churn(1));
  const uint64_t released = th::live_bytes();
  EXPECT_LT(released, settled + (1u << 20));
  for (int i = 0; i < 2000; ++i) {
    ASSERT_NO_FATAL_FAILURE(churn(1));
    F::live_quiescent(m.get(), r);
  }
  EXPECT_LT(th::live_bytes(), released + (1u << 20));  // no version piles up
  ASSERT_NO_FATAL_FAILURE(m.check(rng, {}));
  F::live_reader_unregister(m.get(), r);
}

}  // namespace

// Degenerate tries and the ends of the read side: no entries, one entry,
// the destructor's view, iterator and report arguments.
#include <string>
#include <vector>

#include "families.h"
#include "test_host.h"

namespace {

template <class F>
class SmallTrie : public HostTest {};
TYPED_TEST_SUITE(SmallTrie, tt::Families);

std::string after(const std::string &text, const std::string &mark) {
  size_t at = text.find(mark);
  return at == std::string::npos ? "<missing " + mark + ">"
                                 : text.substr(at + mark.size());
}

TYPED_TEST(SmallTrie, NoEntriesGivesAnEmptyUsableTrie) {
  using F = TypeParam;
  th::Ctx ctx(64);
  typename F::Trie *t = F::construct(ctx, nullptr, 0, 50, 0);
  ASSERT_TRUE(t);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text,
            std::string(F::kName) + ": no entries given\n");
  EXPECT_EQ(F::lpmatch(t, {1, 2, 3, 4}), 0u);
  typename F::Iter *it = F::iter(t);
  typename F::Item item;
  EXPECT_EQ(F::next(it, &item), -1);
  F::iter_destruct(it);
  EXPECT_EQ(F::memory(t), sizeof(typename F::Trie));
  // Nothing to measure reads as zero, never "nan".
  F::stats(t);
  EXPECT_EQ(after(th::console(), "Root branch factor: "),
            "0\n    Average / Maximum depth (w/o prefixes): 0.00 / 0\n"
            "    Average / Maximum prefixes path length: 0.00 / 0\n" +
                std::string(59, '-') + "\n");
  th::clear_output();
  F::print(t);
  EXPECT_EQ(after(th::console(), "Nodes\n--------\n"), "");
  F::set_destructor(t, [](uint32_t) { ADD_FAILURE() << "no data to destroy"; });
  F::destruct(t);
}

TYPED_TEST(SmallTrie, OneEntryMakesALeafRoot) {
  using F = TypeParam;
  auto in = F::entry({0xC0000000}, 3, 7);
  typename F::Trie *t = F::construct(nullptr, &in, 1, 50, 3);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->n_nodes, 1u);
  EXPECT_EQ(t->prefixes, nullptr);
  EXPECT_EQ(F::lpmatch(t, {0xDFFFFFFF, ~0u, ~0u, ~0u}), 7u);
  EXPECT_EQ(F::lpmatch(t, {0xBFFFFFFF}), 0u);
  F::stats(t);
  EXPECT_NE(th::console().find("Root branch factor: 0\n"
                               "    Average / Maximum depth (w/o prefixes): "
                               "1.00 / 1\n"),
            std::string::npos);
  th::clear_output();
  F::print(t);
  EXPECT_EQ(after(th::console(), "Nodes\n--------\n"), "... -> 0\n");
  F::destruct(t);
}

// Leaf entries go to the destructor, then prefix records, each once; of two
// identical entries one is kept. The caller's array is left as it was.
TYPED_TEST(SmallTrie, DestructorSeesEveryKeptDatumOnce) {
  using F = TypeParam;
  std::vector<typename F::Entry> in = {
      F::entry({0x0A000000}, 8, 10), F::entry({0x0A010000}, 16, 20),
      F::entry({0x0A000000}, 8, 11), F::entry({0x0B000000}, 8, 30)};
  in[0].prefix = 5;  // ignored in the input
  auto copy = in;
  typename F::Trie *t = F::construct(nullptr, in.data(), 4, 50, 0);
  ASSERT_TRUE(t);
  EXPECT_EQ(memcmp(copy.data(), in.data(), in.size() * sizeof in[0]), 0);
  static std::vector<uint32_t> seen;
  seen.clear();
  F::set_destructor(t, [](uint32_t d) { seen.push_back(d); });
  uint32_t kept = t->prefixes[0].data;
  EXPECT_TRUE(kept == 10 || kept == 11);
  F::destruct(t);
  EXPECT_EQ(seen, (std::vector<uint32_t>{20, 30, kept}));
}

TYPED_TEST(SmallTrie, NullAndFinishedArguments) {
  using F = TypeParam;
  EXPECT_EQ(F::iter(nullptr), nullptr);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].text, "sc_btrie_iter_construct: trie is 0!\n");
  EXPECT_EQ(th::diags()[0].file, F::kModule);
  typename F::Item item{};
  item.len = 99;
  typename F::Iter orphan{};
  EXPECT_EQ(F::next(nullptr, &item), -1);
  EXPECT_EQ(F::next(&orphan, &item), -1);
  EXPECT_EQ(item.len, 99u);
  F::iter_destruct(nullptr);
  F::destruct(nullptr);
  EXPECT_EQ(F::memory(nullptr), 0u);
  F::print(nullptr);
  F::stats(nullptr);
  EXPECT_EQ(th::console(), "");
}

}  // namespace

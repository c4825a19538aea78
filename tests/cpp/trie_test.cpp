// The trie and fib handles: a stored 0 told apart from a miss, bulk and
// compiled lookups, the routes back once each in address order, the data
// words build takes, moved-from handles, and every failure.
#include "vell/trie.hpp"

#include <algorithm>
#include <map>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

#include "test_host.h"
#include "vell/fib.hpp"

namespace {

using vell::ipv4_addr;
using vell::ipv4_prefix;
using vell::ipv6_addr;
using vell::ipv6_prefix;
using CppTrie = HostTest;

std::map<ipv4_prefix, uint32_t> routes4() {
  std::map<ipv4_prefix, uint32_t> r;
  for (auto [text, data] : {std::pair{"0.0.0.0/0", 0u},
                            {"10.0.0.0/8", 8u},
                            {"10.1.0.0/16", 16u},
                            {"192.0.2.0/24", 24u}})
    r[*ipv4_prefix::parse(text)] = data;
  return r;
}

// Data words build takes: those every value of which fits 32 bits.
template <typename Word>
concept buildable = requires(std::vector<std::pair<ipv4_prefix, Word>> r) {
  vell::trie4::build(r);
};
static_assert(buildable<uint32_t> && buildable<uint16_t>);
static_assert(!buildable<uint64_t> && !buildable<int> && !buildable<double>);
static_assert(std::ranges::forward_range<const vell::trie4::route_range &>);
static_assert(std::ranges::common_range<vell::trie4::route_range>);

TEST_F(CppTrie, AStoredZeroIsNotAMissAndRoutesComeBackOnceInOrder) {
  auto trie = vell::trie4::build(routes4());
  ASSERT_TRUE(trie);
  auto at = [&](const char *a) { return trie->lookup(*ipv4_addr::parse(a)); };
  EXPECT_EQ(at("10.1.2.3"), 16u);
  EXPECT_EQ(at("11.0.0.0"), 0u);  // the default route's 0

  // Nested prefixes: the C iterator repeats an enclosing prefix under each
  // one beneath it; the range holds each once, in address order, and may
  // be walked again.
  std::vector<std::pair<ipv4_prefix, uint32_t>> nested;
  for (const char *p : {"192.168.0.0/16", "10.128.0.0/9", "10.1.2.0/24",
                        "10.1.0.0/16", "10.0.0.0/8", "9.0.0.0/8"})
    nested.push_back({*ipv4_prefix::parse(p), uint32_t(nested.size())});
  auto nested_trie = vell::trie4::build(nested);
  ASSERT_TRUE(nested_trie);
  const auto routes = nested_trie->routes();
  std::vector<vell::trie4::route> listed(routes.begin(), routes.end());
  std::string text;
  for (const auto &[prefix, data] : listed)
    text += std::string(prefix.text()) + "=" + std::to_string(data) + " ";
  EXPECT_EQ(text,
            "9.0.0.0/8=5 10.0.0.0/8=4 10.1.0.0/16=3 10.1.2.0/24=2 "
            "10.128.0.0/9=1 192.168.0.0/16=0 ");
  EXPECT_EQ(std::ranges::distance(routes), 6);

  // A moved-from trie answers nothing and lists nothing.
  vell::trie4 moved = std::move(*nested_trie);
  EXPECT_FALSE(*nested_trie || nested_trie->routes() ||
               nested_trie->lookup(ipv4_addr(0x0A000000)) ||
               nested_trie->memory_usage());
  EXPECT_EQ(moved.lookup(ipv4_addr(0x0A000000)), 4u);

  auto six = vell::trie6::build(std::vector<std::pair<ipv6_prefix, uint32_t>>{
      {*ipv6_prefix::parse("2001:db8::/32"), 0}});
  auto fib = vell::fib6::compile(*six);
  ASSERT_TRUE(fib);
  for (auto &lookup : {six->lookup(*ipv6_addr::parse("2001:db8::1")),
                       fib->lookup(*ipv6_addr::parse("2001:db8::1"))})
    EXPECT_EQ(lookup, 0u);
  EXPECT_EQ(six->lookup(*ipv6_addr::parse("2001:db9::1")), std::nullopt);
  EXPECT_EQ(fib->lookup(*ipv6_addr::parse("2001:db9::1")), std::nullopt);
}

TEST_F(CppTrie, BulkAndCompiledLookupsAnswerAsSingleOnes) {
  auto trie =
      vell::trie4::build(routes4(), {.fill_factor = 80, .root_branch = 8});
  ASSERT_TRUE(trie);
  std::vector<ipv4_addr> keys;  // more than one batch, not a whole number
  for (uint32_t i = 0; i < 300; ++i) keys.push_back(ipv4_addr(i * 0x0137F0E1u));
  std::vector<std::optional<uint32_t>> single, bulk(keys.size());
  for (const ipv4_addr &k : keys) single.push_back(trie->lookup(k));
  trie->lookup(keys, bulk);
  EXPECT_EQ(bulk, single);
  EXPECT_GT(std::ranges::count(single, 8u), 0);

  // The compiled table answers the same, after the trie is gone.
  auto fib = vell::fib4::compile(*trie);
  ASSERT_TRUE(fib);
  trie.reset();
  std::vector<std::optional<uint32_t>> compiled(keys.size() + 1);
  fib->lookup(keys, compiled);
  EXPECT_FALSE(compiled.back());  // no key for it: untouched
  compiled.pop_back();
  EXPECT_EQ(compiled, single);
}

TEST_F(CppTrie, FailuresLeaveNothingTaken) {
  // A failed trim keeps the larger block and still makes the trie.
  EXPECT_GT(th::sweep([](long) {
              auto trie = vell::trie4::build(routes4());
              auto fib = trie ? vell::fib4::compile(*trie) : std::nullopt;
              if (fib) {
                EXPECT_EQ(fib->lookup(ipv4_addr(0x0A010203)), 16u);
              } else {
                EXPECT_TRUE(th::failure_injected());
              }
            }),
            2);
  th::reset();
  auto trie = vell::trie4::build(routes4());
  th::fail_nth(1);  // the iterator
  auto routes = trie->routes();
  EXPECT_FALSE(routes);
  EXPECT_EQ(routes.begin(), routes.end());
  th::clear_output();

  auto bad = routes4();
  bad.begin()->second = vell::trie4::max_data + 1;
  EXPECT_FALSE(vell::trie4::build(bad));
  EXPECT_EQ(th::diag_text(),
            "vell: data word 4294967295 is reserved (at most 4294967294)\n");
  // A length past the address is refused, not wrapped to a short one.
  const uint32_t w[1] = {0};
  auto e = vell::trie4_family::make_entry(w, 64, 1);
  EXPECT_FALSE(sc_btrie_construct(nullptr, &e, 1, 50, 0));
}

}  // namespace

// A C++ client: a trie, maps, a vector and timers through <vell/ds.hpp>,
// on the default host services and the layer's defaults, with the reason
// of a failure read in code. Prints "consumer VERSION ok" when all is well.
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>
#include <vell/diagnostics.hpp>
#include <vell/ds.hpp>

int main() {
  using vell::ipv4_prefix;
  const std::pair<ipv4_prefix, uint32_t> routes[] = {
      {*ipv4_prefix::parse("10.0.0.0/8"), 0},
      {*ipv4_prefix::parse("10.1.0.0/16"), 7}};
  auto trie = vell::trie4::build(routes);
  auto map = vell::hash_map<uint32_t, double>::create(16u);
  auto kmap = vell::khash_map<uint32_t, uint32_t>::create(16);
  auto vec = vell::vector<int>::create();
  auto timers = vell::timer_set::create();
  if (!trie || !map || !kmap || !vec || !timers) return 1;

  auto at = [&](const char *a) {
    return trie->lookup(*vell::ipv4_addr::parse(a));
  };
  bool ok = at("10.9.9.9") == 0u && at("10.1.2.3") == 7u && !at("11.0.0.1");
  ok = ok && std::ranges::distance(trie->routes()) == 2;
  ok = ok && map->insert_or_assign(7, 0.5) && map->find(7) == 0.5;
  ok = ok && kmap->update(3, [](uint32_t &n) { ++n; }) && kmap->find(3) == 1u;
  for (int x : {3, 1, 2}) ok = ok && vec->push_back(x);
  std::ranges::sort(*vec);
  ok = ok && std::ranges::is_sorted(*vec);

  int fired = 0;
  vell::timer t = timers->add(std::chrono::seconds(5), [&] { ++fired; });
  ok = ok && t && timers->poll(0, true) == 1 && fired == 1;

  {
    vell::diag_capture why;
    ok = ok && !vell::trie4::build(routes, {.fill_factor = 0}) &&
         why.count() == 1 && why.last().find("fill") != why.last().npos;
  }
  printf("consumer %s %s\n", VELL_DS_VERSION_STRING, ok ? "ok" : "failed");
  return ok ? 0 : 1;
}

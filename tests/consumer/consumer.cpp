// A C++ client: a trie, a map and a vector through <vell/ds.hpp>, on the
// default host services. Prints "consumer VERSION ok" when all is well.
#include <stdio.h>

#include <algorithm>
#include <utility>
#include <vell/ds.hpp>

int main() {
  using vell::ipv4_prefix;
  const std::pair<ipv4_prefix, uint32_t> routes[] = {
      {*ipv4_prefix::parse("10.0.0.0/8"), 0},
      {*ipv4_prefix::parse("10.1.0.0/16"), 7}};
  auto trie = vell::trie4::build(routes);
  auto map = vell::hash_map<uint32_t, double>::create(16u);
  auto vec = vell::vector<int>::create();
  if (!trie || !map || !vec) return 1;

  auto at = [&](const char *a) {
    return trie->lookup(*vell::ipv4_addr::parse(a));
  };
  bool ok = at("10.9.9.9") == 0u && at("10.1.2.3") == 7u && !at("11.0.0.1");
  ok = ok && map->insert_or_assign(7, 0.5) && map->find(7) == 0.5;
  for (int x : {3, 1, 2}) ok = ok && vec->push_back(x);
  std::ranges::sort(*vec);
  ok = ok && std::ranges::is_sorted(*vec);
  printf("consumer %s %s\n", VELL_DS_VERSION_STRING, ok ? "ok" : "failed");
  return ok ? 0 : 1;
}

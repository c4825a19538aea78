// Every one of the 2^32 IPv4 keys through the trie and through the fib
// compiled from it, single and bulk: the fib must answer as the trie for
// every key (its miss value is 0, the trie's answer for an uncovered key).
// About a minute on the embedded table; too long for the test suite.
//
//   check_fib_exhaustive [TABLE...]
#include <stdio.h>

#include <string>
#include <vector>

#include "lpm_clock.h"
#include "lpm_formats.h"
#include "lpm_table.h"
#include "lpm_trie.h"

int main(int argc, char **argv) {
  using namespace lpm;
  std::vector<std::string> names(argv + 1, argv + argc);
  if (names.empty()) names = default_tables();
  Table table;
  std::string error;
  std::vector<std::string> warnings;
  if (!load_files(names, table, error, warnings)) {
    fprintf(stderr, "check_fib_exhaustive: %s\n", error.c_str());
    return 1;
  }
  for (const std::string &w : warnings)
    fprintf(stderr, "check_fib_exhaustive: warning: %s\n", w.c_str());
  using F = vell::trie4_family;
  keep_first_of_duplicates<F>(table.v4);
  F::trie *t = F::construct(nullptr, table.v4.data(),
                            static_cast<uint32_t>(table.v4.size()), 50, 16);
  F::fib *f = t ? F::fib_construct(nullptr, t, 0) : nullptr;
  if (!f) {
    fprintf(stderr, "check_fib_exhaustive: trie or fib not built\n");
    return 1;
  }
  constexpr uint32_t kChunk = 1u << 16;
  std::vector<uint32_t> keys(kChunk), want(kChunk), bulk(kChunk);
  uint64_t differ = 0;
  double t0 = now_seconds();
  for (uint64_t base = 0; base < (uint64_t{1} << 32); base += kChunk) {
    for (uint32_t i = 0; i < kChunk; ++i)
      keys[i] = static_cast<uint32_t>(base + i);
    F::lpmatch_bulk(t, keys.data(), want.data(), kChunk);
    for (uint32_t i = 0; i < kChunk; i += 64)
      F::fib_lookup_bulk(f, &keys[i], &bulk[i], 64);
    for (uint32_t i = 0; i < kChunk; ++i) {
      uint32_t one = F::fib_lookup(f, keys[i]);
      if ((one != want[i] || bulk[i] != want[i]) && differ++ < 10)
        printf("key %08x: trie %u, fib %u, fib bulk %u\n", keys[i], want[i],
               one, bulk[i]);
    }
  }
  printf("%zu prefixes, 2^32 keys in %.0f s: %llu answers differ\n",
         table.v4.size(), now_seconds() - t0,
         static_cast<unsigned long long>(differ));
  F::fib_destruct(f);
  F::destruct(t);
  return differ ? 1 : 0;
}

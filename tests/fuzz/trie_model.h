// What the trie and live table targets share over both trie families:
// input addresses that often repeat or nest in earlier ones, and the family
// the input picks.
#pragma once

#include <vector>

#include "../trie/families.h"
#include "fuzz_support.h"

namespace fuzz {

// An address from the input: one seen before with some words changed, or
// a fresh one.
template <class F>
tt::Addr make_addr(FuzzedDataProvider &in, const std::vector<tt::Addr> &seen) {
  tt::Addr a{};
  if (!seen.empty() && in.ConsumeBool())
    a = seen[in.ConsumeIntegralInRange<size_t>(0, seen.size() - 1)];
  for (uint32_t w = 0; w < F::words; ++w)
    if (in.ConsumeBool()) a[w] ^= in.ConsumeIntegral<uint32_t>();
  return a;
}

// Calls run with a value of the family the input picks (IPv4 or IPv6).
template <class Run>
void either_family(FuzzedDataProvider &in, Run run) {
  if (in.ConsumeBool())
    run(vell::trie4_family{});
  else
    run(vell::trie6_family{});
}

}  // namespace fuzz

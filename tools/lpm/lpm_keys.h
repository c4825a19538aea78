// Lookup keys drawn for benchmarks, from a table or the address space.
#pragma once

#include <stdint.h>

#include <random>
#include <vector>

#include "lpm_addr.h"
#include "lpm_trie.h"

namespace lpm {

// Where keys fall: inside a prefix of the table picked at random (random
// bits beyond its length), uniform over the address space, or either with
// even odds.
enum class KeyMix { half, uniform, inside };

// n keys drawn as `mix` says; the same seed gives the same keys.
template <typename F>
std::vector<typename F::key> draw_keys(
    const std::vector<typename F::entry> &entries, size_t n,
    KeyMix mix = KeyMix::half, uint64_t seed = 1) {
  std::mt19937_64 rng(seed);
  std::vector<typename F::key> keys;
  keys.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    Addr random;
    for (uint32_t &w : random.w) w = static_cast<uint32_t>(rng());
    bool uniform = mix == KeyMix::uniform ||
                   (mix == KeyMix::half && rng() % 2) || entries.empty();
    if (uniform) {
      keys.push_back(F::make_key(mask_to(random, width(family_of<F>)).w));
      continue;
    }
    const auto &e = entries[rng() % entries.size()];
    Addr base = record_addr<F>(e), host = mask_to(random, width(family_of<F>));
    Addr net_bits = mask_to(host, e.len);
    for (unsigned w = 0; w < 4; ++w) base.w[w] |= host.w[w] ^ net_bits.w[w];
    keys.push_back(F::make_key(base.w));
  }
  return keys;
}

}  // namespace lpm

// Bit arithmetic on addresses held as arrays of 32-bit words, most
// significant word first. Bit position 0 is the top bit of word 0.
#pragma once

#include <stdint.h>

#include <bit>

namespace vds::trie {

// Bits [p, p + b) of an address of W words, as a b-bit number: the child
// slot a b-bit node at position p chooses for the address. The b bits must
// lie within one word; 0 when b is 0, without a branch (the shift is 64-bit,
// so b == 0 selects nothing rather than shifting by 32). The word index is
// masked, so a position at or past the end still reads inside the address.
template <uint32_t W>
inline uint32_t key_bits(const uint32_t *a, uint32_t p, uint32_t b) {
  uint32_t word = a[p >> 5 & (W - 1)];
  return static_cast<uint32_t>((static_cast<uint64_t>(word << (p & 31)) << b) >>
                               32);
}

// The first position at or after pos where a and b differ, or W * 32 when
// they agree from pos to the end.
template <uint32_t W>
uint32_t first_difference(const uint32_t *a, const uint32_t *b, uint32_t pos) {
  for (uint32_t w = pos >> 5; w < W; ++w) {
    uint32_t x = a[w] ^ b[w];
    if (w == pos >> 5) x &= ~0u >> (pos & 31);
    if (x) return w * 32 + static_cast<uint32_t>(std::countl_zero(x));
  }
  return W * 32;
}

// Whether the first len bits of a and b are equal (len 0: always).
template <uint32_t W>
bool same_prefix(const uint32_t *a, const uint32_t *b, uint32_t len) {
  if constexpr (W == 1) return len == 0 || (a[0] ^ b[0]) >> (32 - len) == 0;
  uint32_t full = len >> 5;
  for (uint32_t w = 0; w < full; ++w)
    if (a[w] != b[w]) return false;
  uint32_t rem = len & 31;
  return rem == 0 || ((a[full] ^ b[full]) >> (32 - rem)) == 0;
}

// out = the first len bits of the W words at a, every bit at a position
// >= len cleared (out may be a). The one place a prefix length cuts an
// address.
template <uint32_t W>
void cut(const uint32_t *a, uint32_t len, uint32_t *out) {
  for (uint32_t w = 0; w < W; ++w) {
    uint32_t keep = len > w * 32 ? len - w * 32 : 0;
    out[w] = keep >= 32 ? a[w] : keep ? a[w] & ~(~0u >> keep) : 0;
  }
}

// Whether any bit at a position >= len is set.
template <uint32_t W>
bool bits_beyond(const uint32_t *a, uint32_t len) {
  uint32_t kept[W];
  cut<W>(a, len, kept);
  for (uint32_t w = 0; w < W; ++w)
    if (kept[w] != a[w]) return true;
  return false;
}

}  // namespace vds::trie

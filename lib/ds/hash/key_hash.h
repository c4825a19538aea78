// The key hash of the chained tables. Keys are consumed four bytes at a time
// as little-endian words, then byte by byte, so the value depends only on the
// key's bytes: a key at an unaligned address, or on a big-endian host, hashes
// exactly as the same bytes anywhere else.
#pragma once

#include <stdint.h>

namespace vds::hash {

// Fold policy: the control-side tables fold every key; the forwarding-side
// table folds only keys longer than three bytes.
enum class Fold { kAlways, kLongKeys };

template <Fold F>
inline uint32_t key_hash(const void *key, uint32_t ksz) {
  const auto *p = static_cast<const unsigned char *>(key);
  uint32_t h = 0;
  uint32_t left = ksz;
  for (; left >= 4; left -= 4, p += 4) {
    uint32_t w = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                 uint32_t(p[3]) << 24;
    h ^= (w << 7) ^ (w >> 5) ^ w;
  }
  for (; left; --left, ++p) h ^= (uint32_t(*p) << 16) ^ *p;
  // The fold shifts with sign propagation: with the top bit set, the upper
  // sixteen bits of the shifted value are ones.
  if (F == Fold::kAlways || ksz > 3)
    h ^= static_cast<uint32_t>(static_cast<int32_t>(h) >> 16);
  return h;
}

}  // namespace vds::hash

// Builders for MRT records in tests, big-endian as on the wire.
#pragma once

#include <stdint.h>

#include <initializer_list>
#include <string>

namespace mrt_build {

struct Bytes {
  std::string b;
  // v in `width` bytes; bytes past v's eight are 0.
  Bytes &n(uint64_t v, unsigned width) {
    for (unsigned i = width; i-- > 0;)
      b += static_cast<char>(i < 8 ? v >> (8 * i) : 0);
    return *this;
  }
  Bytes &raw(const std::string &s) {
    b += s;
    return *this;
  }
};

// An AS_PATH attribute of segments {type, ASes...}, `as_bytes` per AS.
inline std::string as_path(
    std::initializer_list<std::initializer_list<uint32_t>> segs,
    unsigned as_bytes = 4, uint8_t type = 2) {
  Bytes v;
  for (auto seg : segs) {
    auto it = seg.begin();
    v.n(*it, 1).n(static_cast<uint32_t>(seg.size() - 1), 1);
    for (++it; it != seg.end(); ++it) v.n(*it, as_bytes);
  }
  return Bytes()
      .n(0x40, 1)
      .n(type, 1)
      .n(static_cast<uint32_t>(v.b.size()), 1)
      .raw(v.b)
      .b;
}

inline std::string record(uint16_t type, uint16_t subtype,
                          const std::string &body, uint32_t time = 1400824800) {
  return Bytes()
      .n(time, 4)
      .n(type, 2)
      .n(subtype, 2)
      .n(static_cast<uint32_t>(body.size()), 4)
      .raw(body)
      .b;
}

}  // namespace mrt_build

// Addresses of both families in one shape: four 32-bit words, most
// significant first, in host byte order (the tries' key format). An IPv4
// address lives in word 0 and leaves the other words zero.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

namespace lpm {

enum class Family { v4, v6 };

struct Addr {
  uint32_t w[4] = {0, 0, 0, 0};
  friend bool operator==(const Addr &, const Addr &) = default;
  friend auto operator<=>(const Addr &, const Addr &) = default;
};

constexpr unsigned width(Family f) { return f == Family::v4 ? 32 : 128; }
constexpr const char *family_name(Family f) {
  return f == Family::v4 ? "IPv4" : "IPv6";
}

// Parses a dotted-quad IPv4 or a textual IPv6 address; the family follows
// from the text. False for anything else.
bool parse_addr(std::string_view text, Family &family, Addr &addr);
std::string format_addr(Family family, const Addr &addr);
// A query address: as parse_addr, or a decimal integer (IPv4 up to
// 4294967295, IPv6 above, up to 2^128 - 1), as batch jobs write them.
bool parse_query(std::string_view text, Family &family, Addr &addr);

// Bit `pos` (0 is the first, most significant bit) of the address.
inline bool bit(const Addr &a, unsigned pos) {
  return (a.w[pos / 32] >> (31 - pos % 32)) & 1u;
}
// The address with every bit at a position >= len cleared.
Addr mask_to(const Addr &a, unsigned len);

}  // namespace lpm

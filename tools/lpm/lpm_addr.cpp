#include "lpm_addr.h"

#include <arpa/inet.h>

namespace lpm {

bool parse_addr(std::string_view text, Family &family, Addr &addr) {
  char buf[INET6_ADDRSTRLEN];
  if (text.empty() || text.size() >= sizeof buf) return false;
  text.copy(buf, text.size());
  buf[text.size()] = '\0';
  unsigned char bytes[16];
  int af = text.find(':') == std::string_view::npos ? AF_INET : AF_INET6;
  if (inet_pton(af, buf, bytes) != 1) return false;
  family = af == AF_INET ? Family::v4 : Family::v6;
  addr = Addr{};
  for (unsigned i = 0; i < (af == AF_INET ? 4u : 16u); ++i)
    addr.w[i / 4] |= uint32_t{bytes[i]} << (24 - 8 * (i % 4));
  return true;
}

bool parse_query(std::string_view text, Family &family, Addr &addr) {
  if (text.empty() || text.size() > 39 ||
      text.find_first_not_of("0123456789") != std::string_view::npos)
    return parse_addr(text, family, addr);
  Addr n;
  for (char c : text) {  // n = n * 10 + digit, over the four words
    uint64_t carry = static_cast<uint64_t>(c - '0');
    for (unsigned i = 4; i-- > 0;) {
      uint64_t v = uint64_t{n.w[i]} * 10 + carry;
      n.w[i] = static_cast<uint32_t>(v);
      carry = v >> 32;
    }
    if (carry) return false;  // beyond 128 bits
  }
  bool v4 = n.w[0] == 0 && n.w[1] == 0 && n.w[2] == 0;
  family = v4 ? Family::v4 : Family::v6;
  addr = v4 ? Addr{{n.w[3], 0, 0, 0}} : n;
  return true;
}

std::string format_addr(Family family, const Addr &addr) {
  unsigned char bytes[16];
  for (unsigned i = 0; i < 16; ++i)
    bytes[i] = static_cast<unsigned char>(addr.w[i / 4] >> (24 - 8 * (i % 4)));
  char buf[INET6_ADDRSTRLEN];
  inet_ntop(family == Family::v4 ? AF_INET : AF_INET6, bytes, buf, sizeof buf);
  return buf;
}

Addr mask_to(const Addr &a, unsigned len) {
  Addr m;
  for (unsigned i = 0; i < 4; ++i) {
    unsigned start = 32 * i;
    if (len >= start + 32)
      m.w[i] = a.w[i];
    else if (len > start)
      m.w[i] = a.w[i] & ~(~0u >> (len - start));
  }
  return m;
}

}  // namespace lpm

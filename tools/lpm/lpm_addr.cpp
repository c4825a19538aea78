#include "lpm_addr.h"

#include "vell/addr.hpp"

namespace lpm {
namespace {

// The tool's four-word Addr and the C++ layer's address of each family hold
// the same words, most significant first; these move them across.
vell::ipv4_addr to_v4(const Addr &a) { return vell::ipv4_addr(a.w[0]); }
vell::ipv6_addr to_v6(const Addr &a) { return vell::ipv6_addr(a.w); }

template <unsigned Words>
Addr from(const vell::basic_addr<Words> &a) {
  Addr out;
  for (unsigned i = 0; i < Words; ++i) out.w[i] = a.words()[i];
  return out;
}

}  // namespace

bool parse_addr(std::string_view text, Family &family, Addr &addr) {
  if (text.find(':') == std::string_view::npos) {
    std::optional<vell::ipv4_addr> a = vell::ipv4_addr::parse(text);
    if (!a) return false;
    family = Family::v4, addr = from(*a);
  } else {
    std::optional<vell::ipv6_addr> a = vell::ipv6_addr::parse(text);
    if (!a) return false;
    family = Family::v6, addr = from(*a);
  }
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
  return std::string(family == Family::v4 ? to_v4(addr).text()
                                          : to_v6(addr).text());
}

Addr mask_to(const Addr &a, unsigned len) {
  // An IPv4 Addr leaves words 1 to 3 zero, so the IPv6 mask serves both.
  return from(to_v6(a).masked(len));
}

}  // namespace lpm

// IPv4 and IPv6 addresses and prefixes as values: parsed from and formatted
// to text (also written to streams), converted from and to in_addr / in6_addr
// (network byte order) and to the tries' keys (32-bit words in host order, most
// significant first), compared and hashed.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string_view>

namespace vell {

// Text of an address or a prefix, held in place.
struct addr_text {
  char buf[INET6_ADDRSTRLEN + 4];  // the longest address, '/' and a length
  const char *c_str() const noexcept { return buf; }
  operator std::string_view() const noexcept { return buf; }
};

// An address of Words 32-bit words: 1 for IPv4, 4 for IPv6.
template <unsigned Words>
class basic_addr {
  static_assert(Words == 1 || Words == 4);

 public:
  static constexpr unsigned bits = Words * 32;
  static constexpr int family = Words == 1 ? AF_INET : AF_INET6;
  using c_addr = std::conditional_t<Words == 1, in_addr, in6_addr>;

  constexpr basic_addr() noexcept = default;
  // From the key format: host order, most significant word first.
  constexpr explicit basic_addr(uint32_t key) noexcept requires(Words == 1)
      : w_{key} {}
  constexpr explicit basic_addr(const uint32_t (&key)[Words]) noexcept
      requires(Words == 4)
      : w_{key[0], key[1], key[2], key[3]} {}
  explicit basic_addr(const c_addr &a) noexcept {
    unsigned char b[Words * 4];
    memcpy(b, &a, sizeof b);
    for (unsigned i = 0; i < Words; ++i)
      w_[i] = uint32_t{b[4 * i]} << 24 | uint32_t{b[4 * i + 1]} << 16 |
              uint32_t{b[4 * i + 2]} << 8 | b[4 * i + 3];
  }

  // Dotted quad for IPv4, any textual form inet_pton accepts for IPv6.
  static std::optional<basic_addr> parse(std::string_view text) noexcept {
    char z[INET6_ADDRSTRLEN];
    if (text.size() >= sizeof z) return std::nullopt;
    text.copy(z, text.size());
    z[text.size()] = '\0';
    c_addr a;
    if (inet_pton(family, z, &a) != 1) return std::nullopt;
    return basic_addr(a);
  }

  c_addr to_c() const noexcept {
    unsigned char b[Words * 4];
    for (unsigned i = 0; i < Words; ++i)
      for (unsigned j = 0; j < 4; ++j)
        b[4 * i + j] = static_cast<unsigned char>(w_[i] >> (24 - 8 * j));
    c_addr a;
    memcpy(&a, b, sizeof b);
    return a;
  }
  addr_text text() const noexcept {
    addr_text t;
    c_addr a = to_c();
    inet_ntop(family, &a, t.buf, sizeof t.buf);
    return t;
  }

  // The words of the trie key: host order, most significant first.
  using words_type = uint32_t[Words];
  constexpr const words_type &words() const noexcept { return w_; }

  // The address with every bit at a position >= len cleared.
  constexpr basic_addr masked(unsigned len) const noexcept {
    basic_addr m = *this;
    for (unsigned i = 0; i < Words; ++i) {
      unsigned keep = len > 32 * i ? len - 32 * i : 0;
      m.w_[i] = keep >= 32 ? w_[i] : keep ? w_[i] & ~(~0u >> keep) : 0;
    }
    return m;
  }

  friend constexpr auto operator<=>(const basic_addr &,
                                    const basic_addr &) = default;
  // Writes text().
  template <typename Traits>
  friend std::basic_ostream<char, Traits> &operator<<(
      std::basic_ostream<char, Traits> &os, const basic_addr &a) {
    return os << a.text().c_str();
  }

  constexpr size_t hash() const noexcept {
    uint64_t h = 0;
    for (uint32_t w : w_) h = (h ^ w) * 0x9E3779B97F4A7C15ull;
    return std::hash<uint64_t>{}(h ^ h >> 32);
  }

 private:
  uint32_t w_[Words] = {};
};

using ipv4_addr = basic_addr<1>;
using ipv6_addr = basic_addr<4>;

// An address and a length, with no address bit set at or beyond the
// length (as the tries require).
template <typename Addr>
class basic_prefix {
 public:
  using addr_type = Addr;

  constexpr basic_prefix() noexcept = default;
  // Empty for a length beyond the address or bits set beyond the length.
  static constexpr std::optional<basic_prefix> make(const Addr &a,
                                                    unsigned len) noexcept {
    if (len > Addr::bits || a.masked(len) != a) return std::nullopt;
    return basic_prefix(a, len);
  }
  // "ADDRESS/LEN"; the rules of make apply.
  static std::optional<basic_prefix> parse(std::string_view text) noexcept {
    size_t slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    std::optional<Addr> a = Addr::parse(text.substr(0, slash));
    std::string_view digits = text.substr(slash + 1);
    unsigned len = 0;
    if (!a || digits.empty() || digits.size() > 3) return std::nullopt;
    for (char c : digits) {
      if (c < '0' || c > '9') return std::nullopt;
      len = len * 10 + static_cast<unsigned>(c - '0');
    }
    return make(*a, len);
  }

  constexpr const Addr &address() const noexcept { return addr_; }
  constexpr unsigned length() const noexcept { return len_; }
  constexpr bool contains(const Addr &a) const noexcept {
    return a.masked(len_) == addr_;
  }
  addr_text text() const noexcept {
    addr_text t = addr_.text();
    size_t n = strlen(t.buf);
    snprintf(t.buf + n, sizeof t.buf - n, "/%u", len_);
    return t;
  }

  friend constexpr auto operator<=>(const basic_prefix &,
                                    const basic_prefix &) = default;
  // Writes text().
  template <typename Traits>
  friend std::basic_ostream<char, Traits> &operator<<(
      std::basic_ostream<char, Traits> &os, const basic_prefix &p) {
    return os << p.text().c_str();
  }

 private:
  constexpr basic_prefix(const Addr &a, unsigned len) noexcept
      : addr_(a), len_(len) {}
  Addr addr_;
  unsigned len_ = 0;
};

using ipv4_prefix = basic_prefix<ipv4_addr>;
using ipv6_prefix = basic_prefix<ipv6_addr>;

}  // namespace vell

template <unsigned Words>
struct std::hash<vell::basic_addr<Words>> {
  size_t operator()(const vell::basic_addr<Words> &a) const noexcept {
    return a.hash();
  }
};
template <typename Addr>
struct std::hash<vell::basic_prefix<Addr>> {
  size_t operator()(const vell::basic_prefix<Addr> &p) const noexcept {
    return p.address().hash() * 131 + p.length();
  }
};

// Address and prefix values: text both ways, the network-order C records
// against the host-order keys, refusals, and hashing.
#include "vell/addr.hpp"

#include <sstream>
#include <string>
#include <unordered_set>

#include "test_host.h"

namespace {

using vell::ipv4_addr;
using vell::ipv4_prefix;
using vell::ipv6_addr;
using vell::ipv6_prefix;

TEST(CppAddr, TextKeysAndCRecordsAgree) {
  auto a = *ipv4_addr::parse("192.0.2.1");
  EXPECT_EQ(a.words()[0], 0xC0000201u);
  EXPECT_EQ(ntohl(a.to_c().s_addr), 0xC0000201u);
  EXPECT_EQ(ipv4_addr(a.to_c()), a);
  auto b = *ipv6_addr::parse("2001:db8::ff00:42:8329");
  const uint32_t words[4] = {0x20010db8, 0, 0xff00, 0x428329};
  EXPECT_EQ(b, ipv6_addr(words));
  EXPECT_EQ(b.to_c().s6_addr[15], 0x29);
  EXPECT_EQ(ipv6_addr(b.to_c()), b);
  EXPECT_EQ(std::string(b.text()), "2001:db8::ff00:42:8329");
  std::ostringstream out;
  out << a << ' ' << *ipv6_prefix::parse("2001:db8:8000::/33");
  EXPECT_EQ(out.str(), "192.0.2.1 2001:db8:8000::/33");
}

TEST(CppAddr, BadTextAndBitsBeyondTheLengthAreRefused) {
  for (const char *t : {"1.2.3", "1.2.3.256", "1.2.3.4 ", "::1",
                        "1.2.3.4.5.6.7.8.9.10.11.12.13.14.15.16.17.18.19"})
    EXPECT_FALSE(ipv4_addr::parse(t)) << t;
  for (const char *t : {"10.1.0.1/16", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0",
                        "10.0.0.0/1x", "10.0.0.0/0016"})
    EXPECT_FALSE(ipv4_prefix::parse(t)) << t;
  EXPECT_FALSE(ipv6_prefix::parse("2001:db8:8000::/32"));
  EXPECT_FALSE(ipv6_prefix::parse("::/129"));
  auto p = *ipv4_prefix::parse("10.1.0.0/16");
  EXPECT_TRUE(p.contains(*ipv4_addr::parse("10.1.255.3")));
  EXPECT_FALSE(p.contains(*ipv4_addr::parse("10.2.0.0")));
}

TEST(CppAddr, EqualValuesHashAlike) {
  std::unordered_set<ipv6_prefix> set{*ipv6_prefix::parse("::/0"),
                                      *ipv6_prefix::parse("::/1"),
                                      *ipv6_prefix::parse("::/0")};
  EXPECT_EQ(set.size(), 2u);
  EXPECT_LT(*ipv4_addr::parse("9.255.255.255"), *ipv4_addr::parse("10.0.0.0"));
}

}  // namespace

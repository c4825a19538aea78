#include <gtest/gtest.h>

#include "lpm_formats.h"
#include "lpm_iproute.h"
#include "lpm_json.h"

namespace {

using namespace lpm;

std::string nexthop_of(const Table &t, uint32_t data) {
  return data >= 1 && data <= t.nexthops.size() ? t.nexthops[data - 1] : "?";
}

TEST(IpRoute, TextRoutesBecomeNextHopWords) {
  Table t;
  std::string error;
  ASSERT_TRUE(load_ip_route(
      "default dev wg0 scope link\n"
      "2001:db8::/32 via inet6 fe80::1 dev eth0 proto ra metric 1024 pref "
      "medium\n"
      "10.2.0.0/16 proto static mtu lock 1400\n"
      "\tnexthop via 10.0.0.2 dev eth1 weight 1\n"
      "\tnexthop via 10.0.0.3 dev eth2 weight 1\n"
      "throw 10.3.0.0/16 table main\n"
      "10.4.0.0/16 via 10.0.0.2 dev eth1 linkdown onlink\n",
      "r", t, error))
      << error;
  // "default" without a gateway takes the family of the first address.
  ASSERT_EQ(t.v6.size(), 2u);
  EXPECT_EQ(t.v6[0].len, 0u);
  EXPECT_EQ(nexthop_of(t, t.v6[0].data), "dev wg0");
  EXPECT_EQ(nexthop_of(t, t.v6[1].data), "via fe80::1 dev eth0");
  ASSERT_EQ(t.v4.size(), 3u);
  EXPECT_EQ(nexthop_of(t, t.v4[0].data),
            "via 10.0.0.2 dev eth1, via 10.0.0.3 dev eth2");
  EXPECT_EQ(nexthop_of(t, t.v4[1].data), "throw");
  // One word per distinct next hop.
  EXPECT_EQ(nexthop_of(t, t.v4[2].data), "via 10.0.0.2 dev eth1");
  EXPECT_EQ(t.nexthops.size(), 5u);
}

TEST(IpRoute, BadRouteLinesNameTheirLine) {
  struct Case {
    const char *text, *error;
  } cases[] = {
      {"10.0.0.0/8 dev eth0\n10.1.0.0/16 via 10.0.0.300 dev eth0\n",
       "r:2: bad gateway address '10.0.0.300'"},
      {"\tnexthop via 10.0.0.2 dev eth1\n",
       "r:1: 'nexthop' line before any route"},
      {"10.0.0.0/8 dev\n", "r:1: no value after 'dev'"},
      {"unreachable\n", "r:1: route type 'unreachable' without a destination"},
      {"default dev eth0\n\n10.0.0.0/33 dev eth0\n",
       "r:3: bad route destination: bad prefix length '33' (0 to 32 for "
       "IPv4)"},
  };
  for (const Case &c : cases) {
    Table t;
    std::string error;
    EXPECT_FALSE(load_ip_route(c.text, "r", t, error)) << c.text;
    EXPECT_EQ(error, c.error);
  }
  Table t;
  std::string error;
  EXPECT_FALSE(
      load_ip_route(std::string("1.0.0.0/8 dev x\0\n", 17), "r", t, error));
  EXPECT_EQ(error, "r:1: NUL byte in line '1.0.0.0/8 dev x\\x00'");
}

TEST(IpRoute, JsonRoutesReadAsTheTextOnesAndFaultsNameTheirLine) {
  std::string path =
      std::string(VELL_SOURCE_DIR) + "/tests/tool/samples/ip-6-route.json";
  Source src;
  std::string error;
  std::vector<std::string> warnings;
  ASSERT_TRUE(read_source(path, src, error)) << error;
  EXPECT_EQ(detect_format(src.bytes), Format::ip_route_json);
  Table t;
  ASSERT_TRUE(load_source(src, Format::automatic, t, error, warnings)) << error;
  ASSERT_EQ(t.v6.size(), 4u);
  EXPECT_EQ(nexthop_of(t, t.v6[1].data), "unreachable dev lo");
  EXPECT_EQ(nexthop_of(t, t.v6[2].data),
            "via fe80::1 dev eth0, via fe80::2 dev eth1");
  EXPECT_EQ(t.v6[3].len, 0u);

  struct Case {
    const char *text, *error;
  } cases[] = {
      {"[{\"dst\": \"10.0.0.0/8\"},\n {\"dst\": 5}]",
       "j:2: route without a \"dst\""},
      {"[\n{\"dst\": \"10.0.0.0/8\",\n \"gateway\": \"x\"}]",
       "j:2: bad gateway address 'x'"},
      {"{\"dst\": \"default\"}", "j:1: expected a JSON array of routes"},
      {"[\n\n{\"dst\" \"x\"}]", "j:3: ':' expected after a JSON member name"},
      {"[{\"dst\": \"10.0.0.0/8\"}] x", "j:1: text after the JSON value"},
      {"[\"a\\q\"]", "j:1: bad escape in a JSON string"},
      {"[{\"dst\": \"1.0.0.0/8\"", "j:1: ',' or '}' expected in a JSON object"},
  };
  for (const Case &c : cases) {
    Table t2;
    EXPECT_FALSE(load_ip_route_json(c.text, "j", t2, error)) << c.text;
    EXPECT_EQ(error, c.error);
  }
}

TEST(Json, NestingIsBoundedAndEscapesAreDecoded) {
  Json j;
  size_t at;
  std::string why;
  std::string deep(kJsonMaxDepth + 1, '[');
  EXPECT_FALSE(parse_json(deep, j, at, why));
  EXPECT_EQ(why, "JSON nested too deeply");
  EXPECT_EQ(at, kJsonMaxDepth);
  ASSERT_TRUE(
      parse_json("{\"k\": \"a\\u00e9\\n\\\"\", \"n\": -1.5e3}", j, at, why))
      << why;
  EXPECT_EQ(j.string_at("k"), "a\xc3\xa9\n\"");
  EXPECT_EQ(j.get("n")->text, "-1.5e3");
  EXPECT_EQ(j.string_at("n"), "");
  EXPECT_EQ(j.get("none"), nullptr);
}

TEST(Formats, ChosenByContent) {
  EXPECT_EQ(detect_format("; pyasn\n1.0.0.0/24\t15169\n"), Format::table);
  EXPECT_EQ(detect_format("\n\n10.0.0.0/8 dev eth0\n"), Format::ip_route);
  EXPECT_EQ(detect_format("blackhole 10.0.0.0/8\n"), Format::ip_route);
  EXPECT_EQ(detect_format("default via 10.0.0.1 dev eth0\n"), Format::ip_route);
  EXPECT_EQ(detect_format(" [ ]"), Format::ip_route_json);
  EXPECT_EQ(detect_format("1.0.0.0,1.0.0.255,13335\n"), Format::table);
  Format f;
  EXPECT_TRUE(format_named("ip-route-json", f));
  EXPECT_EQ(f, Format::ip_route_json);
  EXPECT_FALSE(format_named("csv", f));
}

}  // namespace

#include <gtest/gtest.h>

#include "lpm_formats.h"
#include "lpm_iproute.h"
#include "lpm_json.h"

namespace {

using namespace lpm;

std::string nexthop_of(const Table &t, uint32_t data) {
  const std::string *hop = t.nexthops.text(data);
  return hop ? *hop : "?";
}

// A listing read as text or, when it starts with '[', as JSON: each route
// as "FAMILY/LEN NEXTHOP" ("4/0 dev wg0"), joined by "; ", or the error.
std::string read_routes(std::string_view listing, const RouteOptions &o,
                        std::string *warning = nullptr,
                        size_t *words = nullptr) {
  Table t;
  std::string error, warned;
  bool ok = listing[0] == '['
                ? load_ip_route_json(listing, "r", o, t, error, warned)
                : load_ip_route(listing, "r", o, t, error, warned);
  if (warning) *warning = warned;
  if (words) *words = t.nexthops.size();
  if (!ok) return error;
  std::string routes;
  auto add = [&](char family, unsigned len, uint32_t data) {
    routes += std::string(routes.empty() ? "" : "; ") + family + "/" +
              std::to_string(len) + " " + nexthop_of(t, data);
  };
  for (const auto &e : t.v4) add('4', e.len, e.data);
  for (const auto &e : t.v6) add('6', e.len, e.data);
  return routes;
}

// "default" without a gateway takes the family of the routes after it;
// routes of one next hop share its word.
TEST(IpRoute, TextRoutesBecomeNextHopWords) {
  size_t words = 0;
  EXPECT_EQ(
      read_routes("default dev wg0 scope link\n"
                  "2001:db8::/32 via inet6 fe80::1 dev eth0 proto ra metric "
                  "1024 pref medium\n"
                  "10.2.0.0/16 proto static mtu lock 1400\n"
                  "\tnexthop via 10.0.0.2 dev eth1 weight 1\n"
                  "\tnexthop via 10.0.0.3 dev eth2 weight 1\n"
                  "throw 10.3.0.0/16 table main\n"
                  "10.4.0.0/16 via 10.0.0.2 dev eth1 linkdown onlink\n"
                  "10.5.0.0/16 via 10.0.0.2 dev eth1\n",
                  {}, nullptr, &words),
      "4/16 via 10.0.0.2 dev eth1, via 10.0.0.3 dev eth2; 4/16 throw; 4/16 "
      "via 10.0.0.2 dev eth1; 4/16 via 10.0.0.2 dev eth1; 6/0 dev wg0; 6/32 "
      "via fe80::1 dev eth0");
  EXPECT_EQ(words, 5u);
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
    std::string error, warning;
    EXPECT_FALSE(load_ip_route(c.text, "r", {}, t, error, warning)) << c.text;
    EXPECT_EQ(error, c.error);
  }
}

TEST(IpRoute, JsonRoutesReadAsTheTextOnesAndFaultsNameTheirLine) {
  std::string path =
      std::string(VELL_SOURCE_DIR) + "/tests/tool/samples/ip-6-route.json";
  Source src;
  std::string error, warning;
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
    EXPECT_FALSE(load_ip_route_json(c.text, "j", {}, t2, error, warning))
        << c.text;
    EXPECT_EQ(error, c.error);
  }
}

TEST(IpRoute, DefaultRouteFamilyFromItsWordsTheListingOrTheOption) {
  struct Case {
    const char *listing;
    std::optional<Family> family;
    const char *routes;
  } cases[] = {
      // Its own words: `pref` is IPv6's; a source address tells its family.
      {"2001:db8::/64 dev d0\ndefault dev wg0 metric 1024 pref medium\n",
       Family::v4, "6/64 dev d0; 6/0 dev wg0"},
      {"[{\"dst\":\"default\",\"dev\":\"wg0\",\"pref\":\"medium\"}]",
       {},
       "6/0 dev wg0"},
      {"default dev wg0 scope link src 10.0.0.5\n", {}, "4/0 dev wg0"},
      // The routes around it: a listing holds each family's together.
      {"default dev wg0\n10.0.0.0/24 dev d0\n2001:db8::/64 dev d0\n",
       {},
       "4/0 dev wg0; 4/24 dev d0; 6/64 dev d0"},
      {"[{\"dst\":\"2001:db8::/64\",\"dev\":\"d0\"},"
       "{\"dst\":\"default\",\"dev\":\"wg0\"}]",
       {},
       "6/64 dev d0; 6/0 dev wg0"},
      // --family settles what nothing else tells; without it, an error.
      {"10.0.0.0/24 dev d0\ndefault dev wg0\n2001:db8::/64 dev d0\n",
       Family::v6, "4/24 dev d0; 6/0 dev wg0; 6/64 dev d0"},
      {"10.0.0.0/24 dev d0\ndefault dev wg0\n2001:db8::/64 dev d0\n",
       {},
       "r:2: cannot tell whether this default route is IPv4 or IPv6: nothing "
       "on its line says, and it lies between IPv4 and IPv6 routes; give "
       "--family 4 or 6"},
      {"[{\"dst\":\"default\",\"dev\":\"wg0\"}]",
       {},
       "r:1: cannot tell whether this default route is IPv4 or IPv6: nothing "
       "on its line says, and no other route of the listing does; give "
       "--family 4 or 6"},
  };
  for (const Case &c : cases)
    EXPECT_EQ(read_routes(c.listing, {c.family}), c.routes) << c.listing;
}

TEST(IpRoute, Ipv4RoutesThroughIpv6NeighboursKeepTheirGateways) {
  const char *text =
      "default via inet6 fe80::1 dev eth0\n"
      "10.7.0.0/16\n"
      "\tnexthop via inet6 fe80::1 dev d0 weight 1\n"
      "\tnexthop via 10.1.0.2 dev d1 weight 1\n";
  const char *json =
      "[{\"dst\":\"default\",\"via\":{\"family\":\"inet6\",\"host\":"
      "\"fe80::1\"},\"dev\":\"eth0\"},\n"
      "{\"dst\":\"10.7.0.0/16\",\"nexthops\":[{\"via\":{\"family\":"
      "\"inet6\",\"host\":\"fe80::1\"},\"dev\":\"d0\"},{\"gateway\":"
      "\"10.1.0.2\",\"dev\":\"d1\"}]}]";
  const char *routes =
      "4/0 via fe80::1 dev eth0; 4/16 via fe80::1 dev d0, via 10.1.0.2 dev d1";
  EXPECT_EQ(read_routes(text, {}), routes);
  EXPECT_EQ(read_routes(json, {}), routes);
}

TEST(IpRoute, OneLineListingsReadAsTheMultiLineOnes) {
  // `ip -o route` joins a route's lines with a backslash, which may follow
  // the last word without a blank.
  const char *multi =
      "10.2.0.0/16 proto static metric 30 \n"
      "\tnexthop via 10.0.0.2 dev eth1 weight 1 \n"
      "\tnexthop via 10.0.0.3 dev eth2 weight 1 \n"
      "2001:db8:9::/48 metric 1024 pref medium\n"
      "\tnexthop via fe80::1 dev d0 weight 1 \n"
      "\tnexthop via fe80::2 dev d1 weight 1 \n";
  std::string one = multi;
  for (size_t at; (at = one.find("\n\t")) != std::string::npos;)
    one.replace(at, 2, one[at - 1] == ' ' ? "\\" : "\\\t");
  EXPECT_EQ(read_routes(one, {}),
            "4/16 via 10.0.0.2 dev eth1, via 10.0.0.3 dev eth2; "
            "6/48 via fe80::1 dev d0, via fe80::2 dev d1");
  EXPECT_EQ(read_routes(one, {}), read_routes(multi, {}));
}

TEST(IpRoute, AListingOfSeveralTablesReadsTheChosenOneAndCountsTheRest) {
  const char *text =
      "default dev d1 table 100 scope link\n"
      "10.0.0.0/24 dev d0 proto kernel scope link src 10.0.0.5\n"
      "local 10.0.0.5 dev d0 table local proto kernel scope host\n"
      "2001:db8::/64 dev d0 proto kernel metric 256 pref medium\n"
      "local ::1 dev lo table local proto kernel metric 0 pref medium\n";
  const char *json =
      "[{\"dst\":\"default\",\"dev\":\"d1\",\"table\":\"100\"},\n"
      "{\"dst\":\"10.0.0.0/24\",\"dev\":\"d0\"},\n"
      "{\"type\":\"local\",\"dst\":\"10.0.0.5\",\"dev\":\"d0\","
      "\"table\":\"local\"},\n"
      "{\"dst\":\"2001:db8::/64\",\"dev\":\"d0\"},\n"
      "{\"type\":\"local\",\"dst\":\"::1\",\"dev\":\"lo\",\"table\":"
      "\"local\"}]";
  struct Case {
    const char *table, *routes, *warning;
  } cases[] = {
      {"main", "4/24 dev d0; 6/64 dev d0",
       "r: read table main only, skipped 3 routes of other tables ('100': 1, "
       "'local': 2); --route-table NAME or all reads them"},
      {"255", "4/32 local dev d0; 6/128 local dev lo",
       "r: read table 255 only, skipped 3 routes of other tables ('100': 1, "
       "'main': 2); --route-table NAME or all reads them"},
      {"all",
       "4/0 dev d1; 4/24 dev d0; 4/32 local dev d0; 6/64 dev d0; 6/128 local "
       "dev lo",
       ""},
  };
  for (const Case &c : cases)
    for (const char *listing : {text, json}) {
      std::string warning;
      EXPECT_EQ(read_routes(listing, {{}, c.table}, &warning), c.routes);
      EXPECT_EQ(warning, c.warning);
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
  // Decided on the first line that tells: after comments, and past a
  // multipath route's head, which can be a bare prefix.
  EXPECT_EQ(detect_format("# r\n10.0.0.0/24 proto bgp metric 20\n"),
            Format::ip_route);
  EXPECT_EQ(detect_format("2001:db8::/32\n\tnexthop via fe80::1 dev d0\n"),
            Format::ip_route);
  EXPECT_EQ(detect_format("10.0.0.0/8\n10.1.0.0/16 7 # dev\n"), Format::table);
  // A tunnel's own words (its "src", "dst", "table") are not the route's.
  EXPECT_EQ(read_routes("10.6.0.0/16  encap mpls  100/200 ttl 9 via 10.0.0.1 "
                        "dev d0\n"
                        "10.5.0.0/16  encap ip id 5 src 0.0.0.0 dst 10.1.0.9 "
                        "ttl 3 tos 0 dev d0 scope link\n"
                        "2001:db8::/32 encap seg6 mode encap segs 2 [ fc00::1 "
                        "fc00::2 ] dev d1 pref medium\n"
                        "10.3.0.0/16 encap seg6local action End.DT4 table 100 "
                        "dev d2\n",
                        {}),
            "4/16 via 10.0.0.1 dev d0; 4/16 dev d0; 4/16 dev d2; 6/32 dev d1");
  Format f;
  EXPECT_TRUE(format_named("ip-route-json", f));
  EXPECT_EQ(f, Format::ip_route_json);
  EXPECT_FALSE(format_named("csv", f));
}

}  // namespace

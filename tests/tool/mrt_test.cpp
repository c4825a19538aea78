#include <gtest/gtest.h>

#include <initializer_list>

#include "lpm_mrt.h"
#include "mrt_build.h"
#include "table_listing.h"

namespace {

using namespace lpm;
using namespace mrt_build;

// A TABLE_DUMP_V2 RIB record with one entry per attribute string.
std::string rib(uint16_t subtype, std::initializer_list<uint8_t> prefix_bytes,
                unsigned len, std::initializer_list<std::string> entries,
                bool add_path = false) {
  Bytes b;
  b.n(7, 4).n(len, 1);
  for (uint8_t x : prefix_bytes) b.n(x, 1);
  b.n(static_cast<uint32_t>(entries.size()), 2);
  uint32_t peer = 0;  // entry i names peer i
  for (const std::string &attrs : entries) {
    b.n(peer++, 2).n(1400824800, 4);
    if (add_path) b.n(9, 4);
    b.n(static_cast<uint32_t>(attrs.size()), 2).raw(attrs);
  }
  return record(13, subtype, b.b);
}

// A PEER_INDEX_TABLE of n peers (IPv4 addresses, 2-byte AS numbers).
std::string peer_index(unsigned n) {
  Bytes b;
  b.n(0, 4).n(0, 2).n(n, 2);
  for (unsigned i = 0; i < n; ++i) b.n(0, 1).n(0, 4).n(i, 4).n(65000 + i, 2);
  return record(13, 1, b.b);
}

const uint8_t kSet = 1, kSeq = 2, kConfedSeq = 3;

// Paths that name no origin (empty, confederation only) are passed over;
// a prefix none of whose entries names one is left out, and counted.
TEST(Mrt, OriginIsTheLastAsOfTheFirstEntryOrTheLeastOfAFinalSet) {
  std::string dump =
      peer_index(2) +
      rib(2, {10}, 8,
          {as_path({{kSeq, 701, 4200000000u}}), as_path({{kSeq, 1, 2}})}) +
      rib(2, {10, 1}, 16, {as_path({{kSeq, 3}, {kSet, 9, 5, 7}})}) +
      rib(2, {}, 0, {as_path({{kConfedSeq, 65000}, {kSeq, 6, 8}})}) +
      rib(2, {192, 0, 2}, 24, {}) +               // no entries: no route
      rib(3, {224}, 4, {as_path({{kSeq, 1}})}) +  // multicast: skipped
      rib(10, {0x20, 0x01, 0x0d, 0xb8}, 32, {"", as_path({{kSeq, 5}})}, true) +
      rib(2, {12}, 8, {"", as_path({{kConfedSeq, 65000}})}) +  // left out
      rib(2, {13}, 8, {as_path({{kSeq, 0}})}) +  // AS 0 is an origin
      record(16, 4, "BGP4MP update, skipped");
  Table t;
  std::string error, warning;
  ASSERT_TRUE(load_mrt(dump, "d", t, error, warning)) << error;
  EXPECT_EQ(warning,
            "d: 1 prefixes left out: no AS path names their origin AS (empty "
            "or confederation-only paths); 1 multicast or generic RIB records "
            "skipped: the tables hold unicast routes");
  // 2001:db8::/32's first entry's path is empty.
  EXPECT_EQ(listed(t),
            "10.0.0.0/8=4200000000 10.1.0.0/16=5 0.0.0.0/0=8 13.0.0.0/8=0 "
            "2001:db8::/32=5");

  EXPECT_FALSE(
      load_mrt(record(16, 4, "") + peer_index(1), "d", t, error, warning));
  EXPECT_EQ(error,
            "d: no unicast RIB records (TABLE_DUMP or TABLE_DUMP_V2): not a "
            "RIB dump vell-lpm reads");
}

TEST(Mrt, OldTableDumpTakesTheFourByteOriginFromAs4Path) {
  Bytes b;
  b.n(0, 2)
      .n(1, 2)
      .n(0xC6336400, 4)
      .n(24, 1)
      .n(1, 1)
      .n(0, 4)
      .n(0x0A000001, 4)
      .n(23456, 2);
  std::string attrs =
      as_path({{kSeq, 1, 23456}}, 2) + as_path({{kSeq, 1, 4200000001u}}, 4, 17);
  b.n(static_cast<uint32_t>(attrs.size()), 2).raw(attrs);
  Table t;
  std::string error, warning;
  ASSERT_TRUE(load_mrt(record(12, 1, b.b), "d", t, error, warning)) << error;
  EXPECT_EQ(listed(t), "198.51.100.0/24=4200000001");
}

TEST(Mrt, ADumpCutShortKeepsItsWholeRecordsAndSaysWhere) {
  std::string one = rib(2, {10}, 8, {as_path({{kSeq, 1}})});
  std::string two = rib(2, {11}, 8, {as_path({{kSeq, 2}})});
  for (size_t cut : {size_t{5}, two.size() - 1}) {
    Table t;
    std::string error, warning;
    std::string dump = one + two.substr(0, cut);
    ASSERT_TRUE(load_mrt(dump, "d", t, error, warning)) << error;
    EXPECT_EQ(t.v4.size(), 1u);
    EXPECT_EQ(warning,
              "d: dump cut short at byte " + std::to_string(dump.size()) +
                  ", inside the record at byte " + std::to_string(one.size()) +
                  ": read the 1 whole records before it; d: 1 RIB records "
                  "without a peer index table");
  }
}

TEST(Mrt, AMalformedRecordIsAnErrorAtItsByteOffset) {
  std::string good = rib(2, {10}, 8, {as_path({{kSeq, 1}})});
  std::string at = "d: byte " + std::to_string(good.size()) +
                   ": bad MRT record (type 13, subtype ";
  struct Case {
    std::string record, why;
  } cases[] = {
      {rib(2, {10}, 33, {}), "2): prefix length 33 beyond 32"},
      {rib(2, {11}, 7, {as_path({{kSeq, 1}})}),
       "2): prefix 11.0.0.0/7 has bits set beyond its length"},
      {rib(4, {0x20}, 129, {}), "4): prefix length 129 beyond 128"},
      {rib(2, {10}, 8, {as_path({{7, 1}})}),
       "2): AS_PATH segment of unknown type 7"},
      {rib(2, {10}, 8, {as_path({{kSeq, 1}}).substr(0, 5)}),
       "2): path attribute 2 runs past the attributes' end"},
      {record(13, 2,
              Bytes().n(7, 4).n(8, 1).n(10, 1).n(2, 2).n(0, 6).n(0, 2).b),
       "2): RIB entry 2 of 2 runs past the record's end"},
      {record(13, 2, Bytes().n(7, 4).n(8, 1).b),
       "2): prefix runs past its field"},
  };
  for (const Case &c : cases) {
    Table t;
    std::string error, warning;
    EXPECT_FALSE(load_mrt(good + c.record, "d", t, error, warning));
    EXPECT_EQ(error, at + c.why);
    EXPECT_EQ(t.v4.size(), 1u);
  }
}

TEST(Mrt, EveryEntryNamesItsPeerFromThePeerIndex) {
  std::string index = record(13, 1,
                             Bytes()
                                 .n(0, 4)
                                 .n(1, 2)
                                 .raw("v")
                                 .n(2, 2)
                                 .n(0, 1)  // IPv4 address, 2-byte AS
                                 .n(0, 4)
                                 .n(0xC0000201, 4)
                                 .n(65001, 2)
                                 .n(3, 1)  // IPv6 address, 4-byte AS
                                 .n(0, 4)
                                 .n(0x20010db8, 4)
                                 .n(0, 8)
                                 .n(1, 4)
                                 .n(4200000000u, 4)
                                 .b);
  std::string dump =
      index + rib(2, {10}, 8, {as_path({{kSeq, 1}}), as_path({{kSeq, 2}})}) +
      rib(10, {0x20, 0x01}, 16, {as_path({{kSeq, 3}})}, true);
  std::vector<RibPeer> peers;
  std::vector<RibRoute> routes;
  std::string error, warning;
  auto each = [&](const RibRoute &r) { routes.push_back(r); };
  ASSERT_TRUE(load_mrt_routes(dump, "d", peers, each, error, warning)) << error;
  ASSERT_EQ(peers.size(), 2u);
  EXPECT_EQ(peers[0].as, 65001u);
  EXPECT_EQ(peers[0].addr.w[0], 0xC0000201u);
  EXPECT_EQ(peers[1].family, Family::v6);
  EXPECT_EQ(peers[1].addr.w[3], 1u);
  EXPECT_EQ(peers[1].as, 4200000000u);
  ASSERT_EQ(routes.size(), 3u);
  EXPECT_EQ(routes[1].peer, 1u);
  EXPECT_EQ(routes[1].origin, 2u);
  EXPECT_EQ(routes[2].family, Family::v6);
  EXPECT_EQ(routes[2].path, 9u);
  EXPECT_TRUE(is_table_dump_v2(dump));
  std::string three =
      rib(2, {11}, 8, {as_path({{kSeq, 1}}), "", as_path({{kSeq, 3}})});
  EXPECT_FALSE(load_mrt_routes(dump + three, "d", peers, each, error, warning));
  EXPECT_EQ(error, "d: byte " + std::to_string(dump.size()) +
                       ": bad MRT record (type 13, subtype 2): RIB entry "
                       "names peer 2 of 2");
  std::string one_of_two = record(
      13, 1, Bytes().n(0, 4).n(0, 2).n(2, 2).n(0, 1).n(0, 4).n(1, 4).n(1, 2).b);
  EXPECT_FALSE(load_mrt_routes(one_of_two, "d", peers, each, error, warning));
  EXPECT_EQ(error,
            "d: byte 0: bad MRT record (type 13, subtype 1): peer index "
            "table runs past its record");
  EXPECT_FALSE(load_mrt_routes(three, "d", peers, each, error, warning));
  EXPECT_EQ(error,
            "d: byte 0: bad MRT record (type 13, subtype 2): RIB entry names "
            "peer 0, but no peer index table precedes it");
}

TEST(Mrt, RecognisedByItsHeaderOnly) {
  EXPECT_TRUE(looks_like_mrt(rib(2, {10}, 8, {})));
  EXPECT_TRUE(looks_like_mrt(record(12, 1, "")));
  EXPECT_FALSE(looks_like_mrt(record(16, 4, "")));
  EXPECT_FALSE(looks_like_mrt("10.0.0.0/8 1\n"));
  EXPECT_FALSE(looks_like_mrt(std::string(5, '\0')));
}

}  // namespace

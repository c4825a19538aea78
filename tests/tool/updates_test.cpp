#include <gtest/gtest.h>

#include <vector>

#include "lpm_updates.h"
#include "mrt_build.h"

namespace {

using namespace lpm;
using namespace mrt_build;

const uint8_t kSet = 1, kSeq = 2;
const uint32_t kT = 1764064800;  // 2025-11-25T10:00:00Z

// A prefix as BGP encodes it, with an ADD-PATH identifier when path > 0.
std::string pfx(unsigned len, std::initializer_list<uint8_t> bytes,
                uint32_t path = 0) {
  Bytes b;
  if (path) b.n(path, 4);
  b.n(len, 1);
  for (uint8_t x : bytes) b.n(x, 1);
  return b.b;
}

std::string update(const std::string &withdrawn, const std::string &attrs,
                   const std::string &nlri) {
  std::string body = Bytes()
                         .n(withdrawn.size(), 2)
                         .raw(withdrawn)
                         .n(attrs.size(), 2)
                         .raw(attrs)
                         .raw(nlri)
                         .b;
  return Bytes().n(~0ull, 8).n(~0ull, 8).n(19 + body.size(), 2).n(2, 1).b +
         body;
}

std::string mp(uint8_t type, uint16_t afi, uint8_t safi,
               const std::string &nlri) {
  Bytes v;
  v.n(afi, 2).n(safi, 1);
  if (type == 14) v.n(16, 1).n(0, 16).n(0, 1);  // next hop, reserved
  v.raw(nlri);
  return Bytes().n(0x90, 1).n(type, 1).n(v.b.size(), 2).raw(v.b).b;
}

// A BGP4MP record from peer AS `peer` at 192.0.2.<peer % 256> to local AS
// 64999 at 192.0.2.254; `as4` as the subtype's AS width.
std::string bgp4mp(uint16_t subtype, uint32_t peer, const std::string &msg,
                   uint32_t time = kT, uint16_t type = 16) {
  bool as4 = subtype == 4 || subtype == 5 || subtype == 7 || subtype == 9 ||
             subtype == 11;
  Bytes b;
  if (type == 17) b.n(123456, 4);
  b.n(peer, as4 ? 4 : 2).n(64999, as4 ? 4 : 2).n(0, 2).n(1, 2);
  b.n(0xC0000200 | (peer & 0xFF), 4).n(0xC00002FE, 4).raw(msg);
  return record(type, subtype, b.b, time);
}

std::string state(uint32_t peer, uint16_t from, uint16_t to, uint32_t t) {
  return bgp4mp(0, peer, Bytes().n(from, 2).n(to, 2).b, t);
}

struct Replay {
  std::vector<RouteChange> changes;
  UpdateReader reader;
  std::string error, warning;
  explicit Replay(uint64_t stop = UINT64_MAX)
      : reader([this](const RouteChange &c) { changes.push_back(c); }, stop) {}
  bool read(const std::string &b) {
    return reader.read(b, "u", error, warning);
  }
};

Prefix4or6 v4(uint32_t a, unsigned len) {
  Prefix4or6 p{Family::v4, Addr(), len};
  p.addr.w[0] = a;
  return p;
}

TEST(Updates, EveryMessageFormGivesItsSenderPathAndOrigin) {
  std::string attrs2 = as_path({{kSeq, 701, 7}}, 2);
  std::string attrs4 = as_path({{kSeq, 701, 4200000000u}});
  struct Case {
    uint16_t subtype, type;
    bool as4, local, add_path;
  } cases[] = {{1, 16, false, false, false}, {4, 16, true, false, false},
               {6, 16, false, true, false},  {7, 16, true, true, false},
               {8, 16, false, false, true},  {9, 16, true, false, true},
               {10, 16, false, true, true},  {11, 16, true, true, true},
               {4, 17, true, false, false}};
  for (const Case &c : cases) {
    Replay r;
    std::string nlri = pfx(24, {10, 1, 2}, c.add_path ? 5 : 0);
    ASSERT_TRUE(
        r.read(bgp4mp(c.subtype, 65001,
                      update("", c.as4 ? attrs4 : attrs2, nlri), kT, c.type)))
        << c.subtype << ": " << r.error;
    ASSERT_EQ(r.changes.size(), 1u) << c.subtype;
    const RouteChange &ch = r.changes[0];
    EXPECT_EQ(ch.kind, RouteChange::announce);
    EXPECT_EQ(ch.prefix, v4(0x0A010200, 24));
    EXPECT_EQ(ch.origin, c.as4 ? 4200000000u : 7u);
    EXPECT_EQ(ch.path, c.add_path ? 5u : 0u);
    EXPECT_EQ(ch.time, kT);
    EXPECT_EQ(r.reader.peer_name(ch.peer),
              c.local ? "AS64999 192.0.2.254" : "AS65001 192.0.2.233");
  }
}

TEST(Updates, APeerOverIpv6IsNamedByItsIpv6Address) {
  Replay r;
  std::string msg = update("", as_path({{kSeq, 9}}), pfx(8, {10}));
  std::string head = Bytes()
                         .n(65001, 4)
                         .n(64999, 4)
                         .n(0, 2)
                         .n(2, 2)
                         .n(0x20010db8, 4)
                         .n(0, 8)
                         .n(1, 4)
                         .n(0, 16)
                         .b;
  ASSERT_TRUE(r.read(record(16, 4, head + msg))) << r.error;
  ASSERT_EQ(r.changes.size(), 1u);
  EXPECT_EQ(r.changes[0].origin, 9u);
  EXPECT_EQ(r.reader.peer_name(r.changes[0].peer), "AS65001 2001:db8::1");
}

TEST(Updates, As4PathStandsForTheTailOnlyWhenNoLongerThanAsPath) {
  Replay r;
  std::string merged =
      as_path({{kSeq, 1, 23456}}, 2) + as_path({{kSeq, 4200000001u}}, 4, 17);
  std::string longer =
      as_path({{kSeq, 23456}}, 2) + as_path({{kSeq, 1, 4200000001u}}, 4, 17);
  std::string set = as_path({{kSeq, 1, 23456}}, 2) +
                    as_path({{kSet, 9, 4200000002u, 8}}, 4, 17);
  ASSERT_TRUE(r.read(bgp4mp(1, 1, update("", merged, pfx(8, {10}))) +
                     bgp4mp(1, 1, update("", longer, pfx(8, {11}))) +
                     bgp4mp(1, 1, update("", set, pfx(8, {12})))))
      << r.error;
  ASSERT_EQ(r.changes.size(), 3u);
  EXPECT_EQ(r.changes[0].origin, 4200000001u);
  EXPECT_EQ(r.changes[1].origin, 23456u);
  EXPECT_EQ(r.changes[2].origin, 8u);
}

TEST(Updates, WithdrawalsComeBeforeAnnouncementsInBothFamilies) {
  Replay r;
  std::string v6 = pfx(32, {0x20, 0x01, 0x0d, 0xb8});
  std::string attrs = as_path({{kSeq, 3}}) + mp(15, 2, 1, v6) +
                      mp(14, 2, 1, pfx(48, {0x20, 1, 0xd, 0xb8, 0, 1})) +
                      mp(14, 2, 2, v6);  // multicast: counted, passed over
  ASSERT_TRUE(
      r.read(bgp4mp(4, 1, update(pfx(16, {10, 1}), attrs, pfx(8, {10})))))
      << r.error;
  ASSERT_EQ(r.changes.size(), 4u);
  EXPECT_EQ(r.changes[0].kind, RouteChange::withdraw);
  EXPECT_EQ(r.changes[0].prefix, v4(0x0A010000, 16));
  EXPECT_EQ(r.changes[1].kind, RouteChange::withdraw);
  EXPECT_EQ(r.changes[1].prefix.family, Family::v6);
  EXPECT_EQ(r.changes[2].prefix, v4(0x0A000000, 8));
  EXPECT_EQ(r.changes[3].prefix.len, 48u);
  EXPECT_EQ(r.changes[3].prefix.addr.w[1], 0x00010000u);
  EXPECT_EQ(r.changes[3].origin, 3u);
  EXPECT_EQ(r.reader.counts().announcements, 2u);
  EXPECT_EQ(r.reader.counts().withdrawals, 2u);
  // A path that names no origin: the announcement says so, and is counted.
  ASSERT_TRUE(r.read(bgp4mp(4, 1, update("", as_path({}), pfx(8, {11})))))
      << r.error;
  EXPECT_FALSE(r.changes.back().has_origin);
  EXPECT_EQ(r.reader.counts().announcements_without_origin, 1u);
}

TEST(Updates, OnlyLeavingEstablishedEndsASessionAndOtherRecordsAreCounted) {
  Replay r;
  std::string keepalive = Bytes().n(~0ull, 8).n(~0ull, 8).n(19, 2).n(4, 1).b;
  // A session named by its AS alone, as some speakers record a reset.
  std::string unnamed = record(
      16, 0,
      Bytes().n(1, 2).n(64999, 2).n(0, 2).n(1, 2).n(0, 8).n(6, 2).n(1, 2).b,
      kT + 3);
  ASSERT_TRUE(r.read(state(2, 6, 1, kT) +  // never seen: nothing to end
                     bgp4mp(1, 1, update("", "", pfx(8, {10}))) +
                     state(1, 5, 6, kT) + state(1, 6, 1, kT + 1) +
                     state(1, 1, 2, kT + 2) + unnamed +
                     bgp4mp(1, 1, keepalive) + record(16, 3, "x") +
                     record(13, 1, "peer index")))
      << r.error;
  ASSERT_EQ(r.changes.size(), 3u);
  EXPECT_EQ(r.changes[1].kind, RouteChange::down);
  EXPECT_EQ(r.changes[1].time, kT + 1);
  EXPECT_EQ(r.changes[2].kind, RouteChange::down);
  EXPECT_EQ(r.changes[2].peer, 0u);
  EXPECT_EQ(r.reader.peers(), 1u);
  const UpdateCounts &n = r.reader.counts();
  EXPECT_EQ(n.records, 9u);
  EXPECT_EQ(n.state_changes, 5u);
  EXPECT_EQ(n.other_messages, 1u);
  EXPECT_EQ(n.skipped.size(), 2u);
  EXPECT_EQ(n.last_time, kT + 3);
}

TEST(Updates, ReplayStopsAtTheFirstRecordPastTheStopTime) {
  Replay r(kT + 1);
  std::string a = as_path({{kSeq, 3}}, 2);
  ASSERT_TRUE(r.read(bgp4mp(1, 1, update("", a, pfx(8, {10})), kT) +
                     bgp4mp(1, 1, update("", a, pfx(8, {11})), kT + 1) +
                     bgp4mp(1, 1, update("", a, pfx(8, {12})), kT + 2)));
  EXPECT_EQ(r.changes.size(), 2u);
  EXPECT_TRUE(r.reader.stopped());
  EXPECT_TRUE(r.read(bgp4mp(1, 1, update("", a, pfx(8, {13})), kT)));
  EXPECT_EQ(r.changes.size(), 2u);  // later files are not read
}

TEST(Updates, CorruptRecordsAreRefusedAtTheirByteAndACutFileWarns) {
  std::string good = bgp4mp(1, 1, update("", "", pfx(8, {10})));
  std::string msg = update("", "", "");
  std::string long_len = msg;
  long_len[17] = 40;
  struct Case {
    std::string record, why;
  } cases[] = {
      {bgp4mp(1, 1, update("", "", pfx(33, {10, 0, 0, 0, 0}))),
       "prefix length 33 beyond 32"},
      {bgp4mp(1, 1, update("", "", pfx(7, {11}))),
       "prefix 11.0.0.0/7 has bits set beyond its length"},
      {bgp4mp(1, 1, update("", "", pfx(24, {10}))),
       "prefix runs past its field"},
      {bgp4mp(1, 1, long_len),
       "BGP message length 40, but 23 bytes in the "
       "record"},
      {bgp4mp(1, 1, update("", as_path({{kSeq, 1}}).substr(0, 4), "")),
       "path attribute 2 runs past the attributes' end"},
      {bgp4mp(1, 1,
              update("", Bytes().n(0x80, 1).n(14, 1).n(3, 1).n(2, 2).n(1, 1).b,
                     "")),
       "MP_REACH_NLRI ends inside its header"},
      {record(16, 1, Bytes().n(1, 2).n(2, 2).n(0, 2).n(3, 2).b),
       "peer address family 3 unknown"},
      {record(16, 1, Bytes().n(1, 2).b),
       "record ends inside the BGP message header"},
  };
  for (const Case &c : cases) {
    Replay r;
    EXPECT_FALSE(r.read(good + c.record));
    EXPECT_EQ(r.error, "u: byte " + std::to_string(good.size()) +
                           ": bad MRT record (type 16, subtype 1): " + c.why);
    EXPECT_EQ(r.changes.size(), 1u);
  }
  Replay cut;
  EXPECT_TRUE(cut.read(good + good.substr(0, 20)));
  EXPECT_EQ(cut.changes.size(), 1u);
  EXPECT_NE(cut.warning.find("cut short at byte"), std::string::npos);
}

TEST(PeerTable, TheLowestPeerAnswersThenTheNextThenTheTables) {
  std::vector<std::pair<Prefix4or6, int64_t>> seen;
  PeerTable t([&](const Prefix4or6 &p, const uint32_t *o) {
    seen.push_back({p, o ? int64_t{*o} : -1});
  });
  Prefix4or6 p = v4(0x0A000000, 8), q = v4(0x0B000000, 8);
  t.add_base(p, 100);
  auto change = [](uint32_t peer, RouteChange::Kind k, Prefix4or6 x,
                   uint32_t origin, uint32_t path = 0) {
    return RouteChange{kT, peer, path, k, x, origin};
  };
  EXPECT_TRUE(t.apply(change(1, RouteChange::announce, p, 11)));
  EXPECT_TRUE(t.apply(change(0, RouteChange::announce, p, 10)));
  EXPECT_TRUE(t.apply(change(1, RouteChange::announce, p, 12)));  // hidden
  EXPECT_TRUE(t.apply(change(1, RouteChange::announce, q, 13)));
  EXPECT_TRUE(t.apply(change(1, RouteChange::announce, q, 14, 2)));
  EXPECT_FALSE(t.apply(change(0, RouteChange::withdraw, q, 0)));
  EXPECT_TRUE(t.apply(change(0, RouteChange::withdraw, p, 0)));
  EXPECT_TRUE(t.apply(change(1, RouteChange::down, {}, 0)));
  EXPECT_FALSE(t.apply(change(1, RouteChange::withdraw, q, 0, 2)));
  // The session's end changes each answer once, in no set order.
  ASSERT_EQ(seen.size(), 7u);
  if (seen[5].first == q) std::swap(seen[5], seen[6]);
  std::vector<std::pair<Prefix4or6, int64_t>> want = {
      {p, 100}, {p, 11}, {p, 10}, {q, 13}, {p, 12}, {p, 100}, {q, -1}};
  EXPECT_EQ(seen, want);
  ASSERT_NE(t.answer(p), nullptr);
  EXPECT_EQ(*t.answer(p), 100u);
  EXPECT_EQ(t.answer(q), nullptr);
  // An announcement naming no origin replaces the peer's route with none.
  EXPECT_TRUE(t.apply(change(2, RouteChange::announce, p, 20)));
  RouteChange bare = change(2, RouteChange::announce, p, 0);
  bare.has_origin = false;
  EXPECT_TRUE(t.apply(bare));
  EXPECT_EQ(*t.answer(p), 100u);
}

TEST(Updates, TimesAreUnixSecondsOrIsoUtc) {
  uint64_t s;
  EXPECT_TRUE(parse_time("1764064800", s));
  EXPECT_EQ(s, 1764064800u);
  EXPECT_TRUE(parse_time("2025-11-25T10:00:00Z", s));
  EXPECT_EQ(s, 1764064800u);
  EXPECT_TRUE(parse_time("2025-11-25T10:00", s));
  EXPECT_EQ(s, 1764064800u);
  for (const char *bad : {"", "-1", "99999999999", "2025-11-25", "10:00",
                          "2025-11-25T10:00:00+01:00", "2025-11-25T10:00Zx"})
    EXPECT_FALSE(parse_time(bad, s)) << bad;
}

}  // namespace

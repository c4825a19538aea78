#include "lpm_updates.h"

#include <time.h>

#include <algorithm>

#include "lpm_bgp.h"
#include "lpm_mrt.h"

namespace lpm {
namespace {

enum : uint16_t { kBgp4mp = 16, kBgp4mpEt = 17 };
enum : uint16_t {  // BGP4MP subtypes
  kStateChange = 0,
  kMessage = 1,
  kEntry = 2,  // a RIB entry, in dumps of an old form
  kSnapshot = 3,
  kMessageAs4 = 4,
  kStateChangeAs4 = 5,
  kMessageLocal = 6,
  kMessageAs4Local = 7,
  kMessageAddPath = 8,
  kMessageAs4AddPath = 9,
  kMessageLocalAddPath = 10,
  kMessageAs4LocalAddPath = 11,
};
enum : uint8_t { kBgpUpdate = 2 };
enum : uint16_t { kEstablished = 6 };
enum : uint16_t { kAfiIpv4 = 1, kAfiIpv6 = 2 };
enum : uint8_t { kSafiUnicast = 1 };
constexpr size_t kBgpHeader = 19;

bool family_of_afi(uint32_t afi, Family &f) {
  if (afi != kAfiIpv4 && afi != kAfiIpv6) return false;
  f = afi == kAfiIpv4 ? Family::v4 : Family::v6;
  return true;
}

Addr read_addr(Cursor &c, Family f) {
  Addr a;
  for (unsigned i = 0; i < width(f) / 32; ++i) a.w[i] = c.get(4);
  return a;
}

}  // namespace

bool looks_like_updates(std::string_view b) {
  return b.size() >= kMrtHeader && b[4] == 0 &&
         (b[5] == kBgp4mp || b[5] == kBgp4mpEt);
}

std::string mrt_misfit(std::string_view b, bool for_updates) {
  static constexpr struct {
    uint16_t type;
    const char *name;
  } kTypes[] = {{5, "BGP"},     {6, "RIP"},       {7, "IDRP"},
                {8, "RIPNG"},   {9, "BGP4PLUS"},  {10, "BGP4PLUS_01"},
                {11, "OSPFv2"}, {32, "ISIS"},     {33, "ISIS_ET"},
                {48, "OSPFv3"}, {49, "OSPFv3_ET"}};
  if (b.size() < kMrtHeader || b[4] != 0) return "";
  uint16_t type = static_cast<uint8_t>(b[5]);
  uint16_t subtype = static_cast<uint16_t>(static_cast<uint8_t>(b[6]) << 8 |
                                           static_cast<uint8_t>(b[7]));
  if (looks_like_mrt(b))
    return !for_updates ? ""
                        : "a RIB dump (TABLE_DUMP records), not an update file "
                          "(BGP4MP records): give it as a table with -t";
  if (looks_like_updates(b)) {
    if (subtype == kEntry || subtype == kSnapshot)
      return "a RIB in BGP4MP_ENTRY records, an old form of MRT dump that "
             "vell-lpm does not read: give the RIB as a TABLE_DUMP_V2 dump";
    return for_updates ? ""
                       : "an MRT update file (BGP4MP records), not a table or "
                         "RIB dump (TABLE_DUMP records): give it with "
                         "--updates";
  }
  for (const auto &t : kTypes)
    if (t.type == type)
      return std::string("an MRT file of ") + t.name + " records (type " +
             std::to_string(type) +
             "), which hold no routes vell-lpm reads: give a RIB dump "
             "(TABLE_DUMP_V2 records) with -t, or BGP updates (BGP4MP "
             "records) with --updates";
  return "";
}

std::string UpdateReader::peer_name(uint32_t peer) const {
  const PeerKey &k = peer_keys_.at(peer);
  return "AS" + std::to_string(k.as) + " " + format_addr(k.family, k.addr);
}

uint32_t UpdateReader::peer_number(const PeerKey &k) {
  auto [it, added] =
      peers_.emplace(k, static_cast<uint32_t>(peer_keys_.size()));
  if (added) peer_keys_.push_back(k);
  return it->second;
}

bool UpdateReader::record(uint16_t type, uint16_t subtype, uint32_t time,
                          std::string_view body, std::string &why) {
  Cursor c(body);
  if (type == kBgp4mpEt) c.skip(4);  // microseconds
  bool as4 = subtype == kMessageAs4 || subtype == kStateChangeAs4 ||
             subtype == kMessageAs4Local || subtype == kMessageAs4AddPath ||
             subtype == kMessageAs4LocalAddPath;
  bool state = subtype == kStateChange || subtype == kStateChangeAs4;
  if (!state && (subtype < kMessage || subtype == kEntry ||
                 subtype == kSnapshot || subtype > kMessageAs4LocalAddPath)) {
    ++counts_.skipped[{type, subtype}];
    return true;
  }
  bool local = subtype == kMessageLocal || subtype == kMessageAs4Local ||
               subtype == kMessageLocalAddPath ||
               subtype == kMessageAs4LocalAddPath;
  bool add_path = subtype >= kMessageAddPath;
  PeerKey peer, self;
  peer.as = c.get(as4 ? 4 : 2);
  self.as = c.get(as4 ? 4 : 2);
  c.skip(2);  // interface index
  uint32_t afi = c.get(2);
  if (c.ok() && !family_of_afi(afi, peer.family)) {
    why = "peer address family " + std::to_string(afi) + " unknown";
    return false;
  }
  self.family = peer.family;
  peer.addr = read_addr(c, peer.family);
  self.addr = read_addr(c, self.family);
  if (state) {
    uint32_t from = c.get(2), to = c.get(2);
    if (!c.ok()) {
      why = "state change ends inside its header";
      return false;
    }
    ++counts_.state_changes;
    if (from == kEstablished && to != kEstablished) {
      ++counts_.sessions_down;
      // A peer not seen yet has nothing to withdraw, and gets no number
      // (numbers rank routes). A session named without an address (some
      // speakers clear it before recording the change) is every known
      // peer of that AS.
      bool unnamed = peer.addr == Addr();
      for (const auto &[key, number] : peers_)
        if (unnamed ? key.as == peer.as : key == peer)
          sink_({time, number, 0, RouteChange::down, {}, 0});
    }
    return true;
  }
  c.skip(16);  // marker
  uint32_t length = c.get(2), kind = c.get(1);
  if (!c.ok()) {
    why = "record ends inside the BGP message header";
    return false;
  }
  if (length < kBgpHeader || length - kBgpHeader != c.left()) {
    why = "BGP message length " + std::to_string(length) + ", but " +
          std::to_string(c.left() + kBgpHeader) + " bytes in the record";
    return false;
  }
  if (kind != kBgpUpdate) {
    ++counts_.other_messages;
    return true;
  }
  ++counts_.updates;
  // Numbered at its first route, not at an UPDATE that carries none (an
  // end-of-RIB marker).
  uint32_t sender = UINT32_MAX;
  Cursor withdrawn = c.sub(c.get(2));
  Cursor attrs = c.sub(c.get(2));
  if (!c.ok()) {
    why = "withdrawn routes or path attributes run past the message";
    return false;
  }
  Cursor nlri = c;
  Attributes a;
  uint32_t origin = 0;
  bool found;
  if (!split_attributes(attrs, a, why) ||
      !origin_of(a, !as4, origin, found, why))
    return false;
  // Withdrawals before announcements, as the message orders them.
  auto prefixes = [&](Cursor &list, Family f, RouteChange::Kind k) {
    while (list.left()) {
      if (sender == UINT32_MAX) sender = peer_number(local ? self : peer);
      uint32_t path = add_path ? list.get(4) : 0;
      RouteChange ch{time, sender, path, k, {f, Addr(), 0}, origin, found};
      if (!read_prefix(list, f, ch.prefix.addr, ch.prefix.len, why))
        return false;
      ++(k == RouteChange::announce ? counts_.announcements
                                    : counts_.withdrawals);
      if (k == RouteChange::announce && !found)
        ++counts_.announcements_without_origin;
      sink_(ch);
    }
    return true;
  };
  // An MP_REACH_NLRI or MP_UNREACH_NLRI of a family read here gives the
  // cursor on its prefixes; others are counted and passed over.
  auto multiprotocol = [&](Cursor v, bool reach, Cursor &out, Family &f) {
    uint32_t mp_afi = v.get(2), safi = v.get(1);
    if (reach) v.skip(v.get(1) + 1);  // next hop, reserved byte
    if (!v.ok()) {
      why = std::string(reach ? "MP_REACH_NLRI" : "MP_UNREACH_NLRI") +
            " ends inside its header";
      return false;
    }
    if (safi != kSafiUnicast || !family_of_afi(mp_afi, f)) {
      ++counts_.other_families;
      out = Cursor(std::string_view());
    } else {
      out = v;
    }
    return true;
  };
  Family f = Family::v4;
  Cursor mp(std::string_view{});
  if (!prefixes(withdrawn, Family::v4, RouteChange::withdraw)) return false;
  if (a.has_mp_unreach && (!multiprotocol(a.mp_unreach, false, mp, f) ||
                           !prefixes(mp, f, RouteChange::withdraw)))
    return false;
  if (!prefixes(nlri, Family::v4, RouteChange::announce)) return false;
  if (a.has_mp_reach && (!multiprotocol(a.mp_reach, true, mp, f) ||
                         !prefixes(mp, f, RouteChange::announce)))
    return false;
  return true;
}

bool UpdateReader::read(std::string_view bytes, std::string_view name,
                        std::string &error, std::string &warning) {
  if (stopped_) return true;
  std::string misfit = mrt_misfit(bytes, true);
  if (!misfit.empty()) {
    error = std::string(name) + ": " + misfit;
    return false;
  }
  return for_each_record(
      bytes, name, "update file",
      [&](const MrtRecord &r, std::string &why) {
        if (r.time > stop_after_) {
          stopped_ = true;
          return Next::stop;
        }
        if (!counts_.records++) counts_.first_time = r.time;
        counts_.last_time = std::max(counts_.last_time, r.time);
        counts_.bytes += kMrtHeader + r.body.size();
        if (r.type != kBgp4mp && r.type != kBgp4mpEt) {
          ++counts_.skipped[{r.type, r.subtype}];
          return Next::go_on;
        }
        return record(r.type, r.subtype, r.time, r.body, why) ? Next::go_on
                                                              : Next::refuse;
      },
      error, warning);
}

void PeerTable::add_base(const Prefix4or6 &p, uint32_t origin) {
  set(p, kBase, 0, &origin);
}

bool PeerTable::set(const Prefix4or6 &p, uint32_t peer, uint32_t path,
                    const uint32_t *origin) {
  auto it = routes_.find(p);
  if (!origin && it == routes_.end()) return false;
  if (it == routes_.end()) it = routes_.emplace(p, std::vector<Route>()).first;
  std::vector<Route> &r = it->second;
  const Route *old = r.empty() ? nullptr : &r.front();
  Route before = old ? *old : Route{};
  auto at = std::lower_bound(r.begin(), r.end(), Route{peer, path, 0},
                             [](const Route &x, const Route &y) {
                               return x.peer != y.peer ? x.peer < y.peer
                                                       : x.path < y.path;
                             });
  bool found = at != r.end() && at->peer == peer && at->path == path;
  if (origin && found)
    at->origin = *origin;
  else if (origin)
    r.insert(at, Route{peer, path, *origin});
  else if (found)
    r.erase(at);
  else
    return false;
  settle(it, old != nullptr, before.origin);
  return true;
}

void PeerTable::settle(Routes::iterator it, bool had, uint32_t before) {
  const std::vector<Route> &r = it->second;
  if (r.empty()) {
    Prefix4or6 p = it->first;
    routes_.erase(it);
    if (had) sink_(p, nullptr);
  } else if (!had || r.front().origin != before) {
    sink_(it->first, &r.front().origin);
  }
}

bool PeerTable::apply(const RouteChange &c) {
  switch (c.kind) {
    case RouteChange::announce:
      set(c.prefix, c.peer, c.path, c.has_origin ? &c.origin : nullptr);
      return true;
    case RouteChange::withdraw:
      return set(c.prefix, c.peer, c.path, nullptr);
    case RouteChange::down:
      // Every path of the peer at once, so that each prefix's answer
      // changes once. A pass over every prefix: sessions end rarely, and
      // an index of each peer's prefixes would cost more memory than the
      // routes themselves.
      for (auto it = routes_.begin(); it != routes_.end();) {
        auto next = std::next(it);
        uint32_t before = it->second.front().origin;
        if (std::erase_if(it->second,
                          [&](const Route &x) { return x.peer == c.peer; }))
          settle(it, true, before);
        it = next;
      }
      return true;
  }
  return true;
}

const uint32_t *PeerTable::answer(const Prefix4or6 &p) const {
  auto r = routes_.find(p);
  return r == routes_.end() ? nullptr : &r->second.front().origin;
}

bool parse_time(std::string_view text, uint64_t &seconds) {
  std::string t(text);
  if (!t.empty() && t.find_first_not_of("0123456789") == std::string::npos) {
    if (t.size() > 10) return false;
    seconds = std::stoull(t);
    return seconds <= UINT32_MAX;
  }
  struct tm tm = {};
  const char *end = strptime(t.c_str(), "%Y-%m-%dT%H:%M", &tm);
  if (!end) return false;
  if (*end == ':') {
    end = strptime(end, ":%S", &tm);
    if (!end) return false;
  }
  if (*end == 'Z') ++end;
  if (*end) return false;
  time_t s = timegm(&tm);
  if (s < 0 || static_cast<uint64_t>(s) > UINT32_MAX) return false;
  seconds = static_cast<uint64_t>(s);
  return true;
}

}  // namespace lpm

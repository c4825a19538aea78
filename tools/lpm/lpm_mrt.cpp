#include "lpm_mrt.h"

#include <stdint.h>

#include <algorithm>
#include <functional>

#include "lpm_bgp.h"

namespace lpm {
namespace {

enum : uint16_t { kTableDump = 12, kTableDumpV2 = 13 };
enum : uint16_t {  // TABLE_DUMP_V2 subtypes
  kPeerIndexTable = 1,
  kRibIpv4Unicast = 2,
  kRibIpv4Multicast = 3,
  kRibIpv6Unicast = 4,
  kRibIpv6Multicast = 5,
  kRibGeneric = 6,
  kRibGenericAddPath = 7,
  kRibIpv4UnicastAddPath = 8,
  kRibIpv4MulticastAddPath = 9,
  kRibIpv6UnicastAddPath = 10,
  kRibIpv6MulticastAddPath = 11,
};

// What a dump is read into, and what it held besides the routes read.
struct Dump {
  std::vector<RibPeer> &peers;
  const std::function<void(const RibRoute &)> &each;
  bool first_only;  // each prefix's first entry with an origin, not all
  bool has_index = false;
  uint64_t ribs = 0, no_origin = 0, unindexed = 0, other_ribs = 0;
};

// A RIB_IPV4_UNICAST / RIB_IPV6_UNICAST record, or its ADD-PATH form. An
// entry whose path names no origin AS is left out; in first-only mode a
// prefix none of whose entries names one is left out and counted.
bool read_rib(Cursor c, Family f, bool add_path, Dump &d, std::string &why) {
  ++d.ribs;
  c.skip(4);  // sequence number
  RibRoute r{0, 0, f, Addr(), 0, 0};
  if (!read_prefix(c, f, r.addr, r.len, why)) return false;
  uint32_t entries = c.get(2);
  bool emitted = false;
  for (uint32_t i = 0; i < entries; ++i) {
    r.peer = c.get(2);
    c.skip(4);  // time
    r.path = add_path ? c.get(4) : 0;
    Cursor attrs = c.sub(c.get(2));
    if (!c.ok()) {
      why = "RIB entry " + std::to_string(i + 1) + " of " +
            std::to_string(entries) + " runs past the record's end";
      return false;
    }
    if (d.has_index && r.peer >= d.peers.size()) {
      why = "RIB entry names peer " + std::to_string(r.peer) + " of " +
            std::to_string(d.peers.size());
      return false;
    }
    if (!d.has_index && !d.first_only) {
      why = "RIB entry names peer " + std::to_string(r.peer) +
            ", but no peer index table precedes it";
      return false;
    }
    if (d.first_only && emitted) continue;
    Attributes a;
    bool found;
    if (!split_attributes(attrs, a, why) ||
        !origin_of(a, false, r.origin, found, why))
      return false;
    if (!found) {
      d.no_origin += !d.first_only;
      continue;
    }
    d.each(r);
    emitted = true;
  }
  if (!c.ok()) {
    why = "record ends inside its header";
    return false;
  }
  d.no_origin += d.first_only && entries && !emitted;
  d.unindexed += !d.has_index && entries;
  return true;
}

// A PEER_INDEX_TABLE record: the peers that RIB entries name by index.
bool read_peer_index(Cursor c, std::vector<RibPeer> &peers, std::string &why) {
  c.skip(4);         // collector's BGP identifier
  c.skip(c.get(2));  // view name
  uint32_t n = c.get(2);
  peers.clear();
  for (uint32_t i = 0; i < n && c.ok(); ++i) {
    uint8_t type = static_cast<uint8_t>(c.get(1));
    c.skip(4);  // BGP identifier
    RibPeer p{0, type & 1 ? Family::v6 : Family::v4, Addr()};
    for (unsigned w = 0; w < width(p.family) / 32; ++w) p.addr.w[w] = c.get(4);
    p.as = c.get(type & 2 ? 4 : 2);
    peers.push_back(p);
  }
  if (!c.ok()) {
    why = "peer index table runs past its record";
    return false;
  }
  return true;
}

// A TABLE_DUMP record: one prefix as one peer saw it.
bool read_table_dump(Cursor c, Family f, Dump &d, std::string &why) {
  ++d.ribs;
  unsigned bytes = f == Family::v4 ? 4 : 16;
  c.skip(4);  // view, sequence
  RibRoute r{0, 0, f, Addr(), 0, 0};
  for (unsigned i = 0; i < bytes / 4; ++i) r.addr.w[i] = c.get(4);
  r.len = c.get(1);
  c.skip(1 + 4);  // status, time
  // The record names its peer by address and AS: the first record of a
  // peer adds it to the dump's peers.
  RibPeer peer{0, f, Addr()};
  for (unsigned i = 0; i < bytes / 4; ++i) peer.addr.w[i] = c.get(4);
  peer.as = c.get(2);
  auto same = [&](const RibPeer &p) {
    return p.as == peer.as && p.family == peer.family && p.addr == peer.addr;
  };
  auto known = std::find_if(d.peers.begin(), d.peers.end(), same);
  r.peer = static_cast<uint32_t>(known - d.peers.begin());
  if (known == d.peers.end()) d.peers.push_back(peer);
  Cursor attrs = c.sub(c.get(2));
  if (!c.ok()) {
    why = "record ends before its path attributes do";
    return false;
  }
  Attributes a;
  bool found;
  if (!check_prefix(f, r.addr, r.len, why) ||
      !split_attributes(attrs, a, why) ||
      !origin_of(a, true, r.origin, found, why))
    return false;
  if (found)
    d.each(r);
  else
    ++d.no_origin;
  return true;
}

// Reads one record body of the given type; other types are skipped, and
// RIBs of other address families (multicast, generic) counted.
bool read_record(uint16_t type, uint16_t subtype, std::string_view body,
                 Dump &d, std::string &why) {
  Cursor c(body);
  if (type == kTableDumpV2) {
    switch (subtype) {
      case kPeerIndexTable:
        d.has_index = true;
        return read_peer_index(c, d.peers, why);
      case kRibIpv4Unicast:
      case kRibIpv6Unicast:
      case kRibIpv4UnicastAddPath:
      case kRibIpv6UnicastAddPath:
        return read_rib(
            c,
            subtype == kRibIpv4Unicast || subtype == kRibIpv4UnicastAddPath
                ? Family::v4
                : Family::v6,
            subtype >= kRibIpv4UnicastAddPath, d, why);
      case kRibIpv4Multicast:
      case kRibIpv6Multicast:
      case kRibGeneric:
      case kRibGenericAddPath:
      case kRibIpv4MulticastAddPath:
      case kRibIpv6MulticastAddPath:
        ++d.other_ribs;
        return true;
      default:
        return true;
    }
  }
  if (type == kTableDump && (subtype == 1 || subtype == 2))
    return read_table_dump(c, subtype == 1 ? Family::v4 : Family::v6, d, why);
  return true;
}

// Reads every record of a dump into `d`; then a dump without a unicast RIB
// record is an error, and what was left out is added to `warning`.
bool read_dump(std::string_view bytes, std::string_view name, Dump &d,
               std::string &error, std::string &warning) {
  if (!for_each_record(
          bytes, name, "dump",
          [&](const MrtRecord &r, std::string &why) {
            return read_record(r.type, r.subtype, r.body, d, why)
                       ? Next::go_on
                       : Next::refuse;
          },
          error, warning))
    return false;
  if (d.ribs == 0) {
    error = std::string(name) +
            ": no unicast RIB records (TABLE_DUMP or TABLE_DUMP_V2): not a "
            "RIB dump vell-lpm reads";
    return false;
  }
  std::string notes;
  auto note = [&](uint64_t n, const std::string &what) {
    if (n) notes += (notes.empty() ? "" : "; ") + std::to_string(n) + what;
  };
  note(d.no_origin, std::string(d.first_only ? " prefixes" : " RIB entries") +
                        " left out: no AS path names their origin AS (empty "
                        "or confederation-only paths)");
  note(d.unindexed, " RIB records without a peer index table");
  note(d.other_ribs,
       " multicast or generic RIB records skipped: the tables hold unicast "
       "routes");
  if (!notes.empty())
    warning += (warning.empty() ? "" : "; ") + std::string(name) + ": " + notes;
  return true;
}

}  // namespace

bool looks_like_mrt(std::string_view b) {
  return b.size() >= kMrtHeader && b[4] == 0 &&
         (b[5] == kTableDump || b[5] == kTableDumpV2);
}

bool load_mrt(std::string_view bytes, std::string_view name, Table &table,
              std::string &error, std::string &warning) {
  std::vector<RibPeer> peers;
  std::function<void(const RibRoute &)> add = [&](const RibRoute &r) {
    table.add(r.family, r.addr, r.len, r.origin);
  };
  Dump d{peers, add, true};
  return read_dump(bytes, name, d, error, warning);
}

bool load_mrt_routes(std::string_view bytes, std::string_view name,
                     std::vector<RibPeer> &peers,
                     const std::function<void(const RibRoute &)> &each,
                     std::string &error, std::string &warning) {
  Dump d{peers, each, false};
  return read_dump(bytes, name, d, error, warning);
}

bool is_table_dump_v2(std::string_view b) {
  return looks_like_mrt(b) && b[5] == kTableDumpV2;
}

}  // namespace lpm

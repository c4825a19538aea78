#include "lpm_mrt.h"

#include <stdint.h>

#include <algorithm>
#include <functional>

#include "lpm_bgp.h"

namespace lpm {
namespace {

enum : uint16_t { kTableDump = 12, kTableDumpV2 = 13 };
enum : uint16_t {  // TABLE_DUMP_V2 subtypes read here
  kPeerIndexTable = 1,
  kRibIpv4Unicast = 2,
  kRibIpv6Unicast = 4,
  kRibIpv4UnicastAddPath = 8,
  kRibIpv6UnicastAddPath = 10,
};

// A RIB_IPV4_UNICAST / RIB_IPV6_UNICAST record, or its ADD-PATH form: its
// first entry's route into the table, or with `each` every entry's route.
bool read_rib(Cursor c, Family f, bool add_path, Table &t, std::string &why,
              const std::function<void(const RibRoute &)> *each = nullptr,
              size_t peers = 0) {
  c.skip(4);  // sequence number
  RibRoute r{0, 0, f, Addr(), 0, 0};
  if (!read_prefix(c, f, r.addr, r.len, why)) return false;
  uint32_t entries = c.get(2), first_origin = 0;
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
    if (i && !each) continue;
    Attributes a;
    if (!split_attributes(attrs, a, why) || !origin_of(a, false, r.origin, why))
      return false;
    if (!each) {
      first_origin = r.origin;
    } else if (r.peer >= peers) {
      why = "RIB entry names peer " + std::to_string(r.peer) + " of " +
            std::to_string(peers);
      return false;
    } else {
      (*each)(r);
    }
  }
  if (!c.ok()) {
    why = "record ends inside its header";
    return false;
  }
  if (entries && !each) t.add(f, r.addr, r.len, first_origin);
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
bool read_table_dump(Cursor c, Family f, Table &t, std::string &why) {
  unsigned bytes = f == Family::v4 ? 4 : 16;
  c.skip(4);  // view, sequence
  Addr addr;
  for (unsigned i = 0; i < bytes / 4; ++i) addr.w[i] = c.get(4);
  unsigned len = c.get(1);
  c.skip(1 + 4 + bytes + 2);  // status, time, peer address and AS
  Cursor attrs = c.sub(c.get(2));
  uint32_t origin;
  if (!c.ok()) {
    why = "record ends before its path attributes do";
    return false;
  }
  Attributes a;
  if (!check_prefix(f, addr, len, why) || !split_attributes(attrs, a, why) ||
      !origin_of(a, true, origin, why))
    return false;
  t.add(f, addr, len, origin);
  return true;
}

// Reads one record body of the given type; unknown types are skipped.
bool read_record(uint16_t type, uint16_t subtype, std::string_view body,
                 Table &t, std::string &why) {
  Cursor c(body);
  if (type == kTableDumpV2) {
    switch (subtype) {
      case kRibIpv4Unicast:
        return read_rib(c, Family::v4, false, t, why);
      case kRibIpv6Unicast:
        return read_rib(c, Family::v6, false, t, why);
      case kRibIpv4UnicastAddPath:
        return read_rib(c, Family::v4, true, t, why);
      case kRibIpv6UnicastAddPath:
        return read_rib(c, Family::v6, true, t, why);
      default:
        return true;
    }
  }
  if (type == kTableDump && (subtype == 1 || subtype == 2))
    return read_table_dump(c, subtype == 1 ? Family::v4 : Family::v6, t, why);
  return true;
}

}  // namespace

bool looks_like_mrt(std::string_view b) {
  return b.size() >= kMrtHeader && b[4] == 0 &&
         (b[5] == kTableDump || b[5] == kTableDumpV2);
}

bool load_mrt(std::string_view bytes, std::string_view name, Table &table,
              std::string &error, std::string &warning) {
  return for_each_record(
      bytes, name, "dump",
      [&](const MrtRecord &r, std::string &why) {
        return read_record(r.type, r.subtype, r.body, table, why)
                   ? Next::go_on
                   : Next::refuse;
      },
      error, warning);
}

bool load_mrt_routes(std::string_view bytes, std::string_view name,
                     std::vector<RibPeer> &peers,
                     const std::function<void(const RibRoute &)> &each,
                     std::string &error, std::string &warning) {
  Table unused;
  return for_each_record(
      bytes, name, "dump",
      [&](const MrtRecord &r, std::string &why) {
        Cursor c(r.body);
        bool ok = true;
        if (r.type != kTableDumpV2)
          ok = true;
        else if (r.subtype == kPeerIndexTable)
          ok = read_peer_index(c, peers, why);
        else if (r.subtype == kRibIpv4Unicast || r.subtype == kRibIpv6Unicast ||
                 r.subtype == kRibIpv4UnicastAddPath ||
                 r.subtype == kRibIpv6UnicastAddPath)
          ok = read_rib(c,
                        r.subtype == kRibIpv4Unicast ||
                                r.subtype == kRibIpv4UnicastAddPath
                            ? Family::v4
                            : Family::v6,
                        r.subtype >= kRibIpv4UnicastAddPath, unused, why, &each,
                        peers.size());
        return ok ? Next::go_on : Next::refuse;
      },
      error, warning);
}

bool is_table_dump_v2(std::string_view b) {
  return looks_like_mrt(b) && b[5] == kTableDumpV2;
}

}  // namespace lpm

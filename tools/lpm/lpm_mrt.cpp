#include "lpm_mrt.h"

#include <stdint.h>

#include <algorithm>

#include "lpm_bgp.h"

namespace lpm {
namespace {

enum : uint16_t { kTableDump = 12, kTableDumpV2 = 13 };
enum : uint16_t {  // TABLE_DUMP_V2 subtypes read here
  kRibIpv4Unicast = 2,
  kRibIpv6Unicast = 4,
  kRibIpv4UnicastAddPath = 8,
  kRibIpv6UnicastAddPath = 10,
};

// A RIB_IPV4_UNICAST / RIB_IPV6_UNICAST record, or its ADD-PATH form.
bool read_rib(Cursor c, Family f, bool add_path, Table &t, std::string &why) {
  c.skip(4);  // sequence number
  unsigned len;
  Addr addr;
  if (!read_prefix(c, f, addr, len, why)) return false;
  uint32_t entries = c.get(2), origin = 0;
  for (uint32_t i = 0; i < entries; ++i) {
    c.skip(2 + 4 + (add_path ? 4 : 0));  // peer, time, path identifier
    Cursor attrs = c.sub(c.get(2));
    if (!c.ok()) {
      why = "RIB entry " + std::to_string(i + 1) + " of " +
            std::to_string(entries) + " runs past the record's end";
      return false;
    }
    Attributes a;
    if (i == 0 &&
        (!split_attributes(attrs, a, why) || !origin_of(a, false, origin, why)))
      return false;
  }
  if (!c.ok()) {
    why = "record ends inside its header";
    return false;
  }
  if (entries) t.add(f, addr, len, origin);
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

}  // namespace lpm

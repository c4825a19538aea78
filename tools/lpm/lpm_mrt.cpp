#include "lpm_mrt.h"

#include <stdint.h>

#include <algorithm>

namespace lpm {
namespace {

enum : uint16_t { kTableDump = 12, kTableDumpV2 = 13 };
enum : uint16_t {  // TABLE_DUMP_V2 subtypes read here
  kRibIpv4Unicast = 2,
  kRibIpv6Unicast = 4,
  kRibIpv4UnicastAddPath = 8,
  kRibIpv6UnicastAddPath = 10,
};
enum : uint8_t {
  kAttrAsPath = 2,
  kAttrAs4Path = 17,
  kAttrExtendedLength = 0x10
};
enum : uint8_t { kAsSet = 1, kAsConfedSet = 4 };
constexpr size_t kHeader = 12;

// Big-endian fields of one record, bounds-checked: a read past the end
// fails and every later read fails too.
class Cursor {
 public:
  explicit Cursor(std::string_view b)
      : p_(reinterpret_cast<const uint8_t *>(b.data())), left_(b.size()) {}
  bool ok() const { return ok_; }
  size_t left() const { return left_; }
  uint32_t get(unsigned bytes) {
    if (!take(bytes)) return 0;
    const uint8_t *field = p_ - bytes;
    uint32_t v = 0;
    for (unsigned i = 0; i < bytes; ++i) v = v << 8 | field[i];
    return v;
  }
  // The next n bytes as a cursor of their own.
  Cursor sub(size_t n) {
    Cursor c{std::string_view()};
    if (take(n))
      c = Cursor(std::string_view(reinterpret_cast<const char *>(p_ - n), n));
    return c;
  }
  bool skip(size_t n) { return take(n); }
  const uint8_t *here() const { return p_; }

 private:
  bool take(size_t n) {
    if (!ok_ || n > left_) return ok_ = false;
    p_ += n, left_ -= n;
    return true;
  }
  const uint8_t *p_;
  size_t left_;
  bool ok_ = true;
};

// The origin AS of an AS_PATH value whose AS numbers are `as_bytes` wide.
bool origin_of_path(Cursor path, unsigned as_bytes, uint32_t &origin,
                    std::string &why) {
  origin = 0;
  while (path.left()) {
    uint8_t type = static_cast<uint8_t>(path.get(1));
    uint8_t count = static_cast<uint8_t>(path.get(1));
    if (type < kAsSet || type > kAsConfedSet) {
      why = "AS_PATH segment of unknown type " + std::to_string(type);
      return false;
    }
    uint32_t last = 0, least = UINT32_MAX;
    for (unsigned i = 0; i < count; ++i) {
      last = path.get(as_bytes);
      least = std::min(least, last);
    }
    if (!path.ok()) {
      why = "AS_PATH segment runs past its attribute";
      return false;
    }
    // Confederation segments precede the path proper; the last segment
    // names the origin.
    if (count) origin = type == kAsSet || type == kAsConfedSet ? least : last;
  }
  return true;
}

// The origin AS from a route's path attributes. TABLE_DUMP records carry
// 2-byte AS numbers, with the 4-byte path in AS4_PATH when one is needed.
bool origin_of_attributes(Cursor attrs, bool two_byte_as, uint32_t &origin,
                          std::string &why) {
  origin = 0;
  bool have_as4 = false;
  while (attrs.left()) {
    uint8_t flags = static_cast<uint8_t>(attrs.get(1));
    uint8_t type = static_cast<uint8_t>(attrs.get(1));
    uint32_t len = attrs.get(flags & kAttrExtendedLength ? 2 : 1);
    Cursor value = attrs.sub(len);
    if (!attrs.ok()) {
      why = "path attribute " + std::to_string(type) +
            " runs past the attributes' end";
      return false;
    }
    if (type == kAttrAsPath && !have_as4) {
      if (!origin_of_path(value, two_byte_as ? 2 : 4, origin, why))
        return false;
    } else if (type == kAttrAs4Path && two_byte_as) {
      if (!origin_of_path(value, 4, origin, why)) return false;
      have_as4 = true;
    }
  }
  return true;
}

// A stored prefix is no longer than its family's width and has no bits set
// beyond its length.
bool check_prefix(Family f, const Addr &addr, unsigned len, std::string &why) {
  if (len > width(f)) {
    why = "prefix length " + std::to_string(len) + " beyond " +
          std::to_string(width(f));
    return false;
  }
  if (mask_to(addr, len) != addr) {
    why = "prefix " + format_addr(f, addr) + "/" + std::to_string(len) +
          " has bits set beyond its length";
    return false;
  }
  return true;
}

// A RIB_IPV4_UNICAST / RIB_IPV6_UNICAST record, or its ADD-PATH form.
bool read_rib(Cursor c, Family f, bool add_path, Table &t, std::string &why) {
  c.skip(4);  // sequence number
  unsigned len = c.get(1);
  Addr addr;
  for (unsigned i = 0; i < (std::min(len, width(f)) + 7) / 8; ++i)
    addr.w[i / 4] |= c.get(1) << (24 - 8 * (i % 4));
  if (!check_prefix(f, addr, len, why)) return false;
  uint32_t entries = c.get(2), origin = 0;
  for (uint32_t i = 0; i < entries; ++i) {
    c.skip(2 + 4 + (add_path ? 4 : 0));  // peer, time, path identifier
    Cursor attrs = c.sub(c.get(2));
    if (!c.ok()) {
      why = "RIB entry " + std::to_string(i + 1) + " of " +
            std::to_string(entries) + " runs past the record's end";
      return false;
    }
    if (i == 0 && !origin_of_attributes(attrs, false, origin, why))
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
  if (!check_prefix(f, addr, len, why) ||
      !origin_of_attributes(attrs, true, origin, why))
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
  return b.size() >= kHeader && b[4] == 0 &&
         (b[5] == kTableDump || b[5] == kTableDumpV2);
}

bool load_mrt(std::string_view bytes, std::string_view name, Table &table,
              std::string &error, std::string &warning) {
  size_t offset = 0, records = 0;
  while (offset < bytes.size()) {
    Cursor header(bytes.substr(offset));
    header.skip(4);  // timestamp
    uint16_t type = static_cast<uint16_t>(header.get(2));
    uint16_t subtype = static_cast<uint16_t>(header.get(2));
    uint32_t length = header.get(4);
    if (!header.ok() || length > header.left()) {
      warning = std::string(name) + ": dump cut short at byte " +
                std::to_string(bytes.size()) + ", inside the record at byte " +
                std::to_string(offset) + ": read the " +
                std::to_string(records) + " whole records before it";
      return true;
    }
    std::string why;
    if (!read_record(type, subtype, bytes.substr(offset + kHeader, length),
                     table, why)) {
      error = std::string(name) + ": byte " + std::to_string(offset) +
              ": bad MRT record (type " + std::to_string(type) + ", subtype " +
              std::to_string(subtype) + "): " + why;
      return false;
    }
    offset += kHeader + length;
    ++records;
  }
  return true;
}

}  // namespace lpm

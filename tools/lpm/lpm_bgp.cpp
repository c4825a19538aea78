#include "lpm_bgp.h"

#include <algorithm>

namespace lpm {
namespace {

enum : uint8_t {
  kAttrAsPath = 2,
  kAttrMpReach = 14,
  kAttrMpUnreach = 15,
  kAttrAs4Path = 17,
  kAttrExtendedLength = 0x10
};
enum : uint8_t { kAsSet = 1, kAsConfedSeq = 3, kAsConfedSet = 4 };

// The origin of an AS_PATH value whose AS numbers are `as_bytes` wide
// (`found` false when no AS_SEQUENCE or AS_SET names one), and its length
// as path selection counts it (a set counts one, confederation segments
// nothing).
bool walk_path(Cursor path, unsigned as_bytes, uint32_t &origin, bool &found,
               unsigned &length, std::string &why) {
  origin = 0, length = 0, found = false;
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
    if (type < kAsConfedSeq) length += type == kAsSet ? 1 : count;
    // Confederation segments precede the path proper and name members of
    // the local confederation, never an origin; the last segment of the
    // path proper names the origin.
    if (count && type < kAsConfedSeq) {
      origin = type == kAsSet ? least : last;
      found = true;
    }
  }
  return true;
}

}  // namespace

bool split_attributes(Cursor attrs, Attributes &out, std::string &why) {
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
    if (type == kAttrAsPath && !out.has_as_path)
      out.as_path = value, out.has_as_path = true;
    else if (type == kAttrAs4Path && !out.has_as4_path)
      out.as4_path = value, out.has_as4_path = true;
    else if (type == kAttrMpReach && !out.has_mp_reach)
      out.mp_reach = value, out.has_mp_reach = true;
    else if (type == kAttrMpUnreach && !out.has_mp_unreach)
      out.mp_unreach = value, out.has_mp_unreach = true;
  }
  return true;
}

bool origin_of(const Attributes &a, bool two_byte_as, uint32_t &origin,
               bool &found, std::string &why) {
  unsigned length, length4;
  if (!walk_path(a.as_path, two_byte_as ? 2 : 4, origin, found, length, why))
    return false;
  if (!two_byte_as || !a.has_as4_path) return true;
  uint32_t origin4;
  bool found4;
  if (!walk_path(a.as4_path, 4, origin4, found4, length4, why)) return false;
  if (found4 && length4 <= length) origin = origin4, found = true;
  return true;
}

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

bool read_prefix(Cursor &c, Family f, Addr &addr, unsigned &len,
                 std::string &why) {
  len = c.get(1);
  addr = Addr();
  if (c.ok() && len > width(f)) return check_prefix(f, addr, len, why);
  for (unsigned i = 0; i < (len + 7) / 8; ++i)
    addr.w[i / 4] |= c.get(1) << (24 - 8 * (i % 4));
  if (!c.ok()) {
    why = "prefix runs past its field";
    return false;
  }
  return check_prefix(f, addr, len, why);
}

}  // namespace lpm

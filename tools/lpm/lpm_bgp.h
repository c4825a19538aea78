// Pieces of BGP's wire format shared by the MRT readers: a bounds-checked
// cursor over big-endian fields, path attributes, the origin AS of a path
// and the check that a prefix is well formed.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "lpm_addr.h"

namespace lpm {

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

// The path attributes a route's origin and prefixes are read from; the
// others are passed over. An absent attribute is an empty cursor with its
// `has_` flag false.
struct Attributes {
  Cursor as_path{std::string_view()}, as4_path{std::string_view()};
  Cursor mp_reach{std::string_view()}, mp_unreach{std::string_view()};
  bool has_as_path = false, has_as4_path = false, has_mp_reach = false,
       has_mp_unreach = false;
};

// Splits `attrs` into its attributes; false with `why` when one runs past
// the end.
bool split_attributes(Cursor attrs, Attributes &out, std::string &why);

// The origin AS: the last AS of the path, or the least member of a final
// AS_SET. An empty path, or one of confederation segments only, names no
// origin: `found` is false and `origin` 0. With 2-byte AS numbers an
// AS4_PATH stands for the path's tail, as long as it is no longer than
// AS_PATH (a longer one is ignored, as a speaker that merges the two must).
bool origin_of(const Attributes &a, bool two_byte_as, uint32_t &origin,
               bool &found, std::string &why);

// A stored prefix is no longer than its family's width and has no bits set
// beyond its length.
bool check_prefix(Family f, const Addr &addr, unsigned len, std::string &why);

// The bytes of an MRT record's header.
constexpr size_t kMrtHeader = 12;

// One MRT record: its header's fields and its body.
struct MrtRecord {
  size_t offset;  // of its header in the file
  uint32_t time;
  uint16_t type, subtype;
  std::string_view body;
};
enum class Next { go_on, stop, refuse };

// Calls each(record, why) for every whole record of `bytes` until it says
// stop. A file cut short inside its last record ends there, with `warning`
// naming the byte ("NAME: WHAT cut short at byte ..."); a record refused
// is an error naming its byte offset, type and subtype, and `why`.
template <class Each>
bool for_each_record(std::string_view bytes, std::string_view name,
                     const char *what, Each each, std::string &error,
                     std::string &warning) {
  size_t offset = 0, records = 0;
  while (offset < bytes.size()) {
    Cursor header(bytes.substr(offset));
    uint32_t time = header.get(4);
    uint16_t type = static_cast<uint16_t>(header.get(2));
    uint16_t subtype = static_cast<uint16_t>(header.get(2));
    uint32_t length = header.get(4);
    if (!header.ok() || length > header.left()) {
      warning = std::string(name) + ": " + what + " cut short at byte " +
                std::to_string(bytes.size()) + ", inside the record at byte " +
                std::to_string(offset) + ": read the " +
                std::to_string(records) + " whole records before it";
      return true;
    }
    std::string why;
    Next next = each(MrtRecord{offset, time, type, subtype,
                               bytes.substr(offset + kMrtHeader, length)},
                     why);
    if (next == Next::refuse) {
      error = std::string(name) + ": byte " + std::to_string(offset) +
              ": bad MRT record (type " + std::to_string(type) + ", subtype " +
              std::to_string(subtype) + "): " + why;
      return false;
    }
    if (next == Next::stop) return true;
    offset += kMrtHeader + length;
    ++records;
  }
  return true;
}

// A prefix as BGP encodes it: a length byte, then the bytes its length
// needs. Checked as check_prefix does; a cut one says so.
bool read_prefix(Cursor &c, Family f, Addr &addr, unsigned &len,
                 std::string &why);

}  // namespace lpm

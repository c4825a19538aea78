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
// AS_SET; 0 for an empty path. With 2-byte AS numbers an AS4_PATH stands
// for the path's tail, as long as it is no longer than AS_PATH (a longer
// one is ignored, as a speaker that merges the two must).
bool origin_of(const Attributes &a, bool two_byte_as, uint32_t &origin,
               std::string &why);

// A stored prefix is no longer than its family's width and has no bits set
// beyond its length.
bool check_prefix(Family f, const Addr &addr, unsigned len, std::string &why);

// A prefix as BGP encodes it: a length byte, then the bytes its length
// needs. Checked as check_prefix does; a cut one says so.
bool read_prefix(Cursor &c, Family f, Addr &addr, unsigned &len,
                 std::string &why);

}  // namespace lpm

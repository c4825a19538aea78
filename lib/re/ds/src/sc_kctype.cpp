// The exported character-class table, Latin-1 in the upper half.
#include "sc_kctype.h"

#include "api.h"

namespace {

constexpr unsigned char U = SC_KCTYPE_UPPER, L = SC_KCTYPE_LOWER,
                        D = SC_KCTYPE_DIGIT, C = SC_KCTYPE_CNTRL,
                        P = SC_KCTYPE_PUNCT, S = SC_KCTYPE_SPACE,
                        X = SC_KCTYPE_XDIGIT, H = SC_KCTYPE_HARDSPACE;

struct Range {
  unsigned first, last;
  unsigned char classes;
};

// Every code not covered here (0x80 to 0x9f) has no class.
constexpr Range kRanges[] = {
    {0x00, 0x08, C},     {0x09, 0x0d, C | S}, {0x0e, 0x1f, C},
    {0x20, 0x20, S | H}, {0x21, 0x2f, P},     {0x30, 0x39, D},
    {0x3a, 0x40, P},     {0x41, 0x46, U | X}, {0x47, 0x5a, U},
    {0x5b, 0x60, P},     {0x61, 0x66, L | X}, {0x67, 0x7a, L},
    {0x7b, 0x7e, P},     {0x7f, 0x7f, C},     {0xa0, 0xa0, S | H},
    {0xa1, 0xbf, P},     {0xc0, 0xd6, U},     {0xd7, 0xd7, P},
    {0xd8, 0xde, U},     {0xdf, 0xdf, L},     {0xe0, 0xf6, L},
    {0xf7, 0xf7, P},     {0xf8, 0xff, L},
};

struct Table {
  unsigned char bytes[256];
};

constexpr Table build() {
  Table t{};
  for (const Range &r : kRanges)
    for (unsigned c = r.first; c <= r.last; ++c) t.bytes[c] = r.classes;
  return t;
}

constexpr Table kTable = build();

}  // namespace

// Expands the table at compile time into a plain exported C array.
#define VDS_KC(i) kTable.bytes[i]
#define VDS_KC4(i) VDS_KC(i), VDS_KC(i + 1), VDS_KC(i + 2), VDS_KC(i + 3)
#define VDS_KC16(i) VDS_KC4(i), VDS_KC4(i + 4), VDS_KC4(i + 8), VDS_KC4(i + 12)
#define VDS_KC64(i) \
  VDS_KC16(i), VDS_KC16(i + 16), VDS_KC16(i + 32), VDS_KC16(i + 48)

extern "C" VDS_API const unsigned char sc_kctype[256] = {
    VDS_KC64(0), VDS_KC64(64), VDS_KC64(128), VDS_KC64(192)};

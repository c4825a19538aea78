#include <ctype.h>

#include "sc_kctype.h"
#include "test_host.h"

namespace {

// Derives each entry independently from the C library's "C" locale for the
// lower half and from Latin-1's letter layout for the upper half.
unsigned expected(unsigned c) {
  if (c < 0x80) {
    unsigned e = 0;
    if (isupper(c)) e |= SC_KCTYPE_UPPER;
    if (islower(c)) e |= SC_KCTYPE_LOWER;
    if (isdigit(c)) e |= SC_KCTYPE_DIGIT;
    if (iscntrl(c)) e |= SC_KCTYPE_CNTRL;
    if (ispunct(c)) e |= SC_KCTYPE_PUNCT;
    if (isspace(c)) e |= SC_KCTYPE_SPACE;
    if (isxdigit(c) && !isdigit(c)) e |= SC_KCTYPE_XDIGIT;
    if (c == ' ') e |= SC_KCTYPE_HARDSPACE;
    return e;
  }
  if (c < 0xa0) return 0;
  if (c == 0xa0) return SC_KCTYPE_SPACE | SC_KCTYPE_HARDSPACE;
  if (c < 0xc0 || c == 0xd7 || c == 0xf7) return SC_KCTYPE_PUNCT;
  if (c < 0xdf) return SC_KCTYPE_UPPER;
  return SC_KCTYPE_LOWER;
}

TEST(Kctype, EveryEntryMatchesItsClasses) {
  for (unsigned c = 0; c < 256; c++)
    EXPECT_EQ(sc_kctype[c], expected(c)) << "code " << c;
}

}  // namespace

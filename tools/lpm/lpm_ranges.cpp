#include "lpm_ranges.h"

namespace lpm {
namespace {

// Number of trailing zero bits of `a` within the family's width.
unsigned trailing_zeros(const Addr &a, unsigned width) {
  unsigned n = 0;
  for (unsigned pos = width; pos-- > 0 && !bit(a, pos);) ++n;
  return n;
}

// `a` with its last `host` bits (within the width) set to one.
Addr fill_host_bits(Addr a, unsigned width, unsigned host) {
  for (unsigned pos = width - host; pos < width; ++pos)
    a.w[pos / 32] |= 1u << (31 - pos % 32);
  return a;
}

// a + 1 within the width; false when a was the last address.
bool increment(Addr &a, unsigned width) {
  for (unsigned i = (width - 1) / 32 + 1; i-- > 0;) {
    if (++a.w[i] != 0) return true;
  }
  return false;
}

}  // namespace

// Greedy from the low end: at each start, the widest block that is aligned
// there and does not pass `last`. A block of 2^k addresses aligned at start
// is the prefix start/(width-k); taking the widest each time is optimal
// because any cover must also begin a block at start.
void range_to_prefixes(Family family, const Addr &first, const Addr &last,
                       std::vector<Prefix> &out) {
  const unsigned w = width(family);
  Addr start = first;
  for (;;) {
    unsigned host = trailing_zeros(start, w);
    Addr end = fill_host_bits(start, w, host);
    while (end > last) end = fill_host_bits(start, w, --host);
    out.push_back({start, w - host});
    if (end == last || !increment(end, w)) return;
    start = end;
  }
}

}  // namespace lpm

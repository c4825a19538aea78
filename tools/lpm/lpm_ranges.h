// Inclusive address ranges as prefixes.
#pragma once

#include <vector>

#include "lpm_addr.h"

namespace lpm {

struct Prefix {
  Addr addr;  // bits beyond len are zero
  unsigned len;
};

// Appends to `out` the fewest prefixes whose union is exactly [first, last],
// in address order. Requires first <= last, both of `family`.
void range_to_prefixes(Family family, const Addr &first, const Addr &last,
                       std::vector<Prefix> &out);

}  // namespace lpm

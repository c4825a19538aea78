// A read prefetch into every cache level, for the lookups that overlap the
// misses of several walks.
#pragma once

namespace vds {

inline void prefetch(const void *p) { __builtin_prefetch(p, 0, 3); }

}  // namespace vds

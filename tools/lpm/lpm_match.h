// The tool's own answer to "which stored prefix matched": the tries return
// only the data word, so lookups that print the prefix search this sorted
// index, longest length first.
#pragma once

#include <vector>

#include "lpm_ranges.h"

namespace lpm {

class PrefixIndex {
 public:
  PrefixIndex(Family family, std::vector<Prefix> prefixes);
  // The longest stored prefix covering `key`; false when none does.
  bool longest(const Addr &key, Prefix &match) const;

 private:
  Family family_;
  std::vector<Prefix> sorted_;  // by address, then length
  bool has_len_[129] = {};
};

}  // namespace lpm

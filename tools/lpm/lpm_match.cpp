#include "lpm_match.h"

#include <algorithm>

namespace lpm {
namespace {

bool before(const Prefix &a, const Prefix &b) {
  return a.addr != b.addr ? a.addr < b.addr : a.len < b.len;
}

}  // namespace

PrefixIndex::PrefixIndex(Family family, std::vector<Prefix> prefixes)
    : family_(family), sorted_(std::move(prefixes)) {
  std::sort(sorted_.begin(), sorted_.end(), before);
  for (const Prefix &p : sorted_) has_len_[p.len] = true;
}

bool PrefixIndex::longest(const Addr &key, Prefix &match) const {
  for (unsigned len = width(family_) + 1; len-- > 0;) {
    if (!has_len_[len]) continue;
    Prefix probe{mask_to(key, len), len};
    auto it = std::lower_bound(sorted_.begin(), sorted_.end(), probe, before);
    if (it != sorted_.end() && it->addr == probe.addr && it->len == len) {
      match = probe;
      return true;
    }
  }
  return false;
}

}  // namespace lpm

// A table's prefixes as one line of text, for tests to compare whole.
#pragma once

#include <string>

#include "lpm_table.h"

// "PREFIX=DATA" for each prefix, IPv4 first, in the order read.
inline std::string listed(const lpm::Table &t) {
  using lpm::Addr;
  using lpm::Family;
  std::string s;
  auto add = [&](Family f, const Addr &a, unsigned len, uint32_t data) {
    s += s.empty() ? "" : " ";
    s += format_addr(f, a) + '/' + std::to_string(len) + '=';
    s += std::to_string(data);
  };
  for (const auto &e : t.v4)
    add(Family::v4, Addr{{e.addr, 0, 0, 0}}, e.len, e.data);
  for (const auto &e : t.v6)
    add(Family::v6, Addr{{e.addr[0], e.addr[1], e.addr[2], e.addr[3]}}, e.len,
        e.data);
  return s;
}

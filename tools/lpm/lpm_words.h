// How the tool words its answers and listings, as text or JSON lines: the
// data word, or for a route table the next hop it stands for.
#pragma once

#include <stdint.h>

#include <string>

#include "lpm_table.h"

namespace lpm {

// How answers and listings read: the data word, or for a route the next
// hop it stands for.
struct Words {
  const Table &table;
  bool json;

  // True when a route table is among the tables.
  bool routes() const { return !table.nexthops.empty(); }
  // The next hop that data word stands for; null for another table's word.
  const std::string *nexthop(uint32_t data) const;
  // One line of --list or --origin.
  std::string item(const std::string &prefix, uint32_t data) const;
  // One answer; a null prefix is a miss.
  std::string answer(const std::string &addr, const std::string *prefix,
                     uint32_t data) const;
};

}  // namespace lpm

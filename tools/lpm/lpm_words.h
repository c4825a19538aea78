// How the tool words its answers and listings, as text or JSON lines: the
// data word, or the text it stands for (a next hop, a label).
#pragma once

#include <stdint.h>

#include <string>

#include "lpm_table.h"

namespace lpm {

// How answers and listings read: the data word, or the text it stands for:
// a route table's next hop, a range file's label.
struct Words {
  const Table &table;
  bool json;

  // True when a route table is among the tables.
  bool routes() const { return !table.nexthops.empty(); }
  // Whether data words stand for texts, and which.
  bool named() const { return routes() || !table.labels.empty(); }
  // The JSON member that names the text: "nexthop": or "label":.
  std::string key() const { return routes() ? "\"nexthop\": " : "\"label\": "; }
  // The text that data word stands for; null for another table's word.
  const std::string *text(uint32_t data) const;
  // One line of --list or --origin.
  std::string item(const std::string &prefix, uint32_t data) const;
  // One answer to the address `written` (as the user wrote it), whose
  // canonical text is `canonical`; a null prefix is a miss. `mapped`: the
  // IPv6 address was answered from the IPv4 table.
  std::string answer(const std::string &written, const std::string &canonical,
                     const std::string *prefix, uint32_t data,
                     bool mapped = false) const;
};

}  // namespace lpm

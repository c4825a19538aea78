// Prefix tables as the tool reads them: one line each, either
//   ADDRESS[/LEN] [DATA]         a prefix (a bare address is a host route);
//                                DATA defaults to the prefix's 1-based
//                                position among its family's prefixes
//   START,END,NUMBER[,...]       an inclusive range, split into the fewest
//                                covering prefixes, each with NUMBER as data
// with '#' starting a comment (in prefix lines anywhere, in range lines only
// at the start), ';' a comment line, and blank lines ignored. Both families
// may share one file. Plain CIDR lists and PREFIX<TAB>ASN tables are of
// this form.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lpm_addr.h"
#include "vell/trie_family.hpp"

namespace lpm {

struct Table {
  std::vector<vell::trie4_family::entry> v4;
  std::vector<vell::trie6_family::entry> v6;
  // Route tables: the next hop each of their data words stands for, in the
  // tool's words ("via 10.0.0.2 dev eth1", "unreachable"). No entry of
  // another table holds one of these words (see keep_nexthops_apart).
  std::map<uint32_t, std::string> nexthops;
  std::map<std::string, uint32_t> nexthop_words;
  // Positions in v4 and v6 of the entries that routes added.
  std::vector<size_t> route_entries[2];

  void add(Family f, const Addr &addr, unsigned len, uint32_t data);
  // Adds a route: its data word stands for the next hop, the same word for
  // every route that shares it.
  void add_route(Family f, const Addr &addr, unsigned len,
                 const std::string &nexthop);
  // When an entry of another table holds a next hop's word, gives every
  // next hop a word no other entry holds, counting down from the largest,
  // so that each answer still reads as its own table's.
  void keep_nexthops_apart();
};

// ADDRESS/LEN or a bare ADDRESS (a host route), with no bits set beyond
// LEN. On failure `why` says what is wrong.
bool parse_prefix(std::string_view text, Family &f, Addr &addr, unsigned &len,
                  std::string &why);

// Adds the prefixes of one line to the table. On a bad line returns false
// with the reason in `why` and leaves the table as it was.
bool parse_line(std::string_view line, Table &table, std::string &why);

// Reads every line of `bytes`. On the first bad line returns false with
// "NAME:LINE: reason" in `error`; the table then holds only earlier lines.
bool load_table(std::string_view bytes, std::string_view name, Table &table,
                std::string &error);

// The embedded table's files: share/vell-ds/ (the data directory of the
// installation) of the nearest directory above the running program that
// holds them, which is the prefix for an installed program and the top of
// the build tree for one in the build tree. Empty when none is found.
std::vector<std::string> default_tables();

}  // namespace lpm

// vell-lpm's queries: the addresses to look up, from the command line and
// stdin, and the answer line each gets.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "lpm_addr.h"
#include "lpm_words.h"
#include "vell_lpm_options.h"

namespace vell_lpm {

struct Query {
  lpm::Family family;
  lpm::Addr addr;
  std::string text;  // as the user wrote it, which answers echo
};

// The query of `text`: an address or a decimal integer (parse_query).
bool parse_query_text(std::string_view text, Query &q);

// The queries of the command line's addresses; fails on a bad one.
std::vector<Query> command_line_queries(const Options &o);

// With --stdin, looks up each address read from stdin; a bad line is
// reported and makes the status 1, which is returned.
int for_each_stdin_query(const Options &o,
                         const std::function<void(const Query &)> &lookup);

// The longest stored prefix of the family's table covering `addr`, as text,
// and its data word; false when none does.
using Find = std::function<bool(lpm::Family, const lpm::Addr &,
                                std::string &prefix, uint32_t &data)>;

// The answer line of `q`. An IPv4-mapped IPv6 address (::ffff:a.b.c.d)
// that no IPv6 prefix covers is answered from the IPv4 table, as a
// dual-stack socket would reach it; the JSON form says so.
std::string answer(const lpm::Words &words, const Query &q, const Find &find);

}  // namespace vell_lpm

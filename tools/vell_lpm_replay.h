// vell-lpm with --updates: the tables and then the update files replayed
// onto one live table per family, answering as of the replay's end.
#pragma once

#include <functional>
#include <vector>

#include "lpm_addr.h"
#include "lpm_table.h"
#include "vell_lpm_options.h"

namespace vell_lpm {

struct Query {
  lpm::Family family;
  lpm::Addr addr;
};

// With --stdin, looks up each address read from stdin; a bad line is
// reported and makes the status 1, which is returned.
int for_each_stdin_query(const Options &o,
                         const std::function<void(const Query &)> &lookup);

// Replays, reports on stderr, answers the queries (and stdin with
// --stdin), lists; returns the exit status.
int replay_main(const Options &o, lpm::Table &table,
                const std::vector<Query> &queries);

}  // namespace vell_lpm

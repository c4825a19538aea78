// vell-lpm with --updates: the tables and then the update files replayed
// onto one live table per family, answering as of the replay's end.
#pragma once

#include <functional>
#include <vector>

#include "lpm_addr.h"
#include "lpm_table.h"
#include "vell_lpm_options.h"
#include "vell_lpm_query.h"

namespace vell_lpm {

// Replays, reports on stderr, answers the queries (and stdin with
// --stdin), lists; returns the exit status.
int replay_main(const Options &o, lpm::Table &table,
                const std::vector<Query> &queries);

}  // namespace vell_lpm

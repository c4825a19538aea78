// vell-lpm's command line, and how the tool reports a failure.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "lpm_formats.h"

namespace vell_lpm {

using lpm::Format;

constexpr uint32_t kDefaultFill = 50;
// Without --root-branch the root gets about one slot per four prefixes, up
// to 2^16 slots (a 256 KB root, which stays in a core's cache), so that small
// tables stay small.
constexpr uint32_t kAutoRootBranch = ~0u, kMaxAutoRootBranch = 16;
constexpr uint32_t kBulkBatch = 64;

struct Options {
  std::vector<std::string> tables;
  std::vector<std::string> updates;  // --updates files, replayed in order
  uint64_t at = UINT64_MAX;          // --at: the replay's end, UNIX seconds
  uint32_t fill = kDefaultFill;
  uint32_t root_branch[2] = {kAutoRootBranch, kAutoRootBranch};
  Format format = Format::automatic;
  lpm::RouteOptions routes;  // --family, --route-table
  bool stats = false, print = false, list = false, from_stdin = false,
       json = false;
  bool by_origin = false;
  bool mask_host_bits = false;
  uint32_t origin = 0;
  uint64_t bench = 0;
  std::vector<std::string> addresses;
};

Options parse_options(int argc, char **argv);

// Prints "vell-lpm: MSG" on stderr and exits with status 1.
[[noreturn]] void fail(const std::string &msg);
// Ends the tool after a failed write to stdout: with status 0 when the
// reader closed the pipe (it has all it wants), else as fail() does.
[[noreturn]] void write_failed();
// The library's diagnostics since the last call, joined on one line.
std::string take_library_diagnostics();

}  // namespace vell_lpm

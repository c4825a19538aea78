// The fixed message texts of one trie family, with the arguments each
// takes. Several IPv6 messages name the IPv4 operation; each family states
// its own set.
#pragma once

namespace vds::trie {

struct Texts {
  const char *construct;      // the operation's name, for "%s" messages
  const char *too_many;       // %d given, %d limit
  const char *record_failed;  // %zd record size
  const char *no_entries;
  const char *entries_failed;        // %zd array size
  const char *prefixes_failed;       // %zd array size
  const char *nodes_failed;          // %zd array size, first or grown
  const char *entries_trim_failed;   // %d new size, level 4
  const char *prefixes_trim_failed;  // %d new size, level 4
  const char *nodes_trim_failed;     // %d new size, level 2
};

}  // namespace vds::trie

// The fixed message texts of one trie family. Several IPv6 messages name
// the IPv4 operation; each family states its own set.
#pragma once

namespace vds::trie {

struct Texts {
  const char *construct;      // operation name, for the checks that use "%s"
  const char *too_many;       // (%d count, %d limit)
  const char *record_failed;  // (%zd size)
  const char *no_entries;
  const char *entries_failed;  // (%zd size), also ...
  const char *prefixes_failed;
  const char *nodes_failed;          // ... for the node array's growth
  const char *entries_trim_failed;   // (%d new size), level 4
  const char *prefixes_trim_failed;  // (%d new size), level 4
  const char *nodes_trim_failed;     // (%d new size), level 2
};

}  // namespace vds::trie

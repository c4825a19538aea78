// MRT routing dumps (RFC 6396): TABLE_DUMP_V2 (RIB_IPV4_UNICAST,
// RIB_IPV6_UNICAST and their ADD-PATH forms of RFC 8050) and the older
// TABLE_DUMP. Each prefix gets as data word the origin AS of its first RIB
// entry whose path names one: the last AS of the AS_PATH, or the smallest
// member when the path ends in an AS_SET. An empty or confederation-only
// path names no origin (AS 0 stays a distinct, if unusual, origin), and a
// prefix none of whose entries names one is left out. Multicast and generic
// RIB records are skipped; other record types too. What was left out or
// skipped is counted in the warning; a dump without a unicast RIB record is
// an error. RIB entries must name a peer of the peer index table when the
// dump has one; a dump without one is read and the warning says so.
#pragma once

#include <stddef.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "lpm_table.h"

namespace lpm {

// True when `bytes` starts with the header of a table-dump record.
bool looks_like_mrt(std::string_view bytes);

// Adds the prefixes of every whole record of `bytes`. A dump cut short in
// its last record is read up to there, with `warning` saying how many
// records were read and at which byte the cut lies. A malformed record is
// an error naming its byte offset; the table then holds the earlier ones.
bool load_mrt(std::string_view bytes, std::string_view name, Table &table,
              std::string &error, std::string &warning);

// A peer of a TABLE_DUMP_V2 dump's PEER_INDEX_TABLE.
struct RibPeer {
  uint32_t as;
  Family family;
  Addr addr;
};
// One RIB entry: its prefix, the index of its peer, its ADD-PATH path
// identifier (0 without) and its origin AS.
struct RibRoute {
  uint32_t peer, path;
  Family family;
  Addr addr;
  unsigned len;
  uint32_t origin;
};

// True when `bytes` starts with a TABLE_DUMP_V2 record.
bool is_table_dump_v2(std::string_view bytes);

// Calls `each` for every entry with an origin of every RIB record of a
// TABLE_DUMP_V2 dump, with `peers` holding the dump's peer index. Errors and
// warnings as load_mrt's; an entry naming a peer the index lacks, or coming
// before any peer index table, is an error.
bool load_mrt_routes(std::string_view bytes, std::string_view name,
                     std::vector<RibPeer> &peers,
                     const std::function<void(const RibRoute &)> &each,
                     std::string &error, std::string &warning);

}  // namespace lpm

// MRT update files (BGP4MP and BGP4MP_ET records, RFC 6396 with the
// ADD-PATH forms of RFC 8050) read as a stream of route changes, and the
// per-peer table they are applied to.
//
// A route's sender is its peer, named by AS and address (for the _LOCAL
// forms, the local side, which sent the message). Peers are numbered in the
// order the stream first shows them announcing or withdrawing a route,
// across files (a RIB dump's peers, numbered before, first). A prefix's
// answer is the origin AS of the route of the lowest-numbered peer that
// announces it; prefixes of other tables loaded before the updates stand
// behind every peer's routes, and no update withdraws them.
#pragma once

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lpm_addr.h"

namespace lpm {

struct Prefix4or6 {
  Family family;
  Addr addr;
  unsigned len;
  friend bool operator==(const Prefix4or6 &, const Prefix4or6 &) = default;
};

struct PrefixHash {
  size_t operator()(const Prefix4or6 &p) const {
    uint64_t h = p.len * 0x9E3779B97F4A7C15ull + (p.family == Family::v6);
    for (uint32_t w : p.addr.w) h = (h ^ w) * 0x100000001B3ull;
    return static_cast<size_t>(h ^ h >> 29);
  }
};

// One announcement or withdrawal, or (`down`) the end of a peer's session.
struct RouteChange {
  uint32_t time;  // the record's timestamp, UNIX seconds
  uint32_t peer;  // 0 for the first peer seen
  uint32_t path;  // the ADD-PATH path identifier, 0 without
  enum Kind { announce, withdraw, down } kind;
  Prefix4or6 prefix;  // not for `down`
  uint32_t origin;    // announcements only
  // False for an announcement whose path names no origin: it replaces the
  // peer's route, and gives the prefix no answer of its own.
  bool has_origin = true;
};

// What reading the streams found.
struct UpdateCounts {
  uint64_t records = 0, updates = 0, announcements = 0, withdrawals = 0,
           announcements_without_origin = 0, state_changes = 0,
           sessions_down = 0, other_messages = 0, other_records = 0,
           other_families = 0, bytes = 0;
  uint32_t first_time = 0, last_time = 0;
  // Record types other than BGP4MP, by type and subtype.
  std::map<std::pair<uint16_t, uint16_t>, uint64_t> skipped;
};

// Reads update files one after another, numbering peers across them.
class UpdateReader {
 public:
  using Sink = std::function<void(const RouteChange &)>;
  // Records later than `stop_after` (UNIX seconds) end the replay.
  UpdateReader(Sink sink, uint64_t stop_after)
      : sink_(std::move(sink)), stop_after_(stop_after) {}

  // Passes the changes of every whole record of `bytes` to the sink. False
  // with "NAME: byte N: reason" in `error` for a malformed record (the
  // changes of earlier records have been passed on), or when `bytes` is a
  // RIB dump rather than updates; a file cut short inside its last record
  // is read up to there with `warning` saying so.
  bool read(std::string_view bytes, std::string_view name, std::string &error,
            std::string &warning);
  // True once a record past the stop time was seen; later files are not
  // read.
  bool stopped() const { return stopped_; }
  const UpdateCounts &counts() const { return counts_; }
  size_t peers() const { return peers_.size(); }
  // The number of a peer, given it when it is new: a dump's peers are
  // numbered before the updates.
  uint32_t peer(uint32_t as, Family f, const Addr &addr) {
    return peer_number({as, f, addr});
  }
  // "AS64500 192.0.2.1" for a peer number.
  std::string peer_name(uint32_t peer) const;

 private:
  struct PeerKey {
    uint32_t as = 0;
    Family family = Family::v4;
    Addr addr;
    auto operator<=>(const PeerKey &) const = default;
  };
  bool record(uint16_t type, uint16_t subtype, uint32_t time,
              std::string_view body, std::string &why);
  uint32_t peer_number(const PeerKey &k);

  Sink sink_;
  uint64_t stop_after_;
  bool stopped_ = false;
  UpdateCounts counts_;
  std::map<PeerKey, uint32_t> peers_;
  std::vector<PeerKey> peer_keys_;
};

// True when `bytes` starts with a BGP4MP or BGP4MP_ET record.
bool looks_like_updates(std::string_view bytes);

// What an MRT file is, in a sentence that says what to do with it, when it
// is not what is read: a RIB dump for a table (`for_updates` false), an
// update file for --updates. Empty when it is, or when `bytes` is no MRT.
std::string mrt_misfit(std::string_view bytes, bool for_updates);

// The routes each peer announces, and the answer they make for each
// prefix. Every change of an answer goes to `on_answer`, with `origin`
// null for a prefix that no longer has one.
class PeerTable {
 public:
  using AnswerSink =
      std::function<void(const Prefix4or6 &, const uint32_t *origin)>;
  explicit PeerTable(AnswerSink sink) : sink_(std::move(sink)) {}
  // A prefix of the tables, behind every peer's route.
  void add_base(const Prefix4or6 &p, uint32_t origin);
  // Applies one change; false for a withdrawal of a route the peer does not
  // announce (changing nothing).
  bool apply(const RouteChange &c);
  // The answer now, or null.
  const uint32_t *answer(const Prefix4or6 &p) const;
  // Every prefix with an answer, in no particular order.
  template <class Call>
  void for_each(Call f) const {
    for (const auto &[p, routes] : routes_)
      if (!routes.empty()) f(p, routes.front().origin);
  }

 private:
  struct Route {
    uint32_t peer, path, origin;
  };
  static constexpr uint32_t kBase = UINT32_MAX;  // the tables' "peer"
  // Sets or (null origin) removes one route; a prefix's routes are ordered
  // by peer and path, the tables' last. False when there was none to
  // remove.
  bool set(const Prefix4or6 &p, uint32_t peer, uint32_t path,
           const uint32_t *origin);
  // Tells the sink of a prefix's new answer after its routes changed (it
  // had one, `before`, when `had`); forgets a prefix left with none.
  using Routes = std::unordered_map<Prefix4or6, std::vector<Route>, PrefixHash>;
  void settle(Routes::iterator it, bool had, uint32_t before);

  AnswerSink sink_;
  Routes routes_;
};

// TIME as UNIX seconds or ISO 8601 UTC ("2026-11-25T10:00:00Z", seconds
// and the Z optional); false for anything else.
bool parse_time(std::string_view text, uint64_t &seconds);

}  // namespace lpm

#include "vell_lpm_replay.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>

#include "lpm_clock.h"
#include "lpm_formats.h"
#include "lpm_keys.h"
#include "lpm_mrt.h"
#include "lpm_source.h"
#include "lpm_text.h"
#include "lpm_trie.h"
#include "lpm_updates.h"
#include "lpm_words.h"
#include "vell/trie_family.hpp"
#include "vell_lpm_family.h"

namespace vell_lpm {
namespace {

using namespace lpm;

// A live table's answers never read as a stored origin that happens to
// equal the miss word: a hit is told by the per-peer table, which names
// the prefix.
constexpr uint32_t kMiss = UINT32_MAX;

// Where --bench leaves its lookups' checksum, so that none is optimised out.
volatile uint32_t bench_sink;

template <class F>
struct Live {
  typename F::live *table;
  int reader;
  size_t staged = 0, failed = 0;

  Live() {
    table = F::live_construct(nullptr, kMiss, 2);  // the tool, --bench's
    if (!table)
      fail(std::string("cannot make the ") + family_name(family_of<F>) +
           " live table; the library reports: " + take_library_diagnostics());
    reader = F::live_reader_register(table);
  }
  ~Live() {
    F::live_reader_unregister(table, reader);
    F::live_destruct(table);
  }
  void stage(const Prefix4or6 &p, const uint32_t *origin) {
    int r;
    if constexpr (F::words == 1)
      r = origin ? F::live_set(table, p.addr.w[0], p.len, *origin)
                 : F::live_remove(table, p.addr.w[0], p.len);
    else
      r = origin ? F::live_set(table, p.addr.w, p.len, *origin)
                 : F::live_remove(table, p.addr.w, p.len);
    if (r < 0)
      fail("cannot stage " + format_addr(p.family, p.addr) + "/" +
           std::to_string(p.len) +
           "; the library reports: " + take_library_diagnostics());
    ++staged;
  }
  void publish() {
    if (F::live_publish(table) != 0)
      fail("cannot publish the " + std::string(family_name(family_of<F>)) +
           " live table; the library reports: " + take_library_diagnostics());
    staged = 0;
  }
  // Looks up every key in batches from reader slot `slot`, reporting
  // quiescence after each; returns a checksum so none is optimised out.
  uint32_t lookup_all(const std::vector<typename F::key> &keys, int slot) {
    uint32_t out[kBulkBatch], sum = 0;
    for (size_t i = 0; i < keys.size(); i += kBulkBatch) {
      uint32_t n =
          static_cast<uint32_t>(std::min<size_t>(kBulkBatch, keys.size() - i));
      F::live_lookup_bulk(table, F::c_keys(&keys[i]), out, n);
      F::live_quiescent(table, slot);
      for (uint32_t j = 0; j < n; ++j) sum += out[j];
    }
    return sum;
  }
  uint32_t lookup(const Addr &a) {
    uint32_t d = F::live_lookup(table, F::word_key(a.w));
    F::live_quiescent(table, reader);
    return d;
  }
};

std::string utc(uint32_t t) {
  time_t s = t;
  struct tm tm;
  gmtime_r(&s, &tm);
  char buf[32];
  strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

double percentile(std::vector<double> &v, double q) {
  if (v.empty()) return 0;
  size_t i = std::min(v.size() - 1, static_cast<size_t>(q * v.size()));
  std::nth_element(v.begin(), v.begin() + i, v.end());
  return v[i];
}

}  // namespace

int replay_main(const Options &o, Table &table,
                const std::vector<Query> &queries) {
  Live<vell::trie4_family> v4;
  Live<vell::trie6_family> v6;
  PeerTable peers([&](const Prefix4or6 &p, const uint32_t *origin) {
    if (p.family == Family::v4)
      v4.stage(p, origin);
    else
      v6.stage(p, origin);
  });
  std::vector<double> latencies;  // microseconds
  uint64_t unknown_withdrawals = 0;
  uint32_t second = 0;
  auto publish = [&] {
    if (!v4.staged && !v6.staged) return;
    double p0 = now_seconds();
    v4.publish();
    v6.publish();
    latencies.push_back((now_seconds() - p0) * 1e6);
  };
  UpdateReader *names = nullptr;
  // --print: every change read, "TIME|A|PEER|PREFIX|ORIGIN",
  // "TIME|W|PEER|PREFIX" or "TIME|DOWN|PEER", PEER as "AS65001 192.0.2.1".
  auto print = [&](const RouteChange &c) {
    static const char *const kind[] = {"A", "W", "DOWN"};
    printf("%u|%s|%s", c.time, kind[c.kind], names->peer_name(c.peer).c_str());
    if (c.kind != RouteChange::down)
      printf("|%s/%u", format_addr(c.prefix.family, c.prefix.addr).c_str(),
             c.prefix.len);
    if (c.kind == RouteChange::announce) printf("|%u", c.origin);
    putchar('\n');
  };
  UpdateReader reader(
      [&](const RouteChange &c) {
        if (o.print) print(c);
        if (c.time != second) publish(), second = c.time;
        if (!peers.apply(c)) ++unknown_withdrawals;
      },
      o.at);
  names = &reader;
  std::vector<std::string> warnings;
  size_t rib_routes = 0;
  double t0 = now_seconds();
  for (const std::string &path : o.tables) {
    Source src;
    std::string error, warning;
    if (!read_source(path, src, error)) fail(error);
    if (!src.warning.empty()) warnings.push_back(src.warning);
    bool as_dump = o.format == Format::automatic || o.format == Format::mrt;
    if (!as_dump || !is_table_dump_v2(src.bytes)) {
      if (!load_source(src, o.format, table, error, warnings)) fail(error);
      continue;
    }
    // A dump's routes are its peers' own, ranked in the dump's peer index
    // order, so that updates of the same peers replace and withdraw them.
    std::vector<RibPeer> rib_peers;
    std::vector<uint32_t> numbers;
    auto each = [&](const RibRoute &r) {
      if (numbers.size() != rib_peers.size()) {
        numbers.clear();
        for (const RibPeer &p : rib_peers)
          numbers.push_back(reader.peer(p.as, p.family, p.addr));
      }
      peers.apply({0,
                   numbers[r.peer],
                   r.path,
                   RouteChange::announce,
                   {r.family, r.addr, r.len},
                   r.origin});
      ++rib_routes;
    };
    if (!load_mrt_routes(src.bytes, src.name, rib_peers, each, error, warning))
      fail(error);
    if (!warning.empty()) warnings.push_back(warning);
  }
  if (!table.nexthops.empty())
    fail("--updates follows origin ASes; a route table has none");
  if (!table.labels.empty())
    fail(
        "--updates follows origin ASes; a table whose data are texts has none");
  keep_first_of_duplicates<vell::trie4_family>(table.v4);
  keep_first_of_duplicates<vell::trie6_family>(table.v6);
  for (const auto &e : table.v4)
    peers.add_base({Family::v4, record_addr<vell::trie4_family>(e), e.len},
                   e.data);
  for (const auto &e : table.v6)
    peers.add_base({Family::v6, record_addr<vell::trie6_family>(e), e.len},
                   e.data);
  double t1 = now_seconds();
  v4.publish();
  v6.publish();
  double base_ms = (now_seconds() - t1) * 1e3, base_read_s = t1 - t0;
  const size_t dump_peers = reader.peers();  // the updates may add more

  // --bench: lookups of both families on a second thread while the
  // replay runs, against the same lookups with no replay.
  std::vector<vell::trie4_family::key> keys4;
  std::vector<vell::trie6_family::key> keys6;
  double idle_mps = 0, busy_mps = 0;
  std::atomic<bool> replaying{true};
  std::thread bench_thread;
  if (o.bench) {
    std::vector<vell::trie4_family::entry> e4;
    std::vector<vell::trie6_family::entry> e6;
    peers.for_each([&](const Prefix4or6 &p, uint32_t origin) {
      if (p.family == Family::v4)
        e4.push_back(vell::trie4_family::make_entry(p.addr.w, p.len, origin));
      else
        e6.push_back(vell::trie6_family::make_entry(p.addr.w, p.len, origin));
    });
    keys4 = draw_keys<vell::trie4_family>(e4, o.bench);
    keys6 = draw_keys<vell::trie6_family>(e6, o.bench);
    // One pass to warm the caches, then passes for at least 0.1 s.
    uint32_t sum = v4.lookup_all(keys4, v4.reader);
    uint64_t passes = 0;
    double b0 = now_seconds(), b1;
    do {
      sum += v4.lookup_all(keys4, v4.reader) + v6.lookup_all(keys6, v6.reader);
      ++passes;
    } while ((b1 = now_seconds()) - b0 < 0.1);
    idle_mps = 2.0 * o.bench * passes / (b1 - b0) / 1e6;
    bench_sink = sum;
    bench_thread = std::thread([&] {
      int s4 = vell::trie4_family::live_reader_register(v4.table);
      int s6 = vell::trie6_family::live_reader_register(v6.table);
      double start = now_seconds();
      uint64_t n = 0;
      uint32_t sum = 0;
      do {
        sum += v4.lookup_all(keys4, s4) + v6.lookup_all(keys6, s6);
        n += keys4.size() + keys6.size();
      } while (replaying.load(std::memory_order_relaxed));
      busy_mps = n / (now_seconds() - start) / 1e6;
      bench_sink = sum;
      vell::trie4_family::live_reader_unregister(v4.table, s4);
      vell::trie6_family::live_reader_unregister(v6.table, s6);
    });
  }

  double read_seconds = 0, replay_seconds = 0;
  for (const std::string &path : o.updates) {
    Source src;
    std::string error, warning;
    double r0 = now_seconds();
    if (!read_source(path, src, error)) fail(error);
    double r1 = now_seconds();
    if (!src.warning.empty()) warnings.push_back(src.warning);
    if (!reader.read(src.bytes, src.name, error, warning)) fail(error);
    publish();
    replay_seconds += now_seconds() - r1;
    read_seconds += r1 - r0;
    if (!warning.empty()) warnings.push_back(warning);
    if (reader.stopped()) break;
  }
  if (o.bench) {
    replaying = false;
    bench_thread.join();
  }
  for (const std::string &w : warnings)
    fprintf(stderr, "vell-lpm: warning: %s\n", w.c_str());

  const UpdateCounts &n = reader.counts();
  uint64_t changes = n.announcements + n.withdrawals;
  double rate = replay_seconds > 0 ? changes / replay_seconds : 0;
  double mbps = replay_seconds > 0 ? n.bytes / replay_seconds / 1e6 : 0;
  double p50 = percentile(latencies, 0.5), p99 = percentile(latencies, 0.99),
         pmax = latencies.empty()
                    ? 0
                    : *std::max_element(latencies.begin(), latencies.end());
  fprintf(stderr,
          "vell-lpm: tables: %zu RIB dump routes of %zu peers, %zu IPv4 and "
          "%zu IPv6 other prefixes; read in %.2f s, published in %.1f ms\n",
          rib_routes, dump_peers, table.v4.size(), table.v6.size(), base_read_s,
          base_ms);
  std::string span = n.records ? utc(n.first_time) + " to " + utc(n.last_time)
                               : std::string("no records");
  fprintf(
      stderr,
      "vell-lpm: updates: %llu records (%llu UPDATE messages, %llu state "
      "changes, %llu sessions down), %llu announcements, %llu "
      "withdrawals, %zu peers, %s%s\n",
      static_cast<unsigned long long>(n.records),
      static_cast<unsigned long long>(n.updates),
      static_cast<unsigned long long>(n.state_changes),
      static_cast<unsigned long long>(n.sessions_down),
      static_cast<unsigned long long>(n.announcements),
      static_cast<unsigned long long>(n.withdrawals), reader.peers(),
      span.c_str(),
      reader.stopped() ? (" (stopped at --at " + utc(o.at) + ")").c_str() : "");
  fprintf(stderr,
          "vell-lpm: updates: read and unpacked in %.2f s, replayed in %.2f "
          "s: %.0f changes/s, %.0f MB/s; %zu publishes, latency p50 %.1f us, "
          "p99 %.1f us, max %.1f us\n",
          read_seconds, replay_seconds, rate, mbps, latencies.size(), p50, p99,
          pmax);
  std::string skipped;
  for (const auto &[key, count] : n.skipped)
    skipped += "; " + std::to_string(count) + " of type " +
               std::to_string(key.first) + " subtype " +
               std::to_string(key.second);
  if (n.announcements_without_origin)
    fprintf(stderr,
            "vell-lpm: updates: %llu announcements whose AS path names no "
            "origin took their peer's route out\n",
            static_cast<unsigned long long>(n.announcements_without_origin));
  if (n.other_messages || unknown_withdrawals || n.other_families ||
      !skipped.empty())
    fprintf(stderr,
            "vell-lpm: updates: skipped %llu BGP messages other than UPDATE, "
            "%llu withdrawals of routes not announced, %llu MP_(UN)REACH_NLRI "
            "of other address families%s\n",
            static_cast<unsigned long long>(n.other_messages),
            static_cast<unsigned long long>(unknown_withdrawals),
            static_cast<unsigned long long>(n.other_families),
            skipped.empty()
                ? ""
                : (", records skipped" + skipped.substr(1)).c_str());
  if (o.bench && !o.json)
    printf(
        "replay bench: %llu keys per family (half within the prefixes, half "
        "uniform), bulk lookups in batches of %u: %.2f M/s with no replay; "
        "%.2f M/s on a second thread during the replay (%.0f changes/s, %zu "
        "publishes)\n",
        static_cast<unsigned long long>(o.bench), kBulkBatch, idle_mps,
        busy_mps, rate, latencies.size());
  if (o.json && (o.stats || o.bench)) {
    struct Field {
      const char *name;
      double value;
    } fields[] = {{"records", double(n.records)},
                  {"updates", double(n.updates)},
                  {"state_changes", double(n.state_changes)},
                  {"sessions_down", double(n.sessions_down)},
                  {"announcements", double(n.announcements)},
                  {"withdrawals", double(n.withdrawals)},
                  {"peers", double(reader.peers())},
                  {"first_time", double(n.first_time)},
                  {"last_time", double(n.last_time)},
                  {"unknown_withdrawals", double(unknown_withdrawals)},
                  {"other_messages", double(n.other_messages)},
                  {"announcements_without_origin",
                   double(n.announcements_without_origin)},
                  {"other_families", double(n.other_families)},
                  {"read_s", read_seconds},
                  {"replay_s", replay_seconds},
                  {"changes_per_s", rate},
                  {"mb_per_s", mbps},
                  {"publishes", double(latencies.size())},
                  {"bench_idle_mps", idle_mps},
                  {"bench_replay_mps", busy_mps}};
    std::string doc = "{\"updates\": {";
    char buf[64];
    for (const Field &f : fields) {
      snprintf(buf, sizeof buf, "%.17g", f.value);
      doc += json_string(f.name) + ": " + buf + ", ";
    }
    snprintf(buf, sizeof buf, "%.1f, \"p99\": %.1f, \"max\": %.1f", p50, p99,
             pmax);
    doc += std::string("\"stopped\": ") +
           (reader.stopped() ? "true" : "false") +
           ", \"publish_us\": {\"p50\": " + buf + "}}}";
    put_line(doc);
  }

  Words words{table, o.json};
  if (o.list || o.by_origin) {
    struct Item {
      Family family;
      Addr addr;
      unsigned len;
      uint32_t data;
      auto operator<=>(const Item &) const = default;
    };
    std::vector<Item> items;
    peers.for_each([&](const Prefix4or6 &p, uint32_t origin) {
      if (o.list || origin == o.origin)
        items.push_back({p.family, p.addr, p.len, origin});
    });
    std::sort(items.begin(), items.end());
    for (const Item &i : items)
      put_line(words.item(
          format_addr(i.family, i.addr) + "/" + std::to_string(i.len), i.data));
  }
  Find find = [&](Family f, const Addr &addr, std::string &prefix,
                  uint32_t &data) {
    data = f == Family::v4 ? v4.lookup(addr) : v6.lookup(addr);
    const uint32_t *answer = nullptr;
    Prefix4or6 p{f, addr, width(f) + 1};
    while (!answer && p.len-- > 0) {
      p.addr = mask_to(addr, p.len);
      answer = peers.answer(p);
    }
    if (answer ? *answer != data : data != kMiss)
      fail("the live table and the per-peer table disagree on " +
           format_addr(f, addr));
    if (answer)
      prefix = format_addr(p.family, p.addr) + "/" + std::to_string(p.len);
    return answer != nullptr;
  };
  auto lookup = [&](const Query &q) { put_line(answer(words, q, find)); };
  for (const Query &q : queries) lookup(q);
  return for_each_stdin_query(o, lookup);
}

}  // namespace vell_lpm

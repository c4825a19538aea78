// vell-lpm: builds the IPv4 and IPv6 tries from prefix tables, then reports,
// dumps, lists, looks up and benchmarks them. Every table is read and every
// argument checked before anything is printed, so bad input never leaves
// half a report behind. Stdout carries only answers and the reports asked
// for; status and warnings go to stderr.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "lpm_formats.h"
#include "lpm_keys.h"
#include "lpm_match.h"
#include "lpm_table.h"
#include "lpm_text.h"
#include "lpm_trie.h"
#include "sc_host_default.h"
#include "vell_ds_version.h"

namespace {

using namespace lpm;

constexpr uint32_t kDefaultFill = 50;
// Without --root-branch the root gets about one slot per four prefixes, up
// to 2^16 slots (a 256 KB root, which stays in a core's cache), so that small
// tables stay small.
constexpr uint32_t kAutoRootBranch = ~0u, kMaxAutoRootBranch = 16;
constexpr uint32_t kBulkBatch = 64;

const char kUsage[] =
    "usage: vell-lpm [OPTIONS] [ADDRESS...]\n"
    "Builds one trie per address family from prefix tables and looks up\n"
    "each ADDRESS, printing it with the data word and the matching prefix.\n"
    "\n"
    "  -t, --table FILE      read a table ('-' for stdin); repeatable; gzip\n"
    "                        or bzip2 data is unpacked. Formats, told by\n"
    "                        content: lines 'ADDRESS[/LEN] [DATA]' (CIDR\n"
    "                        lists, PREFIX<TAB>ASN) or 'START,END,NUMBER'\n"
    "                        with '#' and ';' comments; 'ip route' text or\n"
    "                        'ip -j route' JSON (answers name the next hop);\n"
    "                        MRT RIB dumps (data: the origin AS). Without -t\n"
    "                        the embedded table is read.\n"
    "      --format NAME     read every table as auto (the default), table,\n"
    "                        ip-route, ip-route-json or mrt\n"
    "      --fill PCT        node fill factor, 1 to 100 (default 50)\n"
    "      --root-branch N[,M]  least branch of the IPv4 root, and of the\n"
    "                        IPv6 root (at most 15); by default each root\n"
    "                        gets about one slot per four prefixes, at most\n"
    "                        2^16\n"
    "      --stats           print each trie's statistics report\n"
    "      --print           dump each trie\n"
    "      --list            list each trie's prefixes from its iterator\n"
    "      --origin N        list the prefixes whose data word is N (the\n"
    "                        prefixes AS N originates in a dump)\n"
    "      --stdin           also look up addresses read from stdin, one a "
    "line\n"
    "                        (addresses may be decimal integers)\n"
    "      --json            answers as one JSON object a line, reports as\n"
    "                        one JSON document\n"
    "      --bench N         time N lookups per family (keys drawn half from\n"
    "                        the table's prefixes, half uniformly)\n"
    "  -h, --help            this text\n"
    "      --version         the program's and the library's version\n";

struct Options {
  std::vector<std::string> tables;
  uint32_t fill = kDefaultFill;
  uint32_t root_branch[2] = {kAutoRootBranch, kAutoRootBranch};
  Format format = Format::automatic;
  bool stats = false, print = false, list = false, from_stdin = false,
       json = false;
  bool by_origin = false;
  uint32_t origin = 0;
  uint64_t bench = 0;
  std::vector<std::string> addresses;
};

[[noreturn]] void fail(const std::string &msg) {
  fprintf(stderr, "vell-lpm: %s\n", msg.c_str());
  exit(1);
}

uint64_t number_arg(const char *opt, const char *text, uint64_t lo,
                    uint64_t hi) {
  char *end;
  errno = 0;
  unsigned long long v = strtoull(text, &end, 10);
  if (!*text || *end || errno || v < lo || v > hi || text[0] == '-')
    fail(std::string(opt) + ": expected a number from " + std::to_string(lo) +
         " to " + std::to_string(hi) + ", got " + quoted(text));
  return v;
}

Options parse_options(int argc, char **argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&]() -> const char * {
      if (i + 1 >= argc) fail(a + " needs a value");
      return argv[++i];
    };
    if (a == "-h" || a == "--help") {
      fputs(kUsage, stdout);
      exit(0);
    } else if (a == "--version") {
      puts("vell-lpm (vell-ds) " VELL_DS_VERSION_STRING);
      exit(0);
    } else if (a == "-t" || a == "--table") {
      o.tables.push_back(value());
    } else if (a == "--fill") {
      o.fill = static_cast<uint32_t>(number_arg("--fill", value(), 1, 100));
    } else if (a == "--root-branch") {
      std::string v = value();
      size_t comma = v.find(',');
      o.root_branch[0] = static_cast<uint32_t>(
          number_arg("--root-branch", v.substr(0, comma).c_str(), 0,
                     Ops4::kMaxRootBranch));
      o.root_branch[1] = comma == std::string::npos
                             ? std::min(o.root_branch[0], Ops6::kMaxRootBranch)
                             : static_cast<uint32_t>(number_arg(
                                   "--root-branch", v.substr(comma + 1).c_str(),
                                   0, Ops6::kMaxRootBranch));
    } else if (a == "--format") {
      const char *name = value();
      if (!format_named(name, o.format))
        fail(
            "--format: expected auto, table, ip-route, ip-route-json or "
            "mrt, got " +
            quoted(name));
    } else if (a == "--origin") {
      o.by_origin = true;
      o.origin =
          static_cast<uint32_t>(number_arg("--origin", value(), 0, UINT32_MAX));
    } else if (a == "--json") {
      o.json = true;
    } else if (a == "--stats") {
      o.stats = true;
    } else if (a == "--print") {
      o.print = true;
    } else if (a == "--list") {
      o.list = true;
    } else if (a == "--stdin") {
      o.from_stdin = true;
    } else if (a == "--bench") {
      o.bench = number_arg("--bench", value(), 1, uint64_t{1} << 32);
    } else if (a.size() > 1 && a[0] == '-') {
      fail("unknown option " + quoted(a) + " (see --help)");
    } else {
      o.addresses.push_back(a);
    }
  }
  if (o.tables.empty()) o.tables = default_tables();
  if (o.tables.empty()) fail("no table given (see --help)");
  if (o.json && o.print) fail("--print has no JSON form; drop --json");
  return o;
}

// The library's diagnostics since the last take, in one line each.
std::vector<std::string> library_said;

void on_library_diagnostic(int, const char *, int, const char *msg) {
  library_said.push_back(std::string(trim(msg)));
}

std::string take_library_diagnostics() {
  std::string all;
  for (const std::string &m : library_said)
    all += (all.empty() ? "" : "; ") + m;
  library_said.clear();
  return all;
}

Table load_tables(const Options &o) {
  Table table;
  std::string error;
  std::vector<std::string> warnings;
  for (const std::string &path : o.tables) {
    Source src;
    double t0 = now_seconds();
    if (!read_source(path, src, error)) fail(error);
    size_t before = table.v4.size() + table.v6.size();
    Format format =
        o.format == Format::automatic ? detect_format(src.bytes) : o.format;
    if (!load_source(src, format, table, error, warnings)) fail(error);
    double s = now_seconds() - t0;
    size_t n = table.v4.size() + table.v6.size() - before;
    fprintf(stderr,
            "vell-lpm: %s: %zu prefixes (%s) read in %.2f s, %.0f prefixes/s, "
            "%.0f MB/s unpacked\n",
            src.name.c_str(), n, format_name(format), s,
            static_cast<double>(n) / s,
            static_cast<double>(src.bytes.size()) / s / 1e6);
  }
  for (const std::string &w : warnings)
    fprintf(stderr, "vell-lpm: warning: %s\n", w.c_str());
  return table;
}

// How answers and listings read: the data word, or for a route table the
// next hop it stands for.
struct Words {
  const Table &table;
  bool json;

  bool routes() const { return !table.nexthops.empty(); }
  const std::string &nexthop(uint32_t data) const {
    static const std::string unknown = "?";
    return data >= 1 && data <= table.nexthops.size() ? table.nexthops[data - 1]
                                                      : unknown;
  }
  // One line of --list or --origin.
  std::string item(const std::string &prefix, uint32_t data) const {
    if (json)
      return "{\"prefix\": " + json_string(prefix) +
             ", \"data\": " + std::to_string(data) +
             (routes() ? ", \"nexthop\": " + json_string(nexthop(data)) : "") +
             "}";
    return prefix + " " + (routes() ? nexthop(data) : std::to_string(data));
  }
  // One answer; a null prefix is a miss.
  std::string answer(const std::string &addr, const std::string *prefix,
                     uint32_t data) const {
    if (json) {
      std::string null = "null";
      std::string s = "{\"address\": " + json_string(addr) +
                      ", \"data\": " + (prefix ? std::to_string(data) : null) +
                      ", \"prefix\": " + (prefix ? json_string(*prefix) : null);
      if (routes())
        s += ", \"nexthop\": " + (prefix ? json_string(nexthop(data)) : null);
      return s + "}";
    }
    if (!prefix) return addr + " - -";
    if (routes()) return addr + " " + *prefix + " " + nexthop(data);
    return addr + " " + std::to_string(data) + " " + *prefix;
  }
};

void put_line(const std::string &line) {
  fwrite(line.data(), 1, line.size(), stdout);
  putchar('\n');
}

// One family's trie, with what the tool knows beside it.
template <typename Ops>
struct FamilyTrie {
  const std::vector<typename Ops::Entry> &entries;
  const Words &words;
  typename Ops::Trie *trie = nullptr;
  double build_seconds = 0;
  PrefixIndex index;
  size_t duplicates;  // repeated prefixes dropped before the build

  FamilyTrie(std::vector<typename Ops::Entry> &e, const Options &o,
             const Words &w)
      : entries(e),
        words(w),
        index(Ops::family, prefixes_of(e)),
        duplicates(keep_first_of_duplicates<Ops>(e)) {
    if (e.empty()) return;  // lookups then find nothing
    // The IPv6 constructor refuses a larger table on the console, where the
    // refusal would mix with the answers: refuse it here first.
    if (Ops::family == Family::v6 && e.size() > Ops::kMaxEntries)
      fail("the IPv6 trie takes at most " + std::to_string(Ops::kMaxEntries) +
           " prefixes; the tables hold " + std::to_string(e.size()));
    double t0 = now_seconds();
    trie = Ops::construct(
        e.data(), static_cast<uint32_t>(e.size()), o.fill,
        root_branch(o.root_branch[Ops::family == Family::v6], e.size()));
    build_seconds = now_seconds() - t0;
    if (!trie)
      fail("cannot build the " + std::string(family_name(Ops::family)) +
           " trie of " + std::to_string(e.size()) +
           " prefixes; the library reports: " + take_library_diagnostics());
  }
  ~FamilyTrie() { Ops::destruct(trie); }

  static uint32_t root_branch(uint32_t chosen, size_t n) {
    if (chosen != kAutoRootBranch) return chosen;
    uint32_t log2 = static_cast<uint32_t>(std::bit_width(n)) - 1;
    return std::min(
        {log2 > 2 ? log2 - 2 : 0, kMaxAutoRootBranch, Ops::kMaxRootBranch});
  }

  static std::vector<Prefix> prefixes_of(
      const std::vector<typename Ops::Entry> &e) {
    std::vector<Prefix> p;
    p.reserve(e.size());
    for (const auto &x : e)
      p.push_back({Ops::entry_addr(x), Ops::entry_len(x)});
    return p;
  }

  static std::string prefix_text(const Addr &a, unsigned len) {
    return format_addr(Ops::family, a) + "/" + std::to_string(len);
  }

  // Counts, build time and ignored duplicates, on stderr.
  void status() const {
    const char *name = family_name(Ops::family);
    if (!trie) {
      fprintf(stderr, "vell-lpm: %s: no prefixes\n", name);
      return;
    }
    fprintf(stderr,
            "vell-lpm: %s: %zu prefixes, trie built in %.1f ms, %u bytes\n",
            name, entries.size(), build_seconds * 1e3, Ops::memory(trie));
    if (duplicates)
      fprintf(stderr,
              "vell-lpm: %s: %zu repeated prefixes ignored (the first line "
              "of each counts)\n",
              name, duplicates);
  }

  // The same facts as one JSON object.
  std::string json() const {
    return std::string("{\"prefixes\": ") + std::to_string(entries.size()) +
           ", \"duplicates\": " + std::to_string(duplicates) +
           ", \"build_ms\": " + std::to_string(build_seconds * 1e3) +
           ", \"bytes\": " + std::to_string(trie ? Ops::memory(trie) : 0) + "}";
  }

  void report(const Options &o) {
    if (!trie) return;
    if (o.stats && !o.json) Ops::print_stats(trie);
    if (o.print) Ops::print(trie);
    if (o.list || o.by_origin) list(o);
    fflush(stdout);
  }

  // Each stored prefix once, in address order. The iterator delivers an
  // enclosing prefix with every entry inside it, so its items are deduplicated.
  void list(const Options &o) {
    struct Item {
      Addr addr;
      unsigned len;
      uint32_t data;
      auto operator<=>(const Item &) const = default;
    };
    std::vector<Item> items;
    bool ok = Ops::for_each_item(
        trie, [&](const Addr &a, unsigned len, uint32_t data) {
          if (o.list || data == o.origin)
            items.push_back({mask_to(a, len), len, data});
        });
    if (!ok)
      fail("cannot list the " + std::string(family_name(Ops::family)) +
           " trie; the library reports: " + take_library_diagnostics());
    std::sort(items.begin(), items.end());
    items.erase(std::unique(items.begin(), items.end()), items.end());
    for (const Item &i : items)
      put_line(words.item(prefix_text(i.addr, i.len), i.data));
  }

  void lookup(const Addr &addr) const {
    Prefix match;
    std::string text = format_addr(Ops::family, addr), prefix;
    bool hit = index.longest(addr, match);
    if (hit) prefix = prefix_text(match.addr, match.len);
    uint32_t data = hit ? Ops::lookup(trie, Ops::addr_key(addr)) : 0;
    put_line(words.answer(text, hit ? &prefix : nullptr, data));
  }

  // Times n lookups; the result as text lines or as one JSON object.
  std::string bench(uint64_t n, bool as_json) const {
    if (!trie) return as_json ? "null" : "";
    auto keys = draw_keys<Ops>(entries, n);
    std::vector<uint32_t> single(n), bulk(n);
    double t0 = now_seconds();
    for (uint64_t i = 0; i < n; ++i) single[i] = Ops::lookup(trie, keys[i]);
    double t1 = now_seconds();
    for (uint64_t i = 0; i < n; i += kBulkBatch)
      Ops::lookup_bulk(
          trie, &keys[i], &bulk[i],
          static_cast<uint32_t>(std::min<uint64_t>(kBulkBatch, n - i)));
    double t2 = now_seconds();
    uint64_t hits = 0, differ = 0;
    for (uint64_t i = 0; i < n; ++i) {
      hits += single[i] != 0;
      differ += single[i] != bulk[i];
    }
    if (differ) fail(std::to_string(differ) + " bulk results differ");
    double m = Ops::memory(trie), nd = static_cast<double>(n);
    double matched = 100.0 * static_cast<double>(hits) / nd;
    double single_rate = nd / (t1 - t0) / 1e6, bulk_rate = nd / (t2 - t1) / 1e6;
    double per_prefix = m / static_cast<double>(entries.size());
    char buf[640];
    if (as_json)
      snprintf(buf, sizeof buf,
               "{\"lookups\": %llu, \"matched_pct\": %.1f, \"build_ms\": "
               "%.1f, \"bytes\": %.0f, \"bytes_per_prefix\": %.1f, "
               "\"single_mps\": %.2f, \"bulk_mps\": %.2f, \"bulk_batch\": %u}",
               static_cast<unsigned long long>(n), matched, build_seconds * 1e3,
               m, per_prefix, single_rate, bulk_rate, kBulkBatch);
    else
      snprintf(buf, sizeof buf,
               "%s bench: %llu lookups (half within the table's prefixes, "
               "half uniform), %.1f%% matched\n"
               "  build %.1f ms, memory %.0f B (%.2f MB, %.1f B per prefix)\n"
               "  single lookups %.2f M/s, bulk lookups (batches of %u) %.2f "
               "M/s\n",
               family_name(Ops::family), static_cast<unsigned long long>(n),
               matched, build_seconds * 1e3, m, m / 1048576.0, per_prefix,
               single_rate, kBulkBatch, bulk_rate);
    return buf;
  }
};

// The --stats and --bench reports as one JSON document.
template <typename V4, typename V6>
void json_report(const Options &o, const V4 &v4, const V6 &v6) {
  std::string doc = "{";
  auto family = [&](const char *name, const auto &f) {
    doc += std::string(doc.size() > 1 ? ", " : "") + json_string(name) + ": ";
    std::string facts = f.json();
    if (o.bench)
      facts.insert(facts.size() - 1, ", \"bench\": " + f.bench(o.bench, true));
    doc += facts;
  };
  family("IPv4", v4);
  family("IPv6", v6);
  put_line(doc + "}");
}

}  // namespace

int main(int argc, char **argv) {
  Options o = parse_options(argc, argv);
  sc_host_set_diag_handler(on_library_diagnostic);
  struct Query {
    lpm::Family family;
    Addr addr;
  };
  std::vector<Query> queries;
  for (const std::string &a : o.addresses) {
    Query q;
    if (!parse_query(a, q.family, q.addr)) fail("bad address " + quoted(a));
    queries.push_back(q);
  }
  Table table = load_tables(o);
  Words words{table, o.json};
  FamilyTrie<Ops4> v4(table.v4, o, words);
  FamilyTrie<Ops6> v6(table.v6, o, words);
  v4.status();
  v6.status();
  if (o.json && (o.stats || o.bench)) json_report(o, v4, v6);
  v4.report(o);
  v6.report(o);

  auto lookup = [&](const Query &q) {
    if (q.family == Family::v4)
      v4.lookup(q.addr);
    else
      v6.lookup(q.addr);
  };
  for (const Query &q : queries) lookup(q);
  int status = 0;
  if (o.from_stdin) {
    std::string line;
    unsigned long n = 0;
    for (int c = 0; c != EOF;) {
      line.clear();
      while ((c = getchar()) != EOF && c != '\n') line += static_cast<char>(c);
      ++n;
      std::string_view text = trim(line);
      Query q;
      if (text.empty()) continue;
      if (text.find('\0') == std::string_view::npos &&
          parse_query(text, q.family, q.addr)) {
        lookup(q);
      } else {
        fflush(stdout);
        fprintf(stderr, "vell-lpm: <stdin>:%lu: bad address %s\n", n,
                quoted(text).c_str());
        status = 1;
      }
    }
  }
  if (o.bench && !o.json) {
    fputs(v4.bench(o.bench, false).c_str(), stdout);
    fputs(v6.bench(o.bench, false).c_str(), stdout);
  }
  if (fflush(stdout) != 0 || ferror(stdout))
    fail(std::string("cannot write the answers: ") + strerror(errno));
  return status;
}

// vell-lpm: builds the IPv4 and IPv6 tries from prefix tables, then reports,
// dumps, lists, looks up and benchmarks them. Every table is read and every
// argument checked before anything is printed, so bad input never leaves
// half a report behind. Stdout carries only answers and the reports asked
// for; status and warnings go to stderr.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "lpm_clock.h"
#include "lpm_formats.h"
#include "lpm_table.h"
#include "lpm_text.h"
#include "lpm_updates.h"
#include "sc_host_default.h"
#include "vell_ds_version.h"
#include "vell_lpm_family.h"
#include "vell_lpm_options.h"
#include "vell_lpm_replay.h"

namespace vell_lpm {

const char kUsage[] =
    "usage: vell-lpm [OPTIONS] [ADDRESS...]\n"
    "Builds one trie per address family from prefix tables and looks up\n"
    "each ADDRESS, printing it with the data word and the matching prefix.\n"
    "\n"
    "  -t, --table FILE      read a table ('-' for stdin); repeatable; gzip\n"
    "                        or bzip2 data is unpacked. Formats, told by\n"
    "                        content: lines 'ADDRESS[/LEN] [DATA]' (CIDR\n"
    "                        lists, PREFIX<TAB>ASN; DATA defaults to the\n"
    "                        line's position among its family's prefixes,\n"
    "                        counted from 1, repeated prefixes included) or\n"
    "                        'START,END,DATA' (ends as addresses or decimal\n"
    "                        integers; DATA a number, or a text such as a\n"
    "                        country code, printed back in answers), with\n"
    "                        '#' and ';' comments; a JSON array of CIDR\n"
    "                        strings; 'ip route' text or 'ip -j route' JSON\n"
    "                        (answers name the next hop); MRT RIB dumps\n"
    "                        (data: the origin AS). Without -t (and\n"
    "                        --updates) the embedded table is read.\n"
    "      --mask-host-bits  clear the bits past a prefix's length\n"
    "                        ('10.1.2.3/8' reads as 10.0.0.0/8) and count\n"
    "                        them, instead of refusing the table\n"
    "      --updates FILE    replay an MRT update file (BGP4MP; '-' for\n"
    "                        stdin; gzip or bzip2 unpacked) after the tables;\n"
    "                        repeatable, in time order. Routes are kept per\n"
    "                        peer: a RIB dump's peers first, in its peer\n"
    "                        index order, then the updates' peers as first\n"
    "                        seen; a prefix answers with the origin AS of the\n"
    "                        lowest-numbered peer announcing it. Other\n"
    "                        tables' prefixes stand behind every peer's.\n"
    "                        Lookups answer from a live table per family,\n"
    "                        published once per second of the stream.\n"
    "      --at TIME         end the replay at TIME (UNIX seconds or\n"
    "                        2026-11-25T10:00:00Z): answers as of then\n"
    "      --format NAME     read every table in format NAME (see below;\n"
    "                        auto, the default, tells each by its content)\n"
    "      --family 4|6      the family of an 'ip route' default route that\n"
    "                        neither its line nor the routes around it tell\n"
    "      --route-table ID  of an 'ip route show table all' listing, read\n"
    "                        table ID (a name or number; default main) or\n"
    "                        all; routes skipped are counted on stderr\n"
    "      --fill PCT        node fill factor, 1 to 100 (default 50)\n"
    "      --root-branch N[,M]  least branch of the IPv4 root (at most 20),\n"
    "                        and of the IPv6 root (at most 15); by default\n"
    "                        each root gets about one slot per four\n"
    "                        prefixes, at most 2^16\n"
    "      --stats           print each trie's statistics report (with\n"
    "                        --updates: the replay's, on stdout)\n"
    "      --print           dump each trie (with --updates: each change "
    "read,\n"
    "                        TIME|A|PEER|PREFIX|ORIGIN, TIME|W|PEER|PREFIX or\n"
    "                        TIME|DOWN|PEER)\n"
    "      --list            list each trie's prefixes from its iterator\n"
    "      --origin N        list the prefixes whose data word is N (the\n"
    "                        prefixes AS N originates in a dump)\n"
    "      --stdin           also look up addresses read from stdin, one a "
    "line\n"
    "                        (addresses may be decimal integers)\n"
    "      --json            answers as one JSON object a line, reports as\n"
    "                        one JSON document\n"
    "      --bench N         time N lookups per family (keys drawn half from\n"
    "                        the table's prefixes, half uniformly); with\n"
    "                        --updates, on a second thread during the replay\n"
    "                        against the same with no replay\n"
    "  -h, --help            this text\n"
    "      --version         the program's and the library's version\n";

[[noreturn]] void fail(const std::string &msg) {
  fprintf(stderr, "vell-lpm: %s\n", msg.c_str());
  exit(1);
}

[[noreturn]] void write_failed() {
  if (errno == EPIPE) _exit(0);  // nothing left to flush to a closed pipe
  fail(std::string("cannot write the answers: ") + strerror(errno));
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
      printf("Formats: %s.\n", format_names().c_str());
      exit(0);
    } else if (a == "--version") {
      puts("vell-lpm (vell-ds) " VELL_DS_VERSION_STRING);
      exit(0);
    } else if (a == "-t" || a == "--table") {
      o.tables.push_back(value());
    } else if (a == "--updates") {
      o.updates.push_back(value());
    } else if (a == "--at") {
      const char *text = value();
      if (!parse_time(text, o.at))
        fail(
            "--at: expected UNIX seconds or a UTC time such as "
            "2026-11-25T10:00:00Z, got " +
            quoted(text));
    } else if (a == "--fill") {
      o.fill = static_cast<uint32_t>(number_arg("--fill", value(), 1, 100));
    } else if (a == "--root-branch") {
      std::string v = value();
      size_t comma = v.find(',');
      o.root_branch[0] = static_cast<uint32_t>(
          number_arg("--root-branch", v.substr(0, comma).c_str(), 0,
                     max_root_branch<vell::trie4_family>));
      o.root_branch[1] =
          comma == std::string::npos
              ? std::min(o.root_branch[0], max_root_branch<vell::trie6_family>)
              : static_cast<uint32_t>(
                    number_arg("--root-branch", v.substr(comma + 1).c_str(), 0,
                               max_root_branch<vell::trie6_family>));
    } else if (a == "--format") {
      const char *name = value();
      if (!format_named(name, o.format))
        fail("--format: expected " + format_names() + ", got " + quoted(name));
    } else if (a == "--family") {
      std::string v = value();
      if (v != "4" && v != "6")
        fail("--family: expected 4 or 6, got " + quoted(v));
      o.routes.family = v == "4" ? Family::v4 : Family::v6;
    } else if (a == "--route-table") {
      o.routes.table = value();
      if (o.routes.table.empty())
        fail("--route-table: expected a table's name or number, or all");
    } else if (a == "--origin") {
      o.by_origin = true;
      o.origin =
          static_cast<uint32_t>(number_arg("--origin", value(), 0, UINT32_MAX));
    } else if (a == "--mask-host-bits") {
      o.mask_host_bits = true;
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
  if (o.tables.empty() && o.updates.empty()) o.tables = default_tables();
  if (o.tables.empty() && o.updates.empty())
    fail("no table given (see --help)");
  if (o.updates.empty() && o.at != UINT64_MAX) fail("--at needs --updates");
  auto stdin_uses = [&](const std::vector<std::string> &v) {
    return std::count(v.begin(), v.end(), "-");
  };
  if (stdin_uses(o.tables) + stdin_uses(o.updates) + o.from_stdin > 1)
    fail("stdin can be read only once ('-t -', '--updates -', --stdin)");
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
  table.mask_host_bits = o.mask_host_bits;
  std::string error;
  std::vector<std::string> warnings;
  for (const std::string &path : o.tables) {
    Source src;
    double t0 = now_seconds();
    if (!read_source(path, src, error)) fail(error);
    size_t before = table.v4.size() + table.v6.size();
    Format format =
        o.format == Format::automatic ? detect_format(src.bytes) : o.format;
    if (!load_source(src, format, table, error, warnings, o.routes))
      fail(error);
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

}  // namespace vell_lpm

using namespace vell_lpm;

int main(int argc, char **argv) {
  // A reader that closes the pipe early (head, a script) has all it wants:
  // the write fails with EPIPE, and the tool ends with status 0.
  signal(SIGPIPE, SIG_IGN);
  Options o = parse_options(argc, argv);
  sc_host_set_diag_handler(on_library_diagnostic);
  std::vector<Query> queries = command_line_queries(o);
  int status = 0;
  if (!o.updates.empty()) {
    Table table;  // the replay reads the tables itself
    table.mask_host_bits = o.mask_host_bits;
    status = replay_main(o, table, queries);
  } else {
    Table table = load_tables(o);
    Words words{table, o.json};
    FamilyTrie<vell::trie4_family> v4(table.v4, o, words);
    FamilyTrie<vell::trie6_family> v6(table.v6, o, words);
    v4.status();
    v6.status();
    if (o.json && (o.stats || o.bench)) json_report(o, v4, v6);
    v4.report(o);
    v6.report(o);

    Find find = [&](Family f, const Addr &addr, std::string &prefix,
                    uint32_t &data) {
      return f == Family::v4 ? v4.find(addr, prefix, data)
                             : v6.find(addr, prefix, data);
    };
    auto lookup = [&](const Query &q) { put_line(answer(words, q, find)); };
    for (const Query &q : queries) lookup(q);
    status = for_each_stdin_query(o, lookup);
    if (o.bench && !o.json) {
      fputs(v4.bench(o.bench, false).c_str(), stdout);
      fputs(v6.bench(o.bench, false).c_str(), stdout);
    }
  }
  if (fflush(stdout) != 0 || ferror(stdout)) write_failed();
  return status;
}

// vell-lpm: builds the IPv4 and IPv6 tries from prefix tables, then reports,
// dumps, lists, looks up and benchmarks them. Every table is read and every
// argument checked before anything is printed, so bad input never leaves
// half a report behind.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "lpm_keys.h"
#include "lpm_match.h"
#include "lpm_table.h"
#include "lpm_trie.h"
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
    "  -t, --table FILE      read a table ('-' for stdin); repeatable. Lines\n"
    "                        are 'ADDRESS/LEN [DATA]' or 'START,END,NUMBER'\n"
    "                        (an inclusive range); '#' comments. Without -t\n"
    "                        the embedded table is read.\n"
    "      --fill PCT        node fill factor, 1 to 100 (default 50)\n"
    "      --root-branch N[,M]  least branch of the IPv4 root, and of the\n"
    "                        IPv6 root (at most 15); by default each root\n"
    "                        gets about one slot per four prefixes, at most\n"
    "                        2^16\n"
    "      --stats           print each trie's statistics report\n"
    "      --print           dump each trie\n"
    "      --list            list each trie's prefixes from its iterator\n"
    "      --stdin           also look up addresses read from stdin, one a "
    "line\n"
    "      --bench N         time N lookups per family (keys drawn half from\n"
    "                        the table's prefixes, half uniformly)\n"
    "  -h, --help            this text\n"
    "      --version         the program's and the library's version\n";

struct Options {
  std::vector<std::string> tables;
  uint32_t fill = kDefaultFill;
  uint32_t root_branch[2] = {kAutoRootBranch, kAutoRootBranch};
  bool stats = false, print = false, list = false, from_stdin = false;
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
         " to " + std::to_string(hi) + ", got '" + text + "'");
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
      fail("unknown option '" + a + "' (see --help)");
    } else {
      o.addresses.push_back(a);
    }
  }
  if (o.tables.empty()) o.tables = default_tables();
  if (o.tables.empty()) fail("no table given (see --help)");
  return o;
}

Table load_tables(const std::vector<std::string> &names) {
  Table table;
  std::string error;
  for (const std::string &name : names) {
    bool is_stdin = name == "-";
    FILE *in = is_stdin ? stdin : fopen(name.c_str(), "r");
    if (!in) fail(name + ": " + strerror(errno));
    bool ok = load_table(in, is_stdin ? "<stdin>" : name, table, error);
    if (!is_stdin) fclose(in);
    if (!ok) fail(error);
  }
  return table;
}

// One family's trie, with what the tool knows beside it.
template <typename Ops>
struct FamilyTrie {
  const std::vector<typename Ops::Entry> &entries;
  typename Ops::Trie *trie = nullptr;
  double build_seconds = 0;
  PrefixIndex index;
  size_t duplicates;  // repeated prefixes dropped before the build

  FamilyTrie(std::vector<typename Ops::Entry> &e, const Options &o)
      : entries(e),
        index(Ops::family, prefixes_of(e)),
        duplicates(keep_first_of_duplicates<Ops>(e)) {
    if (e.empty()) return;  // lookups then find nothing
    double t0 = now_seconds();
    trie = Ops::construct(
        e.data(), static_cast<uint32_t>(e.size()), o.fill,
        root_branch(o.root_branch[Ops::family == Family::v6], e.size()));
    build_seconds = now_seconds() - t0;
    if (!trie) fail(std::string(family_name(Ops::family)) + " trie not built");
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

  void report(const Options &o) {
    const char *name = family_name(Ops::family);
    if (!trie) {
      printf("%s: no prefixes\n", name);
      return;
    }
    printf("%s: %zu prefixes, trie built in %.1f ms, %u bytes\n", name,
           entries.size(), build_seconds * 1e3, Ops::memory(trie));
    if (duplicates)
      printf(
          "%s: %zu repeated prefixes ignored (the first line of each "
          "counts)\n",
          name, duplicates);
    if (o.stats) Ops::print_stats(trie);
    if (o.print) Ops::print(trie);
    if (o.list) list();
    fflush(stdout);
  }

  void list() {
    bool ok = Ops::for_each_item(
        trie, [](const Addr &a, unsigned len, uint32_t data) {
          printf("%s/%u %u\n",
                 format_addr(Ops::family, mask_to(a, len)).c_str(), len, data);
        });
    if (!ok) fail("iterator not made");
  }

  void lookup(const Addr &addr) const {
    uint32_t data = trie ? Ops::lookup(trie, Ops::addr_key(addr)) : 0;
    Prefix match;
    std::string prefix = "-";
    if (index.longest(addr, match))
      prefix = format_addr(Ops::family, match.addr) + "/" +
               std::to_string(match.len);
    printf("%s %u %s\n", format_addr(Ops::family, addr).c_str(), data,
           prefix.c_str());
  }

  void bench(uint64_t n) const {
    if (!trie) return;
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
    double m = Ops::memory(trie);
    printf(
        "%s bench: %llu lookups (half within the table's prefixes, half "
        "uniform), %.1f%% matched\n"
        "  build %.1f ms, memory %.0f B (%.2f MB, %.1f B per prefix)\n"
        "  single lookups %.2f M/s, bulk lookups (batches of %u) %.2f M/s\n",
        family_name(Ops::family), static_cast<unsigned long long>(n),
        100.0 * static_cast<double>(hits) / static_cast<double>(n),
        build_seconds * 1e3, m, m / 1048576.0,
        entries.empty() ? 0.0 : m / static_cast<double>(entries.size()),
        static_cast<double>(n) / (t1 - t0) / 1e6, kBulkBatch,
        static_cast<double>(n) / (t2 - t1) / 1e6);
    if (differ) fail(std::to_string(differ) + " bulk results differ");
  }
};

}  // namespace

int main(int argc, char **argv) {
  Options o = parse_options(argc, argv);
  struct Query {
    lpm::Family family;
    Addr addr;
  };
  std::vector<Query> queries;
  for (const std::string &a : o.addresses) {
    Query q;
    if (!parse_addr(a, q.family, q.addr)) fail("bad address '" + a + "'");
    queries.push_back(q);
  }
  Table table = load_tables(o.tables);
  FamilyTrie<Ops4> v4(table.v4, o);
  FamilyTrie<Ops6> v6(table.v6, o);
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
    char line[256];
    for (unsigned long n = 1; fgets(line, sizeof line, stdin); ++n) {
      std::string_view text(line);
      while (!text.empty() && strchr(" \t\r\n", text.back()))
        text.remove_suffix(1);
      Query q;
      if (text.empty()) continue;
      if (parse_addr(text, q.family, q.addr)) {
        lookup(q);
      } else {
        fprintf(stderr, "vell-lpm: <stdin>:%lu: bad address '%.*s'\n", n,
                static_cast<int>(text.size()), text.data());
        status = 1;
      }
    }
  }
  fflush(stdout);
  if (o.bench) {
    v4.bench(o.bench);
    v6.bench(o.bench);
  }
  return status;
}

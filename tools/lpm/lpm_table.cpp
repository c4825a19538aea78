#include "lpm_table.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>

#include "lpm_ranges.h"
#include "lpm_text.h"

namespace lpm {
namespace {

bool parse_prefix_line(std::string_view line, Table &t, std::string &why) {
  line = trim(line.substr(0, line.find('#')));
  size_t gap = line.find_first_of(" \t");
  std::string_view pfx = line.substr(0, gap);
  std::string_view rest =
      gap == std::string_view::npos ? "" : trim(line.substr(gap));
  Family f;
  Addr addr;
  unsigned len;
  if (!parse_prefix(pfx, f, addr, len, why)) return false;
  uint32_t data =
      static_cast<uint32_t>((f == Family::v4 ? t.v4.size() : t.v6.size()) + 1);
  if (!rest.empty() && !parse_u32(rest, data)) {
    why = "bad data word " + quoted(rest) + " (an unsigned 32-bit number)";
    return false;
  }
  t.add(f, addr, len, data);
  return true;
}

bool parse_range_line(std::string_view line, Table &t, std::string &why) {
  std::string_view field[3], rest = line;
  for (unsigned i = 0; i < 3; ++i) {
    size_t comma = rest.find(',');
    if (comma == std::string_view::npos && i < 2) {
      why = "expected START,END,NUMBER, got " + quoted(line);
      return false;
    }
    field[i] = trim(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? "" : rest.substr(comma + 1);
  }
  Family f1, f2;
  Addr first, last;
  uint32_t number;
  if (!parse_addr(field[0], f1, first)) {
    why = "bad range start " + quoted(field[0]);
  } else if (!parse_addr(field[1], f2, last)) {
    why = "bad range end " + quoted(field[1]);
  } else if (f1 != f2) {
    why = "range " + quoted(field[0]) + " to " + quoted(field[1]) +
          " mixes IPv4 and IPv6";
  } else if (last < first) {
    why = "range end " + quoted(field[1]) + " lies before its start " +
          quoted(field[0]);
  } else if (!parse_u32(field[2], number)) {
    why = "bad number " + quoted(field[2]) + " (an unsigned 32-bit number)";
  } else {
    std::vector<Prefix> prefixes;
    range_to_prefixes(f1, first, last, prefixes);
    for (const Prefix &p : prefixes) t.add(f1, p.addr, p.len, number);
    return true;
  }
  return false;
}

}  // namespace

bool parse_prefix(std::string_view text, Family &f, Addr &addr, unsigned &len,
                  std::string &why) {
  size_t slash = text.find('/');
  if (!parse_addr(text.substr(0, slash), f, addr)) {
    why = slash == std::string_view::npos
              ? "expected ADDRESS[/LEN] [DATA] or START,END,NUMBER, got " +
                    quoted(text)
              : "bad address " + quoted(text.substr(0, slash));
    return false;
  }
  len = width(f);
  if (slash == std::string_view::npos) return true;  // a host route
  uint32_t n;
  if (!parse_u32(text.substr(slash + 1), n) || n > width(f)) {
    why = "bad prefix length " + quoted(text.substr(slash + 1)) + " (0 to " +
          std::to_string(width(f)) + " for " + family_name(f) + ")";
    return false;
  }
  len = n;
  if (mask_to(addr, len) != addr) {
    why = "address " + quoted(text.substr(0, slash)) +
          " has bits set beyond its length /" + std::to_string(len);
    return false;
  }
  return true;
}

void Table::add(Family f, const Addr &addr, unsigned len, uint32_t data) {
  if (f == Family::v4)
    v4.push_back(vell::trie4_family::make_entry(addr.w, len, data));
  else
    v6.push_back(vell::trie6_family::make_entry(addr.w, len, data));
}

void Table::add_route(Family f, const Addr &addr, unsigned len,
                      const std::string &nexthop) {
  auto [it, added] = nexthop_words.try_emplace(nexthop, 0);
  if (added) {  // words count from 1 until keep_nexthops_apart moves them
    uint32_t word = static_cast<uint32_t>(nexthops.size() + 1);
    while (nexthops.count(word)) ++word;
    it->second = word;
    nexthops[word] = nexthop;
  }
  route_entries[f == Family::v6].push_back(f == Family::v4 ? v4.size()
                                                           : v6.size());
  add(f, addr, len, it->second);
}

void Table::keep_nexthops_apart() {
  if (nexthops.empty()) return;
  std::vector<uint32_t> held;  // by entries that routes did not add
  auto collect = [&](const auto &entries, const std::vector<size_t> &routes) {
    size_t r = 0;
    for (size_t i = 0; i < entries.size(); ++i)
      if (r < routes.size() && routes[r] == i)
        ++r;
      else
        held.push_back(entries[i].data);
  };
  collect(v4, route_entries[0]);
  collect(v6, route_entries[1]);
  std::sort(held.begin(), held.end());
  auto is_held = [&](uint32_t w) {
    return std::binary_search(held.begin(), held.end(), w);
  };
  if (std::none_of(nexthops.begin(), nexthops.end(),
                   [&](const auto &n) { return is_held(n.first); }))
    return;
  std::map<uint32_t, uint32_t> moved;
  std::map<uint32_t, std::string> renamed;
  uint32_t word = UINT32_MAX;
  for (auto &[old, text] : nexthops) {
    while (is_held(word)) --word;
    moved[old] = word;
    nexthop_words[text] = word;
    renamed[word--] = std::move(text);
  }
  nexthops = std::move(renamed);
  for (size_t i : route_entries[0]) v4[i].data = moved[v4[i].data];
  for (size_t i : route_entries[1]) v6[i].data = moved[v6[i].data];
}

std::vector<std::string> default_tables() {
#ifdef VELL_LPM_DEFAULT_TABLES
  char exe[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return {};
  std::string dir(exe, static_cast<size_t>(n));
  for (size_t slash; (slash = dir.rfind('/')) != std::string::npos;) {
    dir.erase(slash);
    std::vector<std::string> tables;
    for (const char *name : {VELL_LPM_DEFAULT_TABLES}) {
      std::string path = dir + "/" VELL_LPM_TABLE_DIR "/" + name;
      if (access(path.c_str(), R_OK) == 0) tables.push_back(path);
    }
    if (!tables.empty()) return tables;
  }
#endif
  return {};
}

bool parse_line(std::string_view line, Table &table, std::string &why) {
  std::string_view body = trim(line);
  if (body.empty() || body[0] == '#' || body[0] == ';') return true;
  if (body.find(',') != std::string_view::npos &&
      body.find(',') < body.find('#'))
    return parse_range_line(body, table, why);
  return parse_prefix_line(body, table, why);
}

bool load_table(std::string_view bytes, std::string_view name, Table &table,
                std::string &error) {
  return for_each_line(bytes, name, error,
                       [&](std::string_view line, std::string &why) {
                         return parse_line(line, table, why);
                       });
}

}  // namespace lpm

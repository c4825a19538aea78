#include "lpm_table.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>

#include "lpm_json.h"
#include "lpm_ranges.h"
#include "lpm_text.h"

namespace lpm {
namespace {

// Data words are all numbers or all texts (labels), so that no number can
// be read as a label's word or the reverse.
bool number_allowed(const Table &t, std::string_view line, std::string &why) {
  if (t.labels.empty()) return true;
  why = quoted(line) +
        " gives a number, but earlier lines give texts: a table's data are "
        "all numbers or all texts";
  return false;
}

bool label_allowed(const Table &t, std::string_view data, std::string &why) {
  if (!t.labels.empty() || (t.v4.empty() && t.v6.empty() && t.nexthops.empty()))
    return true;
  why = "data " + quoted(data) +
        " is a text, but earlier lines give numbers: a table's data are all "
        "numbers or all texts";
  return false;
}

// Adds ADDRESS[/LEN] with the data word DATA, or its position when DATA is
// empty.
bool add_prefix(Table &t, std::string_view pfx, std::string_view data_text,
                std::string &why) {
  Family f;
  Addr addr;
  unsigned len;
  if (!parse_prefix(pfx, f, addr, len, why,
                    t.mask_host_bits ? &t.host_bits_masked : nullptr) ||
      !number_allowed(t, pfx, why))
    return false;
  uint32_t data =
      static_cast<uint32_t>((f == Family::v4 ? t.v4.size() : t.v6.size()) + 1);
  if (!data_text.empty() && !parse_u32(data_text, data)) {
    why = "bad data word " + quoted(data_text) + " (an unsigned 32-bit number)";
    return false;
  }
  t.add(f, addr, len, data);
  return true;
}

bool parse_prefix_line(std::string_view line, Table &t, std::string &why) {
  line = trim(line.substr(0, line.find_first_of("#;")));
  size_t gap = line.find_first_of(" \t");
  return add_prefix(t, line.substr(0, gap),
                    gap == std::string_view::npos ? "" : trim(line.substr(gap)),
                    why);
}

// A range file's field: trimmed, without the double quotes of a quoted one.
std::string_view field_text(std::string_view s) {
  s = trim(s);
  if (s.size() >= 2 && s.front() == '"' && s.back() == '"')
    s = s.substr(1, s.size() - 2);
  return s;
}

// A range end: an address, or a decimal integer.
bool parse_range_end(std::string_view text, Family &f, Addr &a, bool &decimal) {
  decimal = !text.empty() &&
            text.find_first_not_of("0123456789") == std::string_view::npos;
  return parse_query(text, f, a);
}

bool parse_range_line(std::string_view line, Table &t, std::string &why) {
  std::string_view field[3], rest = line;
  for (unsigned i = 0; i < 3; ++i) {
    size_t comma = rest.find(',');
    if (comma == std::string_view::npos && i < 2) {
      why = "expected START,END,DATA, got " + quoted(line);
      return false;
    }
    field[i] = field_text(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? "" : rest.substr(comma + 1);
  }
  Family f1, f2;
  Addr first, last;
  bool dec1, dec2;
  if (!parse_range_end(field[0], f1, first, dec1)) {
    why = "bad range start " + quoted(field[0]);
    return false;
  }
  if (!parse_range_end(field[1], f2, last, dec2)) {
    why = "bad range end " + quoted(field[1]);
    return false;
  }
  if (f1 != f2 && dec1 && dec2) {  // decimal IPv6 ends below 2^32
    Addr &low = f1 == Family::v4 ? first : last;
    low = Addr{{0, 0, 0, low.w[0]}};
    f1 = f2 = Family::v6;
  }
  uint32_t data = 0;
  bool number = parse_u32(field[2], data);
  if (f1 != f2) {
    why = "range " + quoted(field[0]) + " to " + quoted(field[1]) +
          " mixes IPv4 and IPv6";
  } else if (last < first) {
    why = "range end " + quoted(field[1]) + " lies before its start " +
          quoted(field[0]);
  } else if (field[2].empty()) {
    why = "range " + quoted(field[0]) + " to " + quoted(field[1]) +
          " without data";
  } else if (number ? number_allowed(t, line, why)
                    : label_allowed(t, field[2], why)) {
    if (!number) data = t.labels.word(std::string(field[2]));
    std::vector<Prefix> prefixes;
    range_to_prefixes(f1, first, last, prefixes);
    for (const Prefix &p : prefixes) t.add(f1, p.addr, p.len, data);
    return true;
  }
  return false;
}

}  // namespace

bool parse_prefix(std::string_view text, Family &f, Addr &addr, unsigned &len,
                  std::string &why, size_t *masked) {
  size_t slash = text.find('/');
  if (!parse_addr(text.substr(0, slash), f, addr)) {
    why = slash == std::string_view::npos
              ? "expected ADDRESS[/LEN] [DATA] or START,END,DATA, got " +
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
  Addr net = mask_to(addr, len);
  if (net == addr) return true;
  if (masked) {
    addr = net;
    ++*masked;
    return true;
  }
  why = "address " + quoted(text.substr(0, slash)) +
        " has bits set beyond its length /" + std::to_string(len) +
        " (--mask-host-bits clears them)";
  return false;
}

void Table::add(Family f, const Addr &addr, unsigned len, uint32_t data) {
  if (f == Family::v4)
    v4.push_back(vell::trie4_family::make_entry(addr.w, len, data));
  else
    v6.push_back(vell::trie6_family::make_entry(addr.w, len, data));
}

void Table::add_route(Family f, const Addr &addr, unsigned len,
                      const std::string &nexthop) {
  route_entries[f == Family::v6].push_back(f == Family::v4 ? v4.size()
                                                           : v6.size());
  add(f, addr, len, nexthops.word(nexthop));
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
  bool clash = false;
  for (uint32_t w : held) clash = clash || nexthops.text(w);
  if (!clash) return;
  std::map<uint32_t, uint32_t> moved = nexthops.move_to_top(is_held);
  for (size_t i : route_entries[0]) v4[i].data = moved[v4[i].data];
  for (size_t i : route_entries[1]) v6[i].data = moved[v6[i].data];
}

uint32_t TextWords::word(const std::string &text) {
  auto [it, added] = words_.try_emplace(text, 0);
  if (added) {
    uint32_t word = static_cast<uint32_t>(texts_.size() + 1);
    while (texts_.count(word)) ++word;
    it->second = word;
    texts_[word] = text;
  }
  return it->second;
}

const std::string *TextWords::text(uint32_t data) const {
  auto it = texts_.find(data);
  return it == texts_.end() ? nullptr : &it->second;
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

bool looks_like_cidr_json(std::string_view bytes) {
  std::string_view text = trim(bytes);
  if (text.empty() || text[0] != '[') return false;
  text = trim(text.substr(1));
  return !text.empty() && text[0] == '"';
}

bool load_cidr_json(std::string_view bytes, std::string_view name, Table &table,
                    std::string &error) {
  Json doc;
  size_t offset = 0;
  std::string why;
  if (parse_json(bytes, doc, offset, why) && doc.kind != Json::Kind::array)
    why = "expected a JSON array of CIDR strings";
  for (size_t i = 0; why.empty() && i < doc.items.size(); ++i) {
    const Json &item = doc.items[i];
    offset = item.offset;
    if (item.kind != Json::Kind::string)
      why = "expected a CIDR string";
    else if (!add_prefix(table, item.text, "", why))
      break;
  }
  if (why.empty()) return true;
  error = std::string(name) + ":" + std::to_string(line_of(bytes, offset)) +
          ": " + why;
  return false;
}

}  // namespace lpm

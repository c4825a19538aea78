#include "lpm_iproute.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "lpm_json.h"
#include "lpm_text.h"

namespace lpm {
namespace {

// Route types other than unicast, as `ip route` names them.
constexpr std::string_view kTypes[] = {
    "unicast", "unreachable", "blackhole", "prohibit", "throw",
    "local",   "broadcast",   "multicast", "anycast",  "nat"};
// Words of a route line that take no value.
constexpr std::string_view kFlags[] = {
    "onlink",    "linkdown", "pervasive",  "offload", "trap",
    "dead",      "notify",   "rt_offload", "rt_trap", "rt_offload_failed",
    "unresolved"};
// Attributes that may follow a route's destination.
constexpr std::string_view kAttributes[] = {
    "dev",   "via",  "proto",   "scope", "metric", "src",     "from", "table",
    "encap", "nhid", "nexthop", "tos",   "pref",   "expires", "mtu",  "realms"};
// The attributes that end an `encap` attribute's own words (which may hold
// the tunnel's "src", "dst" and "table").
constexpr std::string_view kAfterEncap[] = {
    "via", "dev", "proto", "scope", "metric", "pref", "weight", "nexthop"};

template <size_t N>
bool one_of(std::string_view w, const std::string_view (&set)[N]) {
  return std::find(std::begin(set), std::end(set), w) != std::end(set);
}

Family other(Family f) { return f == Family::v4 ? Family::v6 : Family::v4; }

struct Hop {
  std::string gateway, dev;
};

struct Route {
  unsigned long line = 0;  // where it starts, for messages
  std::string type = "unicast", dst;
  std::string table;  // empty when the listing does not name it
  std::vector<Hop> hops;
  std::optional<Family> said;  // the family its own words tell, first first

  void tell(Family f) {
    if (!said) said = f;
  }
};

std::string nexthop_text(const Route &r) {
  std::string text = r.type == "unicast" ? "" : r.type;
  for (size_t i = 0; i < r.hops.size(); ++i) {
    const Hop &h = r.hops[i];
    std::string hop = h.gateway.empty() ? "" : "via " + h.gateway;
    if (!h.dev.empty()) hop += (hop.empty() ? "dev " : " dev ") + h.dev;
    if (hop.empty()) continue;
    text += (text.empty() ? "" : i ? ", " : " ") + hop;
  }
  return text.empty() ? "unicast" : text;
}

// A gateway of the route's own family, or one given with its family (`via
// inet6 fe80::1`, a JSON "via" object), which the kernel reports only when
// it differs from the route's: an IPv4 route through an IPv6 neighbour.
bool add_gateway(std::string_view text, bool across, Route &r, Hop &h,
                 std::string &why) {
  Family f;
  Addr a;
  if (!parse_addr(text, f, a)) {
    why = "bad gateway address " + quoted(text);
    return false;
  }
  h.gateway = text;
  r.tell(across ? other(f) : f);
  return true;
}

// A source address or prefix (`src`, `from`, JSON "prefsrc") is of the
// route's family; other text tells nothing.
void tell_source(std::string_view text, Route &r) {
  Family f;
  Addr a;
  unsigned len;
  std::string why;
  if (parse_prefix(text, f, a, len, why)) r.tell(f);
}

// Whether two names or numbers stand for the same routing table; `ip`
// prints the reserved ones by name.
bool same_table(std::string_view a, std::string_view b) {
  constexpr std::string_view kReserved[][2] = {
      {"default", "253"}, {"main", "254"}, {"local", "255"}};
  for (const auto &r : kReserved)
    if ((a == r[0] || a == r[1]) && (b == r[0] || b == r[1])) return true;
  return a == b;
}

// "NAME: skipped ..." for the routes of tables not chosen, by table in
// order of first appearance.
std::string skipped_text(
    std::string_view name, const RouteOptions &options,
    const std::vector<std::pair<std::string, size_t>> &by) {
  constexpr size_t kNamed = 4;
  size_t total = 0;
  std::string tables;
  for (size_t i = 0; i < by.size(); ++i) {
    total += by[i].second;
    if (i < kNamed)
      tables += (i ? ", " : "") + quoted(by[i].first) + ": " +
                std::to_string(by[i].second);
  }
  if (by.size() > kNamed) tables += ", ...";
  return std::string(name) + ": read table " + options.table +
         " only, skipped " + std::to_string(total) +
         " routes of other tables (" + tables +
         "); --route-table NAME or all reads them";
}

bool add_routes(const std::vector<Route> &routes, std::string_view name,
                const RouteOptions &options, Table &t, std::string &error,
                std::string &warning) {
  auto fail = [&](const Route &r, const std::string &why) {
    error = std::string(name) + ":" + std::to_string(r.line) + ": " + why;
    return false;
  };
  struct Dst {
    std::optional<Family> family;
    Addr addr;
    unsigned len = 0;
  };
  size_t n = routes.size();
  std::vector<Dst> dst(n);
  for (size_t i = 0; i < n; ++i) {
    Family f;
    std::string why;
    if (routes[i].dst == "default")
      dst[i].family = routes[i].said;
    else if (parse_prefix(routes[i].dst, f, dst[i].addr, dst[i].len, why))
      dst[i].family = f;
    else
      return fail(routes[i], "bad route destination: " + why);
  }
  // The family of the nearest route before each one that tells it, and
  // after: a listing holds each family's routes together.
  std::vector<std::optional<Family>> before(n), after(n);
  for (size_t i = 1; i < n; ++i)
    before[i] = dst[i - 1].family ? dst[i - 1].family : before[i - 1];
  for (size_t i = n; i-- > 1;)
    after[i - 1] = dst[i].family ? dst[i].family : after[i];
  bool named = std::any_of(routes.begin(), routes.end(),
                           [](const Route &r) { return !r.table.empty(); });
  std::vector<std::pair<std::string, size_t>> skipped;
  for (size_t i = 0; i < n; ++i) {
    const Route &r = routes[i];
    std::string table = r.table.empty() ? "main" : r.table;
    if (named && options.table != "all" && !same_table(table, options.table)) {
      auto at = std::find_if(skipped.begin(), skipped.end(),
                             [&](const auto &s) { return s.first == table; });
      if (at == skipped.end()) at = skipped.insert(at, {table, 0});
      ++at->second;
      continue;
    }
    std::optional<Family> f = dst[i].family;
    const auto &b = before[i], &a = after[i];
    if (!f && (!b || !a || *b == *a)) f = b ? b : a;
    if (!f) f = options.family;
    if (!f)
      return fail(r, std::string("cannot tell whether this default route is "
                                 "IPv4 or IPv6: nothing on its line says, "
                                 "and ") +
                         (b ? "it lies between IPv4 and IPv6 routes"
                            : "no other route of the listing does") +
                         "; give --family 4 or 6");
    t.add_route(*f, dst[i].addr, dst[i].len, nexthop_text(r));
  }
  if (!skipped.empty()) warning = skipped_text(name, options, skipped);
  return true;
}

// Splits at blanks. A backslash is one too: `ip -o route` joins the lines
// of a multipath route with it.
std::vector<std::string_view> words(std::string_view line) {
  constexpr const char *kBlanks = " \t\r\\";
  std::vector<std::string_view> w;
  size_t at = line.find_first_not_of(kBlanks);
  while (at != std::string_view::npos) {
    size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
    w.push_back(line.substr(at, end - at));
    at = line.find_first_not_of(kBlanks, end);
  }
  return w;
}

// The attributes after a route's destination, or of a "nexthop" line; each
// "nexthop" starts another next hop of the route.
bool parse_attributes(const std::vector<std::string_view> &w, size_t i,
                      Route &r, std::string &why) {
  for (; i < w.size(); ++i) {
    std::string_view key = w[i];
    if (key == "nexthop") {
      r.hops.emplace_back();
      continue;
    }
    if (one_of(key, kFlags)) continue;
    if (key == "encap") {  // its type and the tunnel's own words
      while (i + 1 < w.size() && !one_of(w[i + 1], kAfterEncap) &&
             !one_of(w[i + 1], kFlags))
        ++i;
      continue;
    }
    if (i + 1 == w.size()) {
      why = "no value after " + quoted(key);
      return false;
    }
    std::string_view value = w[++i];
    if (value == "lock" && key != "dev" && key != "table" && i + 1 < w.size())
      value = w[++i];  // a locked metric: "mtu lock 1400"
    bool across = key == "via" && (value == "inet" || value == "inet6") &&
                  i + 1 < w.size();
    if (across) value = w[++i];
    Hop &hop = r.hops.back();
    if (key == "via" && !add_gateway(value, across, r, hop, why)) return false;
    if (key == "dev") hop.dev = value;
    if (key == "table") r.table = value;
    if (key == "src" || key == "from") tell_source(value, r);
    if (key == "pref" || (key == "proto" && value == "ra")) r.tell(Family::v6);
  }
  return true;
}

bool parse_route_line(std::string_view line, unsigned long lineno,
                      std::vector<Route> &routes, std::string &why) {
  std::vector<std::string_view> w = words(line);
  if (w.empty() || w[0][0] == '#') return true;
  if (w[0] == "nexthop") {
    if (routes.empty()) {
      why = "'nexthop' line before any route";
      return false;
    }
    return parse_attributes(w, 0, routes.back(), why);
  }
  Route r;
  r.line = lineno;
  r.hops.emplace_back();
  size_t i = 0;
  if (one_of(w[0], kTypes)) r.type = w[i++];
  if (i == w.size()) {
    why = "route type " + quoted(r.type) + " without a destination";
    return false;
  }
  r.dst = w[i++];
  if (!parse_attributes(w, i, r, why)) return false;
  routes.push_back(std::move(r));
  return true;
}

// A JSON route's or next hop's gateway ("gateway", of the route's family,
// or "via": {"family", "host"}) and device, as one more next hop.
bool hop_of_json(const Json &o, Route &r, std::string &why) {
  Hop &h = r.hops.emplace_back();
  h.dev = o.string_at("dev");
  std::string gateway = o.string_at("gateway");
  if (!gateway.empty()) return add_gateway(gateway, false, r, h, why);
  if (const Json *via = o.get("via"))
    return add_gateway(via->string_at("host"), true, r, h, why);
  return true;
}

bool route_of_json(const Json &o, Route &r, std::string &why) {
  if (o.kind != Json::Kind::object) {
    why = "a route is a JSON object";
    return false;
  }
  r.dst = o.string_at("dst");  // the first: an encap's own "dst" follows
  if (r.dst.empty()) {
    why = "route without a \"dst\"";
    return false;
  }
  std::string type = o.string_at("type");
  if (!type.empty()) r.type = type;
  r.table = o.string_at("table");
  if (!hop_of_json(o, r, why)) return false;
  if (const Json *hops = o.get("nexthops"))
    for (const Json &h : hops->items)
      if (!hop_of_json(h, r, why)) return false;
  tell_source(o.string_at("prefsrc"), r);
  if (o.get("pref") || o.string_at("protocol") == "ra") r.tell(Family::v6);
  return true;
}

}  // namespace

bool looks_like_ip_route(std::string_view bytes) {
  constexpr unsigned kBarePrefixLines = 64;
  unsigned bare = 0;
  for (size_t at = 0; at < bytes.size() && bare < kBarePrefixLines;) {
    size_t nl = std::min(bytes.find('\n', at), bytes.size());
    std::vector<std::string_view> w = words(bytes.substr(at, nl - at));
    at = nl + 1;
    if (w.empty() || w[0][0] == '#' || w[0][0] == ';') continue;
    if (w[0] == "default" || w[0] == "nexthop" || one_of(w[0], kTypes))
      return true;
    if (w.size() > 1) return one_of(w[1], kAttributes) || one_of(w[1], kFlags);
    ++bare;  // a multipath route's head, or a prefix list's line
  }
  return false;
}

bool load_ip_route(std::string_view bytes, std::string_view name,
                   const RouteOptions &options, Table &t, std::string &error,
                   std::string &warning) {
  std::vector<Route> routes;
  unsigned long lineno = 0;
  return for_each_line(bytes, name, error,
                       [&](std::string_view line, std::string &why) {
                         return parse_route_line(line, ++lineno, routes, why);
                       }) &&
         add_routes(routes, name, options, t, error, warning);
}

bool load_ip_route_json(std::string_view bytes, std::string_view name,
                        const RouteOptions &options, Table &t,
                        std::string &error, std::string &warning) {
  Json doc;
  size_t offset;
  std::string why;
  auto fail = [&](size_t at) {
    error = std::string(name) + ":" + std::to_string(line_of(bytes, at)) +
            ": " + why;
    return false;
  };
  if (bytes.find('\0') != std::string_view::npos) {
    why = "NUL byte in JSON text";
    return fail(bytes.find('\0'));
  }
  if (!parse_json(bytes, doc, offset, why)) return fail(offset);
  if (doc.kind != Json::Kind::array) {
    why = "expected a JSON array of routes";
    return fail(doc.offset);
  }
  std::vector<Route> routes;
  size_t counted = 0;  // routes come in order: count lines incrementally
  unsigned long line = 1;
  for (const Json &o : doc.items) {
    line += line_of(bytes.substr(counted), o.offset - counted) - 1;
    counted = o.offset;
    Route r;
    r.line = line;
    if (!route_of_json(o, r, why)) return fail(o.offset);
    routes.push_back(std::move(r));
  }
  return add_routes(routes, name, options, t, error, warning);
}

}  // namespace lpm

#include "lpm_iproute.h"

#include <algorithm>
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
    "onlink", "linkdown", "pervasive",  "offload", "trap",
    "dead",   "notify",   "rt_offload", "rt_trap", "rt_offload_failed"};

template <size_t N>
bool one_of(std::string_view w, const std::string_view (&set)[N]) {
  return std::find(std::begin(set), std::end(set), w) != std::end(set);
}

struct Hop {
  std::string gateway, dev;
};

struct Route {
  unsigned long line;  // where it starts, for messages
  std::string type, dst;
  std::vector<Hop> hops;
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

// The family of the first address among the routes' destinations and
// gateways; "default" routes without a gateway take it. IPv4 when none.
Family family_hint(const std::vector<Route> &routes) {
  Family f;
  Addr a;
  std::string why;
  unsigned len;
  for (const Route &r : routes) {
    if (parse_prefix(r.dst, f, a, len, why)) return f;
    for (const Hop &h : r.hops)
      if (parse_addr(h.gateway, f, a)) return f;
  }
  return Family::v4;
}

bool add_routes(const std::vector<Route> &routes, std::string_view name,
                Table &t, std::string &error) {
  Family hint = family_hint(routes);
  for (const Route &r : routes) {
    Family f = hint;
    Addr addr;
    unsigned len = 0;
    std::string why;
    if (r.dst == "default") {
      Addr gw;
      for (const Hop &h : r.hops) parse_addr(h.gateway, f, gw);
    } else if (!parse_prefix(r.dst, f, addr, len, why)) {
      error = std::string(name) + ":" + std::to_string(r.line) +
              ": bad route destination: " + why;
      return false;
    }
    t.add(f, addr, len, t.nexthop_word(nexthop_text(r)));
  }
  return true;
}

// Splits at blanks.
std::vector<std::string_view> words(std::string_view line) {
  std::vector<std::string_view> w;
  for (;;) {
    line = trim(line);
    if (line.empty()) return w;
    size_t gap = std::min(line.find_first_of(" \t\r"), line.size());
    w.push_back(line.substr(0, gap));
    line.remove_prefix(gap);
  }
}

// The key-value words after a route's destination, or of a "nexthop" line.
bool parse_attributes(const std::vector<std::string_view> &w, size_t i,
                      Hop &hop, std::string &why) {
  for (; i < w.size(); ++i) {
    std::string_view key = w[i];
    if (one_of(key, kFlags)) continue;
    if (i + 1 == w.size()) {
      why = "no value after " + quoted(key);
      return false;
    }
    std::string_view value = w[++i];
    if (key == "via" && (value == "inet" || value == "inet6") &&
        i + 1 < w.size())
      value = w[++i];
    if (key == "mtu" && value == "lock" && i + 1 < w.size()) ++i;
    Family f;
    Addr a;
    if (key == "via" && !parse_addr(value, f, a)) {
      why = "bad gateway address " + quoted(value);
      return false;
    }
    if (key == "via") hop.gateway = value;
    if (key == "dev") hop.dev = value;
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
    routes.back().hops.emplace_back();
    return parse_attributes(w, 1, routes.back().hops.back(), why);
  }
  Route r{lineno, "unicast", "", {Hop{}}};
  size_t i = 0;
  if (one_of(w[0], kTypes)) r.type = w[i++];
  if (i == w.size()) {
    why = "route type " + quoted(r.type) + " without a destination";
    return false;
  }
  r.dst = w[i++];
  if (!parse_attributes(w, i, r.hops[0], why)) return false;
  routes.push_back(std::move(r));
  return true;
}

bool route_of_json(const Json &o, Route &r, std::string &why) {
  if (o.kind != Json::Kind::object) {
    why = "a route is a JSON object";
    return false;
  }
  r.dst = o.string_at("dst");
  if (r.dst.empty()) {
    why = "route without a \"dst\"";
    return false;
  }
  std::string type = o.string_at("type");
  if (!type.empty()) r.type = type;
  r.hops.push_back({o.string_at("gateway"), o.string_at("dev")});
  if (const Json *hops = o.get("nexthops"))
    for (const Json &h : hops->items)
      r.hops.push_back({h.string_at("gateway"), h.string_at("dev")});
  for (const Hop &h : r.hops) {
    Family f;
    Addr a;
    if (!h.gateway.empty() && !parse_addr(h.gateway, f, a)) {
      why = "bad gateway address " + quoted(h.gateway);
      return false;
    }
  }
  return true;
}

}  // namespace

bool looks_like_ip_route(std::string_view bytes) {
  std::vector<std::string_view> w;
  for (size_t at = 0; at < bytes.size() && w.empty();) {
    size_t nl = std::min(bytes.find('\n', at), bytes.size());
    w = words(bytes.substr(at, nl - at));
    at = nl + 1;
  }
  if (w.empty()) return false;
  if (w[0] == "default" || one_of(w[0], kTypes)) return true;
  return std::find_if(w.begin(), w.end(), [](std::string_view x) {
           return x == "dev" || x == "via";
         }) != w.end();
}

bool load_ip_route(std::string_view bytes, std::string_view name, Table &t,
                   std::string &error) {
  std::vector<Route> routes;
  unsigned long lineno = 0;
  return for_each_line(bytes, name, error,
                       [&](std::string_view line, std::string &why) {
                         return parse_route_line(line, ++lineno, routes, why);
                       }) &&
         add_routes(routes, name, t, error);
}

bool load_ip_route_json(std::string_view bytes, std::string_view name, Table &t,
                        std::string &error) {
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
    Route r{line, "unicast", "", {}};
    if (!route_of_json(o, r, why)) return fail(o.offset);
    routes.push_back(std::move(r));
  }
  return add_routes(routes, name, t, error);
}

}  // namespace lpm

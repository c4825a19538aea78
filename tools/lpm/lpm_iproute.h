// Route tables as `ip route` / `ip -6 route` print them, in text (also
// `ip -o route`, one line per route) or in JSON (`ip -j route`). Each
// distinct next hop ("via 10.0.0.2 dev eth1", "dev eth0", a route type such
// as "unreachable", several hops of a multipath route joined by ", ")
// becomes one data word of the table, so a lookup can answer with the route
// an address takes. Of routes to the same prefix the first listed counts,
// as for any table.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "lpm_table.h"

namespace lpm {

// What the user settles about a listing.
struct RouteOptions {
  // The family of a default route that neither its own words (an address,
  // `pref`, which only IPv6 routes carry) nor the routes listed around it
  // tell; without it such a route is an error.
  std::optional<Family> family;
  // The routing table read from a listing that names tables (`ip route
  // show table all`): a name or number, or "all". A route that names none
  // is in the main table then; a listing that names none is read whole.
  std::string table = "main";
};

// True when the first lines that are not blank or comments read as routes
// of `ip route` text: a line starts with "default", a route type or
// "nexthop", or a route attribute ("dev", "via", "proto"...) follows its
// destination. Lines that hold a bare prefix decide nothing.
bool looks_like_ip_route(std::string_view bytes);

// Reads `ip route` text. A bad line is an error "NAME:LINE: reason"; routes
// of other tables skipped are counted in `warning`.
bool load_ip_route(std::string_view bytes, std::string_view name,
                   const RouteOptions &options, Table &t, std::string &error,
                   std::string &warning);

// Reads `ip -j route` output: a JSON array of route objects. A fault is an
// error naming the line of the offending text.
bool load_ip_route_json(std::string_view bytes, std::string_view name,
                        const RouteOptions &options, Table &t,
                        std::string &error, std::string &warning);

}  // namespace lpm

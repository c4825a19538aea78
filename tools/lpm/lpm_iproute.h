// Route tables as `ip route` / `ip -6 route` print them, in text or in JSON
// (`ip -j route`). Each distinct next hop ("via 10.0.0.2 dev eth1",
// "dev eth0", a route type such as "unreachable", several hops of a
// multipath route joined by ", ") becomes one data word of the table, so a
// lookup can answer with the route an address takes. Of routes to the same
// prefix the first listed counts, as for any table.
#pragma once

#include <string>
#include <string_view>

#include "lpm_table.h"

namespace lpm {

// True when the first line that is not blank reads as a route of `ip route`
// text: it starts with "default" or a route type, or names a "dev" or "via".
bool looks_like_ip_route(std::string_view bytes);

// Reads `ip route` text. A bad line is an error "NAME:LINE: reason".
bool load_ip_route(std::string_view bytes, std::string_view name, Table &t,
                   std::string &error);

// Reads `ip -j route` output: a JSON array of route objects. A fault is an
// error naming the line of the offending text.
bool load_ip_route_json(std::string_view bytes, std::string_view name, Table &t,
                        std::string &error);

}  // namespace lpm

// The table formats the tool reads, recognised by their content or named
// by the user.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lpm_iproute.h"
#include "lpm_source.h"
#include "lpm_table.h"

namespace lpm {

enum class Format { automatic, table, cidr_json, ip_route, ip_route_json, mrt };

// The format named NAME ("auto", "table", "cidr-json", "ip-route",
// "ip-route-json", "mrt"); false for any other name.
bool format_named(std::string_view name, Format &f);
// Every format's name, as a list in words: "auto, table, ... or mrt".
std::string format_names();
// The format of `bytes`, from its first bytes and first lines.
Format detect_format(std::string_view bytes);
const char *format_name(Format f);

// Adds the source's routes to the table in the given format (automatic:
// detected), `ip route` listings as `routes` says. Warnings (a dump cut
// short, routes of other tables skipped) are appended to `warnings`.
bool load_source(const Source &src, Format format, Table &table,
                 std::string &error, std::vector<std::string> &warnings,
                 const RouteOptions &routes = {});

// Reads each file (read_source, then load_source in the detected format)
// into `table`; false with the error of the first that fails.
bool load_files(const std::vector<std::string> &paths, Table &table,
                std::string &error, std::vector<std::string> &warnings);

}  // namespace lpm

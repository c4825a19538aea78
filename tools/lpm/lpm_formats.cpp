#include "lpm_formats.h"

#include "lpm_iproute.h"
#include "lpm_mrt.h"
#include "lpm_text.h"
#include "lpm_updates.h"

namespace lpm {
namespace {

struct Named {
  Format format;
  std::string_view name;
};
constexpr Named kNames[] = {{Format::automatic, "auto"},
                            {Format::table, "table"},
                            {Format::cidr_json, "cidr-json"},
                            {Format::ip_route, "ip-route"},
                            {Format::ip_route_json, "ip-route-json"},
                            {Format::mrt, "mrt"}};

}  // namespace

bool format_named(std::string_view name, Format &f) {
  for (const Named &n : kNames)
    if (n.name == name) return f = n.format, true;
  return false;
}

const char *format_name(Format f) {
  for (const Named &n : kNames)
    if (n.format == f) return n.name.data();
  return "?";
}

std::string format_names() {
  std::string list;
  for (const Named &n : kNames)
    list += std::string(list.empty()                 ? ""
                        : &n == std::end(kNames) - 1 ? " or "
                                                     : ", ") +
            std::string(n.name);
  return list;
}

Format detect_format(std::string_view bytes) {
  if (looks_like_mrt(bytes)) return Format::mrt;
  if (looks_like_cidr_json(bytes)) return Format::cidr_json;
  std::string_view text = trim(bytes);
  if (!text.empty() && text[0] == '[') return Format::ip_route_json;
  return looks_like_ip_route(bytes) ? Format::ip_route : Format::table;
}

bool load_source(const Source &src, Format format, Table &table,
                 std::string &error, std::vector<std::string> &warnings,
                 const RouteOptions &routes) {
  if (!src.warning.empty()) warnings.push_back(src.warning);
  std::string what = mrt_misfit(src.bytes, false);
  if (!what.empty()) {
    error = src.name + ": " + what;
    return false;
  }
  if (format == Format::automatic) format = detect_format(src.bytes);
  std::string warning;
  size_t masked_before = table.host_bits_masked;
  bool ok = false;
  switch (format) {
    case Format::mrt:
      ok = load_mrt(src.bytes, src.name, table, error, warning);
      break;
    case Format::ip_route:
      ok = load_ip_route(src.bytes, src.name, routes, table, error, warning);
      break;
    case Format::ip_route_json:
      ok = load_ip_route_json(src.bytes, src.name, routes, table, error,
                              warning);
      break;
    case Format::cidr_json:
      ok = load_cidr_json(src.bytes, src.name, table, error);
      break;
    default:
      ok = load_table(src.bytes, src.name, table, error);
      break;
  }
  if (!warning.empty()) warnings.push_back(warning);
  if (size_t masked = table.host_bits_masked - masked_before)
    warnings.push_back(src.name + ": cleared the bits past the length of " +
                       std::to_string(masked) + " prefixes (--mask-host-bits)");
  if (ok && !table.nexthops.empty() && !table.labels.empty()) {
    error = src.name +
            ": route tables and range files with texts cannot be read "
            "together: their data words would mix";
    return false;
  }
  table.keep_nexthops_apart();
  return ok;
}

bool load_files(const std::vector<std::string> &paths, Table &table,
                std::string &error, std::vector<std::string> &warnings) {
  for (const std::string &path : paths) {
    Source src;
    if (!read_source(path, src, error) ||
        !load_source(src, Format::automatic, table, error, warnings))
      return false;
  }
  return true;
}

}  // namespace lpm

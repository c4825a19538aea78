// The text readers (prefix and range lines, CIDR JSON arrays, ip route text
// and JSON) on any bytes, the first byte choosing the reader: a bad line is
// an error that names it, never a crash; messages quote at most a bounded
// excerpt.
#include <stdint.h>
#include <stdlib.h>

#include "lpm_formats.h"
#include "lpm_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  static const lpm::Format formats[] = {
      lpm::Format::table, lpm::Format::ip_route, lpm::Format::ip_route_json,
      lpm::Format::automatic, lpm::Format::cidr_json};
  lpm::Source src;
  src.name = "f";
  src.bytes.assign(reinterpret_cast<const char *>(data + 1), size - 1);
  lpm::Table t;
  std::string error;
  std::vector<std::string> warnings;
  bool ok = lpm::load_source(src, formats[data[0] % 5], t, error, warnings);
  if (ok == !error.empty()) abort();
  // "f:LINE: " and a reason that quotes little of the input.
  if (!ok && (error.rfind("f:", 0) != 0 || error.size() > 300)) abort();
  for (const auto &e : t.v4)
    if (e.len > 32) abort();
  for (const auto &e : t.v6)
    if (e.len > 128) abort();
  return 0;
}

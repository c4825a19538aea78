// The MRT reader on any bytes: an error or a cut-short warning, never a
// crash, a hang or an unbounded allocation; whatever it accepts is a valid
// prefix of its family.
#include <stdint.h>
#include <stdlib.h>

#include "lpm_mrt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  lpm::Table t;
  std::string error, warning;
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  bool ok = lpm::load_mrt(bytes, "f", t, error, warning);
  if (ok == !error.empty()) abort();
  // Each RIB record adds at most one prefix of at least 12 + 7 bytes.
  if (t.v4.size() + t.v6.size() > size / 19) abort();
  for (const auto &e : t.v4)
    if (e.len > 32 || (e.len < 32 && (e.addr << e.len) != 0)) abort();
  for (const auto &e : t.v6)
    if (e.len > 128) abort();
  return 0;
}

// The MRT reader on any bytes, as a table and as every peer's routes: an
// error or a cut-short warning, never a crash, a hang or an unbounded
// allocation; whatever it accepts is a valid prefix of its family, and
// every route names a peer of the dump's peer index.
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
  std::vector<lpm::RibPeer> peers;
  ok = lpm::load_mrt_routes(
      bytes, "f", peers,
      [&](const lpm::RibRoute &r) {
        if (r.peer >= peers.size() || r.len > lpm::width(r.family) ||
            lpm::mask_to(r.addr, r.len) != r.addr)
          abort();
      },
      error, warning);
  if (!ok && error.empty()) abort();
  return 0;
}

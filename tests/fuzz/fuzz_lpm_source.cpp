// The unpacking of gzip and bzip2 input on any bytes: the data unpacked,
// a cut-short warning or an error, never a crash; output stays within the
// limit whatever the input claims (decompression bombs included).
#include <stdint.h>
#include <stdlib.h>

#include "lpm_source.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  constexpr size_t kLimit = 1 << 24;
  std::string bytes(reinterpret_cast<const char *>(data), size);
  std::string warning, error;
  bool ok = lpm::unpack("f", bytes, warning, error, kLimit);
  if (ok == !error.empty() || (ok && bytes.size() > kLimit)) abort();
  return 0;
}

// Internals shared by the vector's core and bulk modules.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "sc_vector.h"

namespace vds::vector {

// Both modules report under the vector's one module name.
constexpr const char kModule[] = "lib/pfe/ds/src/sc_vector";

// Byte offset of slot `index`. The common element sizes take shifts and
// adds instead of a general multiplication. Storage never exceeds 2^32 - 1
// bytes, so the offset of any slot up to nAlloc fits in 32 bits.
inline size_t slot_offset(uint32_t index, uint32_t esize) {
  size_t i = index;
  switch (esize) {
    case 1:
      return i;
    case 2:
      return i << 1;
    case 3:
      return (i << 1) + i;
    case 4:
      return i << 2;
    case 8:
      return i << 3;
    case 12:
      return (i << 3) + (i << 2);
    case 16:
      return i << 4;
    default:
      return i * esize;
  }
}

inline char *slot(const sc_vector *v, uint32_t index) {
  return static_cast<char *>(v->elements) + slot_offset(index, v->elementSize);
}

}  // namespace vds::vector

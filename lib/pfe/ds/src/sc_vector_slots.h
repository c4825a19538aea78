// Internals shared by the vector's core and bulk modules.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "sc_vector.h"

namespace vds::vector {

template <uint32_t N>
using Size = std::integral_constant<uint32_t, N>;

// Calls f with the element size as a compile-time constant for the common
// sizes, so addressing becomes shifts and adds and copies become plain
// moves; any other size is passed as it is.
template <typename F>
inline decltype(auto) with_element_size(uint32_t esize, F &&f) {
  switch (esize) {
    case 1:
      return f(Size<1>{});
    case 2:
      return f(Size<2>{});
    case 3:
      return f(Size<3>{});
    case 4:
      return f(Size<4>{});
    case 8:
      return f(Size<8>{});
    case 12:
      return f(Size<12>{});
    case 16:
      return f(Size<16>{});
    default:
      return f(esize);
  }
}

// Byte offset of slot `index`. Storage never exceeds 2^32 - 1 bytes, so the
// offset of any slot up to nAlloc fits in 32 bits.
inline size_t slot_offset(uint32_t index, uint32_t esize) {
  return size_t{index} * esize;
}

// Bytes of the whole storage block. Growth limits every element count and
// byte size to 32 bits, so this product never wraps.
inline uint32_t storage_bytes(const sc_vector *v) {
  return v->nAlloc * v->elementSize;
}

inline char *slot(const sc_vector *v, uint32_t index) {
  return static_cast<char *>(v->elements) + slot_offset(index, v->elementSize);
}

}  // namespace vds::vector

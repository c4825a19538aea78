// Choice between the size-class allocator and the general heap for one
// block. The choice is made again, with the same size, when the block goes
// back, so a block always returns to the allocator it came from. Families
// differ in the test: some take the size-class path up to the context's
// limit inclusive, others only strictly below it.
//
// Throughout the library a block is taken and given back: every helper over
// a host allocator is named take*/give*, one pair per allocator.
#pragma once

#include <stdint.h>

#include "sc_host.h"

namespace vds {

enum class SzLimit { kAtMost, kBelow };

template <SzLimit L>
inline bool sz_fits(void *sz_ctx, uint32_t size) {
  if (!sz_ctx) return false;
  uint32_t max = sc_sz_get_max_alloc(sz_ctx);
  return L == SzLimit::kAtMost ? size <= max : size < max;
}

template <SzLimit L>
inline void *take_block(void *sz_ctx, uint32_t size, const char *file,
                        int line) {
  return sz_fits<L>(sz_ctx, size) ? __sc_szalloc(sz_ctx, size, 0, file, line)
                                  : __sc_kmalloc(size);
}

template <SzLimit L>
inline void give_block(void *sz_ctx, void *ptr, uint32_t size, const char *file,
                       int line) {
  if (sz_fits<L>(sz_ctx, size))
    __sc_szfree(sz_ctx, ptr, size, file, line);
  else
    __sc_kfree(ptr, size);
}

}  // namespace vds

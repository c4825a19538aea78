// Blocks of a compiled table: taken and given back by the trie's
// allocation rule (trie/blocks.h), every failure reported in the family's
// words.
#pragma once

#include <stdint.h>

#include "diag.h"
#include "trie/blocks.h"

namespace vds::fib {

// A block of count elements of the given size, or null (with the failure
// reported as the operation op's) when it cannot be taken or its size does
// not fit 32 bits.
template <class F>
void *take_array(void *ctx, uint64_t count, uint32_t size,
                 const char *op = F::kConstruct) {
  uint64_t bytes = count * size;
  void *block = bytes <= UINT32_MAX
                    ? trie::take<F>(ctx, static_cast<uint32_t>(bytes))
                    : nullptr;
  if (!block)
    VDS_DIAG(kFailure, F::kModule, "%s: sc_kmalloc(%llu) failed\n", op,
             static_cast<unsigned long long>(bytes));
  return block;
}

}  // namespace vds::fib

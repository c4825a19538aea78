// Policy parts shared by the two control-side tables: every block from the
// general heap, addresses printed as bare lowercase hexadecimal of the whole
// pointer, sizes in messages as int.
#pragma once

#include <inttypes.h>
#include <stdint.h>

#include "hash/key_hash.h"
#include "sc_host.h"

namespace vds::hash {

template <class TableT, class ElementT>
struct HeapPolicy {
  using Table = TableT;
  using Element = ElementT;
  using SizeArg = int;
  using Addr = uintptr_t;

  static constexpr Fold kFold = Fold::kAlways;
  static constexpr uint32_t kMaxField = UINT32_MAX;

  static Addr addr(const void *p) { return reinterpret_cast<uintptr_t>(p); }
  static void *ctx(const Table *) { return nullptr; }
  static void bind(Table *, void *) {}
  static void *take(void *, uint32_t size) { return __sc_kmalloc(size); }
  static void give(void *, void *p, uint32_t size) { __sc_kfree(p, size); }
  static void *take_buckets(void *, uint32_t bytes) {
    return __sc_kmalloc(bytes);
  }
  static void give_buckets(void *, void *p, uint32_t bytes) {
    __sc_kfree(p, bytes);
  }

  // The dump texts the heap families' tables share.
  static constexpr const char *kDumpHead = "hash %" PRIxPTR ":\n";
  static constexpr const char *kDumpElement =
      "  elp %" PRIxPTR ": key=%02x%02x%02x%02x, val=%02x%02x%02x%02x\n";
  static constexpr const char *kDumpOdd =
      "  elp %" PRIxPTR ": ksz or vsz != 4!\n";
};

}  // namespace vds::hash

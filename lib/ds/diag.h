// The library's one diagnostic mechanism. A diagnostic has a level (2 for a
// failure the operation reports, 4 for a trace or a survivable failure) and is
// emitted only when the host's debug level is at least that level. Emitting
// means: the host's prefix call, then its message call, their summed results
// stored in __sc_print_val. Nothing else happens, so raising a diagnostic never
// changes what an operation does or returns.
#pragma once

#include <stdint.h>

#include "sc_host.h"

namespace vds {

enum : int { kFailure = 2, kTrace = 4 };

// The debug level is read here, at the moment of the diagnostic, never cached.
inline bool diag_enabled(int level) { return __sc_debug_level > level - 1; }

template <typename... Args>
[[gnu::cold, gnu::noinline]] void diag_emit(int level, const char *file,
                                            int line, const char *fmt,
                                            Args... args) {
  uint32_t sum = static_cast<uint32_t>(__sc_print_prefix(level, file, line));
  sum += static_cast<uint32_t>(__sc_print_msg(fmt, args...));
  __sc_print_val = static_cast<int32_t>(sum);
}

template <typename... Args>
inline void diag(int level, const char *file, int line, const char *fmt,
                 Args... args) {
  if (diag_enabled(level)) diag_emit(level, file, line, fmt, args...);
}

}  // namespace vds

// Raises a diagnostic from the calling module: `file` is the module's own
// source-file name string, the line is the call's.
#define VDS_DIAG(level, file, ...) \
  ::vds::diag((level), (file), __LINE__, __VA_ARGS__)

namespace vds {

// A shared engine runs on behalf of a module: its family F names the module
// (F::kModule), and every diagnostic and size-class call the engine makes
// must point into that module's own file. An exported function therefore
// enters an engine with its family tagged by the line of that call
// (VDS_AT), and the engine reports with F::kModule and F::kLine: the pair a
// reader follows leads to the operation that raised it.
template <class F, int Line>
struct At : F {
  static constexpr int kLine = Line;
};

// The untagged family, for types an engine keys by family (a table's state
// record is one type whichever call reached it).
template <class F>
struct Untagged {
  using type = F;
};
template <class F, int Line>
struct Untagged<At<F, Line>> {
  using type = F;
};
template <class F>
using Family = typename Untagged<F>::type;

}  // namespace vds

// The family F tagged with the line of this call into an engine.
#define VDS_AT(F) ::vds::At<F, __LINE__>
// Raises a diagnostic from an engine running for the tagged family F.
#define VDS_DIAG_AT(level, F, ...) \
  ::vds::diag((level), F::kModule, F::kLine, __VA_ARGS__)

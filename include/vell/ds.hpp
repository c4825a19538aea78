// The C++ layer of vell-ds: owning, move-only handles over the C records
// (the tries, their compiled forwarding tables and the live tables, the
// hash tables, the timer set, the vector, the list), value types for
// addresses and prefixes, and ranges. Header-only; it calls the C
// functions of libvell-ds.so, adds no symbol to it and throws nothing of
// its own. Constructors that can fail return std::optional (or, for
// timers, a handle that tests false); the library reports why, and a
// diag_capture hands the reason to the code. Size-class contexts and the
// capture are the default host module's (vell/context.hpp,
// vell/diagnostics.hpp).
#pragma once

#include "vell/addr.hpp"
#include "vell/context.hpp"
#include "vell/diagnostics.hpp"
#include "vell/fib.hpp"
#include "vell/handle.hpp"
#include "vell/hash.hpp"
#include "vell/list.hpp"
#include "vell/live.hpp"
#include "vell/timer.hpp"
#include "vell/trie.hpp"
#include "vell/vector.hpp"
#include "vell_ds_version.h"

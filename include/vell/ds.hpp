// The C++ layer of vell-ds: owning, move-only handles over the C records,
// value types for addresses and prefixes, and ranges over the tries, hash
// tables, vector and list. Header-only; it calls the C functions of
// libvell-ds.so, adds no symbol to it and throws nothing of its own.
// Constructors that can fail return std::optional (or, for timers, a
// handle that tests false) and leave the diagnostic to the library.
#pragma once

#include "vell/addr.hpp"
#include "vell/handle.hpp"
#include "vell/hash.hpp"
#include "vell/list.hpp"
#include "vell/timer.hpp"
#include "vell/trie.hpp"
#include "vell/vector.hpp"
#include "vell_ds_version.h"

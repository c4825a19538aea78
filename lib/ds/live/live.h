// The live table's operations, shared by both widths. F is a family: a
// fib Shape (fib/table.h) plus kModule (its source name for diagnostics
// and the size-class allocator), kConstruct, kOps (the operations' names
// for messages) and Live (its public record, derived from State of the
// untagged family). Operations are entered with F tagged (VDS_AT, diag.h).
//
// The writer keeps every prefix in its record and the prefixes changed
// since the last publish in `staged`. A publish rebuilds what those touch
// beside the old nodes (build.h), or, for a large batch or when the pool
// has no room left, compiles the record into a new version that replaces
// the current one through `current`; unlinked nodes are reused, and a
// retired version given back, once no reader can still hold them
// (readers.h, garbage.h).
#pragma once

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "diag.h"
#include "fib/blocks.h"
#include "live/build.h"
#include "live/state.h"
#include "trie/blocks.h"

namespace vds::live {

// The operations' names, as messages start.
struct Ops {
  const char *set, *remove, *publish, *reader_register, *reader_unregister,
      *quiescent;
};

template <class F>
uint32_t root_bytes() {
  return F::kRootSlots * uint32_t{sizeof(uint32_t)};
}

// Bytes of a version's block: its record and its root.
template <class F>
uint32_t version_bytes() {
  return uint32_t{sizeof(Version)} + root_bytes<F>();
}

template <class F>
void give_version(void *ctx, Version *v) {
  if (!v) return;
  if (v->pool) trie::give<F>(ctx, v->pool, v->pool_words * 4u);
  trie::give<F>(ctx, v, version_bytes<F>());
}

// Makes the unlinked pool words and the retired versions no registered
// reader can still hold free for reuse, or gives them back.
template <class F>
void reclaim(State<Family<F>> *t) {
  const uint32_t oldest = t->readers.oldest();
  free_garbage<F>(*t, t->current.load(std::memory_order_relaxed), oldest);
  while (t->retired && reached(oldest, t->retired->retired_at)) {
    Version *v = t->retired;
    t->retired = v->next_retired;
    give_version<F>(t->sz_ctx, v);
  }
}

// A new version compiled from the whole record, with room left in its pool
// for about a quarter more words; null (reported as op's) without memory.
template <class F>
Version *compile(State<Family<F>> *t, const char *op) {
  auto *v = static_cast<Version *>(
      fib::take_array<F>(t->sz_ctx, 1, version_bytes<F>(), op));
  if (!v) return nullptr;
  memset(static_cast<void *>(v), 0, sizeof *v);
  const Version *old = t->current.load(std::memory_order_relaxed);
  uint64_t estimate = 2 * uint64_t{t->record.size()} + 64;
  if (old && old->used > estimate) estimate = old->used;
  Builder<F> b(*t, v, false, op);
  if (!b.pool().resize(estimate)) {
    give_version<F>(t->sz_ctx, v);
    return nullptr;
  }
  v->used = kLeadWords;  // word 0 names no block
  if (b.compile() != Outcome::kDone ||
      !b.pool().resize(v->used + v->used / 4 + 1024)) {
    forget_value_nodes<F>(*t);  // they were in v's pool
    give_version<F>(t->sz_ctx, v);
    return nullptr;
  }
  return v;
}

// Publishes v in place of the current version and retires that one, with
// the garbage listed in its pool.
template <class F>
void replace(State<Family<F>> *t, Version *v) {
  Version *old = t->current.load(std::memory_order_relaxed);
  // release: readers load it with acquire (published()).
  t->current.store(v, std::memory_order_release);
  forget_garbage<F>(*t);
  if (!old) return;
  old->retired_at = t->readers.advance();
  old->next_retired = nullptr;
  if (t->retired)
    t->last_retired->next_retired = old;
  else
    t->retired = old;
  t->last_retired = old;
}

template <class F>
void destruct(typename F::Live *t) {
  if (!t) return;
  void *ctx = t->sz_ctx;
  give_version<F>(ctx, t->current.load(std::memory_order_relaxed));
  while (Version *v = t->retired) {
    t->retired = v->next_retired;
    give_version<F>(ctx, v);
  }
  t->record.template release<F>();
  using Item = typename State<Family<F>>::Item;
  if (t->staged)
    trie::give<F>(ctx, t->staged, t->staged_cap * uint32_t{sizeof(Item)});
  if (t->scratch)
    trie::give<F>(ctx, t->scratch, t->scratch_cap * uint32_t{sizeof(Item)});
  if (t->garbage)
    trie::give<F>(ctx, t->garbage, t->garbage_cap * uint32_t{sizeof(Garbage)});
  if (t->values) trie::give<F>(ctx, t->values, t->values_cap * 8u);
  if (t->marks) trie::give<F>(ctx, t->marks, F::kRootSlots / 8);
  if (t->readers.count())
    trie::give<F>(ctx, t->reader_slots,
                  t->readers.count() * uint32_t{sizeof(ReaderSlot)});
  trie::give<F>(ctx, t, sizeof *t);
}

template <class F>
typename F::Live *construct(void *ctx, uint32_t miss, uint32_t max_readers) {
  using Live = typename F::Live;
  if (!max_readers) {
    VDS_DIAG_AT(kFailure, F, "%s: max_readers is 0!\n", F::kConstruct);
    return nullptr;
  }
  auto *t = static_cast<Live *>(fib::take_array<F>(ctx, 1, sizeof(Live)));
  if (!t) return nullptr;
  memset(static_cast<void *>(t), 0, sizeof *t);
  new (&t->current) std::atomic<Version *>(nullptr);
  t->sz_ctx = ctx;
  t->miss = miss;
  t->record.init(ctx);
  t->marks =
      static_cast<uint32_t *>(fib::take_array<F>(ctx, F::kRootSlots / 8, 1));
  auto *slots = t->marks ? static_cast<ReaderSlot *>(fib::take_array<F>(
                               ctx, max_readers, sizeof(ReaderSlot)))
                         : nullptr;
  if (!slots) {
    destruct<F>(t);
    return nullptr;
  }
  t->reader_slots = slots;
  t->readers.init(slots, max_readers);
  memset(t->marks, 0, F::kRootSlots / 8);
  Version *v = compile<F>(t, F::kConstruct);
  if (!v) {
    destruct<F>(t);
    return nullptr;
  }
  t->current.store(v, std::memory_order_relaxed);  // no reader yet
  return t;
}

// Whether addr/len names a prefix; else reported as op's.
template <class F>
bool valid(const uint32_t *addr, uint32_t len, const char *op) {
  if (len > F::kBits) {
    VDS_DIAG_AT(kFailure, F, "%s: prefix length %u past %u bits\n", op, len,
                F::kBits);
    return false;
  }
  if (trie::bits_beyond<F::kWords>(addr, len)) {
    VDS_DIAG_AT(kFailure, F, "%s: address bits set past prefix length %u\n", op,
                len);
    return false;
  }
  return true;
}

// Makes room to list one more staged change. Past a few percent of the
// table, or when the list cannot grow, the changes stop being listed: the
// next publish compiles the whole record instead (cheaper than rebuilding
// each, and it needs no list), so staging never fails for the list.
template <class F>
void room_to_stage(State<Family<F>> *t, const char *op) {
  if (t->restage_all || t->n_staged < t->staged_cap) return;
  if (t->n_staged < 4096 + t->record.size() / 32) {
    if (fib::grow_array<F>(t->sz_ctx, t->staged, t->staged_cap, t->n_staged, 64,
                           nullptr))
      return;
    VDS_DIAG_AT(kTrace, F,
                "%s: sc_kmalloc(%u) failed, the next publish compiles the "
                "whole table\n",
                op,
                (t->staged_cap ? 2 * t->staged_cap : 64) *
                    uint32_t{sizeof(typename State<Family<F>>::Item)});
  }
  t->restage_all = true;
  t->n_staged = 0;
}

template <class F>
void note_staged(State<Family<F>> *t,
                 const typename State<Family<F>>::Item &it) {
  if (!t->restage_all) t->staged[t->n_staged++] = it;
}

template <class F>
int set(State<Family<F>> *t, const uint32_t *addr, uint32_t len,
        uint32_t data) {
  if (!valid<F>(addr, len, F::kOps.set)) return -1;
  typename State<Family<F>>::Item it;
  memcpy(it.addr, addr, sizeof it.addr);
  it.len = len;
  it.data = data;
  if (!t->record.template assign<F>(it, F::kOps.set)) return -1;
  room_to_stage<F>(t, F::kOps.set);
  note_staged<F>(t, it);
  return 0;
}

template <class F>
int remove(State<Family<F>> *t, const uint32_t *addr, uint32_t len) {
  if (!valid<F>(addr, len, F::kOps.remove)) return -1;
  typename State<Family<F>>::Item it{};
  memcpy(it.addr, addr, sizeof it.addr);
  it.len = len;
  if (!t->record.template erase<F>(it)) return 1;
  room_to_stage<F>(t, F::kOps.remove);
  note_staged<F>(t, it);
  return 0;
}

template <class F>
int publish(State<Family<F>> *t) {
  using Item = typename State<Family<F>>::Item;
  if (t->restage_all || t->n_staged) {
    Outcome o = Outcome::kNoRoom;
    if (!t->restage_all) {
      Item *keys = t->staged;
      auto before = [](const Item &a, const Item &b) {
        return compare(a, b) < 0;
      };
      auto same = [](const Item &a, const Item &b) {
        return compare(a, b) == 0;
      };
      std::sort(keys, keys + t->n_staged, before);
      t->n_staged = static_cast<uint32_t>(
          std::unique(keys, keys + t->n_staged, same) - keys);
      Version *v = t->current.load(std::memory_order_relaxed);
      o = Builder<F>(*t, v, true, F::kOps.publish).update(keys, t->n_staged);
    }
    if (o == Outcome::kNoRoom) {
      Version *v = compile<F>(t, F::kOps.publish);
      if (!v) return -1;
      replace<F>(t, v);
    } else if (o == Outcome::kNoMemory) {
      return -1;
    }
    t->n_staged = 0;
    t->restage_all = false;
  }
  // The scratch array grows to the largest region a publish copied (a
  // compile's largest root slot); it is not kept past a few pages.
  if (t->scratch_cap > 4096) {
    trie::give<F>(t->sz_ctx, t->scratch,
                  t->scratch_cap * uint32_t{sizeof(Item)});
    t->scratch = nullptr;
    t->scratch_cap = 0;
  }
  reclaim<F>(t);
  return 0;
}

template <class F>
uint32_t memory_usage(const typename F::Live *t) {
  if (!t) return 0;
  using Item = typename State<Family<F>>::Item;
  uint64_t bytes = sizeof *t + t->record.bytes() + F::kRootSlots / 8 +
                   t->garbage_cap * uint64_t{sizeof(Garbage)} +
                   t->values_cap * uint64_t{8} +
                   t->readers.count() * uint64_t{sizeof(ReaderSlot)} +
                   (uint64_t{t->staged_cap} + t->scratch_cap) * sizeof(Item);
  auto version = [](const Version *v) {
    return version_bytes<F>() + uint64_t{v->pool_words} * 4;
  };
  bytes += version(t->current.load(std::memory_order_relaxed));
  for (const Version *v = t->retired; v; v = v->next_retired)
    bytes += version(v);
  return bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
}

template <class F>
int reader_register(State<Family<F>> *t) {
  int r = t->readers.enter();
  if (r < 0)
    VDS_DIAG_AT(kFailure, F, "%s: all %u reader slots are taken\n",
                F::kOps.reader_register, t->readers.count());
  return r;
}

// Whether reader is a registered slot; else reported as op's.
template <class F>
bool registered(const State<Family<F>> *t, int reader, const char *op) {
  if (t->readers.registered(reader)) return true;
  VDS_DIAG_AT(kFailure, F, "%s: reader %d is not registered\n", op, reader);
  return false;
}

template <class F>
void reader_unregister(State<Family<F>> *t, int reader) {
  if (registered<F>(t, reader, F::kOps.reader_unregister))
    t->readers.leave(reader);
}

template <class F>
void quiescent(State<Family<F>> *t, int reader) {
  if (registered<F>(t, reader, F::kOps.quiescent)) t->readers.quiescent(reader);
}

// The version a lookup answers from. acquire: its root and pool were
// written before the store that published it (replace()).
template <class F>
[[gnu::always_inline]] inline const Version *published(const State<F> *t) {
  return t->current.load(std::memory_order_acquire);
}

}  // namespace vds::live

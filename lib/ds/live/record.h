// The writer's record of a live table's prefixes: every prefix held, staged
// changes included, in the compiler's order (fib/prefixes.h: address order,
// enclosing prefixes before what they enclose), so the prefixes under any
// region are one run of it. It is a sorted sequence cut into chunks of up
// to kChunkItems, found through a sorted directory of chunk pointers, each
// beside a copy of its chunk's first item (so a search reads one array): an
// insert or erase moves at most one chunk's items, and a chunk is split or
// merged as it fills or empties. Readers never see it.
#pragma once

#include <stdint.h>
#include <string.h>

#include "fib/blocks.h"
#include "fib/prefixes.h"
#include "trie/blocks.h"

namespace vds::live {

template <uint32_t W>
int compare(const fib::Prefix<W> &a, const fib::Prefix<W> &b) {
  for (uint32_t w = 0; w < W; ++w)
    if (a.addr[w] != b.addr[w]) return a.addr[w] < b.addr[w] ? -1 : 1;
  return a.len < b.len ? -1 : a.len > b.len;
}

// F: a family (live.h) naming the width. The operations that take or give
// blocks are entered with the tagged family A (diag.h) of the call that
// reached them.
template <class F>
class Record {
 public:
  using Item = fib::Prefix<F::kWords>;
  static constexpr uint32_t kChunkItems = 64;
  struct Chunk {
    uint32_t n;
    Item items[kChunkItems];
  };
  // A place in the sequence: chunk index and item index; the end is
  // {n_chunks, 0}.
  struct Pos {
    uint32_t chunk, at;
  };
  // A directory entry.
  struct Slot {
    Item first;
    Chunk *chunk;
  };

  void init(void *ctx) {
    memset(static_cast<void *>(this), 0, sizeof *this);
    ctx_ = ctx;
  }
  // Gives back every block.
  template <class A>
  void release() {
    for (uint32_t i = 0; i < n_chunks_; ++i) give_chunk<A>(dir_[i].chunk);
    if (dir_) trie::give<A>(ctx_, dir_, cap_ * uint32_t{sizeof(Slot)});
    init(ctx_);
  }

  uint32_t size() const { return size_; }
  uint32_t bytes() const {
    return n_chunks_ * uint32_t{sizeof(Chunk)} + cap_ * uint32_t{sizeof(Slot)};
  }

  // The first place whose item is not before key.
  Pos lower_bound(const Item &key) const {
    if (!n_chunks_) return Pos{0, 0};
    uint32_t ci = chunk_for(key);
    uint32_t i = index_in(dir_[ci].chunk, key);
    return i == dir_[ci].chunk->n ? Pos{ci + 1, 0} : Pos{ci, i};
  }
  bool end(Pos p) const { return p.chunk >= n_chunks_; }
  const Item &at(Pos p) const { return dir_[p.chunk].chunk->items[p.at]; }
  void next(Pos &p) const {
    if (++p.at == dir_[p.chunk].chunk->n) p = Pos{p.chunk + 1, 0};
  }
  Pos begin() const { return Pos{0, 0}; }

  // The item with key's address and length, or null.
  Item *find(const Item &key) {
    Pos p = lower_bound(key);
    if (end(p) || compare(at(p), key) != 0) return nullptr;
    return &dir_[p.chunk].chunk->items[p.at];
  }

  // Adds it, or replaces the data of the item with its address and length.
  // False (the failure reported as op's) when a block could not be taken;
  // the record is then unchanged.
  template <class A>
  bool assign(const Item &it, const char *op) {
    if (!n_chunks_ && !add_chunk<A>(0, op)) return false;
    uint32_t ci = chunk_for(it);
    Chunk *c = dir_[ci].chunk;
    uint32_t i = index_in(c, it);
    if (i < c->n && compare(c->items[i], it) == 0) {
      c->items[i].data = it.data;
      return true;
    }
    if (c->n == kChunkItems) {
      // A full chunk passes its edge item to a neighbour with room, so
      // chunks stay nearly full; only when both are full does it split.
      Chunk *right = ci + 1 < n_chunks_ ? dir_[ci + 1].chunk : nullptr;
      Chunk *left = ci ? dir_[ci - 1].chunk : nullptr;
      if (right && right->n < kChunkItems) {
        memmove(right->items + 1, right->items, right->n * sizeof(Item));
        ++right->n;
        if (i == c->n) {
          right->items[0] = it;
          ++size_;
          refresh(ci + 1);
          return true;
        }
        right->items[0] = c->items[--c->n];
      } else if (left && left->n < kChunkItems && i > 0) {
        left->items[left->n++] = c->items[0];
        memmove(c->items, c->items + 1, --c->n * sizeof(Item));
        --i;
      } else {
        // Appending past the last item starts a new chunk, so a table
        // added in order fills its chunks; elsewhere the chunk splits in
        // halves.
        bool append = !right && i == c->n;
        if (!add_chunk<A>(ci + 1, op)) return false;
        right = dir_[ci + 1].chunk;
        if (!append) {
          const uint32_t half = kChunkItems / 2;
          memcpy(right->items, c->items + half, half * sizeof(Item));
          right->n = half;
          c->n = half;
        }
        if (i >= c->n) {
          i -= c->n;
          c = right;
        }
      }
    }
    memmove(c->items + i + 1, c->items + i, (c->n - i) * sizeof(Item));
    c->items[i] = it;
    ++c->n;
    ++size_;
    refresh(ci);
    return true;
  }

  // Removes the item with key's address and length; false when absent.
  template <class A>
  bool erase(const Item &key) {
    if (!n_chunks_) return false;
    uint32_t ci = chunk_for(key);
    Chunk *c = dir_[ci].chunk;
    uint32_t i = index_in(c, key);
    if (i == c->n || compare(c->items[i], key) != 0) return false;
    memmove(c->items + i, c->items + i + 1, (c->n - i - 1) * sizeof(Item));
    --c->n;
    --size_;
    // A chunk that shares a chunk's room with its right neighbour takes its
    // items, so churn cannot leave the record mostly empty chunks.
    if (ci + 1 < n_chunks_ && c->n + dir_[ci + 1].chunk->n <= kChunkItems / 2) {
      memcpy(c->items + c->n, dir_[ci + 1].chunk->items,
             dir_[ci + 1].chunk->n * sizeof(Item));
      c->n += dir_[ci + 1].chunk->n;
      drop_chunk<A>(ci + 1);
    } else if (!c->n) {
      drop_chunk<A>(ci);
      return true;
    }
    refresh(ci);
    return true;
  }

 private:
  // The chunk an item with this key belongs in: the last whose first item
  // is not after it, or the first.
  uint32_t chunk_for(const Item &key) const {
    uint32_t lo = 0, hi = n_chunks_;
    while (hi - lo > 1) {
      uint32_t mid = (lo + hi) / 2;
      if (compare(dir_[mid].first, key) <= 0)
        lo = mid;
      else
        hi = mid;
    }
    return lo;
  }
  static uint32_t index_in(const Chunk *c, const Item &key) {
    uint32_t a = 0, b = c->n;
    while (a < b) {
      uint32_t mid = (a + b) / 2;
      if (compare(c->items[mid], key) < 0)
        a = mid + 1;
      else
        b = mid;
    }
    return a;
  }

  // Inserts an empty chunk at directory index i, growing the directory
  // first; nothing changes when a block cannot be taken.
  template <class A>
  bool add_chunk(uint32_t i, const char *op) {
    if (n_chunks_ == cap_ &&
        !fib::grow_array<A>(ctx_, dir_, cap_, n_chunks_, 16, op))
      return false;
    auto *c = static_cast<Chunk *>(
        fib::take_array<A>(ctx_, 1, uint32_t{sizeof(Chunk)}, op));
    if (!c) return false;
    c->n = 0;
    memmove(dir_ + i + 1, dir_ + i, (n_chunks_ - i) * sizeof(Slot));
    dir_[i].chunk = c;
    ++n_chunks_;
    return true;
  }
  template <class A>
  void drop_chunk(uint32_t i) {
    give_chunk<A>(dir_[i].chunk);
    memmove(dir_ + i, dir_ + i + 1, (n_chunks_ - i - 1) * sizeof(Slot));
    --n_chunks_;
  }
  template <class A>
  void give_chunk(Chunk *c) {
    trie::give<A>(ctx_, c, sizeof(Chunk));
  }
  // Copies the first items of chunks [from, from + 2) that exist into the
  // directory, after a change that may have moved them.
  void refresh(uint32_t from) {
    for (uint32_t i = from; i < from + 2 && i < n_chunks_; ++i)
      dir_[i].first = dir_[i].chunk->items[0];
  }

  Slot *dir_;
  uint32_t n_chunks_, cap_, size_;
  void *ctx_;
};

}  // namespace vds::live

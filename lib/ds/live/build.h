// Builds a live table's versions: a whole one from the record (compile),
// or the root words of the slots that staged changes touched (update),
// writing new nodes beside the old ones. F is a family (live.h).
//
// A slot is rebuilt from the record's prefixes under it when a change
// alters what the slot inherits (a prefix of at most kRootBits bits). For a
// longer change the old nodes are followed down while the change lies
// below one child; the node where it ends is rebuilt from the prefixes
// under its region, and each node above it is copied with that one child
// replaced. So a change costs the nodes on its path plus its own region.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

#include "fib/blocks.h"
#include "fib/lookup.h"
#include "fib/node_writer.h"
#include "live/pool.h"
#include "live/state.h"
#include "trie/blocks.h"

namespace vds::live {

enum class Outcome { kDone, kNoRoom, kNoMemory };

template <class F>
class Builder {
 public:
  using Item = fib::Prefix<F::kWords>;

  // growing: v is not published yet, so its pool may move. Failures are
  // reported as op's.
  Builder(State<F> &s, Version *v, bool growing, const char *op)
      : s_(s), v_(v), op_(op), pool_(v, s.sz_ctx, growing, op) {}

  // Fills v's root and pool from the whole record (and s.base from its
  // short prefixes).
  Outcome compile() {
    const uint32_t R = F::kRootBits;
    for (uint32_t c = 0; c < F::kRootSlots; ++c) s_.base[c] = s_.miss;
    const Record<F> &rec = s_.record;
    for (auto at = rec.begin(); !rec.end(at); rec.next(at))
      if (rec.at(at).len <= R) paint_base(rec.at(at));
    for (uint32_t c = 0; c < F::kRootSlots; ++c) {
      Outcome o = root_word(Child{false, s_.base[c]}, v_->root[c]);
      if (o != Outcome::kDone) return o;
    }
    for (auto at = rec.begin(); !rec.end(at);) {
      if (rec.at(at).len <= R) {
        rec.next(at);
        continue;
      }
      const uint32_t slot = Writer::root_slot(rec.at(at));
      uint32_t n = 0;
      for (; !rec.end(at) && Writer::root_slot(rec.at(at)) == slot &&
             rec.at(at).len > R;
           rec.next(at)) {
        if (!copy(n, rec.at(at))) return Outcome::kNoMemory;
      }
      Child c;
      Outcome o = compile_items(R, n, s_.base[slot], c);
      if (o != Outcome::kDone) return o;
      v_->root[slot] = c.word | kNode;
    }
    return Outcome::kDone;
  }

  // Makes the published version answer for the staged changes `keys`
  // (sorted, distinct): rebuilds what they touch, then replaces the root
  // words slot by slot. On failure nothing is published and the pool's
  // used words are as before.
  Outcome update(const Item *keys, uint32_t n) {
    const uint32_t used = v_->used, miss_node = v_->miss_node;
    Outcome o = plan_and_build(keys, n);
    if (o != Outcome::kDone) {
      v_->used = used;
      v_->miss_node = miss_node;
    }
    return o;
  }

  // The pool's room was short, not memory.
  bool pool_full() const { return pool_.full(); }
  Pool<F> &pool() { return pool_; }

 private:
  using Writer = fib::NodeWriter<F, Pool<F>>;
  // What a region compiles to: a node's position, or one answer for all.
  struct Child {
    bool node;
    uint32_t word;
  };
  // A root slot this publish rebuilds: keys [lo, hi) under it, or none
  // (lo == hi) when it is rebuilt whole; then its new word.
  struct Pending {
    uint32_t slot, lo, hi, word;
  };

  Outcome failed() const {
    return pool_.full() ? Outcome::kNoRoom : Outcome::kNoMemory;
  }

  Outcome plan_and_build(const Item *keys, uint32_t n) {
    const uint32_t R = F::kRootBits;
    uint64_t count = 0;
    for (uint32_t i = 0; i < n; ++i) {
      if (keys[i].len <= R) repaint_base(keys[i]);
      count += keys[i].len <= R ? uint64_t{1} << (R - keys[i].len) : 1;
    }
    if (count > F::kRootSlots) count = F::kRootSlots;
    auto *pending = static_cast<Pending *>(
        fib::take_array<F>(s_.sz_ctx, count, uint32_t{sizeof(Pending)}, op_));
    if (!pending) return Outcome::kNoMemory;
    uint32_t n_pending = 0;
    for (uint32_t i = 0; i < n;) {
      uint32_t first = Writer::root_slot(keys[i]);
      if (keys[i].len <= R) {
        for (uint32_t c = first; c < first + (1u << (R - keys[i].len)); ++c)
          if (mark(c)) pending[n_pending++] = Pending{c, 0, 0, 0};
        ++i;
        continue;
      }
      uint32_t j = i + 1;
      while (j < n && Writer::root_slot(keys[j]) == first) ++j;
      if (mark(first)) pending[n_pending++] = Pending{first, i, j, 0};
      i = j;
    }
    Outcome o = Outcome::kDone;
    for (uint32_t p = 0; p < n_pending && o == Outcome::kDone; ++p)
      o = build_slot(pending[p], keys);
    for (uint32_t p = 0; p < n_pending; ++p) {
      const uint32_t c = pending[p].slot;
      s_.marks[c >> 5] &= ~(1u << (c & 31));
      // release: the nodes the word leads to, written above, are seen by
      // any reader that loads it (LiveRoot).
      if (o == Outcome::kDone)
        __atomic_store_n(v_->root + c, pending[p].word, __ATOMIC_RELEASE);
    }
    trie::give<F>(s_.sz_ctx, pending,
                  static_cast<uint32_t>(count * sizeof(Pending)));
    return o;
  }

  // Marks root slot c as taken by this publish; false if it was.
  bool mark(uint32_t c) {
    uint32_t &w = s_.marks[c >> 5], bit = 1u << (c & 31);
    if (w & bit) return false;
    w |= bit;
    return true;
  }

  Outcome build_slot(Pending &p, const Item *keys) {
    const uint32_t old = v_->root[p.slot];
    Child c;
    Outcome o;
    if (p.lo < p.hi && (old & kNode))
      o = descend(F::kRootBits, old & ~kNode, keys + p.lo, p.hi - p.lo, c);
    else
      o = compile_region(F::kRootBits, slot_region(p.slot), s_.base[p.slot], c);
    if (o != Outcome::kDone) return o;
    return root_word(c, p.word);
  }

  // The root word for c: a node's position, an answer, or a value node.
  Outcome root_word(Child c, uint32_t &word) {
    if (c.node || !(c.word & kNode)) {
      word = c.node ? c.word | kNode : c.word;
      return Outcome::kDone;
    }
    if (c.word == s_.miss && v_->miss_node) {
      word = v_->miss_node | kNode;
      return Outcome::kDone;
    }
    uint32_t val[fib::kChildren];
    for (uint32_t &v : val) v = c.word;
    Writer w(nullptr, pool_);
    uint32_t at = w.put(val, 0, c.word);
    if (w.failed()) return failed();
    if (c.word == s_.miss) v_->miss_node = at;
    word = at | kNode;
    return Outcome::kDone;
  }

  // The node at pool position `at` covers the region at p, and keys (all
  // longer than p) lie in it.
  Outcome descend(uint32_t p, uint32_t at, const Item *keys, uint32_t n,
                  Child &out) {
    const uint32_t *node = v_->pool + at;
    const uint32_t inherited = node[-1];
    for (uint32_t i = 0; i < n; ++i)
      if (keys[i].len <= p + fib::kStride)
        return compile_region(p, masked(keys[0], p), inherited, out);

    uint32_t val[fib::kChildren], below[fib::kChildren] = {};
    uint64_t inner = fib::inner(node);
    const uint64_t runs = fib::runs(node);
    for (uint32_t c = 0; c < fib::kChildren; ++c) {
      bool leaf = !(inner >> c & 1);
      uint32_t w = fib::child_word(node, runs, inner, c, leaf);
      val[c] = leaf ? w : inherited;
      if (!leaf) below[c] = w;
    }
    for (uint32_t i = 0; i < n;) {
      const uint32_t c = Writer::child(keys[i], p);
      uint32_t j = i + 1;
      while (j < n && Writer::child(keys[j], p) == c) ++j;
      Child r;
      Outcome o =
          inner >> c & 1
              ? descend(p + fib::kStride, below[c], keys + i, j - i, r)
              : compile_region(p + fib::kStride,
                               masked(keys[i], p + fib::kStride), val[c], r);
      if (o != Outcome::kDone) return o;
      const uint64_t bit = uint64_t{1} << c;
      if (r.node) {
        inner |= bit;
        below[c] = r.word;
      } else {
        inner &= ~bit;
        val[c] = r.word;
      }
      i = j;
    }
    Writer w(nullptr, pool_);
    const uint32_t put = w.put(val, inner, inherited);
    if (w.failed()) return failed();
    uint32_t next = w.first_child(put);
    for (uint64_t b = inner; b; b &= b - 1)
      v_->pool[next++] = below[std::countr_zero(b)];
    out = Child{true, put};
    return Outcome::kDone;
  }

  // Compiles the record's prefixes under the region at p (region's first p
  // address bits) into a node, or one answer when there are none.
  Outcome compile_region(uint32_t p, const Item &region, uint32_t inherited,
                         Child &out) {
    Item from = region;
    from.len = p + 1;
    const Record<F> &rec = s_.record;
    uint32_t n = 0;
    for (auto at = rec.lower_bound(from);
         !rec.end(at) && same_bits<F::kWords>(rec.at(at).addr, region.addr, p);
         rec.next(at)) {
      if (!copy(n, rec.at(at))) return Outcome::kNoMemory;
    }
    return compile_items(p, n, inherited, out);
  }

  // Compiles the first n prefixes of the scratch array, all under one
  // region at p.
  Outcome compile_items(uint32_t p, uint32_t n, uint32_t inherited,
                        Child &out) {
    if (!n) {
      out = Child{false, inherited};
      return Outcome::kDone;
    }
    Writer w(s_.scratch, pool_);
    uint32_t at = w.node(p, 0, n, inherited);
    if (w.failed()) return failed();
    out = Child{true, at};
    return Outcome::kDone;
  }

  // Appends it to the scratch array as its n-th prefix, growing the array.
  bool copy(uint32_t &n, const Item &it) {
    if (n == s_.scratch_cap) {
      uint32_t cap = s_.scratch_cap ? 2 * s_.scratch_cap : 256;
      auto *grown = static_cast<Item *>(
          fib::take_array<F>(s_.sz_ctx, cap, uint32_t{sizeof(Item)}, op_));
      if (!grown) return false;
      if (n) memcpy(grown, s_.scratch, n * sizeof(Item));
      if (s_.scratch)
        trie::give<F>(s_.sz_ctx, s_.scratch,
                      s_.scratch_cap * uint32_t{sizeof(Item)});
      s_.scratch = grown;
      s_.scratch_cap = cap;
    }
    s_.scratch[n++] = it;
    return true;
  }

  // Root slots it covers get its answer (enclosing prefixes come first).
  void paint_base(const Item &it) {
    const uint32_t first = Writer::root_slot(it);
    const uint32_t end = first + (1u << (F::kRootBits - it.len));
    for (uint32_t c = first; c < end; ++c) s_.base[c] = it.data;
  }

  // s.base over the root slots key covers, from the record: the answer of
  // the longest prefix enclosing key, then each short prefix under it.
  void repaint_base(const Item &key) {
    Item probe = key;
    uint32_t answer = s_.miss;
    for (uint32_t len = key.len; len-- > 0;) {
      probe = masked(key, len);
      if (const Item *found = s_.record.find(probe)) {
        answer = found->data;
        break;
      }
    }
    Item cover = key;
    cover.data = answer;
    paint_base(cover);
    const Record<F> &rec = s_.record;
    for (auto at = rec.lower_bound(key);
         !rec.end(at) &&
         same_bits<F::kWords>(rec.at(at).addr, key.addr, key.len);
         rec.next(at)) {
      if (rec.at(at).len <= F::kRootBits) paint_base(rec.at(at));
    }
  }

  // key cut to its first len bits, as a prefix of len bits.
  static Item masked(const Item &key, uint32_t len) {
    Item out = key;
    fib::cut<F::kWords>(key.addr, len, out.addr);
    out.len = len;
    return out;
  }
  static Item slot_region(uint32_t slot) {
    Item out{};
    out.addr[0] = slot << (32 - F::kRootBits);
    out.len = F::kRootBits;
    return out;
  }

  State<F> &s_;
  Version *v_;
  const char *op_;
  Pool<F> pool_;
};

}  // namespace vds::live

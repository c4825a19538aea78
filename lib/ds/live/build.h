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
// What the new nodes replace is listed as garbage (garbage.h).
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

#include "fib/blocks.h"
#include "fib/lookup.h"
#include "fib/node_writer.h"
#include "live/garbage.h"
#include "live/pool.h"
#include "live/state.h"
#include "live/values.h"
#include "trie/blocks.h"

namespace vds::live {

enum class Outcome { kDone, kNoRoom, kNoMemory };

template <class F>
class Builder {
 public:
  using Item = fib::Prefix<F::kWords>;

  // Builds into v, a version not yet published (compile) or the current
  // one (update). Failures are reported as op's.
  Builder(State<Family<F>> &s, Version *v, bool published, const char *op)
      : s_(s),
        v_(v),
        op_(op),
        pool_(v, s.sz_ctx, published ? s.free_blocks : nullptr, op) {}

  // Fills v's root and pool from the whole record.
  Outcome compile() {
    forget_value_nodes<F>(s_);
    const uint32_t R = F::kRootBits;
    const Record<Family<F>> &rec = s_.record;
    uint32_t *root = v_->root();
    // The root first holds each slot's inherited answer.
    for (uint32_t c = 0; c < F::kRootSlots; ++c) root[c] = s_.miss;
    for (auto at = rec.begin(); !rec.end(at); rec.next(at))
      if (rec.at(at).len <= R) paint(rec.at(at), root, 0);
    auto at = rec.begin();
    for (uint32_t c = 0; c < F::kRootSlots; ++c) {
      uint32_t n = 0;
      for (; !rec.end(at) &&
             (rec.at(at).len <= R || Writer::root_slot(rec.at(at)) == c);
           rec.next(at)) {
        if (rec.at(at).len > R && !copy(n, rec.at(at)))
          return Outcome::kNoMemory;
      }
      Child child;
      Outcome o = compile_items(R, n, root[c], child);
      if (o == Outcome::kDone) o = root_word(child, root[c]);
      if (o != Outcome::kDone) return o;
    }
    return Outcome::kDone;
  }

  // Makes the published version answer for the staged changes `keys`
  // (sorted, distinct): rebuilds what they touch, then replaces the root
  // words slot by slot and stamps what they unlinked. On failure nothing
  // is published, nothing listed as unlinked, and the words at the pool's
  // end are as before (blocks taken from the free lists stay out of them
  // until the pool is compacted).
  Outcome update(const Item *keys, uint32_t n) {
    const uint32_t used = v_->used;
    const uint32_t listed = s_.n_garbage;
    Outcome o = plan_and_build(keys, n);
    if (o != Outcome::kDone) {
      v_->used = used;
      forget_value_nodes<F>(s_);  // some may lie past the restored end
      s_.n_garbage = listed;
    } else {
      stamp_garbage<F>(s_, listed, s_.readers.advance());
    }
    return o;
  }

  Pool<F> &pool() { return pool_; }

 private:
  using Writer = fib::NodeWriter<F, Pool<F>>;
  // What a region compiles to: a node's position, or one answer for all.
  struct Child {
    bool node;
    uint32_t word;
  };
  // A root slot this publish rebuilds: keys [lo, hi) under it, or none
  // (lo == hi) when a short change rebuilds it whole and `word` holds what
  // it inherits; then its new root word.
  struct Pending {
    uint32_t slot, lo, hi, word;
  };

  Outcome failed() const {
    return pool_.full() ? Outcome::kNoRoom : Outcome::kNoMemory;
  }

  Outcome plan_and_build(const Item *keys, uint32_t n) {
    const uint32_t R = F::kRootBits;
    uint64_t count = 0;
    for (uint32_t i = 0; i < n; ++i)
      count += keys[i].len <= R ? uint64_t{1} << (R - keys[i].len) : 1;
    if (count > F::kRootSlots) count = F::kRootSlots;
    auto *pending = static_cast<Pending *>(
        fib::take_array<F>(s_.sz_ctx, count, uint32_t{sizeof(Pending)}, op_));
    if (!pending) return Outcome::kNoMemory;
    // A short change is never preceded by one under it (the keys are in
    // address order, enclosing first), so it finds its slots all taken by
    // an enclosing change or all free, and then lists them in order.
    uint32_t n_pending = 0;
    for (uint32_t i = 0; i < n;) {
      const uint32_t first = Writer::root_slot(keys[i]);
      if (keys[i].len <= R) {
        const uint32_t from = n_pending;
        for (uint32_t c = first; c < first + (1u << (R - keys[i].len)); ++c)
          if (mark(c)) pending[n_pending++] = Pending{c, 0, 0, s_.miss};
        if (n_pending > from) inherit(keys[i], pending + from);
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
        __atomic_store_n(v_->root() + c, pending[p].word, __ATOMIC_RELEASE);
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
    const uint32_t old = v_->root()[p.slot];
    const bool old_node = old & kNode;
    Child c;
    Outcome o;
    if (p.lo < p.hi && old_node) {
      o = descend(F::kRootBits, old & ~kNode, keys + p.lo, p.hi - p.lo, c);
    } else {
      // Rebuilt whole: inheriting what a short change says, or, under a
      // root word holding an answer, that answer.
      const uint32_t inherited = p.lo < p.hi ? old : p.word;
      o = compile_region(F::kRootBits, slot_region(p.slot), inherited, c);
      if (o == Outcome::kDone && old_node) unlink_tree<F>(s_, v_, old & ~kNode);
    }
    if (o != Outcome::kDone) return o;
    return root_word(c, p.word);
  }

  // The root word for c: a node's position, an answer, or a value node.
  Outcome root_word(Child c, uint32_t &word) {
    if (c.node || !(c.word & kNode)) {
      word = c.node ? c.word | kNode : c.word;
      return Outcome::kDone;
    }
    if (uint32_t at = value_node<F>(s_, c.word)) {
      word = at | kNode;
      return Outcome::kDone;
    }
    uint32_t val[fib::kChildren];
    for (uint32_t &v : val) v = c.word;
    Writer w(nullptr, pool_);
    uint32_t at = w.put(val, 0, c.word);
    if (w.failed()) return failed();
    remember_value_node<F>(s_, c.word, at);
    word = at | kNode;
    return Outcome::kDone;
  }

  // The node at pool position `at` covers the region at p, and keys (all
  // longer than p) lie in it.
  Outcome descend(uint32_t p, uint32_t at, const Item *keys, uint32_t n,
                  Child &out) {
    const uint32_t *node = v_->pool + at;
    const uint32_t inherited = node[-1];
    for (uint32_t i = 0; i < n; ++i) {
      if (keys[i].len <= p + fib::kStride) {
        Outcome o = compile_region(p, masked(keys[0], p), inherited, out);
        if (o == Outcome::kDone) unlink_tree<F>(s_, v_, at);
        return o;
      }
    }
    // The old node's children in one pass: a leaf answers its run's word,
    // a node child's position follows the answers.
    uint32_t val[fib::kChildren], below[fib::kChildren] = {};
    uint64_t inner = fib::inner(node);
    const uint64_t runs = fib::runs(node);
    const uint32_t *answers = node + fib::kHeaderWords;
    const uint32_t *children = answers + std::popcount(runs);
    for (uint32_t c = 0, answer = inherited; c < fib::kChildren; ++c) {
      if (inner >> c & 1) {
        below[c] = *children++;
        val[c] = inherited;
      } else {
        if (runs >> c & 1) answer = *answers++;
        val[c] = answer;
      }
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
    unlink_node<F>(s_, v_, at);
    out = Child{true, put};
    return Outcome::kDone;
  }

  // Compiles the record's prefixes under the region at p (region's first p
  // address bits) into a node, or one answer when there are none.
  Outcome compile_region(uint32_t p, const Item &region, uint32_t inherited,
                         Child &out) {
    Item from = region;
    from.len = p + 1;
    const Record<Family<F>> &rec = s_.record;
    uint32_t n = 0;
    for (auto at = rec.lower_bound(from);
         !rec.end(at) &&
         trie::same_prefix<F::kWords>(rec.at(at).addr, region.addr, p);
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
    if (n == s_.scratch_cap &&
        !fib::grow_array<F>(s_.sz_ctx, s_.scratch, s_.scratch_cap, n, 256, op_))
      return false;
    s_.scratch[n++] = it;
    return true;
  }

  // The root slots a prefix of at most kRootBits bits covers, from slot
  // `first` of the 2^kRootBits in `words` on, get its data (enclosing
  // prefixes come first, so later ones overwrite).
  static void paint(const Item &it, uint32_t *words, uint32_t first) {
    for_slots(it, first, [&](uint32_t c) { words[c] = it.data; });
  }
  static void paint(const Item &it, Pending *slots, uint32_t first) {
    for_slots(it, first, [&](uint32_t c) { slots[c].word = it.data; });
  }
  // Calls at(c) for each root slot c the prefix covers, counted from slot
  // `first`.
  template <class At>
  static void for_slots(const Item &it, uint32_t first, At at) {
    const uint32_t from = Writer::root_slot(it) - first;
    const uint32_t end = from + (1u << (F::kRootBits - it.len));
    for (uint32_t c = from; c < end; ++c) at(c);
  }

  // What the slots under a short change inherit, from the record: the
  // answer of the longest prefix enclosing it, then each short prefix under
  // it. slots: one per slot the change covers, in order.
  void inherit(const Item &key, Pending *slots) {
    for (uint32_t len = key.len; len-- > 0;) {
      if (const Item *found = s_.record.find(masked(key, len))) {
        Item cover = key;
        cover.data = found->data;
        paint(cover, slots, Writer::root_slot(key));
        break;
      }
    }
    const Record<Family<F>> &rec = s_.record;
    for (auto at = rec.lower_bound(key);
         !rec.end(at) &&
         trie::same_prefix<F::kWords>(rec.at(at).addr, key.addr, key.len);
         rec.next(at)) {
      if (rec.at(at).len <= F::kRootBits)
        paint(rec.at(at), slots, Writer::root_slot(key));
    }
  }

  // key cut to its first len bits, as a prefix of len bits.
  static Item masked(const Item &key, uint32_t len) {
    Item out = key;
    trie::cut<F::kWords>(key.addr, len, out.addr);
    out.len = len;
    return out;
  }
  static Item slot_region(uint32_t slot) {
    Item out{};
    out.addr[0] = slot << (32 - F::kRootBits);
    out.len = F::kRootBits;
    return out;
  }

  State<Family<F>> &s_;
  Version *v_;
  const char *op_;
  Pool<F> pool_;
};

}  // namespace vds::live

// When a trim cannot get its smaller block, the array stays at the size it
// was taken with while n_entries / n_prefixes already hold the smaller
// counts. Destruction must still release that block with its original
// size, and the lookup path must not pay for remembering it.
//
// The mark lives where no lookup looks: two otherwise unused top bits of
// entry 0's length word say which array kept its first size, and that size
// (as an element count) is stored in the array's first unused element.
// Both arrays have one: a trim is only attempted when the array was taken
// larger than its final count.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace vds::trie {

enum : uint32_t { kEntriesUntrimmed = 1u << 31, kPrefixesUntrimmed = 1u << 30 };

// The 32-bit word holding len and prefix: the one before data.
template <class L>
uint32_t *length_word(typename L::Entry *e) {
  return reinterpret_cast<uint32_t *>(reinterpret_cast<char *>(e) +
                                      offsetof(typename L::Entry, data) - 4);
}

template <class L>
bool untrimmed(const typename L::Trie *t, uint32_t flag) {
  uint32_t w;
  memcpy(&w, length_word<L>(t->entries), 4);
  return w & flag;
}

template <class L>
void mark_untrimmed(typename L::Trie *t, uint32_t flag, uint32_t capacity) {
  uint32_t w;
  memcpy(&w, length_word<L>(t->entries), 4);
  w |= flag;
  memcpy(length_word<L>(t->entries), &w, 4);
  if (flag == kEntriesUntrimmed)
    L::addr(t->entries[t->n_entries])[0] = capacity;
  else
    t->prefixes[t->n_prefixes].len = capacity;
}

// Elements the entry and prefix blocks were taken with.
template <class L>
uint32_t entries_capacity(const typename L::Trie *t) {
  if (!t->entries) return 0;
  return untrimmed<L>(t, kEntriesUntrimmed)
             ? L::addr(t->entries[t->n_entries])[0]
             : t->n_entries;
}

template <class L>
uint32_t prefixes_capacity(const typename L::Trie *t) {
  if (!t->prefixes) return 0;
  return untrimmed<L>(t, kPrefixesUntrimmed) ? t->prefixes[t->n_prefixes].len
                                             : t->n_prefixes;
}

}  // namespace vds::trie

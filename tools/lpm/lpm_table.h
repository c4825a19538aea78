// Prefix tables as the tool reads them: one line each, either
//   ADDRESS[/LEN] [DATA]         a prefix (a bare address is a host route);
//                                DATA defaults to the prefix's 1-based
//                                position among its family's prefixes,
//                                repeated ones included
//   START,END,DATA[,...]         an inclusive range, split into the fewest
//                                covering prefixes; START and END are
//                                addresses or decimal integers, fields may
//                                be in double quotes, and DATA is a number
//                                or a text (a label, such as a country code)
// with '#' and ';' starting a comment (in prefix lines anywhere, in range
// lines only at the start), and blank lines ignored. Both families may
// share one file. Plain CIDR lists, PREFIX<TAB>ASN tables, blocklists and
// country range files are of this form; a JSON array of CIDR strings is
// read by load_cidr_json.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lpm_addr.h"
#include "vell/trie_family.hpp"

namespace lpm {

// Texts that data words stand for: a new text takes the least word from 1
// up that no text holds, so word N is the N-th distinct text in order of
// first appearance until words are moved.
class TextWords {
 public:
  // The word of `text`, the same for every use of it.
  uint32_t word(const std::string &text);
  // The text of `data`; null for a word that names none.
  const std::string *text(uint32_t data) const;
  size_t size() const { return texts_.size(); }
  bool empty() const { return texts_.empty(); }
  // Gives every text a new word, counting down from the largest word and
  // passing over those `taken(word)` holds; returns the old words' new ones.
  template <class Taken>
  std::map<uint32_t, uint32_t> move_to_top(Taken taken);

 private:
  std::map<uint32_t, std::string> texts_;
  std::map<std::string, uint32_t, std::less<>> words_;
};

template <class Taken>
std::map<uint32_t, uint32_t> TextWords::move_to_top(Taken taken) {
  std::map<uint32_t, uint32_t> moved;
  std::map<uint32_t, std::string> texts;
  uint32_t word = UINT32_MAX;
  for (auto &[old, text] : texts_) {
    while (taken(word)) --word;
    moved[old] = word;
    words_[text] = word;
    texts[word--] = std::move(text);
  }
  texts_ = std::move(texts);
  return moved;
}

struct Table {
  std::vector<vell::trie4_family::entry> v4;
  std::vector<vell::trie6_family::entry> v6;
  // Route tables: the next hops in the tool's words ("via 10.0.0.2 dev
  // eth1", "unreachable"). No entry of another table holds one of their
  // words (see keep_nexthops_apart).
  TextWords nexthops;
  // Positions in v4 and v6 of the entries that routes added.
  std::vector<size_t> route_entries[2];
  // Range files whose data are texts: the texts ("AU", "bogon").
  TextWords labels;
  // Clear bits beyond a prefix's length instead of refusing the prefix,
  // counting the prefixes so masked.
  bool mask_host_bits = false;
  size_t host_bits_masked = 0;

  void add(Family f, const Addr &addr, unsigned len, uint32_t data);
  // Adds a route: its data word stands for the next hop, the same word for
  // every route that shares it.
  void add_route(Family f, const Addr &addr, unsigned len,
                 const std::string &nexthop);
  // When an entry of another table holds a next hop's word, gives every
  // next hop a word no other entry holds, counting down from the largest,
  // so that each answer still reads as its own table's.
  void keep_nexthops_apart();
};

// ADDRESS/LEN or a bare ADDRESS (a host route), with no bits set beyond
// LEN. On failure `why` says what is wrong. With `masked` non-null, bits
// beyond LEN are cleared instead, and counted in *masked.
bool parse_prefix(std::string_view text, Family &f, Addr &addr, unsigned &len,
                  std::string &why, size_t *masked = nullptr);

// Adds the prefixes of one line to the table. On a bad line returns false
// with the reason in `why` and leaves the table as it was.
bool parse_line(std::string_view line, Table &table, std::string &why);

// Reads every line of `bytes`. On the first bad line returns false with
// "NAME:LINE: reason" in `error`; the table then holds only earlier lines.
bool load_table(std::string_view bytes, std::string_view name, Table &table,
                std::string &error);

// Reads a JSON array of CIDR strings (as cloud providers publish their
// address ranges), each with its 1-based position as data. Errors name the
// line: "NAME:LINE: reason".
bool load_cidr_json(std::string_view bytes, std::string_view name, Table &table,
                    std::string &error);
// True when `bytes` is a JSON array whose first item is a string.
bool looks_like_cidr_json(std::string_view bytes);

// The embedded table's files: share/vell-ds/ (the data directory of the
// installation) of the nearest directory above the running program that
// holds them, which is the prefix for an installed program and the top of
// the build tree for one in the build tree. Empty when none is found.
std::vector<std::string> default_tables();

}  // namespace lpm

// What the trie engine asks of a family, as concepts, so that a family
// missing a member fails at the engine's entry points with the requirement
// it misses rather than deep inside a template.
#pragma once

#include <stdint.h>

#include <concepts>

namespace vds::trie {

// The record layout (trie/records.h and the family's Ipv4 / Ipv6): what
// lookups and walks read.
template <class L>
concept Layout = requires(const typename L::Entry &e, typename L::Node n,
                          uint32_t w) {
  typename L::Trie;
  typename L::Prefix;
  typename L::Iter;
  typename L::Item;
  { L::kWords } -> std::convertible_to<uint32_t>;
  { L::kBits } -> std::convertible_to<uint32_t>;
  { L::kNone } -> std::convertible_to<uint32_t>;
  { L::kIndexLimit } -> std::convertible_to<uint32_t>;
  { L::addr(e) } -> std::same_as<const uint32_t *>;
  { L::branch(n) } -> std::same_as<uint32_t>;
  { L::skip(w) } -> std::same_as<uint32_t>;
  { L::index(w) } -> std::same_as<uint32_t>;
  { L::make_node(w, w, w) } -> std::same_as<typename L::Node>;
};

// A whole family: the layout, its limits, and the exported module's source
// name, texts (trie/texts.h) and reports.
template <class F>
concept Family = Layout<F> &&
    requires(const typename F::Entry &e, uint32_t n, const char *why) {
  { F::kMaxEntries } -> std::convertible_to<uint32_t>;
  { F::kMaxBranch } -> std::convertible_to<uint32_t>;
  { F::kMaxChosenBranch } -> std::convertible_to<uint32_t>;
  { F::kModule } -> std::convertible_to<const char *>;
  F::kText.construct;
  F::too_many(n);
  F::reject_entry(n, e, why);
  F::print_entry(n, e);
};

}  // namespace vds::trie

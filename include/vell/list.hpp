// A typed intrusive list over sc_elist. An element type derives from
// list_hook<Tag> once per list it can be on (Tag tells the hooks apart);
// the list links the hooks and never owns, copies or allocates elements.
#pragma once

#include <stdint.h>

#include <concepts>
#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>

#include "sc_elist.h"
#include "vell/handle.hpp"

namespace vell {

template <typename Tag = void>
struct list_hook : sc_elist_node {
  list_hook() noexcept : sc_elist_node{nullptr, nullptr} {}
};

// Move-only; tests false after a move, and then reads as empty and links
// nothing. A const list hands out const elements.
template <typename T, typename Tag = void>
requires std::derived_from<T, list_hook<Tag>>
class list {
  template <bool Const>
  class basic_iterator {
    using element = std::conditional_t<Const, const T, T>;

   public:
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::bidirectional_iterator_tag;
    basic_iterator() = default;
    // A mutable position converts to a const one.
    template <bool C = Const>
    requires C basic_iterator(const basic_iterator<false> &o)
    noexcept : l_(o.l_), n_(o.n_) {}
    element &operator*() const noexcept { return *list::element(n_); }
    element *operator->() const noexcept { return list::element(n_); }
    basic_iterator &operator++() noexcept {
      n_ = sc_elist_get_next(n_);
      return *this;
    }
    basic_iterator operator++(int) noexcept {
      basic_iterator old = *this;
      ++*this;
      return old;
    }
    // From end() to the last element.
    basic_iterator &operator--() noexcept {
      n_ = n_ ? sc_elist_get_prev(n_) : sc_elist_peek_back(l_);
      return *this;
    }
    basic_iterator operator--(int) noexcept {
      basic_iterator old = *this;
      --*this;
      return old;
    }
    friend bool operator==(const basic_iterator &a,
                           const basic_iterator &b) noexcept {
      return a.n_ == b.n_;
    }

   private:
    friend class list;
    template <bool>
    friend class basic_iterator;
    basic_iterator(sc_elist *l, sc_elist_node *n) noexcept : l_(l), n_(n) {}
    sc_elist *l_ = nullptr;
    sc_elist_node *n_ = nullptr;  // null: end()
  };

 public:
  using value_type = T;
  using iterator = basic_iterator<false>;
  using const_iterator = basic_iterator<true>;

  // Empty when the list record cannot be made.
  [[nodiscard]] static std::optional<list> create(
      const char *name = "") noexcept {
    sc_elist *l = sc_elist_construct(name);
    if (!l) return std::nullopt;
    return list(l);
  }

  explicit operator bool() const noexcept { return bool(l_); }

  // The element must not be on a list of this Tag already.
  void push_back(T &x) noexcept {
    if (l_) sc_elist_push_back(l(), hook(x));
  }
  void push_front(T &x) noexcept {
    if (l_) sc_elist_push_front(l(), hook(x));
  }
  // Links x before pos (at the end for end()).
  iterator insert(const_iterator pos, T &x) noexcept {
    if (!l_) return end();
    if (pos.n_)
      sc_elist_insert_before(l(), pos.n_, hook(x));
    else
      sc_elist_push_back(l(), hook(x));
    return {l(), hook(x)};
  }
  // Unlinks the element at pos; the iterator to the one after it.
  iterator erase(const_iterator pos) noexcept {
    sc_elist_node *next = sc_elist_get_next(pos.n_);
    sc_elist_remove(l(), pos.n_);
    return {l(), next};
  }
  // x must be on this list.
  void remove(T &x) noexcept { sc_elist_remove(l(), hook(x)); }
  // Moves every element of other to the end of this list, in their order.
  void splice_back(list &other) noexcept {
    if (l_ && other.l_) sc_elist_append(l(), other.l());
  }
  // The element unlinked, or null when the list is empty.
  T *pop_front() noexcept {
    return l_ ? element(sc_elist_pop_front(l())) : nullptr;
  }
  T *pop_back() noexcept {
    return l_ ? element(sc_elist_pop_back(l())) : nullptr;
  }
  T *front() noexcept { return element(first()); }
  T *back() noexcept { return element(last()); }
  const T *front() const noexcept { return element(first()); }
  const T *back() const noexcept { return element(last()); }

  uint32_t size() const noexcept { return l_ ? sc_elist_get_size(l()) : 0; }
  bool empty() const noexcept { return size() == 0; }
  iterator begin() noexcept { return {l(), first()}; }
  iterator end() noexcept { return {l(), nullptr}; }
  const_iterator begin() const noexcept { return {l(), first()}; }
  const_iterator end() const noexcept { return {l(), nullptr}; }

  sc_elist *get() const noexcept { return l_.get(); }

 private:
  explicit list(sc_elist *l) noexcept : l_(l) {}
  sc_elist *l() const noexcept { return l_.get(); }
  sc_elist_node *first() const noexcept {
    return l_ ? sc_elist_peek_front(l()) : nullptr;
  }
  sc_elist_node *last() const noexcept {
    return l_ ? sc_elist_peek_back(l()) : nullptr;
  }
  static sc_elist_node *hook(T &x) noexcept {
    return static_cast<list_hook<Tag> *>(&x);
  }
  static T *element(sc_elist_node *n) noexcept {
    return n ? static_cast<T *>(static_cast<list_hook<Tag> *>(n)) : nullptr;
  }
  handle<sc_elist, sc_elist_destruct> l_;
};

}  // namespace vell

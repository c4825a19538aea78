// A typed intrusive list over sc_elist. An element type derives from
// list_hook<Tag> once per list it can be on (Tag tells the hooks apart);
// the list links the hooks and never owns, copies or allocates elements.
#pragma once

#include <stdint.h>

#include <concepts>
#include <cstddef>
#include <iterator>
#include <optional>

#include "sc_elist.h"
#include "vell/handle.hpp"

namespace vell {

template <typename Tag = void>
struct list_hook : sc_elist_node {
  list_hook() noexcept : sc_elist_node{nullptr, nullptr} {}
};

template <typename T, typename Tag = void>
requires std::derived_from<T, list_hook<Tag>>
class list {
 public:
  using value_type = T;

  class iterator {
   public:
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::bidirectional_iterator_tag;
    iterator() = default;
    T &operator*() const noexcept { return *element(n_); }
    T *operator->() const noexcept { return element(n_); }
    iterator &operator++() noexcept {
      n_ = sc_elist_get_next(n_);
      return *this;
    }
    iterator operator++(int) noexcept {
      iterator old = *this;
      ++*this;
      return old;
    }
    // From end() to the last element.
    iterator &operator--() noexcept {
      n_ = n_ ? sc_elist_get_prev(n_) : sc_elist_peek_back(l_);
      return *this;
    }
    iterator operator--(int) noexcept {
      iterator old = *this;
      --*this;
      return old;
    }
    friend bool operator==(const iterator &a, const iterator &b) noexcept {
      return a.n_ == b.n_;
    }

   private:
    friend class list;
    iterator(sc_elist *l, sc_elist_node *n) noexcept : l_(l), n_(n) {}
    sc_elist *l_ = nullptr;
    sc_elist_node *n_ = nullptr;  // null: end()
  };

  // Empty when the list record cannot be made.
  static std::optional<list> create(const char *name = "") noexcept {
    sc_elist *l = sc_elist_construct(name);
    if (!l) return std::nullopt;
    return list(l);
  }

  // The element must not be on a list of this Tag already.
  void push_back(T &x) noexcept { sc_elist_push_back(l(), hook(x)); }
  void push_front(T &x) noexcept { sc_elist_push_front(l(), hook(x)); }
  // Links x before pos (at the end for end()).
  iterator insert(iterator pos, T &x) noexcept {
    if (pos.n_)
      sc_elist_insert_before(l(), pos.n_, hook(x));
    else
      sc_elist_push_back(l(), hook(x));
    return {l(), hook(x)};
  }
  // Unlinks the element at pos; the iterator to the one after it.
  iterator erase(iterator pos) noexcept {
    sc_elist_node *next = sc_elist_get_next(pos.n_);
    sc_elist_remove(l(), pos.n_);
    return {l(), next};
  }
  // x must be on this list.
  void remove(T &x) noexcept { sc_elist_remove(l(), hook(x)); }
  // Moves every element of other to the end of this list.
  void splice_back(list &other) noexcept { sc_elist_append(l(), other.l()); }
  // The element unlinked, or null when the list is empty.
  T *pop_front() noexcept { return element(sc_elist_pop_front(l())); }
  T *pop_back() noexcept { return element(sc_elist_pop_back(l())); }
  T *front() const noexcept { return element(sc_elist_peek_front(l())); }
  T *back() const noexcept { return element(sc_elist_peek_back(l())); }

  uint32_t size() const noexcept { return sc_elist_get_size(l()); }
  bool empty() const noexcept { return size() == 0; }
  iterator begin() const noexcept { return {l(), sc_elist_peek_front(l())}; }
  iterator end() const noexcept { return {l(), nullptr}; }

  sc_elist *get() const noexcept { return l_.get(); }

 private:
  explicit list(sc_elist *l) noexcept : l_(l) {}
  sc_elist *l() const noexcept { return l_.get(); }
  static sc_elist_node *hook(T &x) noexcept {
    return static_cast<list_hook<Tag> *>(&x);
  }
  static T *element(sc_elist_node *n) noexcept {
    return n ? static_cast<T *>(static_cast<list_hook<Tag> *>(n)) : nullptr;
  }
  handle<sc_elist, sc_elist_destruct> l_;
};

}  // namespace vell

// The reason a call failed, in code: a scope that collects the library's
// and the C++ layer's diagnostics through the default host module's
// handler, instead of their reaching stderr.
//
//   vell::diag_capture why;
//   auto trie = vell::trie4::build(routes);
//   if (!trie) log(why.last());
#pragma once

#include <stdint.h>
#include <string.h>

#include <string_view>

#include "sc_host_default.h"

namespace vell {

// Installed for the whole process while it lives; its user serialises the
// library calls it watches. Captures nest: the innermost collects, and the
// handler set before the outermost (or stderr) comes back when it goes.
class diag_capture {
 public:
  diag_capture() noexcept
      : outer_(innermost()), before_(sc_host_get_diag_handler()) {
    innermost() = this;
    sc_host_set_diag_handler(collect);
  }
  diag_capture(const diag_capture &) = delete;
  diag_capture &operator=(const diag_capture &) = delete;
  ~diag_capture() {
    innermost() = outer_;
    sc_host_set_diag_handler(before_);
  }

  // Diagnostics collected since construction or clear().
  uint32_t count() const noexcept { return count_; }
  // The last one's text without its newline (cut at the buffer's size),
  // and its level: empty and 0 when none came.
  std::string_view last() const noexcept { return {text_, size_}; }
  int level() const noexcept { return level_; }
  void clear() noexcept {
    count_ = 0;
    size_ = 0;
    level_ = 0;
  }

 private:
  static diag_capture *&innermost() noexcept {
    static diag_capture *c = nullptr;
    return c;
  }
  static void collect(int level, const char *, int, const char *msg) {
    diag_capture *c = innermost();
    size_t n = strlen(msg);
    if (n && msg[n - 1] == '\n') --n;
    if (n > sizeof c->text_) n = sizeof c->text_;
    memcpy(c->text_, msg, n);
    c->size_ = n;
    c->level_ = level;
    ++c->count_;
  }

  diag_capture *outer_;
  sc_host_diag_handler *before_;
  char text_[256];
  size_t size_ = 0;
  int level_ = 0;
  uint32_t count_ = 0;
};

}  // namespace vell

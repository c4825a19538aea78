#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <map>
#include <unordered_map>

#include "host_record.h"

int __sc_debug_level = 2;
int32_t __sc_print_val;

namespace th {
namespace {

constexpr uint32_t kCtxMagic = 0xc0ffee11u;

struct State {
  std::vector<Block> blocks;
  std::unordered_map<void *, size_t> live;  // pointer -> index in blocks
  std::vector<std::string> errors;
  std::vector<Diag> diags;
  std::string console;
  long attempts = 0;
  long fail_at = 0;
  bool injected = false;
  long sz_by_kfree = 0, sz_by_kfree_expected = 0;
  Diag pending{};
  int last_prefix = 0, last_msg = 0;
};

State &st() {
  static State s;
  return s;
}

std::string vformat(const char *fmt, va_list ap) {
  va_list copy;
  va_copy(copy, ap);
  int n = vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  std::string out(n > 0 ? n : 0, '\0');
  vsnprintf(out.data(), out.size() + 1, fmt, ap);
  return out;
}

std::string format(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string s = vformat(fmt, ap);
  va_end(ap);
  return s;
}

const char *name(Alloc a) {
  switch (a) {
    case Alloc::kmalloc:
      return "__sc_kmalloc";
    case Alloc::kcalloc:
      return "__sc_kcalloc";
    case Alloc::szalloc:
      return "__sc_szalloc";
  }
  return "?";
}

bool should_fail() {
  State &s = st();
  ++s.attempts;
  if (s.fail_at && s.attempts == s.fail_at) {
    s.injected = true;
    return true;
  }
  return false;
}

void *take(Alloc a, uint32_t size, void *ctx, const char *file, bool zero) {
  if (should_fail()) return nullptr;
  // Never zero unless asked, so code relying on zeroed memory shows up.
  void *p = malloc(size ? size : 1);
  if (!p) abort();
  memset(p, zero ? 0 : 0xa5, size);
  State &s = st();
  s.live[p] = s.blocks.size();
  s.blocks.push_back(Block{a, size, ctx, file ? file : "", true});
  return p;
}

void give(void *p, uint32_t size, bool sz, void *ctx, const char *file,
          int line) {
  if (!p) return;
  State &s = st();
  auto it = s.live.find(p);
  if (it == s.live.end()) {
    s.errors.push_back(format("release of unknown or freed block %p (%s:%d)", p,
                              file ? file : "__sc_kfree", line));
    return;
  }
  Block &b = s.blocks[it->second];
  if (b.size != size)
    s.errors.push_back(format("%s block of %u bytes released with size %u",
                              name(b.alloc), b.size, size));
  if (sz && (b.alloc != Alloc::szalloc || b.ctx != ctx))
    s.errors.push_back(format("%s block of %u bytes released by __sc_szfree",
                              name(b.alloc), b.size));
  if (!sz && b.alloc == Alloc::szalloc) ++s.sz_by_kfree;
  if (sz && b.file != (file ? file : ""))
    s.errors.push_back(format("size-class block taken by %s released by %s",
                              b.file.c_str(), file ? file : "?"));
  b.live = false;
  s.live.erase(it);
  // Poisoned before release, so a reader still walking a block given back
  // too early reads garbage even where the allocator would keep it intact.
  memset(p, 0x5b, b.size);
  free(p);
}

#ifdef VELL_SOURCE_DIR
// Empty when the statement holding `line` in <file>.cpp makes the call,
// else what the reader would find there.
std::string location_error(const char *file, int line) {
  std::ifstream in(std::string(VELL_SOURCE_DIR "/") + (file ? file : "") +
                   ".cpp");
  std::vector<std::string> src;
  for (std::string l; std::getline(in, l);) src.push_back(l);
  if (src.empty()) return "";
  std::string statement;
  for (int at = line; at >= 1 && at <= int(src.size()) && line - at < 8; --at) {
    statement = src[at - 1] + statement;
    size_t end = at > 1 ? src[at - 2].find_last_not_of(' ') : 0;
    if (at == 1 || end == std::string::npos || strchr(";{}", src[at - 2][end]))
      break;
  }
  for (const char *call : {"VDS_DIAG", "VDS_AT(", "CoreAt<", "__sc_szalloc(",
                           "__sc_szfree(", "take_block<", "give_block<"})
    if (statement.find(call) != std::string::npos) return "";
  return format("%s:%d, where no such call is: '%s'", file, line,
                statement.c_str());
}
#endif

// A location must lead a reader to the call that raised it: in the named
// module's own file (<name>.cpp) the statement holding the line is a
// diagnostic, a size-class call or an exported function's call into a shared
// engine. Names without such a file (a test's own) are not checked.
void check_location(const char *what, const char *file, int line) {
#ifdef VELL_SOURCE_DIR
  // Each place is looked up in the sources once.
  static std::map<std::pair<std::string, int>, std::string> checked;
  auto [place, added] = checked.try_emplace({file ? file : "", line});
  if (added) place->second = location_error(file, line);
  if (!place->second.empty())
    st().errors.push_back(format("%s at %s", what, place->second.c_str()));
#else
  (void)what, (void)file, (void)line;
#endif
}

}  // namespace

Ctx::Ctx(uint32_t max_alloc) : magic_(kCtxMagic), max_(max_alloc) {}
Ctx::~Ctx() { magic_ = 0; }

void reset() {
  State &s = st();
  for (auto &kv : s.live) free(kv.first);
  s = State{};
  __sc_debug_level = 2;
  __sc_print_val = 0;
}

void fail_nth(long n) {
  st().fail_at = n ? st().attempts + n : 0;
  st().injected = false;
}
void disarm() { st().fail_at = 0; }
bool failure_injected() { return st().injected; }
long alloc_attempts() { return st().attempts; }
const std::vector<Block> &blocks() { return st().blocks; }
uint64_t live_bytes() {
  uint64_t n = 0;
  for (auto &kv : st().live) n += st().blocks[kv.second].size;
  return n;
}
const std::vector<std::string> &errors() { return st().errors; }
void expect_sz_released_by_kfree(long n) { st().sz_by_kfree_expected = n; }
const std::vector<Diag> &diags() { return st().diags; }
std::string diag_text() {
  std::string all;
  for (auto &d : st().diags) all += d.text;
  return all;
}
const std::string &console() { return st().console; }
void clear_output() {
  st().diags.clear();
  st().console.clear();
}
int last_prefix_result() { return st().last_prefix; }
int last_msg_result() { return st().last_msg; }

std::vector<std::string> problems() {
  State &s = st();
  std::vector<std::string> out;
  for (auto &kv : s.live) {
    const Block &b = s.blocks[kv.second];
    out.push_back(format("leaked %s block of %u bytes%s%s", name(b.alloc),
                         b.size, b.file.empty() ? "" : " from ",
                         b.file.c_str()));
  }
  out.insert(out.end(), s.errors.begin(), s.errors.end());
  if (s.sz_by_kfree != s.sz_by_kfree_expected)
    out.push_back(
        format("%ld size-class blocks released through __sc_kfree, "
               "%ld expected",
               s.sz_by_kfree, s.sz_by_kfree_expected));
  return out;
}

bool live(const void *p, uint32_t size) {
  auto it = st().live.find(const_cast<void *>(p));
  return it != st().live.end() && st().blocks[it->second].size == size;
}

}  // namespace th

using th::Alloc;

extern "C" {

void *__sc_kmalloc(uint32_t size) {
  return th::take(Alloc::kmalloc, size, nullptr, nullptr, false);
}

void *__sc_kcalloc(uint32_t count, uint32_t size) {
  uint64_t total = uint64_t(count) * size;
  if (total > UINT32_MAX) {
    th::st().errors.push_back("__sc_kcalloc size overflows 32 bits");
    return nullptr;
  }
  return th::take(Alloc::kcalloc, uint32_t(total), nullptr, nullptr, true);
}

void __sc_kfree(void *ptr, uint32_t size) {
  th::give(ptr, size, false, nullptr, nullptr, 0);
}

void *__sc_szalloc(void *sz_ctx, uint32_t size, int flags, const char *file,
                   int line) {
  auto *c = static_cast<th::Ctx *>(sz_ctx);
  if (flags != 0)
    th::st().errors.push_back(th::format("__sc_szalloc flags %d", flags));
  if (!c || c->max_alloc() < size)
    th::st().errors.push_back(
        th::format("__sc_szalloc of %u bytes above the context's limit (%s:%d)",
                   size, file ? file : "?", line));
  th::check_location("__sc_szalloc", file, line);
  return th::take(Alloc::szalloc, size, sz_ctx, file, false);
}

void __sc_szfree(void *sz_ctx, void *ptr, uint32_t size, const char *file,
                 int line) {
  th::check_location("__sc_szfree", file, line);
  th::give(ptr, size, true, sz_ctx, file, line);
}

uint32_t sc_sz_get_max_alloc(void *sz_ctx) {
  return static_cast<th::Ctx *>(sz_ctx)->max_alloc();
}

int __sc_print_prefix(int level, const char *file, int line) {
  th::State &s = th::st();
  th::check_location("diagnostic", file, line);
  s.pending = th::Diag{level, file ? file : "", line, ""};
  s.last_prefix = int(th::format("<%d> %s:%d: ", level, file, line).size());
  return s.last_prefix;
}

int __sc_print_msg(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string text = th::vformat(fmt, ap);
  va_end(ap);
  th::State &s = th::st();
  s.pending.text = text;
  s.diags.push_back(s.pending);
  s.pending = th::Diag{};
  s.last_msg = int(text.size());
  return s.last_msg;
}

int sc_printf(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string text = th::vformat(fmt, ap);
  va_end(ap);
  th::st().console += text;
  return int(text.size());
}

}  // extern "C"

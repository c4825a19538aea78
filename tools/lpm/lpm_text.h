// Small text helpers shared by the table readers and the tool's messages.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

namespace lpm {

// The text without leading and trailing blanks (space, tab, CR, LF).
std::string_view trim(std::string_view s);

// Whole text as an unsigned 32-bit decimal number.
bool parse_u32(std::string_view s, uint32_t &v);

// The 1-based number of the line holding byte `offset` of `bytes`.
unsigned long line_of(std::string_view bytes, size_t offset);

// Input quoted for a message: in single quotes, at most kQuoteMax bytes of
// it (then "..."), control and non-ASCII bytes, quote and backslash escaped,
// so that no input can flood or garble a terminal.
constexpr size_t kQuoteMax = 40;
std::string quoted(std::string_view s);

// The text as a JSON string literal, quotes included.
std::string json_string(std::string_view s);

}  // namespace lpm

namespace lpm {

// Calls `line_ok(line, why)` for each line of `bytes` (without its newline)
// until one returns false, having set `why`. A line holding a NUL byte is
// bad. Returns false with "NAME:LINE: why" in `error`.
template <typename F>
bool for_each_line(std::string_view bytes, std::string_view name,
                   std::string &error, F line_ok) {
  std::string why;
  unsigned long lineno = 0;
  while (!bytes.empty()) {
    size_t nl = bytes.find('\n');
    std::string_view line = bytes.substr(0, nl);
    bytes.remove_prefix(nl == std::string_view::npos ? bytes.size() : nl + 1);
    ++lineno;
    if (line.find('\0') != std::string_view::npos)
      why = "NUL byte in line " + quoted(line);
    else if (line_ok(line, why))
      continue;
    error = std::string(name) + ":" + std::to_string(lineno) + ": " + why;
    return false;
  }
  return true;
}

}  // namespace lpm

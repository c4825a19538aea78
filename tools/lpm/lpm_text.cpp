#include "lpm_text.h"

#include <stdio.h>

#include <algorithm>
#include <charconv>

namespace lpm {

std::string_view trim(std::string_view s) {
  const char *space = " \t\r\n";
  size_t b = s.find_first_not_of(space);
  if (b == std::string_view::npos) return {};
  return s.substr(b, s.find_last_not_of(space) - b + 1);
}

bool parse_u32(std::string_view s, uint32_t &v) {
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  return !s.empty() && ec == std::errc() && end == s.data() + s.size();
}

unsigned long line_of(std::string_view bytes, size_t offset) {
  offset = std::min(offset, bytes.size());
  return 1 + static_cast<unsigned long>(
                 std::count(bytes.begin(), bytes.begin() + offset, '\n'));
}

namespace {

// Appends c, escaped as a C string literal would need it (JSON shares the
// two-character escapes used here and \u00XX for the others).
void append_escaped(std::string &out, unsigned char c, bool json) {
  static const char hex[] = "0123456789abcdef";
  switch (c) {
    case '\\':
      out += "\\\\";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\t':
      out += "\\t";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      break;
  }
  if (c == (json ? '"' : '\'')) {
    out += '\\';
    out += static_cast<char>(c);
  } else if (c >= 0x20 && c < 0x7f) {
    out += static_cast<char>(c);
  } else if (json && c >= 0x80) {
    out += static_cast<char>(c);  // UTF-8 passes through JSON unchanged
  } else {
    out += json ? "\\u00" : "\\x";
    out += hex[c >> 4];
    out += hex[c & 15];
  }
}

}  // namespace

std::string quoted(std::string_view s) {
  std::string q = "'";
  for (size_t i = 0; i < s.size() && i < kQuoteMax; ++i)
    append_escaped(q, static_cast<unsigned char>(s[i]), false);
  q += '\'';
  if (s.size() > kQuoteMax) q += "...";
  return q;
}

std::string json_string(std::string_view s) {
  std::string q = "\"";
  for (char c : s) append_escaped(q, static_cast<unsigned char>(c), true);
  return q + '"';
}

}  // namespace lpm

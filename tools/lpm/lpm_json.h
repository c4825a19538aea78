// A small JSON reader for route tables in JSON: values with the byte
// offset at which each starts, nesting bounded so that no input can
// exhaust the stack.
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>
#include <vector>

namespace lpm {

struct Json {
  enum class Kind { null, boolean, number, string, array, object };
  Kind kind = Kind::null;
  std::string
      text;  // a string's value (unescaped), a number's or literal's text
  std::vector<Json> items;        // an array's values, an object's values
  std::vector<std::string> keys;  // an object's member names, by item
  size_t offset = 0;

  // The member named `key` of an object, or null.
  const Json *get(std::string_view key) const;
  // A string member's value, or the empty string.
  std::string string_at(std::string_view key) const;
};

constexpr unsigned kJsonMaxDepth = 64;

// Parses one JSON document. On failure, `why` and the byte `offset` of the
// fault.
bool parse_json(std::string_view text, Json &out, size_t &offset,
                std::string &why);

}  // namespace lpm

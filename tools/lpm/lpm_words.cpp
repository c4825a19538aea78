#include "lpm_words.h"

#include "lpm_text.h"

namespace lpm {

const std::string *Words::nexthop(uint32_t data) const {
  auto it = table.nexthops.find(data);
  return it == table.nexthops.end() ? nullptr : &it->second;
}

std::string Words::item(const std::string &prefix, uint32_t data) const {
  const std::string *hop = nexthop(data);
  if (json)
    return "{\"prefix\": " + json_string(prefix) +
           ", \"data\": " + std::to_string(data) +
           (hop ? ", \"nexthop\": " + json_string(*hop) : "") + "}";
  return prefix + " " + (hop ? *hop : std::to_string(data));
}

std::string Words::answer(const std::string &addr, const std::string *prefix,
                          uint32_t data) const {
  const std::string *hop = prefix ? nexthop(data) : nullptr;
  if (json) {
    std::string null = "null";
    std::string s = "{\"address\": " + json_string(addr) +
                    ", \"data\": " + (prefix ? std::to_string(data) : null) +
                    ", \"prefix\": " + (prefix ? json_string(*prefix) : null);
    if (hop || (!prefix && routes()))
      s += ", \"nexthop\": " + (hop ? json_string(*hop) : null);
    return s + "}";
  }
  if (!prefix) return addr + " - -";
  if (hop) return addr + " " + *prefix + " " + *hop;
  return addr + " " + std::to_string(data) + " " + *prefix;
}

}  // namespace lpm

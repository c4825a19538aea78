#include "lpm_words.h"

#include "lpm_text.h"

namespace lpm {

const std::string &Words::nexthop(uint32_t data) const {
  static const std::string unknown = "?";
  return data >= 1 && data <= table.nexthops.size() ? table.nexthops[data - 1]
                                                    : unknown;
}

std::string Words::item(const std::string &prefix, uint32_t data) const {
  if (json)
    return "{\"prefix\": " + json_string(prefix) +
           ", \"data\": " + std::to_string(data) +
           (routes() ? ", \"nexthop\": " + json_string(nexthop(data)) : "") +
           "}";
  return prefix + " " + (routes() ? nexthop(data) : std::to_string(data));
}

std::string Words::answer(const std::string &addr, const std::string *prefix,
                          uint32_t data) const {
  if (json) {
    std::string null = "null";
    std::string s = "{\"address\": " + json_string(addr) +
                    ", \"data\": " + (prefix ? std::to_string(data) : null) +
                    ", \"prefix\": " + (prefix ? json_string(*prefix) : null);
    if (routes())
      s += ", \"nexthop\": " + (prefix ? json_string(nexthop(data)) : null);
    return s + "}";
  }
  if (!prefix) return addr + " - -";
  if (routes()) return addr + " " + *prefix + " " + nexthop(data);
  return addr + " " + std::to_string(data) + " " + *prefix;
}

}  // namespace lpm

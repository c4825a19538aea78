#include "lpm_words.h"

#include "lpm_text.h"

namespace lpm {

const std::string *Words::text(uint32_t data) const {
  return routes() ? table.nexthops.text(data) : table.labels.text(data);
}

std::string Words::item(const std::string &prefix, uint32_t data) const {
  const std::string *t = text(data);
  if (json)
    return "{\"prefix\": " + json_string(prefix) +
           ", \"data\": " + std::to_string(data) +
           (t ? ", " + key() + json_string(*t) : "") + "}";
  return prefix + " " + (t ? *t : std::to_string(data));
}

std::string Words::answer(const std::string &written,
                          const std::string &canonical,
                          const std::string *prefix, uint32_t data,
                          bool mapped) const {
  const std::string *t = prefix ? text(data) : nullptr;
  if (json) {
    std::string null = "null";
    std::string s = "{\"address\": " + json_string(written) +
                    ", \"canonical\": " + json_string(canonical) +
                    ", \"data\": " + (prefix ? std::to_string(data) : null) +
                    ", \"prefix\": " + (prefix ? json_string(*prefix) : null);
    if (t || (!prefix && named()))
      s += ", " + key() + (t ? json_string(*t) : null);
    if (mapped) s += ", \"ipv4_mapped\": true";
    return s + "}";
  }
  if (!prefix) return written + " - -";
  if (t) return written + " " + *prefix + " " + *t;
  return written + " " + std::to_string(data) + " " + *prefix;
}

}  // namespace lpm

#include "lpm_words.h"

#include "lpm_text.h"

namespace lpm {

const std::string &Words::text(uint32_t data) const {
  static const std::string unknown = "?";
  const std::string *text = names().text(data);
  return text ? *text : unknown;
}

std::string Words::item(const std::string &prefix, uint32_t data) const {
  if (json)
    return "{\"prefix\": " + json_string(prefix) +
           ", \"data\": " + std::to_string(data) +
           (named() ? ", " + key() + json_string(text(data)) : "") + "}";
  return prefix + " " + (named() ? text(data) : std::to_string(data));
}

std::string Words::answer(const std::string &written,
                          const std::string &canonical,
                          const std::string *prefix, uint32_t data,
                          bool mapped) const {
  if (json) {
    std::string null = "null";
    std::string s = "{\"address\": " + json_string(written) +
                    ", \"canonical\": " + json_string(canonical) +
                    ", \"data\": " + (prefix ? std::to_string(data) : null) +
                    ", \"prefix\": " + (prefix ? json_string(*prefix) : null);
    if (named()) s += ", " + key() + (prefix ? json_string(text(data)) : null);
    if (mapped) s += ", \"ipv4_mapped\": true";
    return s + "}";
  }
  if (!prefix) return written + " - -";
  if (named()) return written + " " + *prefix + " " + text(data);
  return written + " " + std::to_string(data) + " " + *prefix;
}

}  // namespace lpm

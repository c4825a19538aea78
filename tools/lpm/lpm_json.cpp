#include "lpm_json.h"

#include <string.h>

namespace lpm {
namespace {

class Parser {
 public:
  explicit Parser(std::string_view t) : t_(t) {}

  bool document(Json &out) {
    if (!value(out, 0)) return false;
    blanks();
    return pos_ == t_.size() || fail("text after the JSON value");
  }
  size_t pos() const { return pos_; }
  const std::string &why() const { return why_; }

 private:
  bool fail(const char *what) {
    why_ = what;
    return false;
  }
  void blanks() {
    while (pos_ < t_.size() && strchr(" \t\r\n", t_[pos_]) && t_[pos_]) ++pos_;
  }
  bool eat(char c) {
    blanks();
    if (pos_ < t_.size() && t_[pos_] == c) return ++pos_, true;
    return false;
  }

  bool value(Json &v, unsigned depth) {
    blanks();
    v.offset = pos_;
    if (depth >= kJsonMaxDepth) return fail("JSON nested too deeply");
    if (pos_ == t_.size()) return fail("JSON value expected, found the end");
    char c = t_[pos_];
    if (c == '{') return object(v, depth);
    if (c == '[') return array(v, depth);
    if (c == '"') {
      v.kind = Json::Kind::string;
      return string(v.text);
    }
    size_t end = pos_;
    while (end < t_.size() && strchr("+-.0123456789eEtruefalsn", t_[end]) &&
           t_[end])
      ++end;
    v.text = std::string(t_.substr(pos_, end - pos_));
    if (v.text == "true" || v.text == "false")
      v.kind = Json::Kind::boolean;
    else if (v.text == "null")
      v.kind = Json::Kind::null;
    else if (!v.text.empty() && strchr("-0123456789", v.text[0]))
      v.kind = Json::Kind::number;
    else
      return fail("JSON value expected");
    pos_ = end;
    return true;
  }

  bool array(Json &v, unsigned depth) {
    v.kind = Json::Kind::array;
    ++pos_;
    if (eat(']')) return true;
    do {
      v.items.emplace_back();
      if (!value(v.items.back(), depth + 1)) return false;
    } while (eat(','));
    return eat(']') || fail("',' or ']' expected in a JSON array");
  }

  bool object(Json &v, unsigned depth) {
    v.kind = Json::Kind::object;
    ++pos_;
    if (eat('}')) return true;
    do {
      blanks();
      std::string key;
      if (pos_ == t_.size() || t_[pos_] != '"')
        return fail("member name expected in a JSON object");
      if (!string(key)) return false;
      if (!eat(':')) return fail("':' expected after a JSON member name");
      v.keys.push_back(std::move(key));
      v.items.emplace_back();
      if (!value(v.items.back(), depth + 1)) return false;
    } while (eat(','));
    return eat('}') || fail("',' or '}' expected in a JSON object");
  }

  // A string literal at pos_, unescaped into `out` (\u escapes as UTF-8).
  bool string(std::string &out) {
    ++pos_;
    while (pos_ < t_.size()) {
      char c = t_[pos_++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20)
        return fail("control byte inside a JSON string");
      if (c != '\\') {
        out += c;
        continue;
      }
      if (pos_ == t_.size()) break;
      char e = t_[pos_++];
      const char *plain = strchr("\"\\/bfnrt", e);
      if (plain && e) {
        out += "\"\\/\b\f\n\r\t"[plain - "\"\\/bfnrt"];
      } else if (e == 'u') {
        unsigned cp = 0;
        for (int i = 0; i < 4; ++i, ++pos_) {
          char h = pos_ < t_.size() ? t_[pos_] : 'x';
          int d = h >= '0' && h <= '9'   ? h - '0'
                  : h >= 'a' && h <= 'f' ? h - 'a' + 10
                  : h >= 'A' && h <= 'F' ? h - 'A' + 10
                                         : -1;
          if (d < 0) return fail("bad \\u escape in a JSON string");
          cp = cp << 4 | static_cast<unsigned>(d);
        }
        if (cp < 0x80) {
          out += static_cast<char>(cp);
        } else if (cp < 0x800) {
          out += static_cast<char>(0xc0 | cp >> 6);
          out += static_cast<char>(0x80 | (cp & 0x3f));
        } else {
          out += static_cast<char>(0xe0 | cp >> 12);
          out += static_cast<char>(0x80 | (cp >> 6 & 0x3f));
          out += static_cast<char>(0x80 | (cp & 0x3f));
        }
      } else {
        return fail("bad escape in a JSON string");
      }
    }
    return fail("JSON string not closed");
  }

  std::string_view t_;
  size_t pos_ = 0;
  std::string why_;
};

}  // namespace

const Json *Json::get(std::string_view key) const {
  if (kind != Kind::object) return nullptr;
  for (size_t i = 0; i < keys.size(); ++i)
    if (keys[i] == key) return &items[i];
  return nullptr;
}

std::string Json::string_at(std::string_view key) const {
  const Json *v = get(key);
  return v && v->kind == Kind::string ? v->text : std::string();
}

bool parse_json(std::string_view text, Json &out, size_t &offset,
                std::string &why) {
  Parser p(text);
  out = Json{};
  bool ok = p.document(out);
  offset = p.pos();
  why = p.why();
  return ok;
}

}  // namespace lpm

#include "vell_lpm_query.h"

#include <stdio.h>

#include "lpm_text.h"

namespace vell_lpm {

using namespace lpm;

bool parse_query_text(std::string_view text, Query &q) {
  if (text.find('\0') != std::string_view::npos ||
      !parse_query(text, q.family, q.addr))
    return false;
  q.text = text;
  return true;
}

std::vector<Query> command_line_queries(const Options &o) {
  std::vector<Query> queries;
  for (const std::string &a : o.addresses) {
    Query q;
    if (!parse_query_text(a, q)) fail("bad address " + quoted(a));
    queries.push_back(q);
  }
  return queries;
}

int for_each_stdin_query(const Options &o,
                         const std::function<void(const Query &)> &lookup) {
  int status = 0;
  if (!o.from_stdin) return status;
  std::string line;
  unsigned long n = 0;
  for (int c = 0; c != EOF;) {
    line.clear();
    while ((c = getchar()) != EOF && c != '\n') line += static_cast<char>(c);
    ++n;
    std::string_view text = trim(line);
    Query q;
    if (text.empty()) continue;
    if (parse_query_text(text, q)) {
      lookup(q);
    } else {
      fflush(stdout);
      fprintf(stderr, "vell-lpm: <stdin>:%lu: bad address %s\n", n,
              quoted(text).c_str());
      status = 1;
    }
  }
  return status;
}

std::string answer(const Words &words, const Query &q, const Find &find) {
  std::string prefix;
  uint32_t data = 0;
  bool hit = find(q.family, q.addr, prefix, data), mapped = false;
  const Addr &a = q.addr;
  if (!hit && q.family == Family::v6 && a.w[0] == 0 && a.w[1] == 0 &&
      a.w[2] == 0xffff) {
    mapped = true;
    hit = find(Family::v4, Addr{{a.w[3], 0, 0, 0}}, prefix, data);
  }
  return words.answer(q.text, format_addr(q.family, q.addr),
                      hit ? &prefix : nullptr, data, mapped);
}

}  // namespace vell_lpm

// The update reader and the per-peer table on any bytes: an error or a
// cut-short warning, never a crash, a hang or an unbounded allocation.
// Every change names a valid prefix of its family and a peer the reader
// numbered, and the table's answers always agree with a model that keeps
// each peer's routes in a plain map.
#include <stdint.h>
#include <stdlib.h>

#include <map>
#include <tuple>

#include "lpm_updates.h"

namespace {

using Key = std::tuple<int, lpm::Addr, unsigned>;

Key key_of(const lpm::Prefix4or6 &p) {
  return {p.family == lpm::Family::v6, p.addr, p.len};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  // model: prefix -> (peer, path) -> origin; answers as the sink reports
  std::map<Key, std::map<std::pair<uint32_t, uint32_t>, uint32_t>> model;
  std::map<Key, uint32_t> answers;
  lpm::PeerTable table([&](const lpm::Prefix4or6 &p, const uint32_t *o) {
    if (o)
      answers[key_of(p)] = *o;
    else if (!answers.erase(key_of(p)))
      abort();  // a withdrawn answer that was never given
  });
  lpm::UpdateReader *reader = nullptr;
  lpm::UpdateReader r(
      [&](const lpm::RouteChange &c) {
        if (c.peer >= reader->peers()) abort();
        if (c.kind == lpm::RouteChange::down) {
          for (auto &[k, by_peer] : model)
            std::erase_if(by_peer, [&](const auto &x) {
              return x.first.first == c.peer;
            });
        } else {
          unsigned w = lpm::width(c.prefix.family);
          if (c.prefix.len > w ||
              lpm::mask_to(c.prefix.addr, c.prefix.len) != c.prefix.addr)
            abort();
          auto &routes = model[key_of(c.prefix)];
          if (c.kind == lpm::RouteChange::announce && c.has_origin)
            routes[{c.peer, c.path}] = c.origin;
          else if (c.kind == lpm::RouteChange::announce)
            routes.erase({c.peer, c.path});  // replaced by no route of its own
          else if (!routes.erase({c.peer, c.path}) == table.apply(c))
            abort();  // refused exactly when the model had no such route
        }
        if (c.kind != lpm::RouteChange::withdraw) table.apply(c);
      },
      size && data[0] % 2 ? UINT64_MAX : uint64_t{1} << 31);
  reader = &r;
  std::string error, warning;
  bool ok = r.read(bytes, "f", error, warning);
  if (ok == !error.empty()) abort();
  for (const auto &[k, routes] : model) {
    auto a = answers.find(k);
    if (routes.empty() != (a == answers.end())) abort();
    if (!routes.empty() && routes.begin()->second != a->second) abort();
  }
  return 0;
}

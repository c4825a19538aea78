// IPv4 compiled forwarding table: the C interface over the shared table
// engine. The root indexes the top 18 key bits (1 MiB of root words), so
// most keys inside a /24 or shorter prefix reach their answer through at
// most one node.
#include "api.h"
#include "fib/construct.h"
#include "fib/lookup.h"
#include "sc_btrie.h"
#include "trie/ipv4.h"

struct sc_btrie_fib : vds::fib::Table {};

namespace {

struct Fib4 : vds::fib::Shape<vds::trie::Ipv4, 18> {
  using Fib = sc_btrie_fib;
  static constexpr char kModule[] = "lib/pfe/ds/src/sc_btrie_fib";
  static constexpr char kConstruct[] = "sc_btrie_fib_construct";
};

}  // namespace

VDS_API sc_btrie_fib *sc_btrie_fib_construct(void *sz_ctx, const sc_btrie *trie,
                                             uint32_t miss) {
  return vds::fib::construct<VDS_AT(Fib4)>(sz_ctx, trie, miss);
}

VDS_API void sc_btrie_fib_destruct(sc_btrie_fib *fib) {
  vds::fib::destruct<VDS_AT(Fib4)>(fib);
}

namespace {

[[gnu::always_inline]] inline uint32_t lookup(const sc_btrie_fib *fib,
                                              uint32_t key) {
  const uint32_t k[2] = {key, 0};
  return vds::fib::lookup<Fib4>(fib, k);
}

[[gnu::always_inline]] inline void lookup_bulk(const sc_btrie_fib *fib,
                                               const uint32_t *keys,
                                               uint32_t *data, uint32_t n) {
  vds::fib::lookup_bulk<Fib4>(fib, keys, data, n);
}

}  // namespace

VDS_API_POPCOUNT(uint32_t, sc_btrie_fib_lookup,
                 (const sc_btrie_fib *fib, uint32_t key), (fib, key), lookup);
VDS_API_POPCOUNT(void, sc_btrie_fib_lookup_bulk,
                 (const sc_btrie_fib *fib, const uint32_t *keys, uint32_t *data,
                  uint32_t n),
                 (fib, keys, data, n), lookup_bulk);

VDS_API uint32_t sc_btrie_fib_memory_usage(const sc_btrie_fib *fib) {
  return vds::fib::memory_usage<Fib4>(fib);
}

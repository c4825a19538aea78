// IPv6 compiled forwarding table: the C interface over the shared table
// engine. The root indexes the top 18 key bits (1 MiB of root words), a
// width chosen by measurement on a real table against 12 to 16 and 20 bits.
#include "api.h"
#include "fib/construct.h"
#include "fib/lookup.h"
#include "sc_btrie6.h"
#include "trie/ipv6.h"

struct sc_btrie6_fib : vds::fib::Table {};

namespace {

struct Fib6 : vds::fib::Shape<vds::trie::Ipv6, 18> {
  using Fib = sc_btrie6_fib;
  static constexpr char kModule[] = "lib/pfe/ds/src/sc_btrie6_fib";
  static constexpr char kConstruct[] = "sc_btrie6_fib_construct";
};

}  // namespace

VDS_API sc_btrie6_fib *sc_btrie6_fib_construct(void *sz_ctx,
                                               const sc_btrie6 *trie,
                                               uint32_t miss) {
  return vds::fib::construct<VDS_AT(Fib6)>(sz_ctx, trie, miss);
}

VDS_API void sc_btrie6_fib_destruct(sc_btrie6_fib *fib) {
  vds::fib::destruct<VDS_AT(Fib6)>(fib);
}

namespace {

[[gnu::always_inline]] inline uint32_t lookup(const sc_btrie6_fib *fib,
                                              const uint32_t key[4]) {
  const uint32_t k[5] = {key[0], key[1], key[2], key[3], 0};
  return vds::fib::lookup<Fib6>(fib, k);
}

[[gnu::always_inline]] inline void lookup_bulk(const sc_btrie6_fib *fib,
                                               const uint32_t (*keys)[4],
                                               uint32_t *data, uint32_t n) {
  vds::fib::lookup_bulk<Fib6>(fib, reinterpret_cast<const uint32_t *>(keys),
                              data, n);
}

}  // namespace

VDS_API_POPCOUNT(uint32_t, sc_btrie6_fib_lookup,
                 (const sc_btrie6_fib *fib, const uint32_t key[4]), (fib, key),
                 lookup);
VDS_API_POPCOUNT(void, sc_btrie6_fib_lookup_bulk,
                 (const sc_btrie6_fib *fib, const uint32_t (*keys)[4],
                  uint32_t *data, uint32_t n),
                 (fib, keys, data, n), lookup_bulk);

VDS_API uint32_t sc_btrie6_fib_memory_usage(const sc_btrie6_fib *fib) {
  return vds::fib::memory_usage<Fib6>(fib);
}

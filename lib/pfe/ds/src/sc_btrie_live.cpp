// IPv4 live table: the C interface over the shared live engine, on the
// frozen table's layout (an 18-bit root).
#include "api.h"
#include "live/live.h"
#include "sc_btrie.h"
#include "trie/ipv4.h"

namespace {

struct Live4 : vds::fib::Shape<vds::trie::Ipv4, 18> {
  using Live = struct ::sc_btrie_live;
  static constexpr char kModule[] = "lib/pfe/ds/src/sc_btrie_live";
  static constexpr char kConstruct[] = "sc_btrie_live_construct";
  static constexpr vds::live::Ops kOps = {
      .set = "sc_btrie_live_set",
      .remove = "sc_btrie_live_remove",
      .publish = "sc_btrie_live_publish",
      .reader_register = "sc_btrie_live_reader_register",
      .reader_unregister = "sc_btrie_live_reader_unregister",
      .quiescent = "sc_btrie_live_quiescent",
  };
};

}  // namespace

struct sc_btrie_live : vds::live::State<Live4> {};

using vds::live::published;

VDS_API sc_btrie_live *sc_btrie_live_construct(void *sz_ctx, uint32_t miss,
                                               uint32_t max_readers) {
  return vds::live::construct<VDS_AT(Live4)>(sz_ctx, miss, max_readers);
}

VDS_API void sc_btrie_live_destruct(sc_btrie_live *live) {
  vds::live::destruct<VDS_AT(Live4)>(live);
}

VDS_API int sc_btrie_live_set(sc_btrie_live *live, uint32_t addr, uint32_t len,
                              uint32_t data) {
  return vds::live::set<VDS_AT(Live4)>(live, &addr, len, data);
}

VDS_API int sc_btrie_live_remove(sc_btrie_live *live, uint32_t addr,
                                 uint32_t len) {
  return vds::live::remove<VDS_AT(Live4)>(live, &addr, len);
}

VDS_API int sc_btrie_live_publish(sc_btrie_live *live) {
  return vds::live::publish<VDS_AT(Live4)>(live);
}

VDS_API uint32_t sc_btrie_live_size(const sc_btrie_live *live) {
  return live->record.size();
}

VDS_API uint32_t sc_btrie_live_memory_usage(const sc_btrie_live *live) {
  return vds::live::memory_usage<Live4>(live);
}

VDS_API int sc_btrie_live_reader_register(sc_btrie_live *live) {
  return vds::live::reader_register<VDS_AT(Live4)>(live);
}

VDS_API void sc_btrie_live_reader_unregister(sc_btrie_live *live, int reader) {
  vds::live::reader_unregister<VDS_AT(Live4)>(live, reader);
}

VDS_API void sc_btrie_live_quiescent(sc_btrie_live *live, int reader) {
  vds::live::quiescent<VDS_AT(Live4)>(live, reader);
}

namespace {

[[gnu::always_inline]] inline uint32_t lookup(const sc_btrie_live *live,
                                              uint32_t key) {
  const uint32_t k[2] = {key, 0};
  return vds::live::lookup<Live4>(published(live), k);
}

[[gnu::always_inline]] inline void lookup_bulk(const sc_btrie_live *live,
                                               const uint32_t *keys,
                                               uint32_t *data, uint32_t n) {
  vds::live::lookup_bulk<Live4>(published(live), keys, data, n);
}

}  // namespace

VDS_API_POPCOUNT(uint32_t, sc_btrie_live_lookup,
                 (const sc_btrie_live *live, uint32_t key), (live, key),
                 lookup);
VDS_API_POPCOUNT(void, sc_btrie_live_lookup_bulk,
                 (const sc_btrie_live *live, const uint32_t *keys,
                  uint32_t *data, uint32_t n),
                 (live, keys, data, n), lookup_bulk);

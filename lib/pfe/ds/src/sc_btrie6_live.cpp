// IPv6 live table: the C interface over the shared live engine, on the
// frozen table's layout (an 18-bit root).
#include "api.h"
#include "live/live.h"
#include "sc_btrie6.h"
#include "trie/ipv6.h"

namespace {

struct Live6 : vds::fib::Shape<vds::trie::Ipv6, 18> {
  using Live = struct ::sc_btrie6_live;
  static constexpr char kModule[] = "lib/pfe/ds/src/sc_btrie6_live";
  static constexpr char kConstruct[] = "sc_btrie6_live_construct";
  static constexpr vds::live::Ops kOps = {
      .set = "sc_btrie6_live_set",
      .remove = "sc_btrie6_live_remove",
      .publish = "sc_btrie6_live_publish",
      .reader_register = "sc_btrie6_live_reader_register",
      .reader_unregister = "sc_btrie6_live_reader_unregister",
      .quiescent = "sc_btrie6_live_quiescent",
  };
};

}  // namespace

struct sc_btrie6_live : vds::live::State<Live6> {};

using vds::live::published;

VDS_API sc_btrie6_live *sc_btrie6_live_construct(void *sz_ctx, uint32_t miss,
                                                 uint32_t max_readers) {
  return vds::live::construct<VDS_AT(Live6)>(sz_ctx, miss, max_readers);
}

VDS_API void sc_btrie6_live_destruct(sc_btrie6_live *live) {
  vds::live::destruct<VDS_AT(Live6)>(live);
}

VDS_API int sc_btrie6_live_set(sc_btrie6_live *live, const uint32_t addr[4],
                               uint32_t len, uint32_t data) {
  return vds::live::set<VDS_AT(Live6)>(live, addr, len, data);
}

VDS_API int sc_btrie6_live_remove(sc_btrie6_live *live, const uint32_t addr[4],
                                  uint32_t len) {
  return vds::live::remove<VDS_AT(Live6)>(live, addr, len);
}

VDS_API int sc_btrie6_live_publish(sc_btrie6_live *live) {
  return vds::live::publish<VDS_AT(Live6)>(live);
}

VDS_API uint32_t sc_btrie6_live_size(const sc_btrie6_live *live) {
  return live->record.size();
}

VDS_API uint32_t sc_btrie6_live_memory_usage(const sc_btrie6_live *live) {
  return vds::live::memory_usage<Live6>(live);
}

VDS_API int sc_btrie6_live_reader_register(sc_btrie6_live *live) {
  return vds::live::reader_register<VDS_AT(Live6)>(live);
}

VDS_API void sc_btrie6_live_reader_unregister(sc_btrie6_live *live,
                                              int reader) {
  vds::live::reader_unregister<VDS_AT(Live6)>(live, reader);
}

VDS_API void sc_btrie6_live_quiescent(sc_btrie6_live *live, int reader) {
  vds::live::quiescent<VDS_AT(Live6)>(live, reader);
}

namespace {

[[gnu::always_inline]] inline uint32_t lookup(const sc_btrie6_live *live,
                                              const uint32_t key[4]) {
  const uint32_t k[5] = {key[0], key[1], key[2], key[3], 0};
  return vds::live::lookup<Live6>(published(live), k);
}

[[gnu::always_inline]] inline void lookup_bulk(const sc_btrie6_live *live,
                                               const uint32_t (*keys)[4],
                                               uint32_t *data, uint32_t n) {
  vds::live::lookup_bulk<Live6>(
      published(live), reinterpret_cast<const uint32_t *>(keys), data, n);
}

}  // namespace

VDS_API_POPCOUNT(uint32_t, sc_btrie6_live_lookup,
                 (const sc_btrie6_live *live, const uint32_t key[4]),
                 (live, key), lookup);
VDS_API_POPCOUNT(void, sc_btrie6_live_lookup_bulk,
                 (const sc_btrie6_live *live, const uint32_t (*keys)[4],
                  uint32_t *data, uint32_t n),
                 (live, keys, data, n), lookup_bulk);

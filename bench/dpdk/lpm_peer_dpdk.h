// DPDK's rte_lpm (IPv4) and rte_lpm6 (IPv6) behind the face the benchmark
// measures: build from the same entries, single and bulk lookups writing
// the next hop or 0 for a miss, and the memory the table took.
#pragma once

#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_lpm.h>
#include <rte_lpm6.h>
#include <rte_malloc.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "lpm_trie.h"

namespace peer {

using lpm::Addr;

// Starts DPDK's environment without hugepages, devices or shared files.
inline bool start(std::string &why) {
  const char *args[] = {"bench_lpm", "--no-huge",      "-m",          "2048",
                        "--no-pci",  "--no-telemetry", "--no-shconf", "-l",
                        "0",         "--log-level",    "*:warning"};
  int argc = sizeof args / sizeof *args;
  if (rte_eal_init(argc, const_cast<char **>(args)) < 0) {
    why = std::string("rte_eal_init: ") + rte_strerror(rte_errno);
    return false;
  }
  return true;
}

inline uint64_t heap_bytes() {
  rte_malloc_socket_stats s;
  rte_malloc_get_socket_stats(0, &s);
  return s.heap_allocsz_bytes;
}

// Second-level groups a table needs: one per distinct first `d` bits among
// prefixes longer than d, for each group boundary d.
template <class F>
uint32_t groups_needed(const std::vector<typename F::entry> &in,
                       std::initializer_list<unsigned> bounds) {
  size_t total = 0;
  for (unsigned d : bounds) {
    std::set<Addr> seen;
    for (const auto &e : in)
      if (e.len > d) seen.insert(lpm::mask_to(lpm::record_addr<F>(e), d));
    total += seen.size();
  }
  return static_cast<uint32_t>(total + 16);
}

template <class F>
struct Peer;

template <>
struct Peer<vell::trie4_family> {
  static constexpr const char *kName = "rte_lpm";
  rte_lpm *t = nullptr;

  bool build(const std::vector<vell::trie4_family::entry> &in,
             std::string &why) {
    rte_lpm_config c{};
    c.max_rules = static_cast<uint32_t>(in.size());
    c.number_tbl8s = groups_needed<vell::trie4_family>(in, {24});
    t = rte_lpm_create("bench4", 0, &c);
    if (!t) return (why = rte_strerror(rte_errno)), false;
    for (const auto &e : in)
      if (int r = rte_lpm_add(t, e.addr, static_cast<uint8_t>(e.len), e.data))
        return (why = "rte_lpm_add: " + std::string(rte_strerror(-r))), false;
    return true;
  }
  ~Peer() { rte_lpm_free(t); }

  using Keys = std::vector<uint32_t>;  // the peer's own form already
  static Keys convert(const Keys &k) { return k; }

  void lookup(const Keys &k, uint32_t *d, size_t n) const {
    for (size_t i = 0; i < n; ++i)
      if (rte_lpm_lookup(t, k[i], &d[i]) != 0) d[i] = 0;
  }
  // The bulk lookup marks a hit with a flag bit beside the next hop.
  void lookup_bulk(const Keys &k, uint32_t *d, size_t n, uint32_t batch) const {
    for (size_t i = 0; i < n; i += batch) {
      unsigned m = static_cast<unsigned>(std::min<size_t>(batch, n - i));
      rte_lpm_lookup_bulk(t, &k[i], &d[i], m);
      for (unsigned j = 0; j < m; ++j)
        d[i + j] = d[i + j] & RTE_LPM_LOOKUP_SUCCESS ? d[i + j] & 0xFFFFFF : 0;
    }
  }
};

template <>
struct Peer<vell::trie6_family> {
  static constexpr const char *kName = "rte_lpm6";
  rte_lpm6 *t = nullptr;

  static void bytes(const uint32_t *w, uint8_t out[16]) {
    for (unsigned i = 0; i < 16; ++i)
      out[i] = static_cast<uint8_t>(w[i / 4] >> (24 - 8 * (i % 4)));
  }

  bool build(const std::vector<vell::trie6_family::entry> &in,
             std::string &why) {
    rte_lpm6_config c{};
    c.max_rules = static_cast<uint32_t>(in.size());
    c.number_tbl8s = groups_needed<vell::trie6_family>(
        in, {24, 32, 40, 48, 56, 64, 72, 80, 88, 96, 104, 112, 120});
    t = rte_lpm6_create("bench6", 0, &c);
    if (!t) return (why = rte_strerror(rte_errno)), false;
    for (const auto &e : in) {
      uint8_t ip[16];
      bytes(e.addr, ip);
      if (int r = rte_lpm6_add(t, ip, static_cast<uint8_t>(e.len), e.data))
        return (why = "rte_lpm6_add: " + std::string(rte_strerror(-r))), false;
    }
    return true;
  }
  ~Peer() { rte_lpm6_free(t); }

  // Keys in the peer's own form (network byte order), made before timing.
  using Keys = std::vector<std::array<uint8_t, 16>>;
  static Keys convert(const std::vector<vell::trie6_family::key> &keys) {
    Keys out(keys.size());
    for (size_t i = 0; i < keys.size(); ++i)
      bytes(keys[i].data(), out[i].data());
    return out;
  }
  void lookup(const Keys &k, uint32_t *d, size_t n) const {
    for (size_t i = 0; i < n; ++i)
      if (rte_lpm6_lookup(t, k[i].data(), &d[i]) != 0) d[i] = 0;
  }
  // The bulk lookup writes -1 for a miss. Batches of at most 256.
  void lookup_bulk(const Keys &k, uint32_t *d, size_t n, uint32_t batch) const {
    int32_t hop[256];
    for (size_t i = 0; i < n; i += batch) {
      unsigned m = static_cast<unsigned>(std::min<size_t>(batch, n - i));
      rte_lpm6_lookup_bulk_func(
          t,
          reinterpret_cast<uint8_t(*)[16]>(const_cast<uint8_t *>(k[i].data())),
          hop, m);
      for (unsigned j = 0; j < m; ++j)
        d[i + j] = hop[j] < 0 ? 0 : static_cast<uint32_t>(hop[j]);
    }
  }
};

}  // namespace peer

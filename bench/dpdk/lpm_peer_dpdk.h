// DPDK's rte_lpm (IPv4) and rte_lpm6 (IPv6) behind the face the benchmarks
// measure: build from the same entries, add and remove single prefixes,
// single and bulk lookups writing the next hop or 0 for a miss, the memory
// the table took, and for rte_lpm its quiescent-state reclamation for
// readers that run while the table changes.
#pragma once

#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_lpm.h>
#include <rte_lpm6.h>
#include <rte_malloc.h>
#include <rte_rcu_qsbr.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <vector>

#include "lpm_trie.h"

namespace peer {

using lpm::Addr;

// Starts DPDK's environment without hugepages, devices or shared files.
inline bool start(const char *prog, std::string &why) {
  const char *args[] = {prog,       "--no-huge",      "-m",          "2048",
                        "--no-pci", "--no-telemetry", "--no-shconf", "-l",
                        "0",        "--log-level",    "*:warning"};
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

// What both peers do alike over their own add and single-batch lookup.
template <class F, class Impl>
struct PeerBase {
  // Creates the table for `in` (and spare_groups more second-level
  // groups) and adds every entry.
  bool build(const std::vector<typename F::entry> &in, std::string &why,
             uint32_t spare_groups = 0) {
    Impl &self = static_cast<Impl &>(*this);
    if (!self.create(in, spare_groups, why)) return false;
    for (const auto &e : in)
      if (int r = self.add(e, e.data))
        return (why = std::string(Impl::kName) + "_add: " + rte_strerror(-r)),
               false;
    return true;
  }
  template <class Keys>
  void lookup_bulk(const Keys &k, uint32_t *d, size_t n, uint32_t batch) const {
    for (size_t i = 0; i < n; i += batch)
      static_cast<const Impl &>(*this).lookup_batch(
          &k[i], &d[i], static_cast<unsigned>(std::min<size_t>(batch, n - i)));
  }
};

template <class F>
struct Peer;

template <>
struct Peer<vell::trie4_family>
    : PeerBase<vell::trie4_family, Peer<vell::trie4_family>> {
  static constexpr const char *kName = "rte_lpm";
  static constexpr uint32_t kMaxHop = 0xFFFFFF;  // 24 bits of next hop
  static constexpr bool kHasRcu = true;
  rte_lpm *t = nullptr;
  rte_rcu_qsbr *qsbr = nullptr;

  bool create(const std::vector<vell::trie4_family::entry> &in,
              uint32_t spare_groups, std::string &why) {
    rte_lpm_config c{};
    c.max_rules = static_cast<uint32_t>(in.size());
    c.number_tbl8s = groups_needed<vell::trie4_family>(in, {24}) + spare_groups;
    t = rte_lpm_create("bench4", 0, &c);
    if (!t) return (why = rte_strerror(rte_errno)), false;
    return true;
  }
  ~Peer() {
    rte_lpm_free(t);
    rte_free(qsbr);
  }

  int add(const vell::trie4_family::entry &e, uint32_t data) {
    return rte_lpm_add(t, e.addr, static_cast<uint8_t>(e.len), data);
  }
  int remove(const vell::trie4_family::entry &e) {
    return rte_lpm_delete(t, e.addr, static_cast<uint8_t>(e.len));
  }
  void clear() { rte_lpm_delete_all(t); }

  // Quiescent-state reclamation for up to max_threads readers: a group the
  // writer frees is reused only once every online reader has been
  // quiescent since.
  bool attach_rcu(unsigned max_threads, std::string &why) {
    size_t size = rte_rcu_qsbr_get_memsize(max_threads);
    qsbr = static_cast<rte_rcu_qsbr *>(
        rte_zmalloc("bench4_qsbr", size, RTE_CACHE_LINE_SIZE));
    if (!qsbr) return (why = "rte_zmalloc: no memory"), false;
    rte_rcu_qsbr_init(qsbr, max_threads);
    rte_lpm_rcu_config rc{};
    rc.v = qsbr;
    rc.mode = RTE_LPM_QSBR_MODE_DQ;
    if (rte_lpm_rcu_qsbr_add(t, &rc) != 0)
      return (why = std::string("rte_lpm_rcu_qsbr_add: ") +
                    rte_strerror(rte_errno)),
             false;
    return true;
  }
  void reader_online(unsigned id) {
    rte_rcu_qsbr_thread_register(qsbr, id);
    rte_rcu_qsbr_thread_online(qsbr, id);
  }
  void quiescent(unsigned id) { rte_rcu_qsbr_quiescent(qsbr, id); }
  void reader_offline(unsigned id) {
    rte_rcu_qsbr_thread_offline(qsbr, id);
    rte_rcu_qsbr_thread_unregister(qsbr, id);
  }

  using Keys = std::vector<uint32_t>;  // the peer's own form already
  static Keys convert(const Keys &k) { return k; }

  void lookup(const Keys &k, uint32_t *d, size_t n) const {
    for (size_t i = 0; i < n; ++i)
      if (rte_lpm_lookup(t, k[i], &d[i]) != 0) d[i] = 0;
  }
  // The bulk lookup marks a hit with a flag bit beside the next hop.
  void lookup_batch(const uint32_t *k, uint32_t *d, unsigned m) const {
    rte_lpm_lookup_bulk(t, k, d, m);
    for (unsigned j = 0; j < m; ++j)
      d[j] = d[j] & RTE_LPM_LOOKUP_SUCCESS ? d[j] & kMaxHop : 0;
  }
};

template <>
struct Peer<vell::trie6_family>
    : PeerBase<vell::trie6_family, Peer<vell::trie6_family>> {
  static constexpr const char *kName = "rte_lpm6";
  static constexpr uint32_t kMaxHop = 0x1FFFFF;  // 21 bits of next hop
  static constexpr bool kHasRcu = false;         // no reclamation for readers
  rte_lpm6 *t = nullptr;

  static void bytes(const uint32_t *w, uint8_t out[16]) {
    for (unsigned i = 0; i < 16; ++i)
      out[i] = static_cast<uint8_t>(w[i / 4] >> (24 - 8 * (i % 4)));
  }

  bool create(const std::vector<vell::trie6_family::entry> &in,
              uint32_t spare_groups, std::string &why) {
    rte_lpm6_config c{};
    c.max_rules = static_cast<uint32_t>(in.size());
    c.number_tbl8s =
        groups_needed<vell::trie6_family>(
            in, {24, 32, 40, 48, 56, 64, 72, 80, 88, 96, 104, 112, 120}) +
        spare_groups;
    t = rte_lpm6_create("bench6", 0, &c);
    if (!t) return (why = rte_strerror(rte_errno)), false;
    return true;
  }
  ~Peer() { rte_lpm6_free(t); }

  int add(const vell::trie6_family::entry &e, uint32_t data) {
    uint8_t ip[16];
    bytes(e.addr, ip);
    return rte_lpm6_add(t, ip, static_cast<uint8_t>(e.len), data);
  }
  int remove(const vell::trie6_family::entry &e) {
    uint8_t ip[16];
    bytes(e.addr, ip);
    return rte_lpm6_delete(t, ip, static_cast<uint8_t>(e.len));
  }
  void clear() { rte_lpm6_delete_all(t); }

  // Keys in the peer's own form (network byte order), made before timing.
  using Key = std::array<uint8_t, 16>;
  using Keys = std::vector<Key>;
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
  // The bulk lookup writes -1 for a miss. At most 256 keys.
  void lookup_batch(const Key *k, uint32_t *d, unsigned m) const {
    int32_t hop[256];
    rte_lpm6_lookup_bulk_func(
        t, reinterpret_cast<uint8_t(*)[16]>(const_cast<uint8_t *>(k->data())),
        hop, m);
    for (unsigned j = 0; j < m; ++j)
      d[j] = hop[j] < 0 ? 0 : static_cast<uint32_t>(hop[j]);
  }
};

}  // namespace peer

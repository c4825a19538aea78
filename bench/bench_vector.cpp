// Add and get rates of sc_vector beside std::vector, for 4-, 16- and 64-byte
// elements, in one run. Each figure is the best of several rounds.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "lpm_clock.h"
#include "sc_host_default.h"
#include "sc_vector.h"

namespace {

constexpr uint32_t kCount = 1u << 20;
constexpr int kRounds = 5;

template <uint32_t N>
struct Elem {
  uint8_t bytes[N];
};

// Best of kRounds runs of body(), which returns a checksum so the work
// cannot be dropped; rates are in millions of operations per second.
template <typename Body>
double best_rate(Body body, uint64_t &sink) {
  double best = 0;
  for (int r = 0; r < kRounds; r++) {
    double rate = kCount / lpm::seconds([&] { sink += body(); }) / 1e6;
    if (rate > best) best = rate;
  }
  return best;
}

// Indexes in a scattered order that stays inside the vector.
std::vector<uint32_t> scattered_indexes() {
  std::vector<uint32_t> idx(kCount);
  uint32_t x = 12345;
  for (uint32_t &i : idx) {
    x = x * 1664525u + 1013904223u;
    i = x % kCount;
  }
  return idx;
}

template <uint32_t N>
void run(const std::vector<uint32_t> &idx, uint64_t &sink) {
  using E = Elem<N>;
  E e;
  memset(&e, 0x5a, sizeof e);

  double sc_add = best_rate(
      [&] {
        sc_vector *v = sc_vector_construct(0, N, 0);
        for (uint32_t i = 0; i < kCount; i++) {
          e.bytes[0] = uint8_t(i);
          sc_vector_add(v, &e);
        }
        uint64_t n = v->nElements;
        sc_vector_destruct(v);
        return n;
      },
      sink);
  double std_add = best_rate(
      [&] {
        std::vector<E> v;
        for (uint32_t i = 0; i < kCount; i++) {
          e.bytes[0] = uint8_t(i);
          v.push_back(e);
        }
        return uint64_t(v.size());
      },
      sink);

  sc_vector *sv = sc_vector_construct(0, N, 0);
  std::vector<E> stdv;
  for (uint32_t i = 0; i < kCount; i++) {
    e.bytes[0] = uint8_t(i);
    sc_vector_add(sv, &e);
    stdv.push_back(e);
  }
  double sc_get = best_rate(
      [&] {
        uint64_t sum = 0;
        for (uint32_t i : idx) {
          void *p;
          sc_vector_get(sv, i, &p);
          sum += static_cast<const E *>(p)->bytes[0];
        }
        return sum;
      },
      sink);
  double std_get = best_rate(
      [&] {
        uint64_t sum = 0;
        for (uint32_t i : idx) sum += stdv[i].bytes[0];
        return sum;
      },
      sink);
  sc_vector_destruct(sv);

  printf("%5u B  %14.1f %14.1f %14.1f %14.1f\n", N, sc_add, std_add, sc_get,
         std_get);
}

}  // namespace

int main() {
  const std::vector<uint32_t> idx = scattered_indexes();
  uint64_t sink = 0;
  printf("%u elements, best of %d rounds, millions of operations per second\n",
         kCount, kRounds);
  printf("element  %14s %14s %14s %14s\n", "add sc_vector", "add std",
         "get sc_vector", "get std");
  run<4>(idx, sink);
  run<16>(idx, sink);
  run<64>(idx, sink);
  printf("(checksum %llu)\n", static_cast<unsigned long long>(sink));
  return sc_host_heap_usage().blocks == 0 ? 0 : 1;
}

// The three chained tables against a std::map: inserts (replacing), finds,
// deletes, walks that may delete what they deliver, delete-all, and per
// family resizing (sc_ohash) or serialisation (sc_hash); every failed
// allocation leaves the table as it was.
#include <map>
#include <string>
#include <vector>

#include "../hash/families.h"
#include "fuzz_support.h"

namespace {

using ht::Bytes;

Bytes consume_bytes(FuzzedDataProvider &in, size_t max) {
  // Few distinct bytes, so keys collide and repeat.
  Bytes s;
  for (size_t n = in.ConsumeIntegralInRange<size_t>(0, max); n--;)
    s += "ab\0\xff"[in.ConsumeIntegralInRange<int>(0, 3)];
  return s;
}

template <class F>
void run(FuzzedDataProvider &in) {
  th::Ctx ctx(in.ConsumeIntegralInRange<uint32_t>(128, 1024));
  uint32_t hint = in.ConsumeIntegralInRange<uint32_t>(0, 64);
  fuzz::begin(in);
  ht::destroyed.clear();
  ht::Table<F> f(F::make(hint, ctx.get()));
  auto destroyed = [] { return long(ht::destroyed.size()); };
  if (!f.t) {
    FUZZ_CHECK(fuzz::failed());
    return fuzz::end();
  }
  std::map<Bytes, Bytes> model;
  std::vector<Bytes> order;  // sc_ohash: keys in list order
  long gone = 0;             // values that left the table
  auto forget = [&](const Bytes &k) {
    model.erase(k);
    ++gone;
    if (F::kListOrder) std::erase(order, k);
  };
  // Walks the table; erases each delivered element when asked.
  auto walk = [&](bool erase_each) {
    auto *it = F::iter_construct(f.t);
    if (!it) return FUZZ_CHECK(fuzz::failed());
    std::vector<Bytes> seen;
    void *k, *v;
    uint32_t ks, vs;
    std::map<Bytes, Bytes> left = model;
    while (F::iter_next(it, &k, &ks, &v, &vs) == 0) {
      Bytes key(static_cast<char *>(k), ks);
      auto m = left.find(key);
      FUZZ_CHECK(m != left.end() && m->second == Bytes((char *)v, vs));
      left.erase(m);
      seen.push_back(key);
      if (erase_each) {
        FUZZ_CHECK(f.erase(key));
        forget(key);
      }
    }
    FUZZ_CHECK(left.empty());
    FUZZ_CHECK(!F::kListOrder || erase_each || seen == order);
    F::iter_destruct(it);
  };

  while (in.remaining_bytes() > 0) {
    Bytes k = consume_bytes(in, 6);
    auto present = model.find(k);
    switch (in.ConsumeIntegralInRange<int>(0, 9)) {
      case 0:
      case 1:
      case 2: {
        Bytes v = consume_bytes(in, 12);
        size_t split = in.ConsumeIntegralInRange<size_t>(0, v.size());
        if (f.insert(k, v, split)) {
          if (present != model.end()) ++gone;
          model[k] = v;
          if (F::kListOrder) {  // a replaced key moves to the end
            std::erase(order, k);
            order.push_back(k);
          }
        } else {
          FUZZ_CHECK(fuzz::failed());
        }
        break;
      }
      case 3:
      case 4:
        FUZZ_CHECK(f.erase(k) == (present != model.end()));
        if (present != model.end()) forget(k);
        break;
      case 5:
      case 6:
        FUZZ_CHECK(f.find(k) == (present != model.end()
                                     ? std::optional(present->second)
                                     : std::nullopt));
        break;
      case 7:
        walk(in.ConsumeBool());
        break;
      case 8:
        if (in.ConsumeIntegralInRange<int>(0, 7) == 0) {
          F::delete_all(f.t);
          gone += model.size();
          model.clear();
          order.clear();
        }
        break;
      default:
        if constexpr (std::is_same_v<F, ht::Ohash>) {
          // Growth stops at 4096 buckets, where repeated doubling would
          // only spend the fuzzer's memory.
          uint32_t was = f.t->n_buckets;
          int r = in.ConsumeBool() && was < 4096
                      ? sc_ohash_grow(f.t, in.ConsumeIntegralInRange(0, 300))
                      : sc_ohash_shrink(f.t, in.ConsumeIntegralInRange(0, 64));
          FUZZ_CHECK(r == 0 || f.t->n_buckets == was);  // refused: unchanged
        }
        if constexpr (std::is_same_v<F, ht::Hash>) {
          void *buf;
          uint32_t len;
          if (sc_hash_serialize(f.t, &buf, &len) != 0) {
            FUZZ_CHECK(fuzz::failed());
            break;
          }
          // Records of 4-byte little-endian ksz, key, vsz, value.
          std::map<Bytes, Bytes> image;
          const auto *p = static_cast<const unsigned char *>(buf);
          auto word = [&](uint32_t at) {
            return p[at] | p[at + 1] << 8 | p[at + 2] << 16 |
                   uint32_t(p[at + 3]) << 24;
          };
          for (uint32_t at = 0; at < len;) {
            FUZZ_CHECK(len - at >= 4);
            uint32_t ks = word(at);
            FUZZ_CHECK(len - at - 4 >= ks + 4);
            Bytes key((const char *)p + at + 4, ks);
            uint32_t vs = word(at + 4 + ks);
            FUZZ_CHECK(len - at - 8 - ks >= vs);
            image[key] = Bytes((const char *)p + at + 8 + ks, vs);
            at += 8 + ks + vs;
          }
          FUZZ_CHECK(image == model);
          if (buf) __sc_kfree(buf, len);
        }
    }
    FUZZ_CHECK(destroyed() == gone);
    if (fuzz::failed()) th::fail_nth(0);  // one failure per input
  }
  walk(false);
  F::destruct(f.t);
  f.t = nullptr;
  FUZZ_CHECK(destroyed() == gone + long(model.size()));
  fuzz::end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
      run<ht::Hash>(in);
      break;
    case 1:
      run<ht::Ohash>(in);
      break;
    default:
      run<ht::Khash>(in);
  }
  return 0;
}

#include "lpm_source.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#ifdef VELL_LPM_ZLIB
#include <zlib.h>
#endif
#ifdef VELL_LPM_BZIP2
#include <bzlib.h>
#endif

namespace lpm {
namespace {

// Read everything up to the end of file, into a buffer of `expected` bytes
// to start with (a regular file's size) that grows as needed; false with
// errno set on a read error.
bool read_all(int fd, size_t expected, std::string &out) {
  size_t used = 0;
  out.resize(expected + 1);
  for (;;) {
    if (out.size() == used)
      out.resize(std::max<size_t>(out.size() * 2, 1 << 20));
    ssize_t n = read(fd, out.data() + used, out.size() - used);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    used += static_cast<size_t>(n);
  }
  out.resize(used);
  return true;
}

enum class Step { more, end, corrupt };

// One decompressor behind a common step: consume some input, produce some
// output. Each stream of a multi-stream file starts with reset().
struct Codec {
  virtual ~Codec() = default;
  virtual bool reset() = 0;
  virtual Step step(const char *&in, size_t &in_left, char *&out,
                    size_t &out_left) = 0;
};

// zlib and libbz2 count in 32-bit units: feed at most this much per call.
constexpr size_t kChunk = size_t{1} << 30;

// Points a zlib or libbz2 stream (the same four fields) at the buffers,
// runs one decompression call and moves the buffers past what it used.
template <typename Stream, typename Call>
int run_call(Stream &s, const char *&in, size_t &in_left, char *&out,
             size_t &out_left, Call call) {
  s.next_in = reinterpret_cast<decltype(s.next_in)>(const_cast<char *>(in));
  s.avail_in = static_cast<decltype(s.avail_in)>(std::min(in_left, kChunk));
  s.next_out = reinterpret_cast<decltype(s.next_out)>(out);
  s.avail_out = static_cast<decltype(s.avail_out)>(std::min(out_left, kChunk));
  size_t in0 = s.avail_in, out0 = s.avail_out;
  int r = call();
  in += in0 - s.avail_in, in_left -= in0 - s.avail_in;
  out += out0 - s.avail_out, out_left -= out0 - s.avail_out;
  return r;
}

#ifdef VELL_LPM_ZLIB
struct Gzip final : Codec {
  z_stream z{};
  bool open = false;
  ~Gzip() override {
    if (open) inflateEnd(&z);
  }
  bool reset() override {
    if (open) return inflateReset(&z) == Z_OK;
    open = inflateInit2(&z, 15 + 16) == Z_OK;  // gzip wrapper only
    return open;
  }
  Step step(const char *&in, size_t &in_left, char *&out,
            size_t &out_left) override {
    int r = run_call(z, in, in_left, out, out_left,
                     [&] { return inflate(&z, Z_NO_FLUSH); });
    if (r == Z_STREAM_END) return Step::end;
    return r == Z_OK || r == Z_BUF_ERROR ? Step::more : Step::corrupt;
  }
};
#endif

#ifdef VELL_LPM_BZIP2
struct Bzip2 final : Codec {
  bz_stream b{};
  bool open = false;
  ~Bzip2() override {
    if (open) BZ2_bzDecompressEnd(&b);
  }
  bool reset() override {
    if (open) BZ2_bzDecompressEnd(&b);
    b = bz_stream{};
    open = BZ2_bzDecompressInit(&b, 0, 0) == BZ_OK;
    return open;
  }
  Step step(const char *&in, size_t &in_left, char *&out,
            size_t &out_left) override {
    int r = run_call(b, in, in_left, out, out_left,
                     [&] { return BZ2_bzDecompress(&b); });
    if (r == BZ_STREAM_END) return Step::end;
    return r == BZ_OK ? Step::more : Step::corrupt;
  }
};
#endif

// Runs `codec` over every stream of `packed`. A stream cut short keeps what
// it unpacked and sets `warning`; corrupt data is an error.
bool run(Codec &codec, const char *kind, std::string_view name,
         std::string_view packed, std::string &bytes, std::string &warning,
         std::string &error, size_t limit) {
  std::string out(
      std::min<size_t>(std::max<size_t>(packed.size() * 4, 4096), limit + 1),
      '\0');
  const char *in = packed.data();
  size_t in_left = packed.size(), used = 0;
  auto fail = [&](const char *what) {
    error = std::string(name) + ": " + kind + " data " + what + " after " +
            std::to_string(packed.size() - in_left) + " of " +
            std::to_string(packed.size()) + " bytes";
    return false;
  };
  bool in_stream = false;
  while (in_left > 0 || in_stream) {
    if (!in_stream) {
      if (!codec.reset()) return fail("could not be unpacked (out of memory)");
      in_stream = true;
    }
    if (used == out.size()) {
      if (out.size() > limit) return fail("unpacks beyond the size limit");
      out.resize(std::min(out.size() * 2, limit + 1));
    }
    char *o = out.data() + used;
    size_t o_left = out.size() - used, in_before = in_left;
    Step s = codec.step(in, in_left, o, o_left);
    size_t made = out.size() - used - o_left;
    used += made;
    if (s == Step::corrupt) return fail("is corrupt");
    if (s == Step::end) {
      in_stream = false;
    } else if (in_left == 0 && made == 0 && in_before == 0) {
      warning = std::string(name) + ": " + kind + " data cut short: read the " +
                std::to_string(used) + " bytes it unpacks to";
      break;
    }
  }
  if (used > limit) return fail("unpacks beyond the size limit");
  out.resize(used);
  bytes = std::move(out);
  return true;
}

bool starts_with(std::string_view s, std::string_view magic) {
  return s.substr(0, magic.size()) == magic;
}

}  // namespace

bool reads_gzip() {
#ifdef VELL_LPM_ZLIB
  return true;
#else
  return false;
#endif
}

bool reads_bzip2() {
#ifdef VELL_LPM_BZIP2
  return true;
#else
  return false;
#endif
}

bool unpack(std::string_view name, std::string &bytes, std::string &warning,
            std::string &error, size_t limit) {
  std::string packed = std::move(bytes);
  bytes.clear();
  [[maybe_unused]] auto unsupported = [&](const char *kind) {
    error = std::string(name) + ": " + kind +
            " data, which this build of vell-lpm cannot unpack";
    return false;
  };
  if (starts_with(packed, "\x1f\x8b")) {
#ifdef VELL_LPM_ZLIB
    Gzip codec;
    return run(codec, "gzip", name, packed, bytes, warning, error, limit);
#else
    return unsupported("gzip");
#endif
  }
  if (starts_with(packed, "BZh")) {
#ifdef VELL_LPM_BZIP2
    Bzip2 codec;
    return run(codec, "bzip2", name, packed, bytes, warning, error, limit);
#else
    return unsupported("bzip2");
#endif
  }
  bytes = std::move(packed);
  return true;
}

bool read_source(const std::string &path, Source &out, std::string &error) {
  bool is_stdin = path == "-";
  out.name = is_stdin ? "<stdin>" : path;
  int fd = is_stdin ? 0 : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  auto fail = [&](const std::string &why) {
    error = out.name + ": " + why;
    if (fd > 0) close(fd);
    return false;
  };
  if (fd < 0) {
    if (errno == ENOENT) return fail("no such file");
    if (errno == EACCES) return fail("permission denied: cannot read it");
    return fail(strerror(errno));
  }
  struct stat st;
  if (fstat(fd, &st) != 0) st.st_mode = 0;
  if (S_ISDIR(st.st_mode)) return fail("is a directory, not a table file");
  size_t expected = S_ISREG(st.st_mode) ? static_cast<size_t>(st.st_size) : 0;
  if (!read_all(fd, expected, out.bytes))
    return fail(std::string("read error: ") + strerror(errno));
  if (fd > 0) close(fd);
  fd = -1;
  // At most 4 GB unpacked on 64-bit hosts, 1 GB on 32-bit ones.
  constexpr size_t limit =
      sizeof(size_t) > 4 ? size_t{1} << 32 : size_t{1} << 30;
  if (!unpack(out.name, out.bytes, out.warning, error, limit)) return false;
  // A UTF-8 byte-order mark, as some editors write, is no part of the text.
  if (out.bytes.starts_with("\xef\xbb\xbf")) out.bytes.erase(0, 3);
  return true;
}

}  // namespace lpm

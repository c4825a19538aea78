// Table input as bytes: a file or stdin read whole, and unpacked when it is
// gzip or bzip2 data (recognised by its magic bytes, whatever its name).
#pragma once

#include <string>
#include <string_view>

namespace lpm {

struct Source {
  std::string name;     // as messages name it: the path, or "<stdin>"
  std::string bytes;    // unpacked
  std::string warning;  // non-empty when compressed data was cut short
};

// Reads `path` ("-" for stdin) into `out`. False with a message naming the
// file in `error` when it is missing, a directory, unreadable, or holds
// compressed data that is corrupt (not merely cut short: then what unpacked
// is kept and `out.warning` says so). A UTF-8 byte-order mark at the start
// of the (unpacked) bytes is dropped.
bool read_source(const std::string &path, Source &out, std::string &error);

// Unpacks `packed` when it starts with a gzip or bzip2 magic; otherwise
// leaves it as it is. Output beyond `limit` bytes is refused as corrupt
// (a guard against decompression bombs). Same results as read_source.
bool unpack(std::string_view name, std::string &bytes, std::string &warning,
            std::string &error, size_t limit);

// True when this build reads each kind of compressed input.
bool reads_gzip();
bool reads_bzip2();

}  // namespace lpm

// The fixed message texts of one hash family, with the arguments each
// takes. Each family states its own table.
#pragma once

namespace vds::hash {

struct Texts {
  const char *construct;  // operation names, for "%s" messages
  const char *insert;
  const char *record_failed;   // SizeArg record size
  const char *buckets_failed;  // %d array size
  const char *insert_failed;   // %d element size
  const char *iter_failed;     // SizeArg iterator size
  const char *corrupt;         // Addr element
  const char *dump_head;       // Addr table
  const char *dump_element;    // Addr element, four key and four value bytes
  const char *dump_odd;        // Addr element
};

}  // namespace vds::hash

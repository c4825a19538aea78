#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "lpm_source.h"

namespace {

using namespace lpm;

const std::string kData = std::string(VELL_SOURCE_DIR) + "/data/pyasn/";

std::string temp_file(const std::string &bytes) {
  char path[] = "/tmp/vell-lpm-source-XXXXXX";
  int fd = mkstemp(path);
  EXPECT_GE(fd, 0);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()),
            static_cast<ssize_t>(bytes.size()));
  close(fd);
  return path;
}

std::string file_bytes(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Directories and missing files: cli_test.sh.
TEST(Source, AnUnreadableFileSaysSoAndAReadableOneReadsWhole) {
  Source s;
  std::string error;
  if (geteuid() != 0) {  // root reads any file
    std::string path = temp_file("10.0.0.0/8\n");
    chmod(path.c_str(), 0);
    EXPECT_FALSE(read_source(path, s, error));
    EXPECT_EQ(error, path + ": permission denied: cannot read it");
    unlink(path.c_str());
  }
  std::string plain = temp_file("10.0.0.0/8 1\n");
  ASSERT_TRUE(read_source(plain, s, error)) << error;
  EXPECT_EQ(s.bytes, "10.0.0.0/8 1\n");
  EXPECT_EQ(s.warning, "");
  unlink(plain.c_str());
}

TEST(Source, GzipIsUnpackedWholeEvenAcrossMembers) {
  if (!reads_gzip()) GTEST_SKIP() << "built without zlib";
  std::string gz = file_bytes(kData + "ipasn_20140513.dat.gz");
  std::string bytes = gz + gz, warning, error;
  ASSERT_TRUE(unpack("t", bytes, warning, error, size_t{1} << 30)) << error;
  EXPECT_EQ(warning, "");
  ASSERT_EQ(bytes.size() % 2, 0u);
  EXPECT_EQ(bytes.substr(0, 19), "; IP-ASN32-DAT file");
  EXPECT_EQ(bytes.substr(0, bytes.size() / 2), bytes.substr(bytes.size() / 2));

  // Cut short: what unpacked is kept, with a warning.
  std::string cut = gz.substr(0, gz.size() / 2);
  ASSERT_TRUE(unpack("t", cut, warning, error, size_t{1} << 30)) << error;
  EXPECT_GT(cut.size(), 1000000u);
  EXPECT_EQ(warning, "t: gzip data cut short: read the " +
                         std::to_string(cut.size()) + " bytes it unpacks to");

  // Corrupt, and beyond the size limit: errors.
  std::string bad = gz;
  for (size_t i = 100; i < 200; ++i) bad[i] = 'x';
  EXPECT_FALSE(unpack("t", bad, warning, error, size_t{1} << 30));
  EXPECT_EQ(error.substr(0, 24), "t: gzip data is corrupt ");
  std::string big = gz;
  EXPECT_FALSE(unpack("t", big, warning, error, 1000));
  EXPECT_EQ(error.substr(0, 41), "t: gzip data unpacks beyond the size limi");
}

TEST(Source, TheCutBzip2DumpUnpacksToItsWholeBlocksWithAWarning) {
  if (!reads_bzip2()) GTEST_SKIP() << "built without libbz2";
  Source s;
  std::string error;
  ASSERT_TRUE(read_source(kData + "rib.20140523.0600_firstMB.bz2", s, error))
      << error;
  EXPECT_EQ(s.bytes.size(), 15274550u);
  EXPECT_EQ(s.warning, kData +
                           "rib.20140523.0600_firstMB.bz2: bzip2 data cut "
                           "short: read the 15274550 bytes it unpacks to");
  std::string bad = "BZh9" + std::string(100, 'x'), warning;
  EXPECT_FALSE(unpack("b", bad, warning, error, 1 << 20));
  EXPECT_EQ(error, "b: bzip2 data is corrupt after 5 of 104 bytes");
}

}  // namespace

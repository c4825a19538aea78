#include <gtest/gtest.h>

#include "lpm_table.h"
#include "table_listing.h"

namespace {

using namespace lpm;

TEST(TableLines, PrefixAndRangeLinesOfBothFamilies) {
  Table t;
  std::string why;
  const char *good[] = {
      "# a comment",
      "",
      "   \t",
      "10.0.0.0/8 7",
      "192.168.1.0/24   # no data: its position among IPv4 prefixes",
      "2001:db8::/32 4294967295\r",
      "0.0.0.0/0",
      "1.0.0.0,1.0.0.255,13335,\"Cloudflare, Inc.\"",
      "1.0.4.0, 1.0.8.0 ,38803",  // 1.0.4.0/22 and 1.0.8.0/32
      "2001:200::,2001:200:1b9:ffff:ffff:ffff:ffff:ffff,2500,WIDE # x",
      "1.10.16.0/20 9 ; SBL256894",
      "\"16777216\",\"16777471\",\"1\",\"Australia\"",  // 1.0.0.0/24
      "4294967295,4294967296,5",  // decimal IPv6: ::ffff:ffff, ::1:0:0
  };
  for (const char *line : good) ASSERT_TRUE(parse_line(line, t, why)) << why;

  EXPECT_EQ(t.v4[0].prefix, SC_BTRIE_NO_PREFIX);
  EXPECT_EQ(t.v6[0].prefix, SC_BTRIE6_NO_PREFIX);
  // 2001:200::/48 .. 2001:200:1b9::/48 is 0x1ba = 0b110111010 blocks of
  // /48: one prefix per set bit.
  EXPECT_EQ(listed(t),
            "10.0.0.0/8=7 192.168.1.0/24=2 0.0.0.0/0=3 1.0.0.0/24=13335 "
            "1.0.4.0/22=38803 1.0.8.0/32=38803 1.10.16.0/20=9 1.0.0.0/24=1 "
            "2001:db8::/32=4294967295 2001:200::/40=2500 "
            "2001:200:100::/41=2500 2001:200:180::/43=2500 "
            "2001:200:1a0::/44=2500 2001:200:1b0::/45=2500 "
            "2001:200:1b8::/47=2500 ::255.255.255.255/128=5 ::1:0:0/128=5");
}

// Range files whose data are texts, JSON CIDR arrays and host bits, as
// downloaded lists have them.
TEST(TableLines, TextDataJsonListsAndHostBits) {
  Table t;
  std::string why;
  for (const char *line : {"1.0.0.0,1.0.0.255,AU", "2.0.0.0,2.0.0.255,\"FR\"",
                           "3.0.0.0,3.0.0.255,AU", "::,::ff,US"})
    ASSERT_TRUE(parse_line(line, t, why)) << why;
  EXPECT_EQ(listed(t), "1.0.0.0/24=1 2.0.0.0/24=2 3.0.0.0/24=1 ::/120=3");
  EXPECT_EQ(*t.labels.text(3), "US");
  EXPECT_EQ(t.labels.text(4), nullptr);
  // Numbers and texts never share a table.
  EXPECT_FALSE(parse_line("4.0.0.0/8 7", t, why));
  EXPECT_EQ(why,
            "'4.0.0.0/8' gives a number, but earlier lines give texts: a "
            "table's data are all numbers or all texts");
  Table numbered;
  ASSERT_TRUE(parse_line("4.0.0.0,4.0.0.9,7", numbered, why));
  EXPECT_FALSE(parse_line("5.0.0.0,5.0.0.9,NL", numbered, why));
  EXPECT_EQ(why,
            "data 'NL' is a text, but earlier lines give numbers: a table's "
            "data are all numbers or all texts");

  std::string error;
  Table j;
  j.mask_host_bits = true;
  ASSERT_TRUE(
      load_cidr_json(" [\"10.0.0.0/8\",\n \"2001:db8::1/32\", "
                     "\"10.1.2.3/16\"]",
                     "j", j, error))
      << error;
  EXPECT_EQ(listed(j), "10.0.0.0/8=1 10.1.0.0/16=2 2001:db8::/32=1");
  EXPECT_EQ(j.host_bits_masked, 2u);
  EXPECT_TRUE(looks_like_cidr_json("\n[ \"1.0.0.0/8\"]"));
  EXPECT_FALSE(looks_like_cidr_json("[{\"dst\": \"default\"}]"));
  struct Case {
    const char *json, *error;
  } cases[] = {
      {"[\"10.0.0.0/8\",\n 5]", "j:2: expected a CIDR string"},
      {"[\"10.0.0.0/8\",\n\n\"10.0.0.0/8 1\"]",
       "j:3: bad prefix length '8 1' (0 to 32 for IPv4)"},
      {"[\"10.1.0.0/8\"]",
       "j:1: address '10.1.0.0' has bits set beyond its length /8 "
       "(--mask-host-bits clears them)"},
      {"{}", "j:1: expected a JSON array of CIDR strings"},
      {"[\"1.0.0.0/8\"", "j:1: ',' or ']' expected in a JSON array"},
  };
  for (const Case &c : cases) {
    Table t2;
    EXPECT_FALSE(load_cidr_json(c.json, "j", t2, error)) << c.json;
    EXPECT_EQ(error, c.error);
  }
}

TEST(TableLines, BadLinesAreRefusedWithTheReasonAndAddNothing) {
  struct Case {
    const char *line, *why;
  } cases[] = {
      {"x10", "expected ADDRESS[/LEN] [DATA] or START,END,DATA, got 'x10'"},
      {"10.0.0.256/8", "bad address '10.0.0.256'"},
      {"10.0.0.0/33", "bad prefix length '33' (0 to 32 for IPv4)"},
      {"::/129", "bad prefix length '129' (0 to 128 for IPv6)"},
      {"10.0.0.0/", "bad prefix length '' (0 to 32 for IPv4)"},
      {"10.1.0.0/8 3",
       "address '10.1.0.0' has bits set beyond its length /8 "
       "(--mask-host-bits clears them)"},
      {"10.0.0.0/8 x", "bad data word 'x' (an unsigned 32-bit number)"},
      {"10.0.0.0/8 4294967296",
       "bad data word '4294967296' (an unsigned 32-bit number)"},
      {"10.0.0.0/8 1 2", "bad data word '1 2' (an unsigned 32-bit number)"},
      {"1.0.0.0,1.0.0.255", "expected START,END,DATA, got '1.0.0.0,1.0.0.255'"},
      {"1.0.0.x,1.0.0.255,5", "bad range start '1.0.0.x'"},
      {"1.0.0.0,,5", "bad range end ''"},
      {"1.0.0.0,::1,5", "range '1.0.0.0' to '::1' mixes IPv4 and IPv6"},
      {"1.0.0.9,1.0.0.8,5",
       "range end '1.0.0.8' lies before its start '1.0.0.9'"},
      {"1.0.0.0,1.0.0.8, ", "range '1.0.0.0' to '1.0.0.8' without data"},
      {"1.0.0.0,4294967296,1",
       "range '1.0.0.0' to '4294967296' mixes IPv4 and IPv6"},
  };
  for (const Case &c : cases) {
    Table t;
    std::string why;
    EXPECT_FALSE(parse_line(c.line, t, why)) << c.line;
    EXPECT_EQ(why, c.why);
    EXPECT_TRUE(t.v4.empty() && t.v6.empty()) << c.line;
  }
}

// A last line without its newline, a long line, pyasn comments, a bare
// address as a host route.
TEST(TableFiles, FilesAsDownloadedRead) {
  std::string long_line = "12.0.0.0/8" + std::string(5000, ' ') + "9";
  std::string ok = "; pyasn header\n10.0.0.0/8\t1\n" + long_line +
                   "\n 192.0.2.1 \n2001::/16 5";
  Table t;
  std::string error;
  EXPECT_TRUE(load_table(ok, "x", t, error)) << error;
  EXPECT_EQ(listed(t), "10.0.0.0/8=1 12.0.0.0/8=9 192.0.2.1/32=3 2001::/16=5");
}

}  // namespace

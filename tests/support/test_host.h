// Test host: the recording host (host_record.h) with the GoogleTest glue.
// Test binaries link it instead of libvell-ds-host.a.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

#include "host_record.h"

namespace th {

// Adds a gtest failure for every leaked block and every release error.
inline void expect_clean() {
  for (auto &p : problems()) ADD_FAILURE() << p;
}

// Calls body() once per allocation point: run k makes the k-th allocation
// fail. Stops after the first run in which no failure was injected (the
// run that succeeds). After every run checks that nothing leaked. Returns
// the number of runs in which a failure was injected.
template <typename Body>
int sweep(Body body) {
  int points = 0;
  for (long k = 1;; ++k) {
    reset();
    fail_nth(k);
    body(k);
    expect_clean();
    if (::testing::Test::HasFatalFailure()) return points;
    if (!failure_injected()) return points;
    ++points;
  }
}

// The fixture file at `path` under tests/, each "{name}" in it replaced
// by its value in `fill`. Fails the test when the file cannot be read.
inline std::string fixture(
    const std::string &path,
    std::initializer_list<std::pair<std::string, std::string>> fill = {}) {
  std::ifstream in(VELL_TEST_DIR "/" + path);
  EXPECT_TRUE(in.is_open()) << "cannot read " << path;
  std::string s{std::istreambuf_iterator<char>(in), {}};
  for (const auto &[name, value] : fill)
    for (size_t at; (at = s.find("{" + name + "}")) != std::string::npos;)
      s.replace(at, name.size() + 2, value);
  return s;
}

}  // namespace th

// Base fixture: resets the host before each test and checks at the end that
// every block went back once, with its size, to the allocator it came from.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { th::reset(); }
  void TearDown() override { th::expect_clean(); }
};

// SPDX-License-Identifier: Apache-2.0
#include "tools/output/console.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

namespace zotconf {
namespace {

struct byte_text {
  uint64_t bytes;
  const char *text;
};

class HumanBytes : public testing::TestWithParam<byte_text> {};

TEST_P(HumanBytes, AreRoundedToOneDigit) {
  EXPECT_EQ(human_bytes(GetParam().bytes), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Table, HumanBytes,
                         testing::Values(byte_text{0, "0 B"}, byte_text{1023, "1023 B"},
                                         byte_text{1024, "1.0 KiB"}, byte_text{1536, "1.5 KiB"},
                                         byte_text{1048575, "1.0 MiB"},
                                         byte_text{uint64_t{5} << 30, "5.0 GiB"},
                                         byte_text{UINT64_MAX, "16384.0 PiB"}));

TEST(Console, PaintsWhereThereAreColours) {
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(console(out, err, {.colours = true}).paint("bad", colour::red), "\x1b[31mbad\x1b[0m");
  EXPECT_EQ(console(out, err).paint("bad", colour::red), "bad");
}

TEST(Progress, IsSilentWhereNobodyLooks) {
  std::ostringstream out;
  std::ostringstream err;
  const console where(out, err);
  {
    progress work(where, "reading", 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    work.advance(10);
  }
  EXPECT_EQ(err.str(), "");
}

TEST(Progress, TellsCountsBytesAndRateAndLeavesNothing) {
  std::ostringstream out;
  std::ostringstream err;
  const console where(out, err, {.progress = true});
  {
    progress work(where, "reading", 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    work.advance(2048);
    EXPECT_EQ(err.str().find("\r\x1b[Kreading 1 of 2 files, 2.0 KiB, "), 0U);
    EXPECT_NE(err.str().find(" files/s"), std::string::npos);
  }
  EXPECT_TRUE(err.str().ends_with("\r\x1b[K"));
  EXPECT_EQ(out.str(), "");
}

TEST(Progress, NamesWhatItCounts) {
  std::ostringstream out;
  std::ostringstream err;
  const console where(out, err, {.progress = true});
  progress work(where, "planning", 2, "elements");
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  work.advance();
  EXPECT_EQ(err.str().find("\r\x1b[Kplanning 1 of 2 elements, "), 0U);
  EXPECT_NE(err.str().find(" elements/s"), std::string::npos);
}

}  // namespace
}  // namespace zotconf

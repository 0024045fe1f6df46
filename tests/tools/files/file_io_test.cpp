// SPDX-License-Identifier: Apache-2.0
#include "tools/files/file_io.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

TEST(OpenBeneath, OpensAFileOverTwoGibibytes) {
  constexpr off_t size = off_t{3} << 30;
  const zot::test::temp_dir dir;
  zot::test::write_bytes(dir / "config/Wlan/large", "");
  ASSERT_EQ(::truncate((dir / "config/Wlan/large").c_str(), size), 0);
  const std::array<std::string, 3> parts = {"config", "Wlan", "large"};
  const zot::descriptor file = open_beneath(dir.path(), parts);
  ASSERT_TRUE(file.is_open());
  struct stat info {};
  ASSERT_EQ(::fstat(file.get(), &info), 0);
  EXPECT_EQ(info.st_size, size);
}

}  // namespace
}  // namespace zotconf

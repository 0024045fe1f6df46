// SPDX-License-Identifier: Apache-2.0
// Watching transfers with the C++ layer.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/support/files.hpp"
#include "tests/support/service.hpp"
#include "zot_conf.hpp"

namespace {

class TransferWatch : public testing::Test {
 protected:
  TransferWatch() { service_.answer("/x", 200, "0123456789"); }

  [[nodiscard]] int fetch() const {
    return get_remote_file(service_.url("/x").c_str(), (dir_ / "file").c_str(), nullptr, 30);
  }

  zot::test::temp_dir dir_;
  zot::test::service service_;
};

TEST_F(TransferWatch, IsToldWhatCame) {
  std::uint64_t received = 0;
  const zotconf::transfer_watch watch([&](std::uint64_t bytes) {
    received = bytes;
    return true;
  });
  EXPECT_EQ(fetch(), 0);
  EXPECT_EQ(received, 10U);
}

TEST_F(TransferWatch, EndsTheTransfer) {
  const zotconf::transfer_watch watch([](std::uint64_t) { return false; });
  EXPECT_GT(fetch(), 0);
}

TEST_F(TransferWatch, EndsWithItsScope) {
  {
    const zotconf::transfer_watch watch([](std::uint64_t) { return false; });
  }
  EXPECT_EQ(fetch(), 0);
}

TEST_F(TransferWatch, WithoutFunctionWatchesNothing) {
  const zotconf::transfer_watch watch({});
  EXPECT_EQ(fetch(), 0);
}

}  // namespace

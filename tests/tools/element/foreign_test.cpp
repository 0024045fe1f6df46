// SPDX-License-Identifier: Apache-2.0
#include "tools/element/foreign.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <sstream>

#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

const std::string other_index = "AABBCCDDEEFF";

class Foreign : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    commit_source();
    ASSERT_EQ(run_zotconf({"publish", dir_ / "source", "--out", dir_ / "pub", "--index",
                           other_index, "--cluster", "c"})
                  .status,
              0);
  }
};

TEST_F(Foreign, CacheOfAnotherElementIsNamed) {
  const finished done = run({"cycle", "--index", other_index});
  EXPECT_EQ(done.status, 0);
  EXPECT_TRUE(has(done.err,
                  "warning: the configuration in force was published for AP 001122334455, not for "
                  "AABBCCDDEEFF\n"))
      << done.err;
}

TEST_F(Foreign, ConfigurationOfAnotherElementIsNamed) {
  std::filesystem::copy_file(dir_ / "pub/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.k",
                             published(".k"), std::filesystem::copy_options::overwrite_existing);
  std::filesystem::copy_file(
      dir_ / "pub/file/knowledge/AP/AABBCCDDEEFF/latest/AABBCCDDEEFF.checksum",
      published(".checksum"), std::filesystem::copy_options::overwrite_existing);
  const finished done = run({"cycle", "--index", index_});
  EXPECT_TRUE(has(done.err,
                  "warning: the new configuration was published for AP AABBCCDDEEFF, not for "
                  "001122334455\n"))
      << done.err;
}

TEST_F(Foreign, OwnConfigurationIsNotNamed) {
  put("Wlan/a", "ssid=b");
  publish_source();
  EXPECT_EQ(run({"cycle", "--index", "001122334455", "--commit"}).err, "");
  EXPECT_EQ(run({"cycle", "--index", "001122334455"}).err, "");
}

// A user other than root has to take a directory that belongs to root as it is.
TEST_F(Foreign, CacheOfAnotherUserIsNamed) {
  const bool is_root = ::geteuid() == 0;
  ASSERT_TRUE(!is_root || ::chown(conf_root_.c_str(), 65534, 65534) == 0);
  const auto handle = std::make_unique<zot_ctx>();
  std::snprintf(handle->conf_root, sizeof handle->conf_root, "%s",
                is_root ? conf_root_.c_str() : "/");
  std::ostringstream err;
  zotconf::warn_of_foreign_owner(*handle, err);
  EXPECT_TRUE(has(err.str(), std::string(": belongs to the user ") + (is_root ? "nobody" : "root") +
                                 ", who cannot replace files"))
      << err.str();
}

TEST_F(Foreign, OwnCacheIsNotNamed) {
  const auto handle = std::make_unique<zot_ctx>();
  std::snprintf(handle->conf_root, sizeof handle->conf_root, "%s", conf_root_.c_str());
  std::ostringstream err;
  zotconf::warn_of_foreign_owner(*handle, err);
  EXPECT_EQ(err.str(), "");
}

TEST_F(Foreign, CacheOfAnotherUserIsNamedByTheCommands) {
  const bool is_root = ::geteuid() == 0;
  ASSERT_TRUE(!is_root || ::chown(conf_root_.c_str(), 65534, 65534) == 0);
  const finished done = run({"cycle", "--index", index_});
  EXPECT_EQ(has(done.err, ": belongs to the user nobody"), is_root) << done.err;
}

}  // namespace
}  // namespace zot::test

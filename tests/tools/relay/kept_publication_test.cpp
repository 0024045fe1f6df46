// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/kept_publication.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/tools/support/stored.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using parts = std::vector<std::string>;

class KeptPublication : public stored {
 protected:
  KeptPublication() { fs::create_directories(dir_ / "one"); }

  [[nodiscard]] zotconf::kept_publication made(
      const std::optional<std::string> &signature = std::nullopt) const {
    return zotconf::make_publication(k_, signature, manifest_of(files_, 1));
  }
  void write(const std::optional<std::string> &signature = std::nullopt) const {
    zotconf::write_beside(own_, made(signature), k_);
    zotconf::move_into_place(own_, made(signature));
  }
  [[nodiscard]] std::optional<zotconf::kept_publication> read() const {
    return zotconf::read_publication(own_, sha256_hex(k_), ap);
  }

  contents files_ = {{"Wlan/a/1", "ssid=a"}, {"Zone/z/7", "country=DE"}};
  std::string k_ = k_of(files_, 1);
  zotconf::folder own_ = (fs::create_directories(dir_ / "one"), zotconf::folder(dir_ / "one"));
};

TEST_F(KeptPublication, IsReadAsItWasWritten) {
  write("a signature");
  const auto found = read();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->digest, sha256_hex(k_));
  EXPECT_EQ(found->signature, "a signature");
  EXPECT_EQ(found->content.sequence, 1U);
  EXPECT_EQ(found->content.files.size(), 2U);
  EXPECT_EQ(tree(dir_ / "one"), (parts{"checksum", "k", "signature"}));
  write();
  EXPECT_FALSE(read()->signature);
}

TEST_F(KeptPublication, KeepsTheTimeAtWhichItWasPutIntoService) {
  zotconf::kept_publication earlier = made();
  earlier.kept_since = 1'000'000;
  zotconf::write_beside(own_, earlier, k_);
  zotconf::move_into_place(own_, earlier);
  EXPECT_EQ(read()->kept_since, 1'000'000);
}

TEST_F(KeptPublication, IsNoneUntilItIsInPlace) {
  zotconf::write_beside(own_, made("a signature"), k_);
  EXPECT_FALSE(read());
  zotconf::remove_beside(own_);
  EXPECT_TRUE(tree(dir_ / "one").empty());
}

TEST_F(KeptPublication, IsNoneThatIsTooLong) {
  write();
  fs::resize_file(dir_ / "one/k", (uint64_t{64} << 20) + 1);
  EXPECT_FALSE(read());
}

TEST_F(KeptPublication, IsNoneWithALinkForK) {
  write();
  fs::rename(dir_ / "one/k", dir_ / "elsewhere");
  fs::create_symlink(dir_ / "elsewhere", dir_ / "one/k");
  EXPECT_FALSE(read());
}

TEST_F(KeptPublication, KnowsWhatItsFilesHaveToContain) {
  const auto signed_one = made("a signature");
  EXPECT_EQ(zotconf::digest_of(signed_one, "k"), sha256_hex(k_));
  EXPECT_EQ(zotconf::digest_of(signed_one, "checksum"), sha256_hex(sha256_hex(k_) + "\n"));
  EXPECT_EQ(zotconf::digest_of(signed_one, "signature"), sha256_hex("a signature"));
  EXPECT_FALSE(zotconf::digest_of(made(), "signature"));
}

TEST_F(KeptPublication, FindsEachOfManyFiles) {
  zotconf::manifest many;
  for (const std::string category : {"Zone", "Wlan", "Ap"}) {
    for (uint64_t number = 0; number < 3000; ++number) {
      zotconf::published_file file;
      file.category_name = category;
      file.key = "key" + std::to_string(number % 1000);
      file.version = number / 1000 + 8;
      file.checksum = category + std::to_string(number);
      many.files.push_back(file);
    }
  }
  const auto where = zotconf::make_publication("k", std::nullopt, many);
  for (const zotconf::published_file &file : many.files) {
    const auto *const found = zotconf::find_file(
        where, {"config", file.category_name, file.key, std::to_string(file.version)});
    ASSERT_NE(found, nullptr) << file.checksum;
    ASSERT_EQ(found->checksum, file.checksum);
  }
  EXPECT_TRUE(zotconf::names_checksum(where, "Ap2999"));
  EXPECT_FALSE(zotconf::names_checksum(where, "Ap3000"));
}

TEST_F(KeptPublication, FindsNoFileThatItDoesNotName) {
  const auto where = made();
  ASSERT_NE(zotconf::find_file(where, {"config", "Zone", "z", "7"}), nullptr);
  for (const parts &name :
       {parts{"config", "Zone", "z", "8"}, parts{"config", "Zone", "a", "7"},
        parts{"config", "Wlan", "z", "7"}, parts{"file", "Zone", "z", "7"},
        parts{"config", "Zone", "z", ""}, parts{"config", "Zone", "z", "-7"},
        parts{"config", "Zone", "z"}, parts{"config", "Zone", "z", "7", "7"}, parts{}}) {
    EXPECT_EQ(zotconf::find_file(where, name), nullptr);
  }
}

TEST_F(KeptPublication, IsRemovedWithEverythingInItsFolder) {
  write("a signature");
  write_bytes(dir_ / "one/odd", "x");
  zotconf::remove_publication(zotconf::folder(dir_.path()), "one");
  EXPECT_FALSE(exists(dir_ / "one"));
}

}  // namespace
}  // namespace zot::test

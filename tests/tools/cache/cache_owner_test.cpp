// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/cache_owner.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"

namespace zot::test {
namespace {

// Makes the cache belong to a service: to a service that is not root if root runs the tests, else
// to the user who runs them.
uid_t give_to_service(const std::string &folder) {
  constexpr uid_t nobody = 65534;
  const uid_t service = ::geteuid() == 0 ? nobody : ::geteuid();
  EXPECT_EQ(::lchown(folder.c_str(), service, service), 0);
  for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
    EXPECT_EQ(::lchown(entry.path().c_str(), service, service), 0) << entry.path();
  }
  return service;
}

std::vector<std::string> entries_of_others(const std::string &folder, uid_t owner) {
  std::vector<std::string> found;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat info {};
    if (::lstat(entry.path().c_str(), &info) != 0 || info.st_uid != owner || info.st_gid != owner) {
      found.push_back(entry.path());
    }
  }
  return found;
}

class CacheOwner : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    commit_source();
  }
  void expect_all_of_service_after_repair() const {
    const uid_t service = give_to_service(dir_ / "device");
    const finished done = run({"verify", "--repair", "--index", index_});
    ASSERT_EQ(done.status, 0) << done.out << done.err;
    EXPECT_EQ(entries_of_others(dir_ / "device", service), std::vector<std::string>());
  }
};

TEST_F(CacheOwner, GetsWhatARepairMakes) {
  write_bytes(conf("knowledge/subsys.k"), "{");
  std::filesystem::remove_all(conf("config/Wlan"));
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  expect_all_of_service_after_repair();
}

TEST_F(CacheOwner, GetsAWholeFolderThatWasLost) {
  std::filesystem::remove_all(conf("config"));
  expect_all_of_service_after_repair();
}

TEST_F(CacheOwner, GetsWhatTheLibraryMakesWhenItUndoesACommit) {
  const interrupted_commit commit(conf_root_);
  commit.rotate_k("{");
  std::filesystem::remove_all(dir_ / "device/tmp");
  expect_all_of_service_after_repair();
  EXPECT_TRUE(exists(scratch("config")));
}

}  // namespace
}  // namespace zot::test

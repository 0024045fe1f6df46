// SPDX-License-Identifier: Apache-2.0
// A source folder and the publication folder that `zotconf publish` creates from it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/tools/support/process.hpp"
#include "tools/model/manifest.hpp"

namespace zot::test {

inline const std::string k_name = "file/knowledge/AP/001122334455/latest/001122334455.k";
inline const std::string checksum_name =
    "file/knowledge/AP/001122334455/latest/001122334455.checksum";

class Publishing : public testing::Test {
 protected:
  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(source_ + "/" + name, bytes);
  }
  [[nodiscard]] finished run(const std::vector<std::string> &more = {}) const {
    return publish(source_, publication_, more);
  }
  // Publishes the same files for another element.
  [[nodiscard]] finished publish_for(const std::string &index,
                                     const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"publish", source_, "--out",     publication_,
                                     "--index", index,   "--cluster", "c"};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args);
  }
  void put_keys(int count) const {
    for (int key = 0; key < count; ++key) {
      put("Wlan/" + std::to_string(key), "one");
    }
  }
  void remove_source(const std::string &name) const {
    ASSERT_EQ(::unlink((source_ + "/" + name).c_str()), 0);
  }
  [[nodiscard]] size_t files_below(const std::string &name) const {
    return tree(publication_ + "/" + name).size();
  }
  [[nodiscard]] std::string published(const std::string &name) const {
    return read_bytes(publication_ + "/" + name);
  }
  [[nodiscard]] bool holds(const std::string &name) const {
    return exists(publication_ + "/" + name);
  }
  [[nodiscard]] zotconf::manifest k() const {
    return zotconf::parse_manifest(published(k_name)).value();
  }
  // The version that K names for an object; 0 if none.
  [[nodiscard]] uint64_t version(const std::string &category, const std::string &key) const {
    for (const auto &file : k().files) {
      if (file.category_name == category && file.key == key) {
        return file.version;
      }
    }
    return 0;
  }

  temp_dir dir_;
  std::string source_ = dir_ / "source";
  std::string publication_ = dir_ / "pub";
};

inline ino_t inode(const std::string &path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

}  // namespace zot::test

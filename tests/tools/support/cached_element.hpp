// SPDX-License-Identifier: Apache-2.0
// An access point with its own cache and publication folder, for tests of commands that read both.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/tools/support/process.hpp"

namespace zot::test {

inline bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

// Kind, mode, size, inode and time of the last change of every path below a folder. Two equal
// snapshots mean that nothing was written in between.
inline std::map<std::string, std::string> snapshot(const std::string &folder) {
  std::map<std::string, std::string> found;
  const auto note = [&found](const std::string &path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
      throw std::runtime_error("cannot look at " + path);
    }
    std::ostringstream text;
    text << info.st_mode << ' ' << info.st_size << ' ' << info.st_ino << ' ' << info.st_mtim.tv_sec
         << '.' << info.st_mtim.tv_nsec << ' ' << info.st_ctim.tv_sec << '.'
         << info.st_ctim.tv_nsec;
    found[path] = text.str();
  };
  note(folder);
  for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
    note(entry.path());
  }
  return found;
}

class CachedElement : public testing::Test {
 protected:
  static constexpr const char *index_ = "001122334455";

  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(dir_ / "source/" + name, bytes);
  }
  void publish_source(const std::vector<std::string> &more = {}) const {
    const finished done = publish(dir_ / "source", dir_ / "pub", more);
    ASSERT_EQ(done.status, 0) << done.err;
  }
  [[nodiscard]] environment variables() const {
    return {{"ZOT_DEV_PATH", ""},
            {"ZOT_PREFIX_CONF_ROOT", dir_ / "device"},
            {"ZOT_PREFIX_TMP_ROOT", dir_ / "device"},
            {"ZOT_REMOTE_PORT", std::to_string(service_ ? service_->port() : 1)}};
  }
  [[nodiscard]] finished run(const std::vector<std::string> &args) const {
    return run_zotconf(args, variables());
  }
  [[nodiscard]] finished cycle(const std::string &verdict) const {
    return run({"cycle", "--index", index_, verdict});
  }
  void serve() { service_ = std::make_unique<serving>(dir_ / "pub"); }
  // Publishes the source folder and commits it.
  void commit_source(const std::vector<std::string> &more = {}) {
    publish_source(more);
    if (!service_) {
      serve();
    }
    const finished done = cycle("--commit");
    ASSERT_EQ(done.status, 0) << done.err;
  }

  [[nodiscard]] std::string conf(const std::string &name) const { return conf_root_ + name; }
  [[nodiscard]] std::string scratch(const std::string &name) const {
    return dir_ / "device/tmp/zot/" + name;
  }
  [[nodiscard]] std::string published(const std::string &suffix) const {
    return dir_ / "pub/file/knowledge/AP/" + index_ + "/latest/" + index_ + suffix;
  }

  temp_dir dir_;
  std::string conf_root_ = dir_ / "device/writable/zot/";
  std::unique_ptr<serving> service_;
};

}  // namespace zot::test

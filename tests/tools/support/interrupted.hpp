// SPDX-License-Identifier: Apache-2.0
// Does by hand what a commit has done to a cache when it is cut off.
#pragma once

#include <fcntl.h>
#include <sys/file.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "tests/support/files.hpp"
#include "utilities/owner.hpp"

namespace zot::test {

class interrupted_commit {
 public:
  // The K files get a second name.
  explicit interrupted_commit(std::string conf_root) : conf_(std::move(conf_root)) {
    namespace fs = std::filesystem;
    fs::create_directories(undo(""));
    for (const char *const name : {"subsys.k", "subsys.checksum", "prev_subsys.k",
                                   "prev_subsys.checksum", "corrupted.k", "corrupted.checksum"}) {
      if (exists(knowledge(name))) {
        fs::create_hard_link(knowledge(name), undo(name));
      } else {
        fs::create_directory(undo(std::string(name) + ".absent"));
      }
    }
  }

  // The files in force are moved away, or marked as absent.
  void keep_files() const {
    if (exists(conf_ + "config")) {
      std::filesystem::rename(conf_ + "config", undo("config"));
    } else {
      std::filesystem::create_directory(undo("config.absent"));
    }
  }

  // The K in force becomes the last one, and the new one takes its place; its checksum file is
  // late.
  void rotate_k(const std::string &new_k) const {
    if (exists(knowledge("subsys.k"))) {
      std::filesystem::rename(knowledge("subsys.k"), knowledge("prev_subsys.k"));
    }
    write_bytes(knowledge("subsys.k"), new_k);
  }

  // A file of the new configuration.
  void write_file(const std::string &name, const std::string &bytes) const {
    write_bytes(conf_ + "config/" + name, bytes);
  }

  [[nodiscard]] std::string undo(const std::string &name = "") const {
    return conf_ + "undo/" + name;
  }

 private:
  [[nodiscard]] std::string knowledge(const std::string &name) const {
    return conf_ + "knowledge/" + name;
  }

  std::string conf_;
};

// Holds the lock of a cache, as a process that commits does.
class held_lock {
 public:
  explicit held_lock(const std::string &conf_root)
      : root_(::open(conf_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!root_.is_open() || ::flock(root_.get(), LOCK_EX) != 0) {
      throw std::runtime_error("cannot lock " + conf_root);
    }
  }

 private:
  zot::descriptor root_;
};

}  // namespace zot::test

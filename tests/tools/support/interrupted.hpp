// SPDX-License-Identifier: Apache-2.0
// Puts a cache into the states that an interrupted commit leaves.
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
  // Keeps the K files by hard links in the undo folder.
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

  // Moves the files in force to the undo folder, or marks them as absent.
  void keep_files() const {
    if (exists(conf_ + "config")) {
      std::filesystem::rename(conf_ + "config", undo("config"));
    } else {
      std::filesystem::create_directory(undo("config.absent"));
    }
  }

  // Makes the K in force the last one and writes the new one, but not its checksum file.
  void rotate_k(const std::string &new_k) const {
    if (exists(knowledge("subsys.k"))) {
      std::filesystem::rename(knowledge("subsys.k"), knowledge("prev_subsys.k"));
    }
    write_bytes(knowledge("subsys.k"), new_k);
  }

  // Writes a file of the new configuration.
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

// Holds the lock of a cache, as a committing process does.
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

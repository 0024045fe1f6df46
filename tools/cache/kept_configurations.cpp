// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/kept_configurations.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace zotconf {
namespace {

constexpr std::array k_file_names = {"subsys.k", "subsys.checksum", "corrupted.k",
                                     "corrupted.checksum"};

bool is_absent(int error) {
  return error == ENOENT || error == ENOTDIR;
}

void require_access(const fs::path &path, int mode) {
  if (::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) != 0 && !is_absent(errno)) {
    throw_errno("cannot read " + path.string());
  }
}

std::optional<configuration_name> name_of_good(const stored_k &k) {
  if (!k.is_good()) {
    return std::nullopt;
  }
  return configuration_name{.digest = k.checksum, .config_id = k.config_id};
}

}  // namespace

kept_configurations::file_mark kept_configurations::mark_of(const fs::path &path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) == 0) {
    require_access(path, R_OK);
    constexpr int64_t second = 1'000'000'000;
    return {.inode = info.st_ino,
            .size = info.st_size,
            .changed = info.st_ctim.tv_sec * second + info.st_ctim.tv_nsec};
  }
  if (!is_absent(errno)) {
    throw_errno("cannot read " + path.string());
  }
  return {};
}

std::vector<kept_configurations::file_mark> kept_configurations::marks() const {
  std::vector<file_mark> all;
  for (const std::string name : k_file_names) {
    all.push_back(mark_of(paths_.conf_root / "knowledge" / name));
    all.push_back(mark_of(undo_folder(paths_) / name));
    all.push_back(mark_of(undo_folder(paths_) / (name + ".absent")));
  }
  return all;
}

const named_configurations &kept_configurations::read() {
  if (paths_.dev_mode) {
    return found_;
  }
  if (::faccessat(AT_FDCWD, paths_.conf_root.c_str(), R_OK | X_OK, AT_EACCESS) != 0) {
    throw_errno("cannot read " + paths_.conf_root.string());
  }
  require_access(paths_.conf_root / "knowledge", R_OK | X_OK);
  // The marks are taken first, so that a later change is noticed.
  std::vector<file_mark> now = marks();
  if (now != marks_) {
    found_ = {.in_force = name_of_good(read_slot(paths_, k_slot::current)),
              .refused = name_of_good(read_slot(paths_, k_slot::refused))};
    marks_ = std::move(now);
  }
  return found_;
}

}  // namespace zotconf

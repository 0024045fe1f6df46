// SPDX-License-Identifier: Apache-2.0
// A scratch directory with a fetched K, and what is beside it and must stay unchanged.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/archive.hpp"
#include "tests/support/service.hpp"
#include "tests/unit/zot_priv/storage/storage_records.hpp"

namespace zot::test {

inline struct stat stat_of(const std::string &path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return st;
}

inline mode_t mode_of(const std::string &path) {
  return stat_of(path).st_mode & 07777U;
}

// Type, mode, link count and content of everything below a directory except one path.
inline std::map<std::string, std::string> snapshot(const std::string &root,
                                                   const std::string &left_out) {
  std::map<std::string, std::string> all;
  std::filesystem::recursive_directory_iterator at(root);
  for (const std::filesystem::recursive_directory_iterator end; at != end; ++at) {
    const std::string path = at->path().string();
    if (path == left_out) {
      at.disable_recursion_pending();
      continue;
    }
    const struct stat st = stat_of(path);
    all[path] = std::to_string(st.st_mode);
    if (S_ISREG(st.st_mode)) {
      all[path] += " " + std::to_string(st.st_nlink) + " " + read_bytes(path);
    }
  }
  return all;
}

struct scratch {
  scratch() {
    published.install_k(root, "subsys.k", "subsys.checksum");
    write_bytes(sentinel + "/kept", "kept");
    std::filesystem::create_directories(sentinel + "/folder");
    remote.publish(published);
    k = make_k_of(tested, published);
    tested.log().clear();
  }

  // The members of a correct archive of this configuration.
  [[nodiscard]] std::vector<member> listed() const {
    std::vector<member> members;
    for (const auto &[path, bytes] : published.files()) {
      members.push_back({.path = "config" + path, .bytes = bytes});
    }
    return members;
  }
  void answer_with(const std::vector<member> &members) {
    remote.clear_overrides();
    remote.answer("/tgz", 200, make_tar_gz(members));
  }
  // Downloads as an update check does.
  int download() {
    gpbs = make_list_of(tested.handle(), k.get());
    return ap_download_gpb(tested.handle(), k.get(), gpbs.get());
  }
  // The next correct update, including K.
  int update() {
    remote.clear_overrides();
    k = make_k();
    if (const int status =
            zot_priv_get_new_k_by_host(tested.handle(), k.get(), remote.host().c_str());
        status != ZOT_OK) {
      return status;
    }
    return download();
  }

  [[nodiscard]] std::string operator/(const std::string &name) const { return root + "/" + name; }

  [[nodiscard]] std::map<std::string, std::string> outside() const {
    return snapshot(tested.dir().path(), root);
  }
  // Everything in the scratch directory that is neither a directory nor a plain file.
  [[nodiscard]] std::vector<std::string> foreign() const {
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
      const struct stat st = stat_of(entry.path().string());
      const bool is_plain = S_ISREG(st.st_mode) && st.st_nlink == 1;
      if (!S_ISDIR(st.st_mode) && (!is_plain || (st.st_mode & (S_ISUID | S_ISGID)) != 0)) {
        found.push_back(entry.path().string());
      }
    }
    return found;
  }
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto &entry : std::filesystem::directory_iterator(root)) {
      all.push_back(entry.path().filename().string());
    }
    std::ranges::sort(all);
    return all;
  }

  publication published = small_publication();
  service remote;
  element tested{remote.port()};
  std::string root = tested.tmp_root();
  std::string sentinel = tested.dir() / "sentinel";
  k_owner k = make_k();
  gpb_list_owner gpbs = make_gpb_list(tested.handle());
};

}  // namespace zot::test

// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/cache.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr std::array<std::string_view, 4> slot_names = {"current", "last", "refused", "scratch"};

// Where the next start finds a K file of the cache. The undo folder has the file to restore, or a
// mark that there was none. If it has neither, the file in the cache is unchanged or already
// restored.
fs::path standing_k_file(const cache_paths &paths, const std::string &name) {
  const fs::path undo = undo_folder(paths);
  const bool is_kept = is_there(undo / name) || is_there(undo / (name + ".absent"));
  return is_kept && !paths.dev_mode ? undo / name : paths.conf_root / "knowledge" / name;
}

fs::path standing_files(const cache_paths &paths) {
  return has_undo_of_files(paths) ? undo_folder(paths) : paths.conf_root;
}

}  // namespace

cache_paths find_cache() {
  zot_ctx handle{};
  std::array<char, ZOT_PATH_SIZE> path{};
  cache_paths found;
  found.conf_root = zot_sub_get_conf_root(&handle, path.data(), path.size());
  found.dev_mode = handle.dev_mode != 0;
  found.tmp_root = zot_sub_get_tmp_root(&handle, path.data(), path.size());
  found.port = zot_sub_get_remote_port();
  return found;
}

void require_readable(const cache_paths &paths) {
  for (const fs::path &folder : {paths.conf_root, paths.conf_root / "knowledge",
                                 paths.conf_root / "config", paths.tmp_root}) {
    const zot::descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool may_enter =
        opened.is_open() && ::faccessat(opened.get(), ".", X_OK, AT_EACCESS) == 0;
    if (!may_enter && errno == EACCES) {
      throw_errno("cannot read " + folder.string());
    }
  }
}

fs::path undo_folder(const cache_paths &paths) {
  return paths.conf_root / "undo";
}

bool has_undo_of_files(const cache_paths &paths) {
  const fs::path undo = undo_folder(paths);
  return !paths.dev_mode && (is_there(undo / "config") || is_there(undo / "config.absent"));
}

std::string_view name_of(k_slot slot) {
  return slot_names.at(static_cast<size_t>(slot));
}

std::optional<k_slot> slot_of(std::string_view name) {
  if (name == "corrupted") {
    return k_slot::refused;
  }
  const auto *const found = std::ranges::find(slot_names, name);
  if (found == slot_names.end()) {
    return std::nullopt;
  }
  return static_cast<k_slot>(found - slot_names.begin());
}

stored_k read_slot(const cache_paths &paths, k_slot slot) {
  static constexpr std::array<const char *, 4> names = {"subsys", "prev_subsys", "corrupted",
                                                        "subsys"};
  const std::string name = names.at(static_cast<size_t>(slot));
  if (slot == k_slot::scratch) {
    return read_k_file(paths.tmp_root / (name + ".k"), paths.tmp_root / (name + ".checksum"),
                       paths.tmp_root);
  }
  return read_k_file(standing_k_file(paths, name + ".k"),
                     standing_k_file(paths, name + ".checksum"),
                     slot == k_slot::refused ? fs::path() : standing_files(paths));
}

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// Paths of an element's cache and scratch area, and the K files in them. Reads only.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/files/file_io.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// The directories that the library uses in the current environment.
struct cache_paths {
  fs::path conf_root;
  fs::path tmp_root;
  bool dev_mode = false;
  uint32_t port = 0;
};

cache_paths find_cache();

// Throws std::system_error when one of the directories exists and cannot be read.
void require_readable(const cache_paths &paths);

enum class k_slot { current, last, refused, scratch };

inline constexpr std::array<k_slot, 4> k_slots = {k_slot::current, k_slot::last, k_slot::refused,
                                                  k_slot::scratch};

std::string_view name_of(k_slot slot);

// The folder in which a commit keeps the previous configuration until the commit ends.
fs::path undo_folder(const cache_paths &paths);

// Whether that folder has the files of the previous configuration, or the mark that it had none.
bool has_undo_of_files(const cache_paths &paths);

// Returns nullopt when no slot has this name. Accepts the library's own name for the refused slot
// too.
std::optional<k_slot> slot_of(std::string_view name);

// Reads a slot as the next start finds it: until a commit has ended, the configuration that it
// keeps is still in force.
stored_k read_slot(const cache_paths &paths, k_slot slot);

}  // namespace zotconf

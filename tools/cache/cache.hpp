// SPDX-License-Identifier: Apache-2.0
// What lies in an element's cache and in its scratch area, read without writing a byte.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/files/file_io.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// The directories that the library uses in this environment.
struct cache_paths {
  fs::path conf_root;
  fs::path tmp_root;
  bool dev_mode = false;
  uint32_t port = 0;
};

cache_paths find_cache();

// Throws std::system_error when one of the directories is there and cannot be read.
void require_readable(const cache_paths &paths);

enum class k_slot { current, last, refused, scratch };

inline constexpr std::array<k_slot, 4> k_slots = {k_slot::current, k_slot::last, k_slot::refused,
                                                  k_slot::scratch};

std::string_view name_of(k_slot slot);

// The folder that a commit keeps the configuration before it in until it has ended.
fs::path undo_folder(const cache_paths &paths);

// Whether that folder keeps the files of that configuration, or the mark that it had none.
bool has_undo_of_files(const cache_paths &paths);

// Nothing for a name that no slot has. The library's own name of the refused one counts too.
std::optional<k_slot> slot_of(std::string_view name);

// As the next start finds it: while a commit has not ended, what it keeps of the configuration
// before it is in force.
stored_k read_slot(const cache_paths &paths, k_slot slot);

}  // namespace zotconf

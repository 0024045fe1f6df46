// SPDX-License-Identifier: Apache-2.0
// What the machine offers to the library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/selftest/trial.hpp"

namespace zotconf {

struct target {
  std::string system;     // kernel, its release and the machine
  std::string libcurl;    // version
  std::string libcrypto;  // version
  // Where the shell finds each command; nothing: nowhere.
  std::optional<std::string> sh = {};
  std::optional<std::string> cp = {};
  std::optional<std::string> rm = {};
  std::optional<std::string> tar = {};
  // Room on the file system of the folder; nothing: not known, or no limit.
  std::optional<uint64_t> free_bytes = {};
  std::optional<uint64_t> free_files = {};
  std::optional<bool> hard_links = {};  // nothing: they could not be tried
  std::string time;                     // of the machine's clock, UTC
  bool is_clock_set = false;            // not before the day of this version
};

// Looks at all of it; in the folder, if any, it makes a file and removes it.
target look_at_target(const std::optional<fs::path> &folder, std::string_view release_date);

// Each throws std::runtime_error for what the library cannot do without, and returns what it found.

// Files that are synchronised, renamed and locked in the trial's folder.
std::string check_file_system(trial &on);
// The commands that the library runs through the shell, with its options.
std::string check_commands(trial &on);

}  // namespace zotconf

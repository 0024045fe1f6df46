// SPDX-License-Identifier: Apache-2.0
// Properties of the machine that matter to the library.
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
  // Where the shell finds each command; nullopt: not found.
  std::optional<std::string> sh = {};
  std::optional<std::string> cp = {};
  std::optional<std::string> rm = {};
  std::optional<std::string> tar = {};
  // Free space on the file system of the folder; nullopt: unknown, or no limit.
  std::optional<uint64_t> free_bytes = {};
  std::optional<uint64_t> free_files = {};
  std::optional<bool> hard_links = {};  // nullopt: unknown
  std::string time;                     // of the machine's clock, UTC
  bool is_clock_set = false;            // not earlier than the release date of this version
};

// Collects the properties. Creates and removes a file in the folder, if there is one.
target look_at_target(const std::optional<fs::path> &folder, std::string_view release_date);

// Each of these throws std::runtime_error if a feature that the library needs is missing, and
// returns what it found.

// Synchronises, renames and locks files in the trial's folder.
std::string check_file_system(trial &on);
// Runs the shell commands of the library, with the same options.
std::string check_commands(trial &on);

}  // namespace zotconf

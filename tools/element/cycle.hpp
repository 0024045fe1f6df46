// SPDX-License-Identifier: Apache-2.0
// `zotconf cycle`: one configuration cycle of a client: get, apply, then commit or roll back.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"
#include "zot_conf.hpp"

namespace zotconf {

enum class verdict { none, commit, roll_back, by_command };

struct cycle_options {
  std::string subsys = "AP";
  std::string index;
  zot_catset categories{};
  uint32_t want = 0;            // ZOT_STAT_… bits
  std::optional<fs::path> out;  // the folder for the entries' bytes
  verdict decide = verdict::none;
  std::string command;  // for verdict::by_command
  std::optional<std::chrono::milliseconds> apply_timeout = {};
  uint32_t timeout = 0;
  uint32_t timeout_gpb = 0;
  std::optional<uint32_t> log_level;  // nullopt: no log
};

// Parses "all" or category names. Returns nullopt for an unknown name and stores the name in
// `wrong`.
std::optional<zot_catset> parse_categories(const std::vector<std::string> &names,
                                           std::string &wrong);

// Parses change names, or one of "full" and "cached". Returns nullopt when a name is unknown or
// cannot be combined, and stores it in `wrong`.
std::optional<uint32_t> parse_want(const std::vector<std::string> &names, std::string &wrong);

// Creates the handle of the element that `from` describes. The library logs to `err`, and
// `verified`, if not null, counts the files that the library finds good; both must outlive the
// handle. Returns nullopt on failure and stores the reason in `reason`.
std::optional<handle> create_handle(const cycle_options &from, std::ostream &err,
                                    std::string &reason, progress *verified = nullptr);

// Whether the cache of the element has a configuration, good or damaged. In dev mode there is no
// cache to look at, and it has.
bool has_configuration(handle &element);

// Explains a failed get where its text does not; empty otherwise.
std::string hint_of_get(handle &element, const status &result);

// Returns an exit status. Throws std::exception when entries cannot be written.
int run_cycle(const cycle_options &options, const console &where);

}  // namespace zotconf

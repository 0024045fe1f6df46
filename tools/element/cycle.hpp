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
  std::optional<fs::path> out;  // where the entries' bytes go
  verdict decide = verdict::none;
  std::string command;  // for by_command
  std::optional<std::chrono::milliseconds> apply_timeout = {};
  uint32_t timeout = 0;
  uint32_t timeout_gpb = 0;
  std::optional<uint32_t> log_level;  // nothing: the library logs nothing
};

// Reads "all" or category names; nothing when a name is unknown, which `wrong` then holds.
std::optional<zot_catset> parse_categories(const std::vector<std::string> &names,
                                           std::string &wrong);

// Reads change names, or one of "full" and "cached"; nothing when they do not fit.
std::optional<uint32_t> parse_want(const std::vector<std::string> &names, std::string &wrong);

// Creates the handle of the element that `from` names. The library logs to `err`, which has to live
// as long. `verified`, if any, counts the files that the library finds good; it has to live as long
// as well. Nothing when there is none, and `reason` tells why.
std::optional<handle> create_handle(const cycle_options &from, std::ostream &err,
                                    std::string &reason, progress *verified = nullptr);

// Whether the cache of the element has a configuration, good or damaged. In dev mode there is no
// cache to look at, and it has.
bool has_configuration(handle &element);

// What the text of a get that failed leaves unsaid; empty when it says it all.
std::string unsaid_of_get(handle &element, const status &result);

// Returns an exit status; throws std::exception when entries cannot be written.
int run_cycle(const cycle_options &options, const console &where);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// A commit that has not ended: what it keeps of the previous configuration, and what the next start
// does with it.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache/cache.hpp"
#include "tools/output/console.hpp"
#include "tools/output/json.hpp"

namespace zotconf {

enum class commit_state { none, in_progress, interrupted };

// What a commit has left in the cache.
struct open_commit {
  commit_state state = commit_state::none;
  fs::path undo;                    // keeps the previous configuration; empty: none
  bool keeps_files = false;         // whether it has the GPB files too
  std::vector<fs::path> leftovers;  // useless folders that the next start removes

  // Whether the next start restores the previous configuration.
  [[nodiscard]] bool is_interrupted() const { return state == commit_state::interrupted; }
};

// Writes nothing. If a folder of a commit exists, it takes the lock of the cache for a moment.
open_commit find_open_commit(const cache_paths &paths);

// What an open commit leads to, for programs and for people.
struct commit_outlook {
  const char *state = "";                // "none", "in_progress" or "interrupted"
  const char *next_start = nullptr;      // "previous" or "nothing" in force; null: no change
  std::optional<std::string> config_id;  // in force after the next start
  std::vector<std::string> sentences;
  std::vector<fs::path> leftovers;
};

// `current` is the K in force as the next start finds it. `bad_file` is the damaged file that
// prevents it from being in force, or empty.
commit_outlook outlook_of(const open_commit &commit, const stored_k &current,
                          const std::string &bad_file);

// Sets the member "commit" in a command's JSON.
void set_outlook(json_node into, const commit_outlook &outlook);

// Prints a warning on standard error when one of the named K sources is in a cache with an open
// commit.
void warn_of_open_commit(std::initializer_list<std::string> sources, const console &where);

}  // namespace zotconf

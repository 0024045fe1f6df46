// SPDX-License-Identifier: Apache-2.0
// A commit that has not ended: what it keeps of the configuration before it, and what the next
// start makes of that.
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
  fs::path undo;                    // the folder that it keeps what was before it in; empty: none
  bool keeps_files = false;         // whether the GPB files are there too
  std::vector<fs::path> leftovers;  // folders worth nothing that the next start removes

  // Whether the next start puts back what was in force before.
  [[nodiscard]] bool is_interrupted() const { return state == commit_state::interrupted; }
};

// Takes the lock of the cache for a moment when there is a folder of a commit, and writes nothing.
open_commit find_open_commit(const cache_paths &paths);

// What follows from an open commit, for programs and for people.
struct commit_outlook {
  const char *state = "";                // "none", "in_progress" or "interrupted"
  const char *next_start = nullptr;      // "previous" or "nothing" in force; null: no change
  std::optional<std::string> config_id;  // in force after the next start
  std::vector<std::string> sentences;
  std::vector<fs::path> leftovers;
};

// `current` is the K in force as the next start finds it, and `bad_file` what keeps it from being
// in force; empty for nothing.
commit_outlook outlook_of(const open_commit &commit, const stored_k &current,
                          const std::string &bad_file);

// The member "commit" of a command's JSON.
void set_outlook(json_node into, const commit_outlook &outlook);

// Says on standard error when one of the named sources of K is read beside an open commit.
void warn_of_open_commit(std::initializer_list<std::string> sources, const console &where);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/open_commit.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <ostream>

#include "tools/cache/k_text.hpp"
#include "tools/output/error_text.hpp"

namespace zotconf {
namespace {

bool is_folder(const fs::path &path) {
  std::error_code failed;
  return fs::is_directory(fs::symlink_status(path, failed));
}

// Finds the folders that a commit has left in the cache.
open_commit folders_of(const cache_paths &paths) {
  open_commit found;
  if (const fs::path undo = undo_folder(paths); is_folder(undo)) {
    found.undo = undo;
    found.keeps_files = has_undo_of_files(paths);
  }
  for (const char *const name : {"undo.new", "undo.old"}) {
    if (const fs::path leftover = paths.conf_root / name; is_there(leftover)) {
      found.leftovers.push_back(leftover);
    }
  }
  return found;
}

bool is_empty(const open_commit &commit) {
  return commit.undo.empty() && commit.leftovers.empty();
}

const char *word_of(commit_state state) {
  switch (state) {
    case commit_state::in_progress:
      return "in_progress";
    case commit_state::interrupted:
      return "interrupted";
    default:
      return "none";
  }
}

void tell_progress(const open_commit &commit, commit_outlook &outlook) {
  outlook.sentences.emplace_back(
      commit.undo.empty()
          ? "a commit is in progress"
          : "a commit is in progress: until it ends, the configuration before it is in force");
}

std::string loss_of(const open_commit &commit, const stored_k &current,
                    const std::string &bad_file) {
  const bool is_of_files = current.is_good() && !commit.keeps_files;
  return "nothing is in force then, until the next get: " +
         std::string(is_of_files ? "the files of the configuration before it were not kept, and "
                                 : "") +
         bad_file + " is damaged";
}

void tell_next_start(const open_commit &commit, const stored_k &current,
                     const std::string &bad_file, commit_outlook &outlook) {
  outlook.sentences.emplace_back(
      "interrupted commit: the next start puts the configuration before it back");
  if (!current.is_present) {
    outlook.next_start = "nothing";
    outlook.sentences.emplace_back("nothing is in force then: there was no configuration before");
    return;
  }
  if (!bad_file.empty()) {
    outlook.next_start = "nothing";
    outlook.sentences.push_back(loss_of(commit, current, bad_file));
    return;
  }
  outlook.next_start = "previous";
  if (!current.config_id.empty()) {
    outlook.config_id = current.config_id;
  }
  outlook.sentences.push_back("in force then: " + named(current));
}

}  // namespace

open_commit find_open_commit(const cache_paths &paths) {
  // In dev mode nothing is committed or undone.
  if (paths.dev_mode) {
    return {};
  }
  open_commit found = folders_of(paths);
  if (is_empty(found)) {
    return found;
  }
  const zot::descriptor root(::open(paths.conf_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (root.is_open() && ::flock(root.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    found.state = commit_state::in_progress;
    found.leftovers.clear();
    return found;
  }
  // Look again: the commit may have ended just before this lock was taken.
  found = folders_of(paths);
  found.state = found.undo.empty() ? commit_state::none : commit_state::interrupted;
  return found;
}

commit_outlook outlook_of(const open_commit &commit, const stored_k &current,
                          const std::string &bad_file) {
  commit_outlook outlook;
  outlook.state = word_of(commit.state);
  outlook.leftovers = commit.leftovers;
  if (commit.state == commit_state::in_progress) {
    tell_progress(commit, outlook);
  } else if (commit.is_interrupted()) {
    tell_next_start(commit, current, bad_file, outlook);
  }
  for (const fs::path &leftover : commit.leftovers) {
    outlook.sentences.push_back(leftover.string() +
                                " is left of a commit: the next start removes it");
  }
  return outlook;
}

void set_outlook(json_node into, const commit_outlook &outlook) {
  json_node commit = into.object("commit");
  commit.set("state", outlook.state)
      .set("next_start",
           outlook.next_start != nullptr ? std::optional(outlook.next_start) : std::nullopt)
      .set("config_id", outlook.config_id);
  json_node leftovers = commit.array("leftovers");
  for (const fs::path &leftover : outlook.leftovers) {
    leftovers.append(leftover.string());
  }
  json_node sentences = commit.array("sentences");
  for (const std::string &sentence : outlook.sentences) {
    sentences.append(sentence);
  }
}

void warn_of_open_commit(std::initializer_list<std::string> sources, const console &where) {
  const bool is_cache_read = std::ranges::any_of(sources, [](const std::string &source) {
    const auto slot = slot_of(source);
    return slot && *slot != k_slot::scratch;
  });
  if (!is_cache_read) {
    return;
  }
  const open_commit commit = find_open_commit(find_cache());
  if (commit.undo.empty()) {
    return;
  }
  tell_warning(where.err(),
               (commit.is_interrupted() ? "interrupted commit in " : "commit in progress in ") +
                   commit.undo.string() + ": showing the cache as it was before this commit",
               "zotconf status");
}

}  // namespace zotconf

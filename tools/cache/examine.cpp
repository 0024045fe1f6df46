// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/examine.hpp"

#include <unistd.h>

#include <algorithm>
#include <set>

#include "tools/output/figures.hpp"

namespace zotconf {
namespace {

constexpr const char *no_state = nullptr;

// Returns a word for what prevents reading a file, or no_state.
const char *unreadable_state(const fs::path &path) {
  std::error_code failed;
  const fs::file_status status = fs::status(path, failed);
  if (status.type() == fs::file_type::not_found) {
    return "missing";
  }
  if (status.type() == fs::file_type::regular) {
    return ::access(path.c_str(), R_OK) == 0 ? no_state : "unreadable";
  }
  return fs::status_known(status) ? "not_a_file" : "unreadable";
}

const char *state_of_file(const listed_file &file, const fs::path &path) {
  if (const char *const state = unreadable_state(path)) {
    return state;
  }
  std::error_code failed;
  return fs::file_size(path, failed) == file.size ? "wrong_content" : "wrong_size";
}

class examination {
 public:
  examination(const cache_paths &paths, bool strict, const console &where)
      : paths_(paths), strict_(strict), where_(where) {}

  findings run() {
    found_.commit = find_open_commit(paths_);
    for (const k_slot slot : k_slots) {
      found_.slots.at(static_cast<size_t>(slot)) = read_slot(paths_, slot);
      look_at_k(slot);
    }
    look_at_files();
    look_for_unnamed();
    look_ahead();
    return std::move(found_);
  }

 private:
  void add(damage bad) {
    bad.is_harmless = bad.slot == k_slot::scratch && !strict_;
    found_.damaged.push_back(std::move(bad));
  }

  void add_k(k_slot slot, const char *state, library_status wrong) {
    add({.slot = slot,
         .kind = "k",
         .state = state,
         .path = found_.slot(slot).k,
         .wrong = std::move(wrong),
         .file = {}});
  }

  // The library stops at the first bad file of the two; a person wants to see both.
  void look_at_k(k_slot slot) {
    const stored_k &k = found_.slot(slot);
    if (!k.wrong) {
      return;
    }
    const char *checksum_state = unreadable_state(k.checksum_file);
    if (checksum_state == no_state && k.announced.size() != ZOT_CHECKSUM_LEN) {
      checksum_state = "wrong_content";
    }
    if (checksum_state != no_state) {
      add({.slot = slot,
           .kind = "checksum",
           .state = checksum_state,
           .path = k.checksum_file,
           .wrong = *k.wrong,
           .file = {}});
    }
    if (const char *const k_state = unreadable_state(k.k)) {
      add_k(slot, k_state,
            checksum_state == no_state ? *k.wrong
                                       : library_status{.code = ZOT_ERR_CORRUPTED,
                                                        .text = "unable to read " + k.k.string()});
    } else if (checksum_state == no_state) {
      add_k(slot, k.announced == k.checksum ? "invalid" : "wrong_content", *k.wrong);
    } else if (const stored_k alone = read_k_file(k.k, "", ""); alone.wrong) {
      add_k(slot, "invalid", *alone.wrong);
    }
  }

  void look_at_files() {
    const stored_k &current = found_.slot(k_slot::current);
    const stored_k &scratch = found_.slot(k_slot::scratch);
    progress work(where_, "checked", current.files.size() + scratch.files.size());
    look_at_files_of(k_slot::current, work);
    look_at_files_of(k_slot::scratch, work);
  }

  void look_at_files_of(k_slot slot, progress &work) {
    const stored_k &k = found_.slot(slot);
    uint64_t absent = 0;
    for (const listed_file &file : k.files) {
      const fs::path path = path_of(file, k.root);
      work.advance(file.size);
      // After a reboot or an interrupted get the files of the scratch area may be missing.
      if (slot == k_slot::scratch && !is_there(path)) {
        ++absent;
        continue;
      }
      ++found_.files;
      found_.bytes += file.size;
      if (auto wrong = check_file(file, k.root)) {
        add({.slot = slot,
             .kind = "gpb",
             .state = state_of_file(file, path),
             .path = path,
             .wrong = std::move(*wrong),
             .file = file});
      }
    }
    if (absent > 0) {
      found_.notes.push_back({.kind = "scratch",
                              .path = k.k,
                              .text = std::to_string(absent) + " of " +
                                      counted(k.files.size(), "file", "files") +
                                      " of the scratch area are not there"});
    }
  }

  void look_for_unnamed() {
    const stored_k &current = found_.slot(k_slot::current);
    const fs::path folder = current.root / "config";
    if (current.wrong) {
      found_.notes.push_back({.kind = "not_checked",
                              .path = folder,
                              .text = "not checked: the K that names its files is damaged"});
      return;
    }
    std::set<fs::path> named;
    for (const listed_file &file : current.files) {
      named.insert(path_of(file, current.root));
    }
    std::error_code failed;
    for (fs::recursive_directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
      const fs::path path = at->path().lexically_normal();
      if (!fs::is_directory(at->symlink_status(failed)) && !named.contains(path)) {
        found_.notes.push_back({.kind = "not_named", .path = path, .text = "not named by K"});
      }
    }
  }

  // Adds what a commit has left behind, and what that means for the damage found.
  void look_ahead() {
    const auto bad = std::ranges::find(found_.damaged, k_slot::current, &damage::slot);
    found_.outlook = outlook_of(found_.commit, found_.slot(k_slot::current),
                                bad == found_.damaged.end() ? "" : bad->path.string());
    for (const fs::path &leftover : found_.commit.leftovers) {
      found_.notes.push_back({.kind = "leftover",
                              .path = leftover,
                              .text = "left of a commit: the next start removes it"});
    }
    if (found_.commit.state == commit_state::in_progress) {
      found_.notes.push_back(
          {.kind = "in_progress",
           .path = paths_.conf_root,
           .text = "a commit is in progress: what it changes meanwhile may look damaged"});
    }
  }

  const cache_paths &paths_;
  bool strict_;
  const console &where_;
  findings found_;
};

}  // namespace

bool findings::is_clean() const {
  return !commit.is_interrupted() && std::ranges::all_of(damaged, &damage::is_harmless);
}

findings examine(const cache_paths &paths, bool strict, const console &where) {
  return examination(paths, strict, where).run();
}

}  // namespace zotconf

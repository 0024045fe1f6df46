// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/foresight.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/cache/k_text.hpp"
#include "tools/output/hint.hpp"
#include "utilities/shell_word.hpp"

namespace zotconf {
namespace {

struct directory {
  fs::path path;
  const char *label;  // the library's name for the directory
};

std::array<directory, 4> directories(const cache_paths &paths) {
  return {{{paths.conf_root, "conf root"},
           {paths.conf_root / "knowledge", "conf K root"},
           {paths.tmp_root, "tmp root"},
           {paths.tmp_root / "config", "tmp GPB root"}}};
}

// The library's error when it refuses the paths. It is called only for paths that it refuses, which
// it does before it creates a directory.
std::optional<library_status> refusal(const cache_paths &paths) {
  const bool conf_passes = paths.dev_mode || zot::is_plain_shell_word(paths.conf_root.c_str());
  if (conf_passes && zot::is_plain_shell_word(paths.tmp_root.c_str())) {
    return std::nullopt;
  }
  judge by;
  zot_sub_init_fns(by.handle());
  const int status = zot_priv_reload_sys_paths(by.handle());
  return by.recorded(status);
}

// The errno with which a write to a directory would fail, or 0.
int write_error(const fs::path &path) {
  return ::faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

// The errno with which the creation of a missing directory would fail, or 0.
int create_error(fs::path path) {
  std::error_code ignored;
  while (!is_there(path) && path.has_parent_path() && path != path.parent_path()) {
    path = path.parent_path();
  }
  return fs::is_directory(path, ignored) ? write_error(path) : ENOTDIR;
}

bool fails(next_get &next, library_status error) {
  next.outcome = "fails";
  next.sentences.push_back("it fails: " + described(error));
  next.error = std::move(error);
  return true;
}

// Predicts the first step of a start, in which the library creates its directories. Returns true
// when the start ends there.
bool ends_at_directories(const cache_paths &paths, next_get &next) {
  if (auto refused = refusal(paths)) {
    next.outcome = "refused";
    next.sentences.push_back("it is refused: " + described(*refused));
    next.error = std::move(refused);
    return true;
  }
  for (const auto &[path, label] : directories(paths)) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
      continue;
    }
    if (is_there(path)) {
      next.sentences.push_back(path.string() + " is no directory and would be replaced by one");
      continue;
    }
    if (const int error = create_error(path); error != 0) {
      return fails(next, {.code = ZOT_ERR_GENERIC,
                          .text = std::string("fail to create dir for ") + label + " = " +
                                  path.string() + ": " + std::strerror(error)});
    }
    next.sentences.push_back(path == paths.conf_root
                                 ? "the cache would be created at " + path.string()
                                 : path.string() + " would be created");
  }
  return false;
}

void foresee_dev_mode(const cache_paths &paths, const slot_state &current, next_get &next) {
  next.sentences.push_back("dev mode: K and files are read from " + paths.conf_root.string() +
                           ", no service is asked, and nothing is committed or rolled back");
  if (current.wrong) {
    fails(next, *current.wrong);
    return;
  }
  if (!current.k.is_present) {
    judge by;
    zot_k k{};
    fails(next, by.recorded(zot_priv_read_cur_k_f(by.handle(), &k, paths.conf_root.c_str(), 0)));
    return;
  }
  next.outcome = "dev_path";
}

std::string nothing_in_force(const slot_state &current) {
  std::string text = "the published configuration is taken as wholly new: nothing is in force";
  if (!current.wrong) {
    return text.append(", ").append(no_configuration_yet);
  }
  return text + ", because " + current.culprit() + " is damaged";
}

void foresee_update(const slot_states &slots, next_get &next) {
  const slot_state &current = slots[static_cast<size_t>(k_slot::current)];
  const slot_state &corrupted = slots[static_cast<size_t>(k_slot::refused)];
  // The library does not read the file list of the rolled-back K, so `is_loadable` is enough here.
  if (corrupted.k.is_loadable) {
    next.sentences.push_back("a K equal to the rolled-back one (" + named(corrupted.k) +
                             ") is answered with -13; zotconf forget takes that back");
  } else if (corrupted.wrong && is_there(corrupted.k.checksum_file)) {
    next.sentences.push_back("the rolled-back K is damaged and would be taken as new: " +
                             corrupted.k.k.string());
  }
  if (!current.is_good()) {
    next.outcome = "all_new";
    next.sentences.push_back(nothing_in_force(current));
    return;
  }
  next.outcome = "compared";
  next.sentences.push_back("a K equal to the one in force (" + named(current.k) +
                           ") is answered with no update");
  next.sentences.emplace_back("any other is compared with the one in force");
}

}  // namespace

next_get foresee(const cache_paths &paths, const open_commit &commit, const slot_states &slots) {
  next_get next;
  if (ends_at_directories(paths, next)) {
    return next;
  }
  if (paths.dev_mode) {
    foresee_dev_mode(paths, slots[static_cast<size_t>(k_slot::current)], next);
    return next;
  }
  if (is_there(paths.tmp_root)) {
    if (const int error = write_error(paths.tmp_root); error != 0) {
      fails(next, {.code = ZOT_ERR_GENERIC,
                   .text = "the scratch area " + paths.tmp_root.string() +
                           " cannot be written: " + std::strerror(error)});
      return next;
    }
  }
  if (commit.is_interrupted()) {
    next.sentences.emplace_back("the interrupted commit is undone first");
  }
  next.sentences.push_back("the service at http://127.0.0.1:" + std::to_string(paths.port) +
                           " is asked");
  foresee_update(slots, next);
  return next;
}

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/undo.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_priv/storage/cache_lock.hpp"
#include "zot_priv/storage/directory_walk.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

using namespace zot::directory_walk;

constexpr const char *undo = "undo";
constexpr const char *undo_in_the_making = "undo.new";
constexpr const char *undo_of_no_use = "undo.old";
constexpr mode_t new_directory_mode = 0777;

constexpr std::array k_file_names = {"subsys.k",      "subsys.checksum",
                                     "prev_subsys.k", "prev_subsys.checksum",
                                     "corrupted.k",   "corrupted.checksum"};

// The name of the directory that marks a file as absent. A directory needs no data on the medium.
class absent_mark {
 public:
  explicit absent_mark(const char *name) {
    static_cast<void>(std::snprintf(text_, sizeof text_, "%s.absent", name));
  }
  [[nodiscard]] const char *c_str() const { return text_; }

 private:
  char text_[32];
};

// The persistent directory, the directory of its K files, and a directory of undo files.
struct cache_folders {
  cache_folders(const zot_ctx &handle, const char *kept_in)
      : root(open_root(handle.conf_root)),
        knowledge(open_root(handle.conf_k_root)),
        kept(open_directory(root.get(), kept_in)) {}
  [[nodiscard]] bool are_open() const { return knowledge.is_open() && kept.is_open(); }

  zot::descriptor root;
  zot::descriptor knowledge;
  zot::descriptor kept;
};

// The K files may be on a file system of their own.
bool sync_folders(int root, int knowledge) {
  struct stat of_root {};
  struct stat of_knowledge {};
  ::fstat(root, &of_root);
  ::fstat(knowledge, &of_knowledge);
  return ::syncfs(root) == 0 && (of_root.st_dev == of_knowledge.st_dev || ::syncfs(knowledge) == 0);
}

bool is_there(int directory, const char *name, struct stat *st) {
  return ::fstatat(directory, name, st, AT_SYMLINK_NOFOLLOW) == 0;
}

// True if nothing has that name afterwards.
bool remove_if_there(int directory, const char *name) {
  struct stat st {};
  return is_there(directory, name, &st) ? remove_entry(directory, name, st) : errno == ENOENT;
}

bool mark_absent(int kept, const char *name) {
  return ::mkdirat(kept, absent_mark(name).c_str(), new_directory_mode) == 0;
}

// Used where a hard link is not possible.
bool copy_k_file(const zot_ctx &handle, const char *name) {
  const zot::joined_path from(handle.conf_k_root, name);
  const zot::joined_path folder(handle.conf_root, undo_in_the_making);
  const zot::joined_path to(folder.c_str(), name);
  return fcopy(from.c_str(), to.c_str()) == 0;
}

bool keep_k_files(const zot_ctx &handle, const cache_folders &at, bool *is_copied) {
  for (const char *const name : k_file_names) {
    struct stat st {};
    const bool is_found = is_there(at.knowledge.get(), name, &st);
    if (!is_found && errno != ENOENT) {
      return false;
    }
    if (!is_found || S_ISDIR(st.st_mode)) {
      if (!mark_absent(at.kept.get(), name)) {
        return false;
      }
    } else if (::linkat(at.knowledge.get(), name, at.kept.get(), name, 0) != 0) {
      if (!copy_k_file(handle, name)) {
        return false;
      }
      *is_copied = true;
    }
  }
  return true;
}

// If the two directories are on different file systems, the kept file is a copy. It is copied back.
bool move_back(const zot_ctx &handle, const cache_folders &at, const char *name) {
  if (::renameat(at.kept.get(), name, at.knowledge.get(), name) == 0) {
    return true;
  }
  const zot::joined_path folder(handle.conf_root, undo);
  return errno == EXDEV && fcopy(zot::joined_path(folder.c_str(), name).c_str(),
                                 zot::joined_path(handle.conf_k_root, name).c_str()) == 0;
}

// A mark or a copy stays until the whole folder is removed: on another file system its removal
// could reach the medium before the change that it stands for.
bool restore_k_file(const zot_ctx &handle, const cache_folders &at, const char *name) {
  const absent_mark mark(name);
  struct stat st {};
  if (is_there(at.kept.get(), mark.c_str(), &st)) {
    return remove_if_there(at.knowledge.get(), name);
  }
  if (errno != ENOENT) {
    return false;
  }
  if (!is_there(at.kept.get(), name, &st)) {
    return errno == ENOENT;
  }
  if (is_there(at.knowledge.get(), name, &st) && S_ISDIR(st.st_mode) &&
      !remove_entry(at.knowledge.get(), name, st)) {
    return false;
  }
  return move_back(handle, at, name);
}

bool restore_gpbs(const cache_folders &at) {
  const absent_mark mark(zot::gpb_directory);
  struct stat st {};
  if (is_there(at.kept.get(), zot::gpb_directory, &st)) {
    return remove_if_there(at.root.get(), zot::gpb_directory) &&
           ::renameat(at.kept.get(), zot::gpb_directory, at.root.get(), zot::gpb_directory) == 0;
  }
  if (errno != ENOENT) {
    return false;
  }
  if (!is_there(at.kept.get(), mark.c_str(), &st)) {
    return errno == ENOENT;
  }
  return remove_if_there(at.root.get(), zot::gpb_directory);
}

// For a few files a direct removal is faster than starting a command; for many files the command is
// faster.
void remove_folder(const zot_ctx &handle, const char *name) {
  const zot::errno_keeper keep_errno;
  const zot::locks_for_commands lent(handle);
  const zot::joined_path folder(handle.conf_root, name);
  struct stat st {};
  if (is_there(AT_FDCWD, zot::joined_path(folder.c_str(), zot::gpb_directory).c_str(), &st)) {
    rm_rf(folder.c_str());
  } else {
    remove_if_there(AT_FDCWD, folder.c_str());
  }
}

// Fills the folder before it counts: it can still be given up without a trace.
bool fill_undo(const zot_ctx &handle, zot::gpb_protection protection) {
  const cache_folders at(handle, undo_in_the_making);
  bool is_copied = false;
  if (!at.are_open() || !keep_k_files(handle, at, &is_copied)) {
    return false;
  }
  struct stat st {};
  if (protection == zot::gpb_protection::kept &&
      !is_there(at.root.get(), zot::gpb_directory, &st) &&
      (errno != ENOENT || !mark_absent(at.kept.get(), zot::gpb_directory))) {
    return false;
  }
  // A copy counts as soon as its folder does, so it must be complete on the medium before that.
  return !is_copied || ::syncfs(at.root.get()) == 0;
}

// Moves the files in force out of the way of the new ones.
bool keep_gpbs(const cache_folders &at) {
  return ::renameat(at.root.get(), zot::gpb_directory, at.kept.get(), zot::gpb_directory) == 0 ||
         errno == ENOENT;
}

// The path of a K file, such as "subsys.k": in the undo folder if that keeps the file or a mark
// that it was absent, otherwise in the cache.
class k_file_path {
 public:
  k_file_path(const char *root, const char *k, const char *extension)
      : path_(root, format_name(undo, k, extension, ".absent")) {
    struct stat st {};
    const bool was_absent = is_there(AT_FDCWD, path_.c_str(), &st);
    path_ = zot::joined_path(root, format_name(undo, k, extension, ""));
    if (!was_absent && !is_there(AT_FDCWD, path_.c_str(), &st)) {
      path_ = zot::joined_path(root, format_name("/knowledge", k, extension, ""));
    }
  }
  [[nodiscard]] const char *c_str() const { return path_.c_str(); }

 private:
  const char *format_name(const char *folder, const char *k, const char *extension,
                          const char *suffix) {
    static_cast<void>(
        std::snprintf(name_, sizeof name_, "%s/%s%s%s", folder, k, extension, suffix));
    return name_;
  }

  char name_[64];
  zot::joined_path path_;
};

int read_k(zot_ctx *handle, zot_k *k, const char *root, const char *name, int flags) {
  const k_file_path k_path(root, name, ".k");
  const k_file_path checksum_path(root, name, ".checksum");
  return zot_priv_verify_k_file(handle, k, k_path.c_str(), checksum_path.c_str(), flags);
}

// Anything else with the name of the undo folder keeps nothing, and would block every commit.
bool remove_foreign_undo(const zot_ctx &handle) {
  const zot::joined_path path(handle.conf_root, undo);
  struct stat st {};
  return is_there(AT_FDCWD, path.c_str(), &st) && !S_ISDIR(st.st_mode) &&
         ::unlink(path.c_str()) == 0;
}

}  // namespace

namespace zot {

bool begin_undo(const zot_ctx &handle, gpb_protection protection) {
  const descriptor root = open_root(handle.conf_root);
  if (!root.is_open() || ::mkdirat(root.get(), undo_in_the_making, new_directory_mode) != 0) {
    return false;
  }
  if (!fill_undo(handle, protection) ||
      ::renameat(root.get(), undo_in_the_making, root.get(), undo) != 0) {
    remove_folder(handle, undo_in_the_making);
    return false;
  }
  const cache_folders at(handle, undo);
  const bool is_begun = at.are_open() && sync_folders(root.get(), at.knowledge.get()) &&
                        (protection == gpb_protection::removed_first || keep_gpbs(at));
  if (!is_begun) {
    const errno_keeper keep_errno;
    restore_from_undo(handle);
  }
  return is_begun;
}

bool has_undo(const zot_ctx &handle) {
  struct stat st {};
  return is_there(AT_FDCWD, joined_path(handle.conf_root, undo).c_str(), &st) ||
         (errno != ENOENT && errno != ENOTDIR);
}

in_force_source::in_force_source(const zot_ctx &handle)
    : conf_root_(handle.conf_root), kept_(handle.conf_root, undo), has_gpbs_(false) {
  struct stat st {};
  has_gpbs_ = is_there(AT_FDCWD, joined_path(kept_.c_str(), gpb_directory).c_str(), &st);
}

int read_kept_or_current_k(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return read_k(handle, k, root, "subsys", flags);
}

int read_kept_or_last_k(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return read_k(handle, k, root, "prev_subsys", flags);
}

int read_kept_or_corrupted_k(zot_ctx *handle, zot_k *k, const char *root, int flags) {
  return read_k(handle, k, root, "corrupted", flags);
}

unsigned count_absent_files(const zot_ctx &handle) {
  const descriptor root = open_root(handle.conf_root);
  const descriptor knowledge = open_root(handle.conf_k_root);
  struct stat st {};
  unsigned count = is_there(root.get(), gpb_directory, &st) ? 0 : 1;
  for (const char *const name : k_file_names) {
    count += is_there(knowledge.get(), name, &st) ? 0 : 1;
  }
  return count;
}

bool restore_from_undo(const zot_ctx &handle) {
  if (remove_foreign_undo(handle)) {
    return true;
  }
  const cache_folders at(handle, undo);
  if (!at.are_open()) {
    return false;
  }
  int error = restore_gpbs(at) ? 0 : errno;
  for (const char *const name : k_file_names) {
    const bool is_restored = restore_k_file(handle, at, name);
    error = is_restored || error != 0 ? error : errno;
  }
  if (error != 0) {
    errno = error;
    return false;
  }
  if (!sync_folders(at.root.get(), at.knowledge.get())) {
    return false;
  }
  // The folder keeps nothing any more, so it does not matter whether its removal reaches the
  // medium.
  remove_folder(handle, undo_of_no_use);
  if (::renameat(at.root.get(), undo, at.root.get(), undo_of_no_use) != 0) {
    return false;
  }
  remove_folder(handle, undo_of_no_use);
  return true;
}

bool retire_undo(const zot_ctx &handle) {
  const descriptor root = open_root(handle.conf_root);
  if (!root.is_open() || ::renameat(root.get(), undo, root.get(), undo_of_no_use) != 0) {
    return false;
  }
  if (::fsync(root.get()) == 0) {
    return true;
  }
  // The state of the medium is unknown now, so the old files must stay available.
  const errno_keeper keep_errno;
  static_cast<void>(::renameat(root.get(), undo_of_no_use, root.get(), undo));
  return false;
}

bool has_undo_leftovers(const zot_ctx &handle) {
  const auto exists = [&](const char *name) {
    struct stat st {};
    return is_there(AT_FDCWD, joined_path(handle.conf_root, name).c_str(), &st);
  };
  return exists(undo_in_the_making) || exists(undo_of_no_use);
}

void remove_undo_leftovers(const zot_ctx &handle) {
  for (const char *const name : {undo_in_the_making, undo_of_no_use}) {
    remove_folder(handle, name);
  }
}

cache_media::cache_media(const zot_ctx &handle)
    : root_(open_root(handle.conf_root)), knowledge_(open_root(handle.conf_k_root)) {}

bool cache_media::sync() const {
  return root_.is_open() && knowledge_.is_open() && sync_folders(root_.get(), knowledge_.get());
}

}  // namespace zot

// SPDX-License-Identifier: Apache-2.0
// The undo folder keeps what a commit changes in the persistent cache, until the commit is done.
#pragma once

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"

namespace zot {

// Whether the files of the configuration in force are kept beside the new ones during the commit,
// or removed first.
enum class gpb_protection { kept, removed_first };

// Keeps the files in force: the K files under a second name, the GPB files by moving their
// directory, unless they are removed first. Leftovers must be removed before. After it returns
// true, a power loss leaves either all these files in place or an undo folder that restores all of
// them. Returns false with errno if the files in force are where they were.
bool begin_undo(const zot_ctx &handle, gpb_protection protection);

// Whether a commit was interrupted, or failed and was not repeated.
bool has_undo(const zot_ctx &handle);

// Where the GPB files of the configuration in force are read from: the persistent directory, or an
// undo folder whose files could not be restored because the medium is no longer writable.
class in_force_source {
 public:
  explicit in_force_source(const zot_ctx &handle);

  [[nodiscard]] const char *gpb_root() const { return has_gpbs_ ? kept_.c_str() : conf_root_; }

 private:
  const char *conf_root_;
  joined_path kept_;
  bool has_gpbs_;
};

// Reads the current, the last and the corrupted K. Each file comes from the undo folder if that
// keeps it, otherwise from the cache.
int read_kept_or_current_k(zot_ctx *handle, zot_k *k, const char *root, int flags);
int read_kept_or_last_k(zot_ctx *handle, zot_k *k, const char *root, int flags);
int read_kept_or_corrupted_k(zot_ctx *handle, zot_k *k, const char *root, int flags);

// How many of the files that an undo folder keeps do not exist. Each takes a directory in the
// folder.
unsigned count_absent_files(const zot_ctx &handle);

// Restores what the undo folder keeps and removes the folder. It may be interrupted anywhere and
// called again. Returns false with errno if something could not be restored.
bool restore_from_undo(const zot_ctx &handle);

// Ends a commit: from here on the new files are the configuration in force, even after a power
// loss. Returns false with errno if that is not certain; the undo folder then still exists.
bool retire_undo(const zot_ctx &handle);

// Undo folders that were never complete, or are no longer needed.
bool has_undo_leftovers(const zot_ctx &handle);
void remove_undo_leftovers(const zot_ctx &handle);

// The file systems of the persistent directory. Open it before the first write: the kernel reports
// an error of the medium to each descriptor that was open before, and after that to no new one.
class cache_media {
 public:
  explicit cache_media(const zot_ctx &handle);

  // Writes everything through to the medium. Returns false with errno if some of it may be lost.
  [[nodiscard]] bool sync() const;

 private:
  descriptor root_;
  descriptor knowledge_;
};

}  // namespace zot

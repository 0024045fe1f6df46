// SPDX-License-Identifier: Apache-2.0
// The undo folder: what a commit changes in the persistent cache, kept until the commit is done.
#pragma once

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_conf.h"

namespace zot {

// Whether the files of the configuration in force outlast the commit beside the new ones.
enum class gpb_protection { kept, removed_first };

// Keeps the files in force: the K files by a second name, the GPB files by moving their directory.
// Leftovers have to be gone. When it returns true, a loss of power leaves either all of it in place
// or an undo folder that brings all of it back. False, with errno, when the files in force are
// where they were.
bool begin_undo(const zot_ctx &handle, gpb_protection protection);

// Whether a commit was interrupted, or failed and was not called again.
bool has_undo(const zot_ctx &handle);

// Where the GPB files of the configuration in force are read from: the persistent directory, or an
// undo folder whose files could not be put back, because the medium cannot be written any more.
class in_force_source {
 public:
  explicit in_force_source(const zot_ctx &handle);

  [[nodiscard]] const char *gpb_root() const { return has_gpbs_ ? kept_.c_str() : conf_root_; }

 private:
  const char *conf_root_;
  joined_path kept_;
  bool has_gpbs_;
};

// Read the current K, the last one and the corrupted one, each file from the undo folder when that
// keeps it, else from the cache.
int read_kept_or_current_k(zot_ctx *handle, zot_k *k, const char *root, int flags);
int read_kept_or_last_k(zot_ctx *handle, zot_k *k, const char *root, int flags);
int read_kept_or_corrupted_k(zot_ctx *handle, zot_k *k, const char *root, int flags);

// How many of the files that an undo folder keeps are not there; each takes a directory in it.
unsigned count_absent_files(const zot_ctx &handle);

// Puts back what the undo folder keeps and removes it. May be cut off anywhere and called again.
// False, with errno, when something could not be put back.
bool restore_from_undo(const zot_ctx &handle);

// Ends a commit: the new files are the configuration in force from here on, also after a loss of
// power. False, with errno, when that is not sure; the undo folder is there still.
bool retire_undo(const zot_ctx &handle);

// Undo folders that were never complete, or are of no use any more.
bool has_undo_leftovers(const zot_ctx &handle);
void remove_undo_leftovers(const zot_ctx &handle);

// Where the persistent directory lies. Opened before it is written to: an error of the medium is
// told to each descriptor that was there before, and to nobody once it has been told.
class cache_media {
 public:
  explicit cache_media(const zot_ctx &handle);

  // Puts all that was written on the medium. False, with errno, when some of it may be lost.
  [[nodiscard]] bool sync() const;

 private:
  descriptor root_;
  descriptor knowledge_;
};

}  // namespace zot

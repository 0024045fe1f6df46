// SPDX-License-Identifier: Apache-2.0
// What an unpacked archive may leave in the scratch directory, and what becomes of the rest.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zot {

// Watches the scratch directory while an archive is unpacked into it. The archive may bring
// directories and regular files below the GPB directory and nothing else: a link or a device that
// stayed behind would let the next archive write anywhere, and a FIFO would hang the reader.
class scratch_watch {
 public:
  scratch_watch() = default;
  scratch_watch(const scratch_watch &) = delete;
  scratch_watch &operator=(const scratch_watch &) = delete;
  ~scratch_watch();

  // Removes what does not belong there and remembers the rest. False, with errno, when the
  // directory cannot be read or cleaned.
  bool begin(const zot_ctx &handle);

  // Removes what the archive should not have brought. False when there was any such thing, or when
  // the fetched K or its checksum file is not what it was.
  bool end(const zot_ctx &handle);

 private:
  struct file_digest {
    bool exists;
    std::array<unsigned char, 32> sha256;
    bool operator==(const file_digest &other) const = default;
  };
  struct guarded_files {
    file_digest k;
    file_digest checksum;
    bool operator==(const guarded_files &other) const = default;
  };

  static file_digest digest_of(const char *root, const char *name);
  static guarded_files guard(const zot_ctx &handle);
  // False when the K or its checksum file is not what was fetched; what it is goes.
  [[nodiscard]] bool drop_changed(const zot_ctx &handle) const;
  // What a name stood for before: the archive may not turn one into the other, nor may it give a
  // file another mode. An unpacker that takes a directory of a file's name for an existing one does
  // just that, and says nothing.
  [[nodiscard]] bool knows(const char *name, mode_t mode) const;
  bool remember(const char *name, mode_t mode);

  // A directory that an archive may name though it lies not below the scratch directory: mode and
  // owner are not for it to give.
  struct held_directory {
    bool hold(int parent, const char *path);
    [[nodiscard]] bool is_unchanged() const;
    [[nodiscard]] bool restore() const;

    descriptor fd{-1};
    mode_t mode = 0;
    uid_t owner = 0;
    gid_t group = 0;
  };

  held_directory root_;
  // Of the names that climb one is taken for harmless by an unpacker: "..".
  held_directory parent_;
  guarded_files before_{};
  // What lay in the scratch directory before: for each its mode, its name and a terminator. The
  // mode of a directory is that of any.
  char *names_ = nullptr;
  size_t names_size_ = 0;
};

}  // namespace zot

// SPDX-License-Identifier: Apache-2.0
// What an unpacked archive may leave in the scratch directory, and what becomes of the rest.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_priv/storage/names.hpp"

namespace zot {

// What lies below the GPB directory.
struct gpb_directory_census {
  uint64_t files = 0;
  bool has_empty_directory = false;
};

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

  // What the GPB directory held at the end.
  [[nodiscard]] const gpb_directory_census &found() const { return found_; }

 private:
  // A file that is not for the archive to change.
  class guarded_file {
   public:
    explicit guarded_file(const char *name) : name_(name) {}
    // Remembers what it holds. False, with errno, when that cannot be had.
    bool hold(int directory);
    [[nodiscard]] bool is_unchanged(int directory) const;
    void remove(int directory) const;

   private:
    const char *name_;
    // Null while there is no such file.
    c_text bytes_;
    size_t size_ = 0;
  };

  // False when the K or its checksum file is not what was fetched; what it is goes.
  [[nodiscard]] bool drop_changed() const;
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
  guarded_file k_{temporary_k.k};
  guarded_file checksum_{temporary_k.checksum};
  gpb_directory_census found_;
  // What lay in the scratch directory before: for each its mode, its name and a terminator. The
  // mode of a directory is that of any.
  char *names_ = nullptr;
  size_t names_size_ = 0;
};

}  // namespace zot

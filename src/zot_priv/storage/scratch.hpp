// SPDX-License-Identifier: Apache-2.0
// What an unpacked archive may leave in the scratch directory, and what happens to the rest.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "utilities/owner.hpp"
#include "zot_conf.h"
#include "zot_priv/storage/names.hpp"

namespace zot {

// What is below the GPB directory.
struct gpb_directory_census {
  uint64_t files = 0;
  bool has_empty_directory = false;
};

// Watches the scratch directory while an archive is unpacked into it. The archive may bring
// directories and regular files below the GPB directory and nothing else: a link or a device that
// is left behind would let the next archive write anywhere, and a FIFO would block the reader.
class scratch_watch {
 public:
  scratch_watch() = default;
  scratch_watch(const scratch_watch &) = delete;
  scratch_watch &operator=(const scratch_watch &) = delete;
  ~scratch_watch();

  // Removes what does not belong there and remembers the rest. Returns false with errno if the
  // directory cannot be read or cleaned.
  bool begin(const zot_ctx &handle);

  // Removes what the archive must not contain. False if there was any, or if the fetched K or its
  // checksum file has changed.
  bool end(const zot_ctx &handle);

  // What the GPB directory held at the end.
  [[nodiscard]] const gpb_directory_census &found() const { return found_; }

 private:
  // A file that the archive must not change.
  class guarded_file {
   public:
    explicit guarded_file(const char *name) : name_(name) {}
    // Remembers the content. Returns false with errno if it cannot be read.
    bool hold(int directory);
    [[nodiscard]] bool is_unchanged(int directory) const;
    void remove(int directory) const;

   private:
    const char *name_;
    // Null while there is no such file.
    c_text bytes_;
    size_t size_ = 0;
  };

  // Removes the K or its checksum file if it is not what was fetched. False if there was such a
  // file.
  [[nodiscard]] bool drop_changed() const;
  // Whether a name had this type and mode before. The archive must not replace a file by a
  // directory or a directory by a file, nor change the mode of a file. An unpacker that takes a
  // directory entry with the name of a file for an existing directory changes that mode silently.
  [[nodiscard]] bool knows(const char *name, mode_t mode) const;
  bool remember(const char *name, mode_t mode);

  // A directory that an archive can name although it is not below the scratch directory. The
  // archive must not change its mode or owner.
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
  // Of all names that lead upwards, an unpacker accepts one as harmless: "..".
  held_directory parent_;
  guarded_file k_{temporary_k.k};
  guarded_file checksum_{temporary_k.checksum};
  gpb_directory_census found_;
  // What was in the scratch directory before: for each entry its mode, its name and a terminator.
  // All directories have the same mode here.
  char *names_ = nullptr;
  size_t names_size_ = 0;
};

}  // namespace zot

// SPDX-License-Identifier: Apache-2.0
// The files of a relay's store, each one once under its SHA-256, and the parts of files that have
// not arrived completely.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/files/folder.hpp"
#include "tools/model/manifest.hpp"

namespace zotconf {

class object_folder {
 public:
  // Creates its folders if they are missing. The root has to outlive this object.
  explicit object_folder(const folder &root);

  // Whether the file is there with its size. Does not read it.
  [[nodiscard]] bool has(const published_file &file) const;
  // Those that are not there with their size, in the order of their checksums. Reads none. Takes a
  // fraction of the time of as many calls of has().
  [[nodiscard]] std::vector<const published_file *> absent(
      const std::vector<published_file> &files) const;
  // Opens the file after all of its bytes were verified. The result is not open when it is missing
  // or damaged.
  [[nodiscard]] zot::descriptor open(const published_file &file) const;
  void remove(const std::string &checksum) const;

  // Where the bytes of a file are collected.
  [[nodiscard]] fs::path partial(const published_file &file) const;
  // Verifies the collected bytes and moves them to the files; nothing is flushed. Returns false,
  // and removes them, if they are not those of the file.
  [[nodiscard]] bool take(const published_file &file) const;

  // Removes all other files and parts. Both lists are sorted.
  void keep_only(const std::vector<std::string_view> &files,
                 const std::vector<std::string_view> &parts) const;

 private:
  [[nodiscard]] std::optional<folder> folder_of(const std::string &checksum) const;

  const folder &root_;
};

}  // namespace zotconf

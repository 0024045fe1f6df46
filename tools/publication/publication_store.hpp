// SPDX-License-Identifier: Apache-2.0
// The publication folder: what `publish` writes and `serve` reads.
//
//   config/<Category>/<key>/<version>                          the files, never rewritten
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.k           K of one element
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.checksum    its SHA-256 and a newline
//
// Versions are shared by all elements of a folder, so elements may share files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"

namespace zotconf {

// The latest K of an element, or its checksum file, by ".k" or ".checksum": the pieces of the path,
// and where it lies in a publication folder.
std::vector<std::string> latest_parts(const element &who, const std::string &suffix);
fs::path latest_file(const fs::path &publication, const element &who, const std::string &suffix);

// The pieces config, category, key and version of a requested name; doubled slashes count as one.
// Nothing for a name of another form or one with "." or "..".
std::optional<std::vector<std::string>> split_member_name(const std::string &name);

class publication_store {
 public:
  explicit publication_store(fs::path root) : root_(std::move(root)) {}

  // Creates the folder and keeps other publishers out until the store goes away.
  void lock();

  [[nodiscard]] std::optional<std::string> read_k(const element &who) const;
  [[nodiscard]] std::optional<std::string> read_checksum(const element &who) const;

  // The highest version of an object that lies here, 0 for none.
  [[nodiscard]] uint64_t highest_version(const published_file &file) const;
  [[nodiscard]] bool holds(const published_file &file) const;
  void write(const published_file &file, std::string_view bytes) const;

  // Makes a K the latest of an element. The files come to the medium first, K next, the checksum
  // that announces it last.
  void announce(const element &who, const std::string &k) const;

  // Opens config/<Category>/<key>/<version>; not open when it isn't there.
  [[nodiscard]] zot::descriptor open_member(const std::vector<std::string> &parts) const;

 private:
  [[nodiscard]] fs::path object_folder(const published_file &file) const;
  [[nodiscard]] std::optional<std::string> read_latest(const element &who,
                                                       const std::string &suffix) const;
  void flush() const;

  fs::path root_;
  zot::descriptor lock_{-1};
};

}  // namespace zotconf

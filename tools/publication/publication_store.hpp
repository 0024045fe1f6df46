// SPDX-License-Identifier: Apache-2.0
// The publication folder: what `publish` writes and `serve` reads.
//
//   config/<Category>/<key>/<version>                          the files, never rewritten
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.k           K of one element
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.checksum    its SHA-256 and a newline
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.k.p7s       its signature, if it is signed
//   .lock                                                      locked by the writer
//   .spent                                                     a version; new versions are higher
//
// All elements of a folder share the versions, so they share files. An element may have any version
// in force that was ever published, and treats a version that it knows as unchanged. So a version
// is never used again for other bytes, even when its file has been removed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/model/names.hpp"
#include "tools/publication/served_files.hpp"

namespace zotconf {

// The latest K of an element (suffix ".k"), its checksum file (".checksum") or its signature
// (".k.p7s"): the parts of its path, and the whole path in a publication folder.
std::vector<std::string> latest_parts(const element &who, const std::string &suffix);
fs::path latest_file(const fs::path &publication, const element &who, const std::string &suffix);

// Splits a requested name into config, category, key and version; doubled slashes count as one.
// Returns nullopt for a name of another form or with "." or "..".
std::optional<std::vector<std::string>> split_member_name(const std::string &name);
// The relative path of these parts.
std::string member_name(const std::vector<std::string> &parts);

class publication_store : public served_files {
 public:
  explicit publication_store(fs::path root) : root_(std::move(root)) {}

  // Creates the folder and locks it against other writers until the store is destroyed.
  void lock();
  // Locks the folder for reading and changes nothing in it. Without a lock file there is no writer
  // to wait for.
  void lock_to_read();

  [[nodiscard]] std::optional<std::string> read_k(const element &who) const;
  [[nodiscard]] std::optional<std::string> read_checksum(const element &who) const override;
  [[nodiscard]] std::optional<std::string> read_signature(const element &who) const;

  // The stored versions of an object, highest first.
  [[nodiscard]] std::vector<uint64_t> versions_of(const published_file &file) const;
  // The size of this version; nullopt if it is not a regular file.
  [[nodiscard]] std::optional<uint64_t> size_of(const published_file &file) const;
  // The checksum of this version's bytes; empty if it is not a regular file of this size.
  [[nodiscard]] std::string checksum_of(const published_file &file) const;
  void write(const published_file &file, std::string_view bytes) const;

  // Versions up to this one must not be used for new bytes, even when their files do not exist.
  [[nodiscard]] uint64_t spent_version() const;
  // Raises spent_version(). It is on the medium when this returns.
  void spend(uint64_t version) const;

  // Sets the time of a file that K no longer lists to now, because a reader of the previous K may
  // still request it. Returns whether the file has this time or does not exist.
  [[nodiscard]] bool stamp(const published_file &file) const;
  // Puts a signature beside the K that is there.
  void write_signature(const element &who, const std::string &signature) const;

  // Flushes everything that was written to the folder to the medium, the names too.
  void flush() const;

  [[nodiscard]] const fs::path &root() const { return root_; }
  [[nodiscard]] zot::descriptor open_member(const std::vector<std::string> &parts) const override;

 private:
  [[nodiscard]] fs::path object_folder(const published_file &file) const;
  [[nodiscard]] std::optional<std::string> read_latest(const element &who,
                                                       const std::string &suffix) const;

  fs::path root_;
  zot::descriptor lock_{-1};
};

}  // namespace zotconf

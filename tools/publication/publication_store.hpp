// SPDX-License-Identifier: Apache-2.0
// The publication folder: what `publish` writes and `serve` reads.
//
//   config/<Category>/<key>/<version>                          the files, never rewritten
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.k           K of one element
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.checksum    its SHA-256 and a newline
//   file/knowledge/<SUBSYS>/<INDEX>/latest/<INDEX>.k.p7s       its signature, when it is signed
//   .lock                                                      locked by who changes the folder
//   .spent                                                     a version; new ones are above it
//
// Versions are shared by all elements of a folder, so elements share files. An element may have any
// version in force that was ever published, and takes a version that it knows for unchanged. So no
// number is given to other bytes, also when its file is gone.
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

// The latest K of an element, its checksum file or its signature, by ".k", ".checksum" or ".k.p7s":
// the pieces of the path, and where it lies in a publication folder.
std::vector<std::string> latest_parts(const element &who, const std::string &suffix);
fs::path latest_file(const fs::path &publication, const element &who, const std::string &suffix);

// The pieces config, category, key and version of a requested name; doubled slashes count as one.
// Nothing for a name of another form or one with "." or "..".
std::optional<std::vector<std::string>> split_member_name(const std::string &name);

class publication_store {
 public:
  explicit publication_store(fs::path root) : root_(std::move(root)) {}

  // Creates the folder and keeps all others out that change it until the store goes away.
  void lock();
  // The same without a change of the folder, for who only reads it. Where nobody has ever locked
  // it, there is nobody to wait for.
  void lock_to_read();

  [[nodiscard]] std::optional<std::string> read_k(const element &who) const;
  [[nodiscard]] std::optional<std::string> read_checksum(const element &who) const;
  [[nodiscard]] std::optional<std::string> read_signature(const element &who) const;

  // The versions of an object that lie here, highest first.
  [[nodiscard]] std::vector<uint64_t> versions_of(const published_file &file) const;
  // The first of these versions whose file has the size and the checksum of `file`.
  [[nodiscard]] std::optional<uint64_t> find(const published_file &file,
                                             const std::vector<uint64_t> &versions) const;
  [[nodiscard]] bool holds(const published_file &file) const;
  void write(const published_file &file, std::string_view bytes) const;

  // No version up to this one may be given to new bytes, whatever lies here.
  [[nodiscard]] uint64_t spent_version() const;
  // Raises it; on the medium when this returns.
  void spend(uint64_t version) const;

  // Makes a K the latest of an element. The files come to the medium first, then the signature, K,
  // and the checksum that announces it; without a signature the one of the K before is removed.
  // Right before, the files that it drops get the time of now, for a reader of the K before may
  // still ask for them. Returns how many of them could not be given it.
  [[nodiscard]] size_t announce(const element &who, const std::string &k,
                                const std::optional<std::string> &signature,
                                const std::vector<published_file> &dropped) const;
  // Puts a signature beside the K that is there.
  void write_signature(const element &who, const std::string &signature) const;

  // Opens config/<Category>/<key>/<version>; not open when it isn't there.
  [[nodiscard]] zot::descriptor open_member(const std::vector<std::string> &parts) const;

 private:
  [[nodiscard]] fs::path object_folder(const published_file &file) const;
  [[nodiscard]] std::optional<std::string> read_latest(const element &who,
                                                       const std::string &suffix) const;
  [[nodiscard]] bool stamp(const published_file &file) const;
  void flush() const;

  fs::path root_;
  zot::descriptor lock_{-1};
};

}  // namespace zotconf

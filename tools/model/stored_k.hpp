// SPDX-License-Identifier: Apache-2.0
// A K on disk with the files that it names, checked by the library's own operations. Writes
// nothing.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/judge.hpp"
#include "tools/model/manifest.hpp"

namespace zotconf {

// A file that a K names.
struct listed_file : published_file {
  std::string path;  // as stated in K: /category/key/version
};

// A K on disk. When `wrong` is empty, its content is good and matches the checksum file, if there
// is one.
struct stored_k {
  fs::path k;
  fs::path checksum_file;   // empty: K has none
  fs::path root;            // its files are below root/config; empty: there are none
  bool is_present = false;  // K or the checksum file exists
  std::optional<library_status> wrong;
  bool is_loadable = false;  // K is well formed and matches its checksum; its list may be bad
  std::string announced;     // the first line of the checksum file
  std::string checksum;      // SHA-256 of the bytes
  std::string bytes;
  std::optional<std::time_t> written;
  std::string cluster;
  std::string config_id;
  std::string firmware;
  std::vector<listed_file> files;  // sorted by category, key and version

  // The file that causes the error. The library checks the checksum file first and stops there if
  // it is bad.
  [[nodiscard]] const fs::path &bad_file() const {
    return !checksum_file.empty() && announced.size() != ZOT_CHECKSUM_LEN ? checksum_file : k;
  }
  [[nodiscard]] bool is_good() const { return is_present && !wrong; }
  [[nodiscard]] uint64_t size_of_files() const;
};

// Reads a K file, and compares it with its checksum file when `checksum_file` is not empty.
stored_k read_k_file(const fs::path &k, const fs::path &checksum_file, const fs::path &root);

// The path of a listed file below `root`.
fs::path path_of(const listed_file &file, const fs::path &root);

// Compares a listed file below `root` with K. Returns nullopt when it matches.
std::optional<library_status> check_file(const listed_file &file, const fs::path &root);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// A K as it lies on disk with the files it announces, judged by the library's own operations
// without writing a byte.
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

// One file that a K announces.
struct listed_file : published_file {
  std::string path;  // as K states it: /category/key/version
};

// A K as it lies on disk. Without `wrong` its content is good and was held against the checksum
// file, where there is one.
struct stored_k {
  fs::path k;
  fs::path checksum_file;   // empty: none belongs to it
  fs::path root;            // its files lie below root/config; empty: nowhere
  bool is_present = false;  // one of the two files is there
  std::optional<library_status> wrong;
  bool is_loadable = false;  // K and checksum agree and K is well formed, whatever its list is like
  std::string announced;     // the first line of the checksum file
  std::string checksum;      // SHA-256 of the bytes
  std::string bytes;
  std::optional<std::time_t> written;
  std::string cluster;
  std::string config_id;
  std::string firmware;
  std::vector<listed_file> files;  // by category, key and version

  // The file that is to blame when something is wrong: the library stops at the checksum file.
  [[nodiscard]] const fs::path &bad_file() const {
    return !checksum_file.empty() && announced.size() != ZOT_CHECKSUM_LEN ? checksum_file : k;
  }
  [[nodiscard]] bool is_good() const { return is_present && !wrong; }
  [[nodiscard]] uint64_t size_of_files() const;
};

// A K file alone, or held against its checksum file when `checksum_file` is not empty.
stored_k read_k_file(const fs::path &k, const fs::path &checksum_file, const fs::path &root);

// Where a listed file lies below `root`.
fs::path path_of(const listed_file &file, const fs::path &root);

// Judges the bytes of a listed file below `root`. Nothing when they are what K announces.
std::optional<library_status> check_file(const listed_file &file, const fs::path &root);

}  // namespace zotconf

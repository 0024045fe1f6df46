// SPDX-License-Identifier: Apache-2.0
// What lies in an element's cache and in K files, read and judged by the library's own operations
// without writing a byte.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/judge.hpp"
#include "tools/publication/publication_store.hpp"

namespace zotconf {

// The directories that the library uses in this environment.
struct cache_paths {
  fs::path conf_root;
  fs::path tmp_root;
  bool dev_mode = false;
  uint32_t port = 0;
};

cache_paths find_cache();

enum class k_slot { current, last, corrupted, scratch };

inline constexpr std::array<k_slot, 4> k_slots = {k_slot::current, k_slot::last, k_slot::corrupted,
                                                  k_slot::scratch};

std::string_view name_of(k_slot slot);

// The folder that a commit keeps the configuration before it in until it has ended.
fs::path undo_folder(const cache_paths &paths);

// Whether that folder keeps the files of that configuration, or the mark that it had none.
bool has_undo_of_files(const cache_paths &paths);

// Nothing for a name that no slot has.
std::optional<k_slot> slot_of(std::string_view name);

// One file that a K announces.
struct listed_file : published_file {
  std::string path;  // as K states it: /category/key/version
};

// Whether anything stands at a path, a dangling link included.
bool is_there(const fs::path &path);

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

// As the next start finds it: while a commit has not ended, what it keeps of the configuration
// before it is in force.
stored_k read_slot(const cache_paths &paths, k_slot slot);

// A K file alone, or held against its checksum file when `checksum_file` is not empty.
stored_k read_k_file(const fs::path &k, const fs::path &checksum_file, const fs::path &root);

// The latest K of an element in a publication folder.
stored_k read_published(const fs::path &publication, const element &who);

// The elements that a publication folder has a K for, sorted.
std::vector<element> published_elements(const fs::path &publication);

// What a user named: a slot ("current", "last", "corrupted", "scratch"), a publication folder, or a
// K file, with its checksum file when one lies beside it. `who` names the element of a publication
// that has several; its index may be empty otherwise. Throws std::runtime_error when `name` is
// none of them.
stored_k read_source(const std::string &name, const element &who);

// Where a listed file lies below `root`.
fs::path path_of(const listed_file &file, const fs::path &root);

// Judges the bytes of a listed file below `root`. Nothing when they are what K announces.
std::optional<library_status> check_file(const listed_file &file, const fs::path &root);

}  // namespace zotconf

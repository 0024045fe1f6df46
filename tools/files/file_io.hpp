// SPDX-License-Identifier: Apache-2.0
// File functions for the commands: read a whole file, replace a file atomically, open a file below
// a folder.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "utilities/owner.hpp"

namespace zotconf {

namespace fs = std::filesystem;

// Whether a path exists; true for a dangling link too.
bool is_there(const fs::path &path);
// Throws std::runtime_error if something else than a regular file is there, such as a device or a
// link, which would be lost when a new file replaces it.
void check_replaceable(const fs::path &path);

// Throws std::system_error with the current errno; `what` names the action and the file.
[[noreturn]] void throw_errno(const std::string &what);

// Whether the process or the system lacks descriptors or memory, so that the error says nothing
// about the file.
bool is_exhausted(int error);

std::string read_file_at(int fd, const std::string &name);
// Reads no more than the first `most` bytes, whatever size the file has.
std::string read_beginning_at(int fd, size_t most, const std::string &name);
std::string read_file_text(const fs::path &path);

void write_all(int fd, std::string_view bytes, const std::string &name);

enum class durability { buffered, flushed };

// The temporary file that replaces `path` when it is renamed, in the same folder.
fs::path temporary_beside(const fs::path &path);
// Writes that file. With durability::flushed, it also flushes the bytes to the medium.
void write_beside(const fs::path &path, std::string_view bytes, durability kept);
// Renames that file over `path`. Unless that was done, the destructor removes the file.
class replacement {
 public:
  explicit replacement(fs::path path) : path_(std::move(path)) {}
  replacement(const replacement &) = delete;
  replacement &operator=(const replacement &) = delete;
  ~replacement();
  void finish();

 private:
  fs::path path_;
  bool is_finished_ = false;
};

// Writes the temporary file and renames it over `path`.
void replace_file(const fs::path &path, std::string_view bytes, durability kept);

// Opens the regular file root/part/part/… and follows no symbolic link below root. The result is
// not open when there is no such file.
zot::descriptor open_beneath(const fs::path &root, std::span<const std::string> parts);

std::string sha256_text(std::string_view bytes);

// A new folder; the destructor removes it with its contents.
class temporary_folder {
 public:
  // Below the system's temporary folder.
  temporary_folder() : temporary_folder(fs::temp_directory_path()) {}
  explicit temporary_folder(const fs::path &parent);
  temporary_folder(const temporary_folder &) = delete;
  temporary_folder &operator=(const temporary_folder &) = delete;
  ~temporary_folder();
  [[nodiscard]] const fs::path &path() const { return path_; }
  // It stays when this object goes.
  void keep() { is_kept_ = true; }

 private:
  fs::path path_;
  bool is_kept_ = false;
};

}  // namespace zotconf

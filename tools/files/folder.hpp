// SPDX-License-Identifier: Apache-2.0
// A folder that is held open. Its functions take a name in it and follow no symbolic link of that
// name, so they read, write and remove nothing outside.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/files/file_io.hpp"

namespace zotconf {

class folder {
 public:
  // Here a symbolic link is followed. Throws std::system_error if it cannot be opened.
  explicit folder(const fs::path &path);

  [[nodiscard]] const fs::path &path() const { return path_; }
  [[nodiscard]] int get() const { return file_.get(); }

  // The folder of this name; nullopt if there is none.
  [[nodiscard]] std::optional<folder> find(const std::string &name) const;
  // The same, created with the mode 0755 less the umask if it is missing. Throws std::system_error.
  [[nodiscard]] folder make(const std::string &name) const;
  // Calls `visit` with each name in it, in no order. Throws std::system_error.
  void each_name(const std::function<void(const std::string &)> &visit) const;
  // All of them.
  [[nodiscard]] std::vector<std::string> names() const;

  // Opens a regular file for reading. The result is not open when there is none. Throws
  // std::system_error if descriptors or memory are used up.
  [[nodiscard]] zot::descriptor open(const std::string &name) const;
  // The size of a regular file; nullopt if there is none.
  [[nodiscard]] std::optional<uint64_t> size_of(const std::string &name) const;
  // Whether the name exists; a symbolic link need not lead anywhere.
  [[nodiscard]] bool has(const std::string &name) const;
  // Whether the name belongs to anything but a regular file. False if that cannot be found out.
  [[nodiscard]] bool is_other_than_file(const std::string &name) const;
  // The target of a symbolic link; nullopt if there is none.
  [[nodiscard]] std::optional<std::string> target_of(const std::string &name) const;

  // Write a file with the mode 0644 less the umask, or a symbolic link, in place of what has the
  // name. Nothing is flushed. Throw std::system_error.
  void write(const std::string &name, std::string_view bytes) const;
  void link(const std::string &name, const std::string &target) const;
  // Renames over what has the new name. Throws std::system_error.
  void rename(const std::string &name, const folder &to, const std::string &new_name) const;
  // Sets the time of a file, if the file system can.
  void stamp(const std::string &name, std::time_t time) const;
  // Removes a file, a link or an empty folder. What cannot be removed stays.
  void remove(const std::string &name) const noexcept;

  // Flushes the names in this folder, or everything in its file system. Throw std::system_error.
  void flush() const;
  void flush_file_system() const;

 private:
  folder(zot::descriptor file, fs::path path) : file_(std::move(file)), path_(std::move(path)) {}

  zot::descriptor file_;
  fs::path path_;
};

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// Files and directories as the tests arrange and inspect them.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zot::test {

// A directory of its own for one test, removed with everything in it at the end.
class temp_dir {
 public:
  temp_dir();
  temp_dir(const temp_dir &) = delete;
  temp_dir &operator=(const temp_dir &) = delete;
  ~temp_dir();

  [[nodiscard]] const std::string &path() const { return path_; }
  [[nodiscard]] std::string operator/(std::string_view name) const;

 private:
  std::string path_;
};

// Creates the parents too; an existing file is replaced.
void write_bytes(const std::filesystem::path &path, std::string_view bytes);

// Throws when the file cannot be read, so that no test takes an absent file for an empty one.
[[nodiscard]] std::string read_bytes(const std::filesystem::path &path);

// One bit in the middle of a file.
void flip_bit(const std::filesystem::path &path);

// True for anything at that path, a dangling symbolic link included.
[[nodiscard]] bool exists(const std::filesystem::path &path);

// Names of the regular files below a directory, relative to it and sorted; empty when it is absent.
[[nodiscard]] std::vector<std::string> tree(const std::filesystem::path &path);

// Bytes that no packer makes shorter, the same ones each time.
[[nodiscard]] std::string noise(std::size_t size);

// 64 lower-case digits.
[[nodiscard]] std::string sha256_hex(std::string_view bytes);

}  // namespace zot::test

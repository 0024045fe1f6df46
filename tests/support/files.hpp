// SPDX-License-Identifier: Apache-2.0
// Creates and inspects files and directories for tests.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zot::test {

// A directory for one test, removed with everything in it at the end.
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

// Creates parent directories too, and replaces an existing file.
void write_bytes(const std::filesystem::path &path, std::string_view bytes);

// Throws if the file cannot be read, so that no test takes a missing file for an empty one.
[[nodiscard]] std::string read_bytes(const std::filesystem::path &path);

// Flips one bit in the middle of a file.
void flip_bit(const std::filesystem::path &path);

// True if anything exists at that path, even a dangling symbolic link.
[[nodiscard]] bool exists(const std::filesystem::path &path);

// The names of the regular files below a directory, relative to it and sorted; empty if it does not
// exist.
[[nodiscard]] std::vector<std::string> tree(const std::filesystem::path &path);

// Bytes that cannot be compressed, the same ones each time.
[[nodiscard]] std::string noise(std::size_t size);

// The digest as 64 lower-case digits.
[[nodiscard]] std::string sha256_hex(std::string_view bytes);

}  // namespace zot::test

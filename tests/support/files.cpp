// SPDX-License-Identifier: Apache-2.0
#include "tests/support/files.hpp"

#include <openssl/evp.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <system_error>

namespace zot::test {
namespace fs = std::filesystem;
namespace {

// A test may have removed permissions to provoke a failure.
void make_removable(const fs::path &path) {
  std::error_code ignored;
  fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, ignored);
  for (const fs::directory_entry &entry : fs::directory_iterator(path, ignored)) {
    if (entry.symlink_status(ignored).type() == fs::file_type::directory) {
      make_removable(entry.path());
    }
  }
}

}  // namespace

temp_dir::temp_dir() {
  path_ = (fs::temp_directory_path() / "zotconf-XXXXXX").string();
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), path_);
  }
}

temp_dir::~temp_dir() {
  std::error_code ignored;
  make_removable(path_);
  fs::remove_all(path_, ignored);
}

std::string temp_dir::operator/(std::string_view name) const {
  return path_ + "/" + std::string(name);
}

void write_bytes(const fs::path &path, std::string_view bytes) {
  if (path.has_parent_path()) {
    fs::create_directories(path.parent_path());
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

std::string read_bytes(const fs::path &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void flip_bit(const fs::path &path) {
  std::string bytes = read_bytes(path);
  bytes.at(bytes.size() / 2) ^= 1;
  write_bytes(path, bytes);
}

bool exists(const fs::path &path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::vector<std::string> tree(const fs::path &path) {
  std::vector<std::string> names;
  if (!fs::is_directory(path)) {
    return names;
  }
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path)) {
    if (fs::is_regular_file(entry.symlink_status())) {
      names.push_back(entry.path().lexically_relative(path).string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string noise(std::size_t size) {
  std::mt19937 source(5);
  std::string bytes(size, '\0');
  for (char &each : bytes) {
    each = static_cast<char>(source());
  }
  return bytes;
}

std::string sha256_hex(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not available");
  }
  static constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    text += digits[digest[i] >> 4U];
    text += digits[digest[i] & 0x0fU];
  }
  return text;
}

}  // namespace zot::test

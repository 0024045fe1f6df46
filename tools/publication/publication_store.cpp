// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publication_store.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <utility>

namespace zotconf {
namespace {

void wait_for_lock(const zot::descriptor &file, int kind, const fs::path &path) {
  while (::flock(file.get(), kind) != 0) {
    if (errno != EINTR) {
      throw_errno("cannot lock " + path.string());
    }
  }
}

// Opens a regular file of this size. A symbolic link or FIFO at the path does not count.
zot::descriptor open_regular(const fs::path &path, uint64_t size) {
  zot::descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info {};
  const bool fits = file.is_open() && ::fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) &&
                    std::cmp_equal(info.st_size, size);
  return fits ? std::move(file) : zot::descriptor(-1);
}

}  // namespace

std::vector<std::string> latest_parts(const element &who, const std::string &suffix) {
  return {"file", "knowledge", who.subsys, who.index, "latest", who.index + suffix};
}

fs::path latest_file(const fs::path &publication, const element &who, const std::string &suffix) {
  fs::path path = publication;
  for (const std::string &part : latest_parts(who, suffix)) {
    path /= part;
  }
  return path;
}

std::optional<std::vector<std::string>> split_member_name(const std::string &name) {
  std::vector<std::string> parts;
  for (size_t at = 0; at < name.size();) {
    const size_t end = std::min(name.find('/', at), name.size());
    if (end > at) {
      parts.push_back(name.substr(at, end - at));
    }
    at = end + 1;
  }
  const auto is_dots = [](const std::string &part) { return part == "." || part == ".."; };
  const bool trailing_slash = !name.empty() && name.back() == '/';
  if (parts.size() != 4 || parts.front() != "config" || trailing_slash ||
      std::ranges::any_of(parts, is_dots)) {
    return std::nullopt;
  }
  return parts;
}

std::string member_name(const std::vector<std::string> &parts) {
  std::string name;
  for (const std::string &part : parts) {
    name += (name.empty() ? "" : "/") + part;
  }
  return name;
}

void publication_store::lock() {
  fs::create_directories(root_);
  const fs::path path = root_ / ".lock";
  lock_ = zot::descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!lock_.is_open()) {
    throw_errno("cannot open " + path.string());
  }
  wait_for_lock(lock_, LOCK_EX, path);
}

void publication_store::lock_to_read() {
  const fs::path path = root_ / ".lock";
  lock_ = zot::descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (lock_.is_open()) {
    return wait_for_lock(lock_, LOCK_SH, path);
  }
  if (errno != ENOENT) {
    throw_errno("cannot open " + path.string());
  }
}

std::optional<std::string> publication_store::read_latest(const element &who,
                                                          const std::string &suffix) const {
  const auto parts = latest_parts(who, suffix);
  const zot::descriptor file = open_beneath(root_, parts);
  if (!file.is_open()) {
    return std::nullopt;
  }
  return read_file_at(file.get(), parts.back());
}

std::optional<std::string> publication_store::read_k(const element &who) const {
  return read_latest(who, ".k");
}

std::optional<std::string> publication_store::read_checksum(const element &who) const {
  return read_latest(who, ".checksum");
}

std::optional<std::string> publication_store::read_signature(const element &who) const {
  return read_latest(who, ".k.p7s");
}

fs::path publication_store::object_folder(const published_file &file) const {
  return root_ / "config" / file.category_name / file.key;
}

std::vector<uint64_t> publication_store::versions_of(const published_file &file) const {
  const fs::path folder = object_folder(file);
  std::vector<uint64_t> versions;
  if (!fs::exists(folder)) {
    return versions;
  }
  for (const auto &entry : fs::directory_iterator(folder)) {
    if (const auto version = parse_version(entry.path().filename().string())) {
      versions.push_back(*version);
    }
  }
  std::ranges::sort(versions, std::greater());
  return versions;
}

std::optional<uint64_t> publication_store::size_of(const published_file &file) const {
  const fs::path path = object_folder(file) / std::to_string(file.version);
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return std::nullopt;
  }
  return static_cast<uint64_t>(info.st_size);
}

std::string publication_store::checksum_of(const published_file &file) const {
  const fs::path path = object_folder(file) / std::to_string(file.version);
  const zot::descriptor stored = open_regular(path, file.size);
  return stored.is_open() ? sha256_text(read_file_at(stored.get(), path.string())) : "";
}

void publication_store::write(const published_file &file, std::string_view bytes) const {
  const fs::path folder = object_folder(file);
  fs::create_directories(folder);
  replace_file(folder / std::to_string(file.version), bytes, durability::buffered);
}

void publication_store::flush() const {
  if (::syncfs(lock_.get()) != 0) {
    throw_errno("cannot flush " + root_.string());
  }
}

uint64_t publication_store::spent_version() const {
  const fs::path path = root_ / ".spent";
  if (!is_there(path)) {
    return 0;
  }
  const std::string text = read_file_text(path);
  const auto version = parse_version(text.substr(0, text.find('\n')));
  if (!version) {
    throw std::runtime_error(path.string() + ": contains no version");
  }
  return *version;
}

void publication_store::spend(uint64_t version) const {
  if (version > spent_version()) {
    replace_file(root_ / ".spent", std::to_string(version) + "\n", durability::flushed);
    flush();
  }
}

bool publication_store::stamp(const published_file &file) const {
  const fs::path path = object_folder(file) / std::to_string(file.version);
  return ::utimensat(AT_FDCWD, path.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) == 0 || errno == ENOENT;
}

void publication_store::write_signature(const element &who, const std::string &signature) const {
  replace_file(latest_file(root_, who, ".k.p7s"), signature, durability::flushed);
}

zot::descriptor publication_store::open_member(const std::vector<std::string> &parts) const {
  return open_beneath(root_, parts);
}

}  // namespace zotconf

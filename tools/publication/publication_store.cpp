// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publication_store.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>

namespace zotconf {

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

void publication_store::lock() {
  fs::create_directories(root_);
  const fs::path path = root_ / ".lock";
  lock_ = zot::descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!lock_.is_open()) {
    throw_errno("cannot open " + path.string());
  }
  while (::flock(lock_.get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      throw_errno("cannot lock " + path.string());
    }
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

fs::path publication_store::object_folder(const published_file &file) const {
  return root_ / "config" / file.category_name / file.key;
}

uint64_t publication_store::highest_version(const published_file &file) const {
  const fs::path folder = object_folder(file);
  if (!fs::exists(folder)) {
    return 0;
  }
  uint64_t highest = 0;
  for (const auto &entry : fs::directory_iterator(folder)) {
    highest = std::max(highest, parse_version(entry.path().filename().string()).value_or(0));
  }
  return highest;
}

bool publication_store::holds(const published_file &file) const {
  std::error_code absent;
  const auto size = fs::file_size(object_folder(file) / std::to_string(file.version), absent);
  return !absent && size == file.size;
}

void publication_store::write(const published_file &file, std::string_view bytes) const {
  const fs::path folder = object_folder(file);
  fs::create_directories(folder);
  replace_file(folder / std::to_string(file.version), bytes, durability::buffered);
}

// Everything reaches the medium before K names it: bytes, and the names of new files and folders.
void publication_store::flush() const {
  if (::syncfs(lock_.get()) != 0) {
    throw_errno("cannot flush " + root_.string());
  }
}

void publication_store::announce(const element &who, const std::string &k) const {
  const fs::path path = latest_file(root_, who, ".k");
  fs::create_directories(path.parent_path());
  flush();
  replace_file(path, k, durability::flushed);
  replace_file(latest_file(root_, who, ".checksum"), sha256_text(k) + "\n", durability::flushed);
  flush();
}

zot::descriptor publication_store::open_member(const std::vector<std::string> &parts) const {
  return open_beneath(root_, parts);
}

}  // namespace zotconf

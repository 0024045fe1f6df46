// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/object_folder.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/files/digest.hpp"

namespace zotconf {
namespace {

constexpr const char *objects = "objects";
constexpr const char *partials = "partial";
constexpr size_t folder_digits = 2;

// The checksum becomes a path, so no other text may be used.
const std::string &checked(const std::string &checksum) {
  if (!is_digest(checksum)) {
    throw std::runtime_error("not a SHA-256 in K: " + checksum);
  }
  return checksum;
}

std::string folder_name(const std::string &checksum) {
  return checksum.substr(0, folder_digits);
}

std::string file_name(const std::string &checksum) {
  return checksum.substr(folder_digits);
}

// Throws std::system_error if the file cannot be read.
bool has_bytes_of(const zot::descriptor &opened, const published_file &file) {
  struct stat info {};
  return opened.is_open() && ::fstat(opened.get(), &info) == 0 &&
         std::cmp_equal(info.st_size, file.size) &&
         sha256_of_file(opened.get(), file.checksum) == file.checksum;
}

// A file that cannot be read is as useless as one with other bytes.
bool is_usable(const zot::descriptor &opened, const published_file &file) {
  try {
    return has_bytes_of(opened, file);
  } catch (const std::system_error &) {
    return false;
  }
}

std::vector<const published_file *> by_checksum(const std::vector<published_file> &files) {
  std::vector<const published_file *> sorted;
  sorted.reserve(files.size());
  for (const published_file &file : files) {
    sorted.push_back(&file);
  }
  std::ranges::sort(sorted, [](const published_file *one, const published_file *other) {
    return one->checksum < other->checksum;
  });
  return sorted;
}

void remove_others(const folder &where, const std::string &prefix,
                   const std::vector<std::string_view> &kept) {
  for (const std::string &name : where.names()) {
    const bool is_kept = std::ranges::binary_search(kept, std::string_view(prefix + name));
    if (!is_kept || where.is_other_than_file(name)) {
      where.remove(name);
    }
  }
}

}  // namespace

object_folder::object_folder(const folder &root) : root_(root) {
  static_cast<void>(root_.make(objects));
  static_cast<void>(root_.make(partials));
}

std::optional<folder> object_folder::folder_of(const std::string &checksum) const {
  const auto all = root_.find(objects);
  return all && is_digest(checksum) ? all->find(folder_name(checksum)) : std::nullopt;
}

bool object_folder::has(const published_file &file) const {
  const auto where = folder_of(file.checksum);
  return where && where->size_of(file_name(file.checksum)) == file.size;
}

// A folder is opened once for all of its files.
std::vector<const published_file *> object_folder::absent(
    const std::vector<published_file> &files) const {
  std::vector<const published_file *> found;
  std::string name;
  std::optional<folder> where;
  for (const published_file *const file : by_checksum(files)) {
    if (is_digest(file->checksum) && name != folder_name(file->checksum)) {
      name = folder_name(file->checksum);
      where = folder_of(file->checksum);
    }
    const bool is_there = is_digest(file->checksum) && where &&
                          where->size_of(file_name(file->checksum)) == file->size;
    if (!is_there) {
      found.push_back(file);
    }
  }
  return found;
}

zot::descriptor object_folder::open(const published_file &file) const {
  const auto where = folder_of(file.checksum);
  zot::descriptor opened = where ? where->open(file_name(file.checksum)) : zot::descriptor(-1);
  return is_usable(opened, file) ? std::move(opened) : zot::descriptor(-1);
}

void object_folder::remove(const std::string &checksum) const {
  if (const auto where = folder_of(checksum)) {
    where->remove(file_name(checksum));
  }
}

fs::path object_folder::partial(const published_file &file) const {
  return root_.make(partials).path() / checked(file.checksum);
}

bool object_folder::take(const published_file &file) const {
  const folder parts = root_.make(partials);
  const std::string &name = checked(file.checksum);
  bool is_taken = false;
  try {
    is_taken = has_bytes_of(parts.open(name), file);
  } catch (const std::system_error &) {
    // The medium may read the bytes of another fetch.
    parts.remove(name);
    throw;
  }
  if (!is_taken) {
    parts.remove(name);
    return false;
  }
  parts.rename(name, root_.make(objects).make(folder_name(name)), file_name(name));
  return true;
}

void object_folder::keep_only(const std::vector<std::string_view> &files,
                              const std::vector<std::string_view> &parts) const {
  remove_others(root_.make(partials), "", parts);
  const folder all = root_.make(objects);
  for (const std::string &name : all.names()) {
    if (const auto some = all.find(name)) {
      remove_others(*some, name, files);
    }
    all.remove(name);
  }
}

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/source_folder.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "tools/model/names.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

std::vector<fs::path> sorted_entries(const fs::path &folder, std::vector<fs::path> &left_out) {
  std::vector<fs::path> entries;
  for (const auto &entry : fs::directory_iterator(folder)) {
    (is_left_out(entry.path()) ? left_out : entries).push_back(entry.path());
  }
  std::ranges::sort(entries);
  return entries;
}

int32_t category_of(const fs::path &folder) {
  if (!fs::is_directory(fs::symlink_status(folder))) {
    throw refusal(folder, "is not in a category folder", "zotconf categories");
  }
  int32_t category = 0;
  if (get_gpb_cat_by_cat_str(folder.filename().c_str(), &category) != 0) {
    throw refusal(folder, "unknown category", "zotconf categories");
  }
  return category;
}

// Throws a refusal for a file that cannot be published. Does not read its content.
void check_kind(const fs::path &path) {
  const auto status = fs::symlink_status(path);
  if (fs::is_directory(status)) {
    throw refusal(path, "is a folder; a key must be a file");
  }
  if (!fs::is_regular_file(status)) {
    throw refusal(path, "is not a regular file");
  }
  if (const std::string wrong = check_key(path.filename().string()); !wrong.empty()) {
    throw refusal(path, wrong);
  }
  const uintmax_t size = fs::file_size(path);
  if (size == 0) {
    throw refusal(path, "is empty");
  }
  if (size > std::numeric_limits<int32_t>::max()) {
    throw refusal(path, "is larger than 2147483647 bytes");
  }
}

published_file scan_file(const fs::path &path, int32_t category) {
  check_kind(path);
  const std::string bytes = read_file_text(path);
  if (bytes.empty() || bytes.size() > std::numeric_limits<int32_t>::max()) {
    throw refusal(path, "changed while it was read");
  }
  if (bytes.front() == '\0') {
    throw refusal(path, "begins with a zero byte");
  }
  return {.category = category,
          .category_name = path.parent_path().filename().string(),
          .key = path.filename().string(),
          .version = 0,
          .size = bytes.size(),
          .checksum = sha256_text(bytes)};
}

// Whether `path` is `folder` or lies below it, after all links are followed. Compares device and
// inode, because a mount may give the folder a second path.
bool is_within(const fs::path &path, const fs::path &folder) {
  fs::path at = fs::weakly_canonical(fs::absolute(path));
  for (;;) {
    std::error_code absent;
    if (fs::equivalent(at, folder, absent)) {
      return true;
    }
    if (!at.has_relative_path()) {
      return false;
    }
    at = at.parent_path();
  }
}

}  // namespace

bool is_left_out(const fs::path &path) {
  const std::string name = path.filename().string();
  return name.starts_with('.') || name.ends_with('~') || name.ends_with(".swp");
}

source_files scan_source(const fs::path &source, progress &read, std::string_view besides) {
  source_files found;
  for (const fs::path &folder : sorted_entries(source, found.left_out)) {
    if (folder.filename() == besides) {
      continue;
    }
    const int32_t category = category_of(folder);
    for (const fs::path &path : sorted_entries(folder, found.left_out)) {
      found.files.push_back(scan_file(path, category));
      read.advance(found.files.back().size);
    }
  }
  std::ranges::sort(found.files, {}, source_order);
  std::ranges::sort(found.left_out);
  return found;
}

void copy_source(const publication_store &store, const fs::path &source,
                 const published_file &file) {
  const fs::path path = source / file.category_name / file.key;
  const std::string bytes = read_file_text(path);
  if (bytes.size() != file.size || sha256_text(bytes) != file.checksum) {
    throw std::runtime_error(path.string() + ": changed while it was published");
  }
  store.write(file, bytes);
}

void check_apart(const fs::path &source, const fs::path &publication) {
  for (const fs::path &written : {publication, publication / "config", publication / "file"}) {
    if (is_within(written, source)) {
      throw refusal(publication, "is or points into the folder to publish, " + source.string());
    }
  }
  for (const char *const part : {"config", "file"}) {
    if (is_within(source, publication / part)) {
      throw refusal(source, "is inside the publication folder " + publication.string());
    }
  }
}

}  // namespace zotconf

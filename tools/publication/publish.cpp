// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publish.hpp"

#include <algorithm>
#include <limits>
#include <map>
#include <ostream>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/publication/publication_store.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

// A file that has no place in a configuration.
class refusal : public std::runtime_error {
 public:
  refusal(const fs::path &path, const std::string &why)
      : std::runtime_error(path.string() + ": " + why) {}
};

struct counts {
  size_t fresh = 0;
  size_t changed = 0;
  size_t same = 0;
  size_t removed = 0;
};

using object_name = std::pair<std::string, std::string>;  // category, key

std::vector<fs::path> sorted_entries(const fs::path &folder) {
  std::vector<fs::path> entries;
  for (const auto &entry : fs::directory_iterator(folder)) {
    entries.push_back(entry.path());
  }
  std::ranges::sort(entries);
  return entries;
}

int32_t category_of(const fs::path &folder) {
  if (!fs::is_directory(fs::symlink_status(folder))) {
    throw refusal(folder, "is not in a category folder");
  }
  int32_t category = 0;
  if (get_gpb_cat_by_cat_str(folder.filename().c_str(), &category) != 0) {
    throw refusal(folder, "unknown category");
  }
  return category;
}

// Why a file cannot be published, judged before its bytes are read.
void check_kind(const fs::path &path) {
  const auto status = fs::symlink_status(path);
  if (fs::is_directory(status)) {
    throw refusal(path, "is a folder; keys are files");
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

std::vector<published_file> scan_source(const fs::path &source, const console &where) {
  std::vector<published_file> files;
  progress read(where, "reading", 0);
  for (const fs::path &folder : sorted_entries(source)) {
    const int32_t category = category_of(folder);
    for (const fs::path &path : sorted_entries(folder)) {
      files.push_back(scan_file(path, category));
      read.advance(files.back().size);
    }
  }
  std::ranges::sort(files, {},
                    [](const published_file &file) { return std::tie(file.category, file.key); });
  return files;
}

std::map<object_name, published_file> by_name(const std::vector<published_file> &files) {
  std::map<object_name, published_file> result;
  for (const published_file &file : files) {
    result.emplace(object_name(file.category_name, file.key), file);
  }
  return result;
}

uint64_t next_version(const publication_store &store, const published_file &file) {
  const uint64_t highest = store.highest_version(file);
  if (highest == std::numeric_limits<uint64_t>::max()) {
    throw std::runtime_error(file.category_name + "/" + file.key + ": no version is left");
  }
  return highest + 1;
}

counts assign_versions(const publication_store &store, const manifest &before,
                       std::vector<published_file> &files) {
  counts result;
  auto old_files = by_name(before.files);
  for (published_file &file : files) {
    const auto old = old_files.extract(object_name(file.category_name, file.key));
    if (!old.empty() && old.mapped().checksum == file.checksum) {
      file.version = old.mapped().version;
      ++result.same;
      continue;
    }
    file.version = next_version(store, file);
    ++(old.empty() ? result.fresh : result.changed);
  }
  result.removed = old_files.size();
  return result;
}

void copy_file(const publication_store &store, const fs::path &source, const published_file &file) {
  const fs::path path = source / file.category_name / file.key;
  const std::string bytes = read_file_text(path);
  if (bytes.size() != file.size || sha256_text(bytes) != file.checksum) {
    throw std::runtime_error(path.string() + ": changed while it was published");
  }
  store.write(file, bytes);
}

void print_summary(const console &where, const char *result,
                   const std::vector<published_file> &files, const counts &count) {
  uint64_t bytes = 0;
  for (const published_file &file : files) {
    bytes += file.size;
  }
  if (!where.is_json()) {
    where.out() << result << ": " << files.size() << " files, " << count.fresh << " new, "
                << count.changed << " changed, " << count.same << " same, " << count.removed
                << " removed, " << bytes << " bytes\n";
    return;
  }
  json_document document;
  document.root()
      .set("result", result)
      .set("files", files.size())
      .set("new", count.fresh)
      .set("changed", count.changed)
      .set("same", count.same)
      .set("removed", count.removed)
      .set("bytes", bytes);
  where.out() << document.text();
}

// The K that clients can verify now; without one there is nothing to build on.
manifest read_previous(const publication_store &store, const element &who, std::ostream &err) {
  const auto text = store.read_k(who);
  if (!text) {
    return {};
  }
  auto content = parse_manifest(*text);
  if (!content) {
    err << "zotconf: the previous K of " << who.index << " is damaged and is replaced\n";
    return {};
  }
  return std::move(*content);
}

}  // namespace

int run_publish(const publish_options &options, const console &where) {
  const element who{.subsys = options.who.subsys, .index = upper_case(options.who.index)};
  manifest next{.cluster = options.cluster,
                .config_id = options.config_id,
                .firmware = options.firmware,
                .files = {}};
  try {
    next.files = scan_source(options.source, where);
  } catch (const refusal &refused) {
    where.err() << "zotconf: refused: " << printable(refused.what()) << '\n';
    return exit_refused;
  }
  publication_store store(options.publication);
  store.lock();
  const counts count = assign_versions(store, read_previous(store, who, where.err()), next.files);
  bool wrote = false;
  progress written(where, "writing", next.files.size());
  for (const published_file &file : next.files) {
    if (!store.holds(file)) {
      copy_file(store, options.source, file);
      wrote = true;
    }
    written.advance(file.size);
  }
  const std::string k = render_manifest(next);
  if (!wrote && store.read_k(who) == k && store.read_checksum(who) == sha256_text(k) + "\n") {
    print_summary(where, "unchanged", next.files, count);
    return exit_success;
  }
  store.announce(who, k);
  print_summary(where, "published", next.files, count);
  return exit_success;
}

}  // namespace zotconf

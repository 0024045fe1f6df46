// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/version_catalog.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace zotconf {
namespace {

published_file with_version(published_file file, uint64_t version) {
  file.version = version;
  return file;
}

}  // namespace

version_catalog::version_catalog(const publication_store &store)
    : store_(store), spent_(store.spent_version()) {}

version_catalog::object_info &version_catalog::object_of(const published_file &file) {
  name_.assign(file.category_name).append("/").append(file.key);
  return objects_[name_];
}

// Forgets what was known about the bytes of a version.
void version_catalog::forget(object_info &object, uint64_t version) {
  for (auto &[size, group] : object.sizes) {
    std::erase_if(group.highest, [version](const auto &each) { return each.second == version; });
  }
}

void version_catalog::add(object_info &object, const published_file &file) {
  size_group &group = object.sizes[file.size];
  if (object.is_listed) {
    for (auto &[size, listed] : object.sizes) {
      std::erase(listed.unread, file.version);
    }
  }
  uint64_t &best = group.highest[file.checksum];
  best = std::max(best, file.version);
  object.highest = std::max(object.highest, file.version);
}

void version_catalog::list(object_info &object, const published_file &file) const {
  object.is_listed = true;
  std::vector<uint64_t> versions = store_.versions_of(file);
  std::ranges::sort(versions);
  for (const uint64_t version : versions) {
    object.highest = std::max(object.highest, version);
    const auto known = object.versions.find(version);
    const bool is_used = known != object.versions.end() && known->second.is_used;
    if (const auto size = store_.size_of(with_version(file, version)); size && !is_used) {
      object.sizes[*size].unread.push_back(version);
    }
  }
}

// Reads the versions of this size, highest first, until no unread one can be the answer.
void version_catalog::read_until(object_info &object, size_group &group,
                                 const published_file &file) const {
  while (!group.unread.empty()) {
    const uint64_t next = group.unread.back();
    const auto found = group.highest.find(file.checksum);
    if (found != group.highest.end() && found->second > next) {
      return;
    }
    group.unread.pop_back();
    const std::string checksum = store_.checksum_of(with_version(file, next));
    if (!checksum.empty()) {
      object.versions[next].checksum = checksum;
      uint64_t &best = group.highest[checksum];
      best = std::max(best, next);
    }
  }
}

uint64_t version_catalog::choose(const published_file &file, uint64_t known) {
  object_info &object = object_of(file);
  if (!object.is_listed) {
    list(object, file);
  }
  size_group &group = object.sizes[file.size];
  read_until(object, group, file);
  if (const auto same = group.highest.find(file.checksum); same != group.highest.end()) {
    return same->second;
  }
  const uint64_t highest = std::max({object.highest, spent_, known});
  if (highest == std::numeric_limits<uint64_t>::max()) {
    throw std::runtime_error(file.category_name + "/" + file.key + ": no version number is left");
  }
  return highest + 1;
}

version_state version_catalog::use(const published_file &file) {
  object_info &object = object_of(file);
  const auto [at, is_new] = object.versions.try_emplace(file.version);
  version_info &version = at->second;
  if (version.is_used) {
    return version.checksum == file.checksum ? version.state : version_state::taken;
  }
  if (is_new) {
    version.checksum = store_.checksum_of(file);
  }
  const bool is_stored = version.checksum == file.checksum;
  if (!is_new && !is_stored) {
    forget(object, file.version);
  }
  version = {.checksum = file.checksum,
             .state = is_stored ? version_state::stored : version_state::being_written,
             .is_used = true};
  if (is_new || !is_stored) {
    add(object, file);
  }
  return is_stored ? version_state::stored : version_state::to_write;
}

}  // namespace zotconf

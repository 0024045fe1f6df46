// SPDX-License-Identifier: Apache-2.0
// Finds and removes the files below config/ of a publication folder that no K names. Follows no
// symbolic links.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/publication/named_files.hpp"

namespace zotconf {

struct file_count {
  uint64_t files = 0;
  uint64_t bytes = 0;

  void add(uint64_t size) {
    ++files;
    bytes += size;
  }
};

struct stored_version {
  uint64_t version = 0;
  uint64_t size = 0;
};

// A folder config/<Category>/<key> that has files to remove or is empty.
struct stored_object {
  std::string key;
  std::vector<stored_version> unnamed;  // to be removed
  bool becomes_empty = false;
};

struct stored_category {
  std::string name;
  std::vector<stored_object> objects;
  bool becomes_empty = false;
};

struct unnamed_files {
  std::vector<stored_category> categories;
  std::vector<std::string> left_alone;  // other paths, relative to the publication folder
  file_count named;
  file_count young;      // not named, and newer than the grace period
  file_count removable;  // not named, and older
  uint64_t folders = 0;  // how many become empty
  uint64_t highest = 0;  // highest removable version that is its object's highest
};

// Finds the files and decides which may be removed. A grace of 0 means no grace period.
unnamed_files find_unnamed(const fs::path &publication, const named_files &named,
                           std::chrono::milliseconds grace);

// Removes the removable files of each object, then its folder; a category folder last. Calls
// `removed` with the size of each file.
void remove_unnamed(const fs::path &publication, const unnamed_files &found,
                    const std::function<void(uint64_t size)> &removed);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// The files below config/ of a publication folder that no K names, and their removal. No symbolic
// link is followed.
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

// A folder config/<Category>/<key> that loses files or is empty.
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
  std::vector<std::string> left_alone;  // below the publication folder: of another form
  file_count named;
  file_count young;      // unnamed for less than the grace
  file_count removable;  // the rest of the unnamed
  uint64_t folders = 0;  // that become empty
  uint64_t highest = 0;  // of the removable versions that are the highest of their object
};

// What lies there, and which of it may go. A grace of 0 is none.
unnamed_files find_unnamed(const fs::path &publication, const named_files &named,
                           std::chrono::milliseconds grace);

// Removes what may go: the files of each object, then its folder; the folder of a category last.
// Calls `removed` with the size of each file.
void remove_unnamed(const fs::path &publication, const unnamed_files &found,
                    const std::function<void(uint64_t size)> &removed);

}  // namespace zotconf

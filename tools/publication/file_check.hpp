// SPDX-License-Identifier: Apache-2.0
// Whether the files that a K names are in the publication folder, by name, kind and size. No file
// is read and no symbolic link is followed: a file counts as the service opens it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

enum class file_fault_kind { missing, wrong_size, not_regular, unreadable, wrong_name };

struct file_fault {
  file_fault_kind kind = file_fault_kind::missing;
  std::string path;  // below the publication folder
  std::string text;  // "is missing", "has 3 bytes instead of 4"
};

struct file_faults {
  static constexpr size_t kept = 20;

  uint64_t count = 0;
  std::vector<file_fault> first;  // at most `kept` of them, in the order of K
};

// Throws std::system_error when the process lacks descriptors or memory: that says nothing of a
// file.
file_faults find_file_faults(const fs::path &publication, const std::vector<listed_file> &files);

}  // namespace zotconf

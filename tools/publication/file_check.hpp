// SPDX-License-Identifier: Apache-2.0
// Checks by name, type and size whether the files that a K lists are in the publication folder.
// Reads no file and follows no symbolic link, like the service when it opens a file.
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
  std::string path;  // relative to the publication folder
  std::string text;  // "is missing", "has 3 bytes instead of 4"
};

struct file_faults {
  static constexpr size_t kept = 20;

  uint64_t count = 0;
  std::vector<file_fault> first;  // at most `kept` faults, in the order of K
};

// Throws std::system_error if the process lacks descriptors or memory, which is not a fault of a
// file.
file_faults find_file_faults(const fs::path &publication, const std::vector<listed_file> &files);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// Summary of what is published for one element, and of what prevents elements from using it.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"
#include "tools/publication/file_check.hpp"
#include "tools/publication/publication_store.hpp"

namespace zotconf {

enum class problem_kind {
  folder_name,    // the folder's name is not a valid sub-system and index
  k_file,         // K cannot be opened as a regular file
  checksum_file,  // its checksum file cannot be opened as a regular file
  k_content,      // the library rejects K
  files,          // K lists files that are missing or wrong
  not_published,  // an element asks but nothing is published for it
};

struct publication_problem {
  problem_kind kind = problem_kind::k_content;
  std::string reason;
  int element_status = 0;  // status of the failed get of an element
};

struct category_total {
  int32_t category = 0;
  uint64_t entries = 0;
  uint64_t bytes = 0;
};

struct publication_summary {
  element who;
  bool is_read = false;  // false: only the element is known yet
  std::optional<publication_problem> problem;
  std::string cluster;
  std::string config_id;
  std::string firmware;
  std::string checksum;
  std::optional<std::time_t> written;
  std::optional<std::time_t> checked;  // when K and its files were checked
  uint64_t entries = 0;
  uint64_t bytes = 0;
  std::vector<category_total> categories;  // sorted by number
  std::vector<file_fault> faults;          // only the first ones
  std::string search_text;                 // filters match this text; lower case
};

// A summary with only the element; K is not read.
publication_summary unread_publication(const element &who);

// Reads K and checks the files that it lists. Throws std::system_error if the process lacks
// descriptors or memory.
publication_summary read_publication(const fs::path &folder, const publication_store &store,
                                     const element &who);

// A summary for an element that asks but for which nothing is published.
publication_summary missing_publication(const element &who, const std::string &reason);

// Converts ASCII letters only: identifiers have no others.
std::string lower_case(std::string text);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// What is published for one element, in figures, and what keeps elements from using it.
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
  folder_name,    // the folder's name is not a sub-system with an index
  k_file,         // K cannot be opened as a regular file
  checksum_file,  // the same of its checksum file
  k_content,      // the library refuses K
  files,          // K names files that are missing or wrong
  not_published,  // an element asks, and nothing is published for it
};

struct publication_problem {
  problem_kind kind = problem_kind::k_content;
  std::string reason;
  int element_status = 0;  // with which the get of an element fails
};

struct category_total {
  int32_t category = 0;
  uint64_t entries = 0;
  uint64_t bytes = 0;
};

struct publication_summary {
  element who;
  bool is_read = false;  // false: nothing but the element is known yet
  std::optional<publication_problem> problem;
  std::string cluster;
  std::string config_id;
  std::string firmware;
  std::string checksum;
  std::optional<std::time_t> written;
  std::optional<std::time_t> checked;  // when K and its files were looked at
  uint64_t entries = 0;
  uint64_t bytes = 0;
  std::vector<category_total> categories;  // by number
  std::vector<file_fault> faults;          // the first of them
  std::string search_text;                 // what a filter is compared with, in lower case
};

// Nothing but the element.
publication_summary unread_publication(const element &who);

// Reads K and looks for the files that it names. Throws std::system_error when the process lacks
// descriptors or memory.
publication_summary read_publication(const fs::path &folder, const publication_store &store,
                                     const element &who);

// An element that asks and for which nothing is published.
publication_summary missing_publication(const element &who, const std::string &reason);

// ASCII letters only: that is what identifiers are made of.
std::string lower_case(std::string text);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
#include "tools/service/publication_summary.hpp"

#include <algorithm>
#include <utility>

#include "tools/output/figures.hpp"
#include "tools/publication/published.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

// An element gets a 404 response for a file that the service does not open.
std::optional<publication_problem> why_not_served(const publication_store &store,
                                                  const element &who) {
  if (!check_subsys(who.subsys).empty() || !check_index(who.index).empty()) {
    return publication_problem{problem_kind::folder_name,
                               "The folder's name is not a sub-system with an index",
                               ZOT_ERR_NOT_FOUND};
  }
  if (!store.open_member(latest_parts(who, ".k")).is_open()) {
    return publication_problem{problem_kind::k_file,
                               "K cannot be read as a regular file of this folder",
                               ZOT_ERR_NOT_FOUND};
  }
  if (!store.open_member(latest_parts(who, ".checksum")).is_open()) {
    return publication_problem{problem_kind::checksum_file,
                               "There is no checksum file that can be read", ZOT_ERR_NOT_FOUND};
  }
  return std::nullopt;
}

void add_content(publication_summary &summary, const stored_k &k) {
  summary.cluster = k.cluster;
  summary.config_id = k.config_id;
  summary.firmware = k.firmware;
  summary.checksum = k.checksum;
  summary.written = k.written;
  for (const listed_file &file : k.files) {
    if (summary.categories.empty() || summary.categories.back().category != file.category) {
      summary.categories.push_back({.category = file.category, .entries = 0, .bytes = 0});
    }
    ++summary.entries;
    ++summary.categories.back().entries;
    summary.bytes += file.size;
    summary.categories.back().bytes += file.size;
  }
}

// The service responds with 404 for a file that it cannot open, but sends a file of another size as
// it is.
std::optional<publication_problem> problem_of_files(const file_faults &faults) {
  if (faults.count == 0) {
    return std::nullopt;
  }
  const file_fault &first = faults.first.front();
  std::string reason = first.path + " " + first.text;
  if (faults.count > 1) {
    reason +=
        "; " + counted(faults.count - 1, "other file is", "other files are") + " missing or wrong";
  }
  const bool all_sent = std::ranges::all_of(faults.first, [](const file_fault &fault) {
    return fault.kind == file_fault_kind::wrong_size;
  });
  return publication_problem{problem_kind::files, std::move(reason),
                             all_sent ? ZOT_ERR_CORRUPTED : ZOT_ERR_REMOTE_UNAVAIL};
}

void read_content(publication_summary &summary, const fs::path &folder) {
  const stored_k k = read_published(folder, summary.who);
  add_content(summary, k);
  if (k.wrong) {
    summary.problem = publication_problem{problem_kind::k_content, k.wrong->text, k.wrong->code};
    return;
  }
  file_faults faults = find_file_faults(folder, k.files);
  summary.problem = problem_of_files(faults);
  summary.faults = std::move(faults.first);
}

void set_search_text(publication_summary &summary) {
  // One line for each text, so that a filter cannot match across two of them.
  summary.search_text =
      lower_case(summary.who.subsys + " " + summary.who.index + "\n" + summary.config_id + "\n" +
                 summary.cluster + "\n" + summary.firmware);
}

}  // namespace

std::string lower_case(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  });
  return text;
}

publication_summary unread_publication(const element &who) {
  publication_summary summary;
  summary.who = who;
  set_search_text(summary);
  return summary;
}

publication_summary read_publication(const fs::path &folder, const publication_store &store,
                                     const element &who) {
  publication_summary summary;
  summary.who = who;
  summary.is_read = true;
  summary.problem = why_not_served(store, who);
  if (!summary.problem) {
    read_content(summary, folder);
  }
  summary.checked = std::time(nullptr);
  set_search_text(summary);
  return summary;
}

publication_summary missing_publication(const element &who, const std::string &reason) {
  publication_summary summary = unread_publication(who);
  summary.is_read = true;
  summary.problem = publication_problem{problem_kind::not_published, reason, ZOT_ERR_NOT_FOUND};
  return summary;
}

}  // namespace zotconf

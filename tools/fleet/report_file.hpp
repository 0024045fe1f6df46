// SPDX-License-Identifier: Apache-2.0
// The report of one element, as its relay sent it. Nothing in it is trusted: texts are made
// printable and are limited in length, and a member of another type counts as missing.
#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "tools/files/folder.hpp"

namespace zotconf {

struct element_report {
  std::time_t received = 0;  // when the file was written
  std::string time;          // of the element's clock, such as 2026-11-23T11:00:00Z; may be empty
  std::string subsys;        // the element that the report names; may be empty
  std::string index;
  // SHA-256 of a K; empty: none.
  std::string in_force;
  std::string refused;
  std::string offered;        // by the relay
  std::string relay_refused;  // by the relay
  std::string refusal;        // why the element refused that K
  std::optional<std::string> problem;
  std::optional<std::string> relay_problem;
  bool has_undo = false;  // an interrupted commit was undone
};

struct report_reading {
  std::optional<element_report> report;
  std::string wrong;  // why the file cannot be used; empty if there is no file
};

inline constexpr size_t most_report_bytes = size_t{64} * 1024;

report_reading parse_report(const std::string &text);

// Follows no symbolic link, and reads regular files only. Throws std::system_error if the process
// lacks descriptors or memory.
report_reading read_report(const folder &in, const std::string &name);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// What an element has done with its configurations: written by `zotconf watch --state`, read by
// `zotconf relay --element`.
#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "tools/cache/kept_configurations.hpp"
#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"
#include "tools/output/json.hpp"

namespace zotconf {

// Times are texts such as "2026-11-23T11:00:00Z".
struct refused_configuration {
  configuration_name which;
  std::string reason;  // empty: not known
  std::string time;    // empty: not known

  bool operator==(const refused_configuration &) const = default;
};

// An interrupted commit that a start has undone.
struct undone_commit {
  std::string digest;  // of the K that is in force again; empty: none
  std::string time;

  bool operator==(const undone_commit &) const = default;
};

struct element_problem {
  std::string text;
  std::string since;

  bool operator==(const element_problem &) const = default;
};

struct element_state {
  std::string version;  // of the program; empty: not known
  element who;
  std::optional<configuration_name> in_force;
  std::optional<refused_configuration> refused;
  std::optional<undone_commit> undo;
  std::optional<element_problem> problem;
};

constexpr size_t most_state_bytes = size_t{64} << 10;

// A text for people, printable and of at most 1024 bytes, so that a state is never too long.
std::string short_text(std::string_view text);

// Sets the members "in_force", "refused", "undo" and "problem"; null if there is no state.
void describe_configurations(json_node into, const std::optional<element_state> &state);

// A document with a line break at its end. `time` is when it is written.
std::string element_state_text(const element_state &state, const std::string &time);

// Throws std::runtime_error if the text is not such a document.
element_state parse_element_state(const std::string &text);

// Nothing in the file is trusted. Throws std::runtime_error if it is not a regular file of at most
// 64 KiB with such a document.
element_state read_element_state(const fs::path &path);

// Replaces the file in one step. Everybody may read it, whatever the umask says. Throws
// std::runtime_error if something else than a regular file is at the path.
void write_element_state(const fs::path &path, std::string_view text);

}  // namespace zotconf

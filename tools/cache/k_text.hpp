// SPDX-License-Identifier: Apache-2.0
// How the commands print a K: as lines of text, or as members of a JSON object.
#pragma once

#include <optional>
#include <string>

#include "tools/model/stored_k.hpp"
#include "tools/output/console.hpp"
#include "tools/output/json.hpp"

namespace zotconf {

// A short name of a K for people: "config ID 0f8f…", or "checksum 4be1…" without an ID.
std::string named(const stored_k &k);

// "absent", "damaged" or "good", and its colour on a terminal.
struct state_text {
  const char *word;
  colour with;
};

state_text state_of(bool is_present, const std::optional<library_status> &wrong);

// Sets {"code", "name", "text"}, or null without a status.
void set_status(json_node into, const char *name, const std::optional<library_status> &status);

// Sets paths, metadata, entries, bytes, checksum and time; what is not known is null.
void set_k(json_node into, const stored_k &k);

// Prints the same as text, one line each.
void print_k(const console &where, const stored_k &k);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// How commands write a K: as lines for people and as members of a JSON object.
#pragma once

#include <optional>
#include <string>

#include "tools/model/stored_k.hpp"
#include "tools/output/console.hpp"
#include "tools/output/json.hpp"

namespace zotconf {

// A K by the name that a person knows it by: "config ID 0f8f…", else "checksum 4be1…".
std::string named(const stored_k &k);

// "absent", "damaged" or "good", and how a terminal shows it.
struct state_text {
  const char *word;
  colour with;
};

state_text state_of(bool is_present, const std::optional<library_status> &wrong);

// {"code", "name", "text"}, or null for nothing.
void set_status(json_node into, const char *name, const std::optional<library_status> &status);

// Paths, metadata, entries, bytes, checksum and time; what cannot be told is null.
void set_k(json_node into, const stored_k &k);

// The same for people, a line each.
void print_k(const console &where, const stored_k &k);

}  // namespace zotconf

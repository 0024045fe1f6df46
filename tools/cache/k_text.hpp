// SPDX-License-Identifier: Apache-2.0
// How commands write a K: as lines for people and as members of a JSON object.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "tools/cache/cache.hpp"
#include "tools/output/console.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {

// 2026-11-21T07:14:33Z.
std::string iso_time(std::time_t when);

// "1 entry", "2 entries".
std::string counted(uint64_t number, std::string_view one, std::string_view many);

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

// The K that a user named, good. Throws std::runtime_error with the library's text otherwise.
stored_k read_good_source(const std::string &name, const element &who);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// `zotconf status`: what lies in an element's cache and what the next get would make of it, told
// from the disk alone and without writing to it.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache/cache.hpp"
#include "tools/cache/open_commit.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct status_options {};

// A slot as a new process would find it.
struct slot_state {
  k_slot slot = k_slot::current;
  stored_k k;
  std::optional<library_status> wrong;  // of the K, or of the first bad file of the one in force
  std::string bad_file;                 // that file; empty when K itself is wrong

  [[nodiscard]] bool is_good() const { return k.is_present && !wrong; }
  // The file that is to blame when something is wrong.
  [[nodiscard]] std::string culprit() const {
    return bad_file.empty() ? k.bad_file().string() : bad_file;
  }
};

using slot_states = std::array<slot_state, k_slots.size()>;

// What the next get of a new process would do.
struct next_get {
  const char *outcome = "";             // one word for programs
  std::vector<std::string> sentences;   // for people
  std::optional<library_status> error;  // with which it would fail
};

next_get foresee(const cache_paths &paths, const open_commit &commit, const slot_states &slots);

// Returns an exit status.
int run_status(const status_options &options, const console &where);

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
// Predicts what the next get would do, by the library's rules for a start and for an update check.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache/cache.hpp"
#include "tools/cache/open_commit.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// A slot as a new process would find it.
struct slot_state {
  k_slot slot = k_slot::current;
  stored_k k;
  std::optional<library_status> wrong;  // error of K, or of the first bad file in force
  std::string bad_file;                 // the bad file; empty when K itself is bad

  [[nodiscard]] bool is_good() const { return k.is_present && !wrong; }
  // The file that causes the error.
  [[nodiscard]] std::string culprit() const {
    return bad_file.empty() ? k.bad_file().string() : bad_file;
  }
};

using slot_states = std::array<slot_state, k_slots.size()>;

// What the next get of a new process would do.
struct next_get {
  const char *outcome = "";             // one word for programs
  std::vector<std::string> sentences;   // for people
  std::optional<library_status> error;  // the error with which it would fail
};

next_get foresee(const cache_paths &paths, const open_commit &commit, const slot_states &slots);

}  // namespace zotconf

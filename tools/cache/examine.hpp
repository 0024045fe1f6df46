// SPDX-License-Identifier: Apache-2.0
// Checks every K, checksum file and GPB file of the cache and of the scratch area.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache/cache.hpp"
#include "tools/cache/open_commit.hpp"
#include "tools/model/stored_k.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

// One bad file.
struct damage {
  k_slot slot = k_slot::current;
  const char *kind = "";   // "k", "checksum" or "gpb"
  const char *state = "";  // one word for programs: "missing", "wrong_size" and so on
  fs::path path;
  library_status wrong;
  bool is_harmless = false;         // the next get overwrites it without reading it
  std::optional<listed_file> file;  // for "gpb"
};

// An observation that is not damage.
struct verify_note {
  const char *kind = "";
  fs::path path;
  std::string text;
};

struct findings {
  open_commit commit;
  commit_outlook outlook;  // what follows from an open commit
  std::array<stored_k, k_slots.size()> slots;
  std::vector<damage> damaged;
  std::vector<verify_note> notes;
  uint64_t files = 0;  // checked
  uint64_t bytes = 0;  // total size of these files as stated in K

  [[nodiscard]] const stored_k &slot(k_slot which) const {
    return slots.at(static_cast<size_t>(which));
  }
  // True when there is no harmful damage and no interrupted commit to undo.
  [[nodiscard]] bool is_clean() const;
};

// Checks everything. With `strict`, no damage counts as harmless.
findings examine(const cache_paths &paths, bool strict, const console &where);

}  // namespace zotconf

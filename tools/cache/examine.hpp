// SPDX-License-Identifier: Apache-2.0
// Every K, checksum and file of the cache and of the scratch area held against what announces it.
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
  bool is_harmless = false;         // the next get overwrites it unread
  std::optional<listed_file> file;  // for "gpb"
};

// What a person may want to know and is no damage.
struct verify_note {
  const char *kind = "";
  fs::path path;
  std::string text;
};

struct findings {
  open_commit commit;
  commit_outlook outlook;  // of the commit
  std::array<stored_k, k_slots.size()> slots;
  std::vector<damage> damaged;
  std::vector<verify_note> notes;
  uint64_t files = 0;  // looked at
  uint64_t bytes = 0;  // that K announces for them

  [[nodiscard]] const stored_k &slot(k_slot which) const {
    return slots.at(static_cast<size_t>(which));
  }
  // No damage that counts, and no commit that has to be undone.
  [[nodiscard]] bool is_clean() const;
};

// Looks at everything; with `strict` no damage is harmless.
findings examine(const cache_paths &paths, bool strict, const console &where);

}  // namespace zotconf

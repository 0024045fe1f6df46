// SPDX-License-Identifier: Apache-2.0
// Runs one row of archives against one element, in a separate process.
#pragma once

#include <cstddef>
#include <string>

#include "tests/faults/archive/rows.hpp"

namespace zot::test {

// Where a trial runs. The directory is created anew for each trial; its scratch area is a volume in
// memory where the user may mount one.
struct trial_place {
  std::string work;
  std::string path;         // PATH with this unpacker first
  bool as_other_user;       // as another user; else as the current user
  std::size_t column;       // index into archive_step::answers
  bool with_log = false;    // print the library's log with each failure
  bool with_sizes = false;  // print the space that each archive took
};

[[nodiscard]] row_setting setting_at(const std::string &work, unsigned percent);

// Returns the failed check, or an empty text.
[[nodiscard]] std::string try_row(const archive_row &row, const trial_place &place);

}  // namespace zot::test

// SPDX-License-Identifier: Apache-2.0
// Runs one row of archives against one element, in a process of its own.
#pragma once

#include <cstddef>
#include <string>

#include "tests/faults/archive/rows.hpp"

namespace zot::test {

// Where a trial takes place: made anew for each, its own scratch area in memory where the user may
// mount one.
struct trial_place {
  std::string work;
  std::string path;         // PATH with the unpacker in question
  bool as_other_user;       // as nobody in particular; else as whoever runs this
  std::size_t column;       // of archive_step::answers
  bool with_log = false;    // the library's log with each failure
  bool with_sizes = false;  // how much room each took
};

[[nodiscard]] row_setting setting_at(const std::string &work, unsigned percent);

// What did not hold, or nothing.
[[nodiscard]] std::string try_row(const archive_row &row, const trial_place &place);

}  // namespace zot::test

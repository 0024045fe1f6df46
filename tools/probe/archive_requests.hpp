// SPDX-License-Identifier: Apache-2.0
// The checks of the archive. Each throws std::runtime_error, which says what came instead.
#pragma once

#include "tools/probe/checks.hpp"

namespace zotconf {

void check_all_files(subject &on);
void check_one_file(subject &on);
void check_double_slashes(subject &on);
void check_no_files(subject &on);
void check_empty_body(subject &on);
void check_expect_continue(subject &on);
void check_large_body(subject &on);
void check_missing_file(subject &on);

// The body of a request for some files, as the library writes it.
std::string request_body(std::span<const listed_file> files);

}  // namespace zotconf

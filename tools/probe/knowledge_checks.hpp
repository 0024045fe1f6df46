// SPDX-License-Identifier: Apache-2.0
// The checks of K (the knowledge file) and its checksum file. Each throws std::runtime_error, which
// says what came instead.
#pragma once

#include "tools/probe/checks.hpp"

namespace zotconf {

// GET of one of the two files; throws unless it is accepted.
std::string fetch_checksum_file(const subject &on);
std::string fetch_k(const subject &on);

void check_checksum_file(subject &on);
void check_k(subject &on);
void check_match(subject &on);
void check_repeated(subject &on);
void check_unknown_index(subject &on);
void check_polls(subject &on);

}  // namespace zotconf

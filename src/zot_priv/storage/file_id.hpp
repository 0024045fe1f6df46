// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Does not follow links. All zero if there is no such file.
zot_file_id file_id_at(int directory, const char *name);

bool is_same_file(const zot_file_id &a, const zot_file_id &b);

}  // namespace zot

// SPDX-License-Identifier: Apache-2.0
// The configurations that the self-test publishes, and the entries that an element must get.
#pragma once

#include <map>
#include <string>

#include "zot_conf.hpp"

namespace zotconf {

// Maps <Category>/<key> to the bytes of the file.
using configuration = std::map<std::string, std::string>;

// The published configurations, in this order.
struct configurations {
  configuration first;
  configuration second;   // has an added, a modified, a deleted and unchanged entries
  configuration refused;  // is rolled back
  configuration last;     // its commit is killed

  configurations();
};

// Throws std::runtime_error that names the first entry with another change or content than expected
// between the two configurations.
void expect_changes(const entries &list, const configuration &before, const configuration &after);

// Whether the entries in force equal a configuration, byte by byte.
bool is_in_force(const entries &list, const configuration &expected);

}  // namespace zotconf

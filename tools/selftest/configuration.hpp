// SPDX-License-Identifier: Apache-2.0
// What the self-test publishes, and what an element has to get of it.
#pragma once

#include <map>
#include <string>

#include "zot_conf.hpp"

namespace zotconf {

// <Category>/<key> and the bytes of each file.
using configuration = std::map<std::string, std::string>;

// The configurations that are published, one after the other.
struct configurations {
  configuration first;
  configuration second;   // has an added, a modified, a deleted and unchanged entries
  configuration refused;  // is rolled back
  configuration last;     // its commit is killed

  configurations();
};

// Throws std::runtime_error that names the first entry that is not what a change from one
// configuration to the other has to bring.
void expect_changes(const entries &list, const configuration &before, const configuration &after);

// Whether the entries in force are those of a configuration, byte by byte.
bool is_in_force(const entries &list, const configuration &expected);

}  // namespace zotconf

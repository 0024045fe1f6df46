// SPDX-License-Identifier: Apache-2.0
// `zotconf probe`: checks a service against docs/formats.md.
#pragma once

#include <string>

#include "tools/model/names.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct probe_options {
  std::string url;
  element who{.subsys = "AP", .index = ""};
  unsigned polls = 20;
  unsigned timeout = 5;  // seconds, that of the library by default
};

// Returns an exit status.
int run_probe(const probe_options &options, const console &where);

}  // namespace zotconf

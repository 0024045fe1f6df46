// SPDX-License-Identifier: Apache-2.0
// What all parts of this sweep are asked for.
#pragma once

#include <cstddef>
#include <string>

namespace zot::test {

struct sweep_options {
  std::string work = {};  // a folder for stores
  std::size_t every = 1;  // run only every Nth trial
  unsigned jobs = 4;      // in parallel
  std::string only = {};  // trials whose name contains this text
  bool is_verbose = false;
};

}  // namespace zot::test

// SPDX-License-Identifier: Apache-2.0
// Clients that share one cache and one scratch folder and are killed and restarted at random
// moments, while a service switches among configurations and other processes read what is in force.
#pragma once

#include <cstdint>
#include <string>

namespace zot::test {

struct share_options {
  std::string work;       // a folder for the element
  unsigned cycles = 500;  // of each client
  unsigned seconds = 0;   // the trial ends after so many, if there is a number
  std::uint64_t seed = 0;
  bool with_log = false;  // the library's log with each failure
};

// Prints its counts. True when everything held.
[[nodiscard]] bool share_a_cache(const share_options &options);

}  // namespace zot::test

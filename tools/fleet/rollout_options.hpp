// SPDX-License-Identifier: Apache-2.0
// The options of `fleet`.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

struct rollout_options {
  fs::path publication;
  fs::path reports;
  std::string config_id;  // empty: all publications
  std::optional<unsigned> max_refused;
  std::optional<unsigned> min_in_force;
  std::chrono::milliseconds silent_after = std::chrono::hours(72);
  fs::path html;  // empty: none
};

}  // namespace zotconf

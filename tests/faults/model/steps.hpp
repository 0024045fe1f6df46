// SPDX-License-Identifier: Apache-2.0
// The steps of a random sequence. The steps are independent of each other, so that a sequence stays
// valid when steps are removed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "catalogue.hpp"
#include "zot_conf.h"

namespace zot::faults {

enum class step_kind {
  publish,
  spoil_publication,
  damage_cache,
  damage_scratch,
  get,
  cached_get,
  commit,
  roll_back,
  restart,
  service_down,
  service_up,
};

enum class target {
  k,
  checksum,
  prev_k,
  prev_checksum,
  corrupted_k,
  corrupted_checksum,
  gpb,
  every_gpb,
  everything,
  pair,
  prev_pair,
  corrupted_pair,
  stray_gpb,
  knowledge,
};

enum class manner { other_byte, emptied, removed, byte_appended };

enum class area { cache, scratch };

// What the numbers mean depends on the kind.
struct step {
  step_kind kind = step_kind::get;
  unsigned what = 0;   // configuration, flaw, target or mask
  unsigned how = 0;    // manner or category set
  unsigned which = 0;  // file or configuration
};
using sequence = std::vector<step>;

[[nodiscard]] sequence random_sequence(std::uint64_t seed);

[[nodiscard]] const char *name_of(step_kind kind);
[[nodiscard]] std::string text_of(const step &one);
[[nodiscard]] std::string text_of(const sequence &steps);

[[nodiscard]] std::uint32_t mask_of(const step &get);
[[nodiscard]] zot_catset categories_of(const step &get);

}  // namespace zot::faults

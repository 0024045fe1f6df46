// SPDX-License-Identifier: Apache-2.0
// The two files of each K, below the persistent directory; those of the temporary one lie in the
// scratch directory.
#pragma once

namespace zot {

struct k_names {
  const char *k;
  const char *checksum;
};

inline constexpr k_names current_k = {"/knowledge/subsys.k", "/knowledge/subsys.checksum"};
inline constexpr k_names last_k = {"/knowledge/prev_subsys.k", "/knowledge/prev_subsys.checksum"};
inline constexpr k_names corrupted_k = {"/knowledge/corrupted.k", "/knowledge/corrupted.checksum"};
inline constexpr k_names temporary_k = {"subsys.k", "subsys.checksum"};

}  // namespace zot

// SPDX-License-Identifier: Apache-2.0
// The names of files and directories.
#pragma once

namespace zot {

// The directory of the GPB files, below both roots.
inline constexpr const char *gpb_directory = "config";
// The archive in the scratch directory.
inline constexpr const char *archive_name = "gpb.tgz";

// The two files of each K below the persistent directory. Those of the temporary K are in the
// scratch directory.
struct k_names {
  const char *k;
  const char *checksum;
};

inline constexpr k_names current_k = {"/knowledge/subsys.k", "/knowledge/subsys.checksum"};
inline constexpr k_names last_k = {"/knowledge/prev_subsys.k", "/knowledge/prev_subsys.checksum"};
inline constexpr k_names corrupted_k = {"/knowledge/corrupted.k", "/knowledge/corrupted.checksum"};
inline constexpr k_names temporary_k = {"subsys.k", "subsys.checksum"};

}  // namespace zot

// SPDX-License-Identifier: Apache-2.0
// Archives that a service should never send, and the expected result of each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/faults/archive/tar_blocks.hpp"
#include "tests/support/publication.hpp"

namespace zot::test {

// The expected result of a get, with one letter each for GNU tar as root, GNU tar as another user,
// busybox's tar as root, busybox's tar as another user. A single letter applies to all four:
//   O  success: other members of the archive did no harm and are gone
//   C  ZOT_ERR_CORRUPTED
//   U  ZOT_ERR_REMOTE_UNAVAIL: more bytes than K allows
//   ?  success or ZOT_ERR_CORRUPTED, depending on the unpacker
struct archive_step {
  std::string bytes;
  std::string answers;
};

struct archive_row {
  std::string name;
  // The archives, sent one after the other to the same handle.
  std::vector<archive_step> steps;
  // The size that K states for an additional file that no archive contains; 0: no such file.
  std::uint64_t announced = 0;
  // The maximum disk space that the get may use; 0: no limit.
  std::uint64_t most_room = 0;
  // Whether the fetched K may be lost. It must never be replaced by another one.
  bool spoils_k = false;
};

using archive_rows = std::vector<archive_row>;

struct row_setting {
  // A directory outside that nothing may write to, and its path relative to the scratch directory.
  std::string outside;
  std::string way_out;
  // The size of large archives, in percent.
  unsigned percent = 100;
};

inline constexpr const char *listed_file = "config/Wlan/office/6";
inline constexpr const char *file_in_force = "config/Wlan/office/5";
inline constexpr const char *announced_file = "config/Wlan/announced/1";

// The configuration in force, the one whose archive is malicious, and the one published afterwards.
[[nodiscard]] publication conf_in_force();
[[nodiscard]] publication conf_spoiled();
[[nodiscard]] publication conf_after();

// The regular members of the second configuration's archive.
[[nodiscard]] std::string proper_members();

// Whether the members include a name of the fetched K, or link to it.
[[nodiscard]] bool names_k(const std::string &members);

// A compressed archive with these members before or after the proper members.
[[nodiscard]] std::string archive_before(const std::string &members);
[[nodiscard]] std::string archive_after(const std::string &members);

[[nodiscard]] archive_rows link_rows(const row_setting &setting);
[[nodiscard]] archive_rows member_rows(const row_setting &setting);
[[nodiscard]] archive_rows name_rows(const row_setting &setting);
[[nodiscard]] archive_rows header_rows(const row_setting &setting);
[[nodiscard]] archive_rows packing_rows(const row_setting &setting);
[[nodiscard]] archive_rows large_rows(const row_setting &setting);

}  // namespace zot::test

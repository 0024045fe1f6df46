// SPDX-License-Identifier: Apache-2.0
// The archives that a service should never send, and the expected result of each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/faults/archive/tar_blocks.hpp"
#include "tests/support/publication.hpp"

namespace zot::test {

// What a get answers, for GNU tar run by root and by another user, then for busybox's tar likewise;
// one letter alone holds for all four:
//   O  done: whatever the archive brought beside the files did no harm and is gone
//   C  ZOT_ERR_CORRUPTED
//   U  ZOT_ERR_REMOTE_UNAVAIL: more bytes than K lets expect
//   ?  done or corrupted, as the unpacker sees it
struct archive_step {
  std::string bytes;
  std::string answers;
};

struct archive_row {
  std::string name;
  // One after the other, on the same handle.
  std::vector<archive_step> steps;
  // The size that K states for one more file, which no step brings; 0: there is none.
  std::uint64_t announced = 0;
  // How much of the disk it may take at most; 0: as much as there is.
  std::uint64_t most_room = 0;
  // Whether the K that was fetched may be lost, as long as no other stands in its place.
  bool spoils_k = false;
};

using archive_rows = std::vector<archive_row>;

struct row_setting {
  // A directory that nothing may be written to, and the way there from the scratch directory.
  std::string outside;
  std::string way_out;
  // How large the large ones are, in percent.
  unsigned percent = 100;
};

inline constexpr const char *listed_file = "config/Wlan/office/6";
inline constexpr const char *file_in_force = "config/Wlan/office/5";
inline constexpr const char *announced_file = "config/Wlan/announced/1";

// The configuration that is in force, the one whose archive is spoiled, and the one after that.
[[nodiscard]] publication conf_in_force();
[[nodiscard]] publication conf_spoiled();
[[nodiscard]] publication conf_after();

// The members that the spoiled configuration should come with.
[[nodiscard]] std::string proper_members();

// Whether members have, or link to, a name of the fetched K.
[[nodiscard]] bool names_k(const std::string &members);

// An archive of those and others, packed; in the order of the names.
[[nodiscard]] std::string archive_before(const std::string &members);
[[nodiscard]] std::string archive_after(const std::string &members);

[[nodiscard]] archive_rows link_rows(const row_setting &setting);
[[nodiscard]] archive_rows member_rows(const row_setting &setting);
[[nodiscard]] archive_rows name_rows(const row_setting &setting);
[[nodiscard]] archive_rows header_rows(const row_setting &setting);
[[nodiscard]] archive_rows packing_rows(const row_setting &setting);
[[nodiscard]] archive_rows large_rows(const row_setting &setting);

}  // namespace zot::test

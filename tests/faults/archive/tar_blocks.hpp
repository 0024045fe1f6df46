// SPDX-License-Identifier: Apache-2.0
// Builds archives block by block, in forms that no library would write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zot::test {

inline constexpr std::size_t tar_block = 512;

struct tar_member {
  std::string name;
  std::string bytes = {};
  char type = '0';
  std::string target = {};  // of a link
  unsigned mode = 0644;
  unsigned owner = 0;
  // What the header says of the size, where that isn't the number of bytes: twelve bytes at most.
  std::optional<std::string> size_field = {};
  // The mode as it stands there, likewise.
  std::optional<std::string> mode_field = {};
};

// One member with its header, without any check of what it says.
[[nodiscard]] std::string tar_blocks(const tar_member &member);

// Of a file of so many zeros that only the header.
[[nodiscard]] std::string tar_header(const tar_member &member, std::uint64_t size);

// Two blocks of zeros.
[[nodiscard]] std::string tar_end();

// A member before a member: its name, or its link's target, beyond a header's length.
[[nodiscard]] std::string long_name(std::string_view name, char type = 'L');

// One record of an extended header.
[[nodiscard]] std::string pax_record(std::string_view key, std::string_view value);
[[nodiscard]] std::string pax_header(std::string_view records, char type = 'x');

// A size that octal digits cannot tell.
[[nodiscard]] std::string base_256(std::int64_t size);

// Sets the checksum of a header that was changed by hand.
void seal(std::string &header);

// A file of the old format for files with holes: one byte at an offset, so large in all.
[[nodiscard]] std::string sparse_file(const std::string &name, std::uint64_t offset,
                                      std::uint64_t size);

[[nodiscard]] std::string gzip(std::string_view bytes);

// The same of text, zeros, text, in no time.
[[nodiscard]] std::string gzip_around_zeros(std::string_view before, std::uint64_t zeros,
                                            std::string_view after);

}  // namespace zot::test

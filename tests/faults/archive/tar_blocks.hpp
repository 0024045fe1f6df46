// SPDX-License-Identifier: Apache-2.0
// Builds archives block by block, in forms that no archive library would write.
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
  std::string target = {};  // for links
  unsigned mode = 0644;
  unsigned owner = 0;
  // The size field, if it differs from the number of bytes: at most twelve bytes.
  std::optional<std::string> size_field = {};
  // The mode field, if it differs from `mode`.
  std::optional<std::string> mode_field = {};
};

// A member with its header; the header is not checked.
[[nodiscard]] std::string tar_blocks(const tar_member &member);

// The header of a member of `size` bytes, without the bytes.
[[nodiscard]] std::string tar_header(const tar_member &member, std::uint64_t size);

// The end of an archive: two blocks of zeros.
[[nodiscard]] std::string tar_end();

// A member that gives the next member a name, or a link target, too long for its header.
[[nodiscard]] std::string long_name(std::string_view name, char type = 'L');

// A record of an extended header, and an extended header of such records.
[[nodiscard]] std::string pax_record(std::string_view key, std::string_view value);
[[nodiscard]] std::string pax_header(std::string_view records, char type = 'x');

// A size in base 256, for values that octal digits cannot express.
[[nodiscard]] std::string base_256(std::int64_t size);

// Recomputes the checksum of a changed header.
void seal(std::string &header);

// A file with holes in the old GNU format: one byte at `offset`, `size` bytes in all.
[[nodiscard]] std::string sparse_file(const std::string &name, std::uint64_t offset,
                                      std::uint64_t size);

[[nodiscard]] std::string gzip(std::string_view bytes);

// Compresses text, zeros and text. Takes no time even for many zeros.
[[nodiscard]] std::string gzip_around_zeros(std::string_view before, std::uint64_t zeros,
                                            std::string_view after);

}  // namespace zot::test

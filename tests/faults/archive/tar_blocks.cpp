// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/archive/tar_blocks.hpp"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "utilities/owner.hpp"

namespace zot::test {
namespace {

constexpr std::size_t mode_at = 100;
constexpr std::size_t owner_at = 108;
constexpr std::size_t group_at = 116;
constexpr std::size_t size_at = 124;
constexpr std::size_t time_at = 136;
constexpr std::size_t checksum_at = 148;
constexpr std::size_t type_at = 156;
constexpr std::size_t target_at = 157;
constexpr std::size_t magic_at = 257;
constexpr std::size_t major_at = 329;
constexpr std::size_t minor_at = 337;
constexpr std::size_t holes_at = 386;
constexpr std::size_t real_size_at = 483;

std::string octal(std::uint64_t number, std::size_t width) {
  std::string digits(width - 1, '0');
  for (std::size_t at = digits.size(); at-- > 0; number >>= 3U) {
    digits[at] = static_cast<char>('0' + (number & 7U));
  }
  return digits;
}

void put(std::string &header, std::size_t at, std::string_view text, std::size_t width) {
  std::copy_n(text.begin(), std::min(text.size(), width),
              header.begin() + static_cast<std::ptrdiff_t>(at));
}

std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + tar_block - 1) / tar_block * tar_block);
  return bytes;
}

void require(archive *writer, bool succeeded) {
  if (!succeeded) {
    const char *const reason = archive_error_string(writer);
    throw std::runtime_error(reason != nullptr ? reason : "cannot compress");
  }
}

la_ssize_t append(archive *, void *target, const void *bytes, size_t size) {
  static_cast<std::string *>(target)->append(static_cast<const char *>(bytes), size);
  return static_cast<la_ssize_t>(size);
}

}  // namespace

void seal(std::string &header) {
  put(header, checksum_at, "        ", 8);
  unsigned sum = 0;
  for (std::size_t at = 0; at < tar_block; ++at) {
    sum += static_cast<unsigned char>(header[at]);
  }
  put(header, checksum_at, octal(sum, 7) + '\0' + ' ', 8);
}

std::string tar_header(const tar_member &member, std::uint64_t size) {
  std::string header(tar_block, '\0');
  put(header, 0, member.name, mode_at);
  put(header, mode_at, member.mode_field.value_or(octal(member.mode, 8)), 8);
  put(header, owner_at, octal(member.owner, 8), 8);
  put(header, group_at, octal(member.owner, 8), 8);
  put(header, size_at, member.size_field.value_or(octal(size, 12)), 12);
  put(header, time_at, octal(1700000000, 12), 12);
  header[type_at] = member.type;
  put(header, target_at, member.target, magic_at - target_at);
  put(header, magic_at, "ustar  ", 8);
  // The device numbers of /dev/null.
  put(header, major_at, octal(1, 8), 8);
  put(header, minor_at, octal(3, 8), 8);
  seal(header);
  return header;
}

std::string tar_blocks(const tar_member &member) {
  return tar_header(member, member.bytes.size()) + padded(member.bytes);
}

std::string tar_end() {
  return std::string(2 * tar_block, '\0');
}

std::string long_name(std::string_view name, char type) {
  return tar_blocks(
      {.name = "././@LongLink", .bytes = std::string(name) + '\0', .type = type, .mode = 0});
}

std::string pax_record(std::string_view key, std::string_view value) {
  const std::string text = " " + std::string(key) + "=" + std::string(value) + "\n";
  std::size_t length = text.size() + 1;
  while (std::to_string(length).size() + text.size() != length) {
    length = std::to_string(length).size() + text.size();
  }
  return std::to_string(length) + text;
}

std::string pax_header(std::string_view records, char type) {
  return tar_blocks({.name = "PaxHeaders/x", .bytes = std::string(records), .type = type});
}

std::string base_256(std::int64_t size) {
  std::string field(12, size < 0 ? '\xff' : '\0');
  auto rest = static_cast<std::uint64_t>(size);
  for (std::size_t at = field.size(); at-- > 4; rest >>= 8U) {
    field[at] = static_cast<char>(rest & 0xffU);
  }
  field[0] = static_cast<char>(field[0] | '\x80');
  return field;
}

std::string sparse_file(const std::string &name, std::uint64_t offset, std::uint64_t size) {
  std::string header = tar_header({.name = name, .type = 'S'}, 1);
  put(header, holes_at, octal(offset, 12) + '\0' + octal(1, 12), 24);
  put(header, real_size_at, octal(size, 12), 12);
  seal(header);
  return header + padded("x");
}

std::string gzip(std::string_view bytes) {
  std::string packed;
  const std::unique_ptr<archive, releaser<archive_write_free>> writer(archive_write_new());
  const std::unique_ptr<archive_entry, releaser<archive_entry_free>> entry(archive_entry_new());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_write_set_format_raw(writer.get());
  archive_write_add_filter_gzip(writer.get());
  // No padding: bytes after the archive are a separate test case.
  archive_write_set_bytes_in_last_block(writer.get(), 1);
  require(writer.get(), archive_write_open(writer.get(), &packed, nullptr, append, nullptr) == 0 &&
                            archive_write_header(writer.get(), entry.get()) == 0);
  require(writer.get(),
          bytes.empty() || archive_write_data(writer.get(), bytes.data(), bytes.size()) ==
                               static_cast<la_ssize_t>(bytes.size()));
  require(writer.get(), archive_write_close(writer.get()) == 0);
  return packed;
}

std::string gzip_around_zeros(std::string_view before, std::uint64_t zeros,
                              std::string_view after) {
  // Gzip members can be concatenated, so one compressed piece is used many times.
  constexpr std::uint64_t piece = 1U << 20U;
  const std::string packed_piece = gzip(std::string(piece, '\0'));
  std::string packed = gzip(before);
  for (std::uint64_t at = 0; at < zeros / piece; ++at) {
    packed += packed_piece;
  }
  return packed + gzip(std::string(zeros % piece, '\0')) + gzip(after);
}

}  // namespace zot::test

// SPDX-License-Identifier: Apache-2.0
// Archives whose stated sizes differ from the actual sizes, truncated archives, and files that are
// not archives.
#include "tests/faults/archive/rows.hpp"

namespace zot::test {
namespace {

constexpr std::int64_t eight_gib = std::int64_t{1} << 33U;

archive_row row(const std::string &name, const std::string &members, const std::string &answers) {
  return {name, {{archive_after(members), answers}}};
}

std::string sized(const std::string &field, const std::string &bytes = "x",
                  const std::string &name = "config/x", char type = '0') {
  return tar_blocks({.name = name, .bytes = bytes, .type = type, .size_field = field});
}

std::string sparse_by_records(const std::string &size) {
  return pax_header(pax_record("GNU.sparse.major", "1") + pax_record("GNU.sparse.minor", "0") +
                    pax_record("GNU.sparse.name", "config/holes") +
                    pax_record("GNU.sparse.realsize", size)) +
         tar_blocks({.name = "config/x", .bytes = "1\n0\n1\n" + std::string(506, '\0') + "x"});
}

std::string unsealed() {
  std::string member = tar_blocks({.name = "config/x", .bytes = "x"});
  member[0] = 'C';
  return member;
}

// Cuts at every half block. The last file lies in the scratch area already: it's in force as well.
archive_rows cut_archives() {
  archive_rows rows;
  const std::string whole = proper_members() + tar_end();
  const std::size_t last_member = proper_members().size() - 2 * tar_block;
  for (std::size_t size = 0; size < whole.size(); size += tar_block / 2) {
    rows.push_back({"archive cut after " + std::to_string(size) + " bytes",
                    {{gzip(whole.substr(0, size)), size >= last_member ? "?" : "C"}}});
  }
  const std::string packed = gzip(whole);
  for (std::size_t size = 0; size < packed.size(); size += packed.size() / 8) {
    rows.push_back({"packed archive cut after " + std::to_string(size) + " bytes",
                    {{packed.substr(0, size), "C"}}});
  }
  rows.push_back(
      {"packed archive without its last byte", {{packed.substr(0, packed.size() - 1), "C"}}});
  return rows;
}

std::string changed(std::string bytes, std::size_t from_end) {
  bytes[bytes.size() - from_end] = static_cast<char>(bytes[bytes.size() - from_end] ^ 0x55);
  return bytes;
}

}  // namespace

archive_rows header_rows(const row_setting & /*setting*/) {
  return {
      row("size of 2^33", sized(base_256(eight_gib)), "C"),
      row("size of 2^33 at a listed path", sized(base_256(eight_gib), "x", listed_file), "C"),
      row("size of 2^62", sized(base_256(std::int64_t{1} << 62U)), "C"),
      row("negative size", sized(base_256(-1)), "?"),
      row("most negative size", sized(base_256(INT64_MIN)), "?"),
      row("size of all sevens", sized("777777777777"), "C"),
      row("size that is no number", sized("no number"), "?"),
      row("size of blanks", sized("           "), "?"),
      row("size of a directory", sized("00000001000", std::string(512, 'x'), "config/d/", '5'),
          "?"),
      row("size of a link", sized("00000001000", std::string(512, 'x'), "config/l", '2'), "C"),
      row("size one block short", sized("00000000001", std::string(1024, 'x')), "?"),
      row("size beyond the end", sized("00000100000"), "C"),
      row("wrong checksum of a header", unsealed(), "?"),
      row("extended size that is larger",
          pax_header(pax_record("size", "99999999999")) +
              tar_blocks({.name = "config/x", .bytes = "x"}),
          "CCOO"),
      row("extended size that is negative",
          pax_header(pax_record("size", "-1")) + tar_blocks({.name = "config/x", .bytes = "x"}),
          "?"),
      row("extended size that is smaller",
          pax_header(pax_record("size", "1")) +
              tar_blocks({.name = "config/x", .bytes = std::string(2048, 'x')}),
          "?"),
      row("file with a hole of 1 TiB",
          sparse_file("config/holes", (std::uint64_t{1} << 40U) - 1, std::uint64_t{1} << 40U), "?"),
      row("file with a hole of 8 EiB, by records", sparse_by_records("9223372036854775807"), "?"),
      row("file with a hole of 1 TiB, by records", sparse_by_records("1099511627776"), "?"),
      row("hole that begins behind the end", sparse_file("config/holes", 1U << 30U, 1), "?"),
      row("listed file as a hole", sparse_file(listed_file, (1U << 30U) - 1, 1U << 30U), "C"),
  };
}

archive_rows packing_rows(const row_setting & /*setting*/) {
  const std::string whole = proper_members() + tar_end();
  const std::string packed = gzip(whole);
  archive_rows rows = cut_archives();
  const std::size_t half = 3 * tar_block;
  const archive_rows others = {
      {"nothing at all", {{"", "C"}}},
      {"archive without a member", {{gzip(tar_end()), "C"}}},
      {"packed nothing", {{gzip(""), "C"}}},
      {"archive that isn't packed", {{whole, "CC??"}}},
      {"archive packed twice", {{gzip(packed), "C"}}},
      {"text", {{"no archive at all", "C"}}},
      {"packed text", {{gzip(std::string(2000, 'n')), "C"}}},
      {"packed random-looking header", {{packed.substr(0, 10) + std::string(300, '\x5a'), "C"}}},
      {"packed with bytes behind it", {{packed + "behind", "?"}}},
      {"packed with zeros behind it", {{packed + std::string(2000, '\0'), "?"}}},
      {"packed in two pieces", {{gzip(whole.substr(0, half)) + gzip(whole.substr(half)), "O"}}},
      {"packed twice in a row", {{packed + packed, "O"}}},
      {"second packed archive brings a link",
       {{packed + gzip(tar_blocks({.name = "config/link", .type = '2', .target = "/"}) + tar_end()),
         "?"}}},
      {"member behind the archive's end",
       {{gzip(whole + tar_blocks({.name = "planted", .bytes = "x"})), "?"}}},
      {"wrong check value of the packing", {{changed(packed, 8), "C"}}},
      {"wrong size of the packing", {{changed(packed, 1), "C"}}},
      {"wrong byte in the packing", {{changed(packed, packed.size() / 2), "C"}}},
      {"name of another packing", {{"\xfd" + std::string("7zXZ\0\0", 6) + packed, "C"}}},
      {"only zeros", {{std::string(10240, '\0'), "C"}}},
  };
  rows.insert(rows.end(), others.begin(), others.end());
  return rows;
}

}  // namespace zot::test

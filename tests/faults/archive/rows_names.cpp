// SPDX-License-Identifier: Apache-2.0
// Names that are long, unusual, or stored in an extension of the format.
#include "tests/faults/archive/rows.hpp"

namespace zot::test {
namespace {

constexpr const char *taken = "O";

std::string file(const std::string &name, const std::string &bytes = "x") {
  return tar_blocks({.name = name, .bytes = bytes});
}

std::string long_file(const std::string &name) {
  return long_name(name) + file(name.substr(0, 100));
}

std::string pax_file(const std::string &records, const std::string &name = "config/x") {
  return pax_header(records) + file(name);
}

std::string path_of_length(std::size_t length) {
  std::string path = "config";
  while (path.size() + 201 < length) {
    path += "/" + std::string(200, 'd');
  }
  return path + "/" + std::string(length - path.size() - 1, 'f');
}

std::string control_characters() {
  std::string all;
  for (char each = 1; each < 0x20; ++each) {
    all += each;
  }
  return all + '\x7f';
}

archive_row row(const std::string &name, const std::string &members, const std::string &answers) {
  return {name, {{archive_after(members), answers}}};
}

archive_rows odd_names() {
  return {
      row("name of a hundred bytes", file(path_of_length(100)), taken),
      row("file name of 255 bytes", long_file("config/" + std::string(255, 'n')), taken),
      row("file name of 256 bytes", long_file("config/" + std::string(256, 'n')), "C"),
      row("path of 4,000 bytes", long_file(path_of_length(4000)), "?"),
      row("path of 4,095 bytes", long_file(path_of_length(4095)), "?"),
      row("path of 4,096 bytes", long_file(path_of_length(4096)), "?"),
      row("path of 100,000 bytes", long_file(path_of_length(100000)), "?"),
      row("newline in a name", file("config/a\nb"), taken),
      row("name of newlines", file("config/\n\n"), taken),
      row("control characters in a name", file("config/" + control_characters()), taken),
      row("escape sequence in a name", file("config/\x1b]0;owned\x07\x1b[2J"), taken),
      row("bytes that are no UTF-8", file("config/\xff\xfe\x80"), taken),
      row("empty name", file(""), "?"),
      row("blanks for a name", file("   "), "C"),
      row("name that looks like an option", file("-rf"), "C"),
      row("name that looks like an action", file("--checkpoint-action=exec=touch planted"), "C"),
      row("name that a shell would run", file("config/$(touch planted);`touch planted`"), taken),
      row("name of a backslash and digits", file("config/\\056\\056\\057x"), taken),
      row("file with a slash at its end", file("config/x/"), "?"),
      row("many slashes and dots", file("config////.//././x"), taken),
      row("name of dots", file("config/..."), taken),
      row("wildcards in a name", file("config/*?[a]"), taken),
      row("listed files once more, after a dot", file("./config/Wlan/office/6", "office six"),
          taken),
  };
}

archive_rows extended_names(const row_setting &to) {
  const std::string record_out = pax_record("path", to.way_out + "/planted");
  return {
      row("long name that climbs", long_file("config/../" + to.way_out + "/planted"), "C"),
      row("long name that is absolute", long_file(to.outside + "/planted"), "C"),
      row("long name of no member", long_name("config/x"), "?"),
      row("two long names for one member",
          long_name(to.way_out + "/planted") + long_file("config/x"), "?"),
      row("long name without an end",
          tar_blocks({.name = "././@LongLink", .bytes = std::string(512, 'n'), .type = 'L'}) +
              file("config/x"),
          "?"),
      row("long target that leads out",
          long_name(to.outside + std::string(200, '/') + "kept", 'K') +
              tar_blocks({.name = "config/link", .type = '2', .target = "x"}),
          "C"),
      row("extended name that climbs", pax_file(record_out), "C"),
      row("extended name that is absolute", pax_file(pax_record("path", to.outside + "/planted")),
          "C"),
      row("extended name of the next K", pax_file(pax_record("path", "subsys.k.tmp")), "C"),
      row("extended name with a zero byte",
          pax_file(pax_record("path", std::string("config/a\0b", 10))), "?"),
      row("extended target that leads out",
          pax_header(pax_record("linkpath", to.outside)) +
              tar_blocks({.name = "config/link", .type = '2', .target = "x"}),
          "C"),
      row("global name that climbs", pax_header(record_out, 'g') + file("config/x"), "?"),
      row("global name of every member",
          pax_header(pax_record("path", "config/all"), 'g') + proper_members(), "?"),
      row("extended owner and mode",
          pax_file(pax_record("uid", "12345") + pax_record("mode", "06777")), taken),
      row("extended time that no clock tells",
          pax_file(pax_record("mtime", "99999999999999999999.9")), "?"),
      row("extended header of nonsense", pax_file("nonsense"), "?"),
      row("extended record longer than its header", pax_file("999999999 path=config/y\n"), "?"),
      row("extended record of no length", pax_file("0 path=config/y\n"), "?"),
      row("extended record of a negative length", pax_file("-5 path=config/y\n"), "?"),
      row("extended header of 1 MiB", pax_file(pax_record("comment", std::string(1U << 20U, 'c'))),
          "?"),
      row("extended header of no member", pax_header(record_out), "?"),
  };
}

}  // namespace

archive_rows name_rows(const row_setting &setting) {
  archive_rows rows = odd_names();
  for (archive_row &each : extended_names(setting)) {
    rows.push_back(std::move(each));
  }
  return rows;
}

}  // namespace zot::test

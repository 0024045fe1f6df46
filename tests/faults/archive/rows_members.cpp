// SPDX-License-Identifier: Apache-2.0
// Members that are not files, have unusual modes, or replace something else.
#include "tests/faults/archive/rows.hpp"

namespace zot::test {
namespace {

constexpr const char *refused = "CCCC";
constexpr const char *taken = "OOOO";

struct member_case {
  std::string name;
  tar_member member;
  std::string answers;
  // What comes before the listed files may be replaced by them.
  bool is_last = true;
};

std::vector<member_case> devices() {
  return {
      {"character device", {.name = "config/null", .type = '3', .mode = 0666}, "CCCO"},
      {"character device at a listed path", {.name = listed_file, .type = '3'}, refused},
      {"block device", {.name = "config/disk", .type = '4', .mode = 0666}, "CCCO"},
      {"FIFO", {.name = "config/fifo", .type = '6'}, refused},
      {"FIFO at a listed path", {.name = listed_file, .type = '6'}, refused},
      {"FIFO at a listed path, before the file", {.name = listed_file, .type = '6'}, taken, false},
      {"FIFO named as K", {.name = "subsys.k", .type = '6'}, refused},
      {"FIFO named as the next K", {.name = "subsys.k.tmp", .type = '6'}, refused},
      {"FIFO named as the archive", {.name = "gpb.tgz", .type = '6'}, refused},
      {"contiguous file", {.name = "config/solid", .bytes = "x", .type = '7'}, "O"},
      {"member of no known type", {.name = "config/what", .bytes = "x", .type = 'Z'}, "OOCC"},
      {"volume label", {.name = "label", .type = 'V'}, "OOOO"},
      {"rest of a file of another volume", {.name = "config/m", .bytes = "x", .type = 'M'}, "????"},
      {"list of a directory", {.name = "config/d/", .bytes = "Yx", .type = 'D'}, "????"},
  };
}

std::vector<member_case> modes() {
  return {
      {"set-user-ID", {.name = "config/tool", .bytes = "x", .mode = 04755}, "C?C?"},
      {"set-group-ID", {.name = "config/tool", .bytes = "x", .mode = 02755}, "C?C?"},
      {"set-user-ID at a listed path",
       {.name = listed_file, .bytes = "office six", .mode = 06755},
       "C?C?"},
      {"sticky", {.name = "config/tool", .bytes = "x", .mode = 01644}, taken},
      {"set-group-ID of a directory", {.name = "config/d/", .type = '5', .mode = 02777}, taken},
      {"sticky directory", {.name = "config/d/", .type = '5', .mode = 01777}, taken},
      {"listed file that nobody may read",
       {.name = listed_file, .bytes = "office six", .mode = 0},
       "OCOC"},
      {"unlisted file that nobody may read", {.name = "config/x", .bytes = "x", .mode = 0}, taken},
      {"directory that nobody may enter", {.name = "config/Wlan/", .type = '5', .mode = 0}, taken},
      {"new directory that nobody may enter",
       {.name = "config/closed/", .type = '5', .mode = 0},
       taken},
      {"config that nobody may enter", {.name = "config/", .type = '5', .mode = 0}, taken},
      {"config that nobody may enter, first",
       {.name = "config/", .type = '5', .mode = 0},
       "O?O?",
       false},
      {"scratch directory that nobody may enter", {.name = "./", .type = '5', .mode = 0}, taken},
      {"scratch directory that nobody may enter, first",
       {.name = "./", .type = '5', .mode = 0},
       "O?O?",
       false},
      {"scratch directory open to all", {.name = "./", .type = '5', .mode = 01777}, taken},
      {"scratch directory of another owner",
       {.name = "./", .type = '5', .mode = 0755, .owner = 12345},
       taken},
      {"listed file of another owner",
       {.name = listed_file, .bytes = "office six", .owner = 12345},
       taken},
      {"every bit of a mode", {.name = "config/x", .bytes = "x", .mode = 07777777}, "C?C?"},
      {"mode that is no number",
       {.name = "config/x", .bytes = "x", .mode_field = "rwxrwxrw"},
       "????"},
  };
}

std::vector<member_case> places() {
  return {
      {"file over a directory of listed files", {.name = "config/Wlan", .bytes = "x"}, "CCCC"},
      {"file over a directory, first", {.name = "config/Wlan", .bytes = "x"}, "CCCC", false},
      {"directory over a listed file", {.name = "config/Wlan/office/6/", .type = '5'}, "????"},
      {"directory over a listed file, first",
       {.name = "config/Wlan/office/6/", .type = '5', .mode = 0755},
       "????",
       false},
      {"file below a listed file", {.name = "config/Wlan/office/6/x", .bytes = "x"}, "????"},
      {"file named config, first", {.name = "config", .bytes = "x"}, "CCCC", false},
      {"file named config", {.name = "config", .bytes = "x"}, "CCCC"},
      {"other K", {.name = "subsys.k", .bytes = "{}"}, refused},
      {"other checksum", {.name = "subsys.checksum", .bytes = std::string(64, 'a')}, refused},
      {"empty K", {.name = "subsys.k"}, refused},
      {"other archive", {.name = "gpb.tgz", .bytes = "x"}, "?"},
      {"directory named as K", {.name = "subsys.k/", .type = '5', .mode = 0755}, "?"},
      {"directory named as the archive", {.name = "gpb.tgz/", .type = '5', .mode = 0755}, "?"},
      {"directory named as the next K", {.name = "subsys.k.tmp/x", .bytes = "x"}, refused},
      {"file beside config", {.name = "planted", .bytes = "x"}, refused},
      {"hidden file beside config", {.name = ".planted", .bytes = "x"}, refused},
      {"directory beside config", {.name = "other/deep/planted", .bytes = "x"}, refused},
      {"file that K doesn't name", {.name = "config/Vlan/other/1", .bytes = "x"}, taken},
      {"same member again, wrong", {.name = listed_file, .bytes = "office SIX"}, refused},
      {"same member before, wrong", {.name = listed_file, .bytes = "no"}, taken, false},
      {"listed file one byte longer", {.name = listed_file, .bytes = "office six!"}, refused},
      {"listed file empty", {.name = listed_file}, refused},
      {"name that differs in case", {.name = "CONFIG/WLAN/OFFICE/6", .bytes = "x"}, refused},
      {"file that differs in case", {.name = "config/wlan/Office/6", .bytes = "office six"}, taken},
  };
}

}  // namespace

archive_rows member_rows(const row_setting & /*setting*/) {
  archive_rows rows;
  for (const auto &cases : {devices(), modes(), places()}) {
    for (const member_case &each : cases) {
      const std::string blocks = tar_blocks(each.member);
      rows.push_back(
          {.name = each.name,
           .steps = {{each.is_last ? archive_after(blocks) : archive_before(blocks), each.answers}},
           .spoils_k = names_k(blocks)});
    }
  }
  return rows;
}

}  // namespace zot::test

// SPDX-License-Identifier: Apache-2.0
// Names and links that lead out of the scratch directory, and members whose path goes through such
// a link.
#include "tests/faults/archive/rows.hpp"

namespace zot::test {
namespace {

constexpr const char *refused = "CCCC";

tar_member symlink(const std::string &name, const std::string &target) {
  return {.name = name, .type = '2', .target = target, .mode = 0777};
}

tar_member hard_link(const std::string &name, const std::string &target) {
  return {.name = name, .type = '1', .target = target};
}

tar_member planted(const std::string &name) {
  return {.name = name, .bytes = "planted"};
}

std::string blocks(const std::vector<tar_member> &members) {
  std::string all;
  for (const tar_member &member : members) {
    all += tar_blocks(member);
  }
  return all;
}

struct link_case {
  std::string name;
  std::vector<tar_member> members;
  std::string answers = refused;
};

std::vector<link_case> climbing(const row_setting &to) {
  const std::string &way = to.way_out;
  return {
      {"name climbs", {planted(way + "/planted")}},
      {"name climbs from config", {planted("config/../" + way + "/planted")}},
      {"name climbs from a folder of it", {planted("config/Wlan/../../" + way + "/planted")}},
      {"name climbs after a dot", {planted("./config/../../x")}},
      {"name climbs and comes back", {planted("config/../config/Wlan/x/1")}, "CCOO"},
      {"directory that climbs", {{.name = way + "/made/", .type = '5', .mode = 0777}}},
      {"directory above", {{.name = "..", .type = '5', .mode = 0777}}, "CCC?"},
      {"name is absolute", {planted(to.outside + "/planted")}},
      {"name is absolute, with more slashes", {planted("//" + to.outside + "//planted")}},
      {"name is the root", {{.name = "/", .type = '5', .mode = 0700}}, "O"},
      {"absolute name of a kept file", {planted(to.outside + "/kept")}},
  };
}

std::vector<link_case> symlinks(const row_setting &to) {
  const std::string kept = to.outside + "/kept";
  return {
      {"link out", {symlink("config/link", to.outside)}},
      {"link out and through it",
       {symlink("config/link", to.outside), planted("config/link/planted")}},
      {"link up and through it",
       {symlink("config/link", "../" + to.way_out), planted("config/link/planted")}},
      {"link to a file, then a file of its name",
       {symlink("config/link", kept), planted("config/link")},
       "OOCC"},
      {"link at a listed path", {symlink(listed_file, kept)}, "OOCC"},
      {"link at a folder of listed files",
       {symlink("config/Radio", to.outside), planted("config/Radio/r5/1")}},
      {"link named config", {symlink("config", to.outside), planted("config/planted")}},
      {"link named as the archive", {symlink("gpb.tgz", kept)}},
      {"link named as K", {symlink("subsys.k", kept)}},
      {"link named as the next K", {symlink("subsys.k.tmp", kept)}},
      {"link named as the next checksum", {symlink("subsys.checksum.tmp", kept)}},
      {"link beside config and through it", {symlink("link", to.outside), planted("link/planted")}},
      {"chain of links",
       {symlink("config/a", "b"), symlink("config/b", to.outside), planted("config/a/planted")}},
      {"links in a ring", {symlink("config/a", "b"), symlink("config/b", "a")}},
      {"link to itself", {symlink("config/self", "self"), planted("config/self/planted")}},
      {"link to nowhere", {symlink("config/link", "nowhere")}},
      {"link inside config", {symlink("config/Ap", "Wlan")}},
      {"link to an empty target", {symlink("config/link", "")}, "??CC"},
      {"link of the scratch directory's name", {symlink(".", to.outside)}, "??CC"},
      {"directory entry over a link",
       {symlink("config/link", to.outside), {.name = "config/link/", .type = '5', .mode = 0777}},
       "OOCC"},
  };
}

std::vector<link_case> hard_links(const row_setting &to) {
  const std::string kept = to.outside + "/kept";
  return {
      {"hard link to a file elsewhere", {hard_link("config/linked", kept)}},
      {"hard link that climbs", {hard_link("config/linked", to.way_out + "/kept")}},
      {"hard link to K", {hard_link("config/linked", "subsys.k")}},
      {"hard link to the archive", {hard_link("config/linked", "gpb.tgz")}},
      {"hard link to K, written through",
       {hard_link("config/linked", "subsys.k"), planted("config/linked")},
       "????"},
      {"hard link through a link",
       {symlink("config/link", to.outside), hard_link("config/linked", "config/link/kept")}},
      {"hard link to a link",
       {symlink("config/link", kept), hard_link("config/linked", "config/link")}},
      {"hard link to a link, written through",
       {symlink("config/link", kept), hard_link("config/linked", "config/link"),
        planted("config/linked")}},
      {"hard link within the archive",
       {planted("config/Ap/a/1"), hard_link("config/Ap/b/1", "config/Ap/a/1")}},
      {"hard link to nothing", {hard_link("config/linked", "config/nothing")}},
      {"hard link of a directory", {hard_link("config/linked", "config")}},
  };
}

archive_row two_in_a_row(const std::string &name, const tar_member &first, const tar_member &second,
                         const std::string &answers) {
  return {
      name,
      {{archive_before(blocks({first})), refused}, {archive_before(blocks({second})), answers}}};
}

}  // namespace

archive_rows link_rows(const row_setting &setting) {
  archive_rows rows;
  for (const auto &cases : {climbing(setting), symlinks(setting), hard_links(setting)}) {
    for (const link_case &each : cases) {
      const std::string members = blocks(each.members);
      rows.push_back({.name = each.name,
                      .steps = {{archive_before(members), each.answers}},
                      .spoils_k = names_k(members)});
    }
  }
  const std::string kept = setting.outside + "/kept";
  rows.push_back(two_in_a_row("link, and the next archive goes through it",
                              symlink("config/link", setting.outside),
                              planted("config/link/planted"), "OOOO"));
  rows.push_back(two_in_a_row("link named config, and the next archive goes through it",
                              symlink("config", setting.outside), planted("config/planted"),
                              "OOOO"));
  rows.push_back(two_in_a_row("link to a file, and the next archive writes it",
                              symlink("config/link", kept), planted("config/link"), "OOOO"));
  rows.push_back(two_in_a_row("hard link, and the next archive writes it",
                              hard_link("config/link", kept), planted("config/link"), "OOOO"));
  rows.push_back(two_in_a_row("link named as the archive, and the next is stored",
                              symlink("gpb.tgz", kept), planted("config/file"), "OOOO"));
  // After the files, so that a listed one isn't missing for want of the link's place.
  rows.push_back({"link out, at the end",
                  {{archive_after(blocks({symlink("config/link", setting.outside)})), refused}}});
  rows.push_back({"link at a listed path, at the end",
                  {{archive_after(blocks({symlink(listed_file, kept)})), refused}}});
  rows.push_back({"other bytes for a file in force, and a link",
                  {{archive_after(blocks({{.name = file_in_force, .bytes = "OFFICE FIVE"},
                                          symlink("config/link", setting.outside)})),
                    refused}}});
  rows.push_back({"other size for a file in force, and a link",
                  {{archive_after(blocks({{.name = file_in_force, .bytes = "six"},
                                          symlink("config/link", setting.outside)})),
                    refused}}});
  return rows;
}

}  // namespace zot::test

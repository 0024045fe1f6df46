// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/archive_check.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "tools/files/archive_reader.hpp"
#include "tools/probe/stop_request.hpp"

namespace zotconf {
namespace {

// As the library calculates it: a member may have long names, and an archive ends with zeros.
constexpr uint64_t overhead_of_member = 8192;
constexpr uint64_t overhead_of_archive = 65536;
constexpr auto deepest_folder = 64;

using named_files = std::map<std::string, const listed_file *>;

named_files by_name(std::span<const listed_file> files) {
  named_files names;
  for (const listed_file &file : files) {
    names.emplace(path_of(file, "").string(), &file);
  }
  return names;
}

// Without what tar accepts around a name: "./" before it, and a slash after that of a folder.
std::string plain_name(std::string name) {
  if (name.starts_with("./")) {
    name.erase(0, 2);
  }
  while (name.ends_with('/')) {
    name.pop_back();
  }
  return name;
}

bool is_good_folder(const std::string &name) {
  const fs::path path(name);
  const bool is_below = name == "config" || name.starts_with("config/");
  return name.empty() || name == "." ||
         (is_below && std::ranges::find(path, "..") == path.end() &&
          std::distance(path.begin(), path.end()) <= deepest_folder);
}

// Why the library or its tar would not take a member as one of the requested files; empty: it
// would.
std::string wrong_in(const archive_member &member, const named_files &wanted) {
  if (member.kind == member_kind::other) {
    return member.name + " is neither a plain file nor a folder";
  }
  const std::string name = plain_name(member.name);
  if (member.kind == member_kind::folder) {
    return is_good_folder(name) ? "" : "the folder " + member.name + " is not below config";
  }
  if (!wanted.contains(name)) {
    return member.name + " was not requested";
  }
  return member.has_set_id ? member.name + " has a set-user-ID or set-group-ID bit" : "";
}

void expect_members(const fs::path &archive, std::span<const listed_file> files) {
  const named_files wanted = by_name(files);
  std::set<std::string> missing;
  for (const auto &[name, file] : wanted) {
    missing.insert(name);
  }
  for (const archive_member &member : members_of(archive, largest_archive(files))) {
    if (const std::string wrong = wrong_in(member, wanted); !wrong.empty()) {
      throw std::runtime_error(wrong);
    }
    missing.erase(plain_name(member.name));
  }
  if (!missing.empty()) {
    throw std::runtime_error(*missing.begin() + " is missing");
  }
}

}  // namespace

uint64_t largest_archive(std::span<const listed_file> files) {
  uint64_t size = overhead_of_archive;
  for (const listed_file &file : files) {
    size += overhead_of_member + (file.size <= INT32_MAX ? file.size : 0);
  }
  return size;
}

void expect_archive(const fs::path &archive, std::span<const listed_file> files,
                    const fs::path &folder) {
  expect_members(archive, files);
  std::map<std::string, wanted_member> wanted;
  for (const listed_file &file : files) {
    const fs::path to = path_of(file, folder);
    fs::create_directories(to.parent_path());
    wanted[path_of(file, "").string()] = {.to = to, .longest = file.size};
  }
  unpack(archive, wanted);
  for (const listed_file &file : files) {
    stop_request::expect_none();
    if (const auto wrong = check_file(file, folder)) {
      throw std::runtime_error(path_of(file, "").string() +
                               " is not the file that K states: " + described(*wrong));
    }
  }
}

}  // namespace zotconf

// SPDX-License-Identifier: Apache-2.0
#include "tools/output/hint.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zotconf {
namespace {

constexpr std::string_view before_file = "http return code = 0";
constexpr std::string_view after_answer = "http return code = 200";

// Whether the file belongs to another user and cannot be replaced: in a folder with the sticky bit,
// only the owner of a file or of the folder can replace it.
bool stays(const std::filesystem::path &folder, const char *name) {
  const uid_t user = ::geteuid();
  struct stat at {};
  if (::stat(folder.c_str(), &at) != 0 || (at.st_mode & S_ISVTX) == 0 || at.st_uid == user) {
    return false;
  }
  return ::lstat((folder / name).c_str(), &at) == 0 && at.st_uid != user;
}

// Why the file cannot be written to the folder now; empty if it can.
std::string obstacle_to(const std::filesystem::path &folder, const char *name) {
  if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    return std::strerror(errno);
  }
  struct statvfs found {};
  if (::statvfs(folder.c_str(), &found) != 0) {
    return std::strerror(errno);
  }
  if (found.f_bavail == 0) {
    return "its file system is full";
  }
  if (found.f_files != 0 && found.f_favail == 0) {
    return "its file system has no free inode";
  }
  return stays(folder, name) ? std::string(name) + " in it belongs to another user" : "";
}

}  // namespace

std::string hint_of(std::string_view text, const std::filesystem::path &folder) {
  const bool is_answered = text.ends_with(after_answer);
  if (!is_answered && !text.ends_with(before_file)) {
    return "";
  }
  const std::string begin = is_answered
                                ? "the service responded, but the response could not be stored in "
                                : "no request was sent: the response could not be stored in ";
  const bool is_checksum = text.find(" K.checksum from ") != std::string_view::npos;
  const std::string obstacle = obstacle_to(folder, is_checksum ? "subsys.checksum" : "subsys.k");
  if (!obstacle.empty()) {
    return begin + folder.string() + ": " + obstacle;
  }
  return begin + folder.string() +
         (is_answered ? ": the response was empty, or another program removed files there"
                      : ", but the cause no longer exists");
}

}  // namespace zotconf
